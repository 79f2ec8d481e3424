// Event sources and their reports.

#include "platform/eventlog.h"

#include <cwchar>

#include "platform/virtual/core/call.h"
#include "platform/virtual/eventlog/event_log.h"

using namespace virtual_pc;

namespace {

// Only the log of this PC can be opened.
constexpr DWORD kErrorServerUnavailable = 1722;

constexpr DWORD kErrorInvalidBound = 1734;
constexpr std::size_t kLongestString = 31'839;  // characters
constexpr DWORD kMostData = 61'440;             // bytes

class EventSource final : public Object
{
public:
    explicit EventSource(std::wstring name) : m_name(std::move(name)) {}
    std::string_view Kind() const override { return "event source"; }
    std::wstring Name() const override { return m_name; }

private:
    std::wstring m_name;
};

Function fn_register_event_source{"RegisterEventSourceW"};
Function fn_deregister_event_source{"DeregisterEventSource", Failing::last_error, Role::releases};
Function fn_report_event{"ReportEventW"};

}  // namespace

extern "C" {

HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source)
{
    Call call(fn_register_event_source);
    if (call.Fails()) return nullptr;
    DWORD error = NO_ERROR;
    if (server && *server) error = kErrorServerUnavailable;
    if (!source || !*source) error = ERROR_INVALID_PARAMETER;
    if (error == NO_ERROR) return call.Open(std::make_shared<EventSource>(source));
    call.Fail(error);
    return nullptr;
}

BOOL WINAPI DeregisterEventSource(HANDLE log)
{
    return CloseHandleOf<EventSource>(fn_deregister_event_source, log);
}

BOOL WINAPI ReportEventW(HANDLE log, WORD type, WORD category, DWORD eventId, PSID,
                         WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID data)
{
    Call call(fn_report_event);
    if (call.Fails()) return FALSE;
    const auto* source = call.Find<EventSource>(log);
    if (!source) return FALSE;
    if ((stringCount > 0 && !strings) || (dataSize > 0 && !data)) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    bool too_long = dataSize > kMostData;
    for (WORD i = 0; i < stringCount; ++i) {
        too_long = too_long || (strings[i] && std::wcslen(strings[i]) > kLongestString);
    }
    if (too_long) return call.Fail(kErrorInvalidBound);
    EventRecord record{{}, source->Name(), type, category, eventId, {}, {}};
    for (WORD i = 0; i < stringCount; ++i) {
        record.strings.emplace_back(strings[i] ? strings[i] : L"");
    }
    const auto* bytes = static_cast<const BYTE*>(data);
    if (dataSize > 0) record.data.assign(bytes, bytes + dataSize);
    call.machine.event_log.Add(std::move(record));
    return TRUE;
}
}
