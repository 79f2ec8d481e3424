#include "log/event_source.h"

#include <algorithm>
#include <atomic>
#include <cwchar>

#include "log/console.h"
#include "platform/module.h"
#include "platform/owned.h"

namespace {

constexpr const wchar_t* kServiceSourceName = L"HOLVService";

constexpr WORD kCategory = 1;  // "NeverSleep Agent Service" in the message table

struct EventType
{
    DWORD level;
    WORD type;
};

// Milestones are reported as success, not as information.
constexpr EventType kEventTypes[] = {
    {1, EVENTLOG_SUCCESS},          {3, EVENTLOG_ERROR_TYPE},       {4, EVENTLOG_WARNING_TYPE},
    {5, EVENTLOG_INFORMATION_TYPE}, {6, EVENTLOG_INFORMATION_TYPE},
};

WORD EventTypeOf(DWORD level)
{
    const auto* row = std::ranges::find(kEventTypes, level, &EventType::level);
    return row == std::end(kEventTypes) ? WORD{EVENTLOG_SUCCESS} : row->type;
}

std::atomic<bool> g_bRunsAsService{false};

void Report(const wchar_t* source, WORD type, WORD category, DWORD id, const wchar_t* text)
{
    const OwnedEventSource log(RegisterEventSourceW(nullptr, source));
    if (!log) return;
    LPCWSTR strings[] = {text};
    ReportEventW(log.Get(), type, category, id, nullptr, 1, 0, strings, nullptr);
}

// A failed write is ignored: only the viewer then lacks the texts.
void SetPath(const OwnedKey& key, const wchar_t* name, const wchar_t* path)
{
    RegSetValueExW(key.Get(), name, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(path),
                   static_cast<DWORD>((std::wcslen(path) + 1) * sizeof(wchar_t)));
}

void SetNumber(const OwnedKey& key, const wchar_t* name, DWORD value)
{
    RegSetValueExW(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                   sizeof(value));
}

}  // namespace

void InstallEventLogSource(DWORD categoryCount)
{
    wchar_t path[MAX_PATH];
    FormatText(path, LR"(SYSTEM\CurrentControlSet\Services\EventLog\Application\%s)",
               kEventSourceName);
    wchar_t line[MAX_PATH + 64];
    OwnedKey key;
    const LSTATUS status = RegCreateKeyW(HKEY_LOCAL_MACHINE, path, key.Receive());
    if (status != ERROR_SUCCESS) {
        FormatText(line, L"Unable to create event service key for %s, error=%d\n", kEventSourceName,
                   status);
        OutputDebugStringW(line);
        return;
    }
    FormatText(line, L"EventSource (%s) is registered\n", path);
    OutputDebugStringW(line);

    wchar_t executable[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, executable, MAX_PATH);
    constexpr DWORD kTypesSupported =
        EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    SetPath(key, L"EventMessageFile", executable);
    SetNumber(key, L"TypesSupported", kTypesSupported);
    if (categoryCount == 0) return;
    SetPath(key, L"CategoryMessageFile", executable);
    SetNumber(key, L"CategoryCount", categoryCount);
}

void ReportToEventLog(const wchar_t* text, DWORD level)
{
    Report(kEventSourceName, EventTypeOf(level), kCategory, kEventId,
           text ? text : L"cannot log a null message");
}

void SetRunsAsService(bool runs) { g_bRunsAsService = runs; }

void LogPackedEvent(const wchar_t* format, std::span<const FormatArgument> arguments)
{
    wchar_t text[256];
    FormatPacked(text, format, arguments);
    if (!g_bRunsAsService) PrintToConsole(L"%s\n", text);
    Report(kServiceSourceName, EVENTLOG_INFORMATION_TYPE, 0, 0, text);
}
