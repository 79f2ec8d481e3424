#include "ctl/service_events.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "log/event_source.h"
#include "platform/owned.h"

namespace {

using OwnedEventLog = Owned<HANDLE, CloseEventLog>;

// The text at an offset of a record, to its terminator; nothing where the record ends before that.
std::optional<std::wstring> TextAt(const std::vector<BYTE>& record, std::size_t offset)
{
    std::wstring text;
    for (; offset + sizeof(wchar_t) <= record.size(); offset += sizeof(wchar_t)) {
        wchar_t character;
        std::memcpy(&character, record.data() + offset, sizeof(character));
        if (character == L'\0') return text;
        text += character;
    }
    return std::nullopt;
}

UtcTime FromUnixTime(DWORD seconds)
{
    constexpr UtcTime k1970 = 11'644'473'600;  // seconds since 1601
    return (k1970 + seconds) * 1000 * kUnitsPerMs;
}

// "HOLV - FUNCTION   MESSAGE" as the log's call has put it together.
void SplitText(std::wstring_view text, ServiceEvent& event)
{
    constexpr std::wstring_view kBefore = L"HOLV - ", kBetween = L"   ", kBlanks = L" \r\n\t";
    if (text.starts_with(kBefore)) text.remove_prefix(kBefore.size());
    const std::size_t between = text.find(kBetween);
    if (between != text.npos) {
        event.function = text.substr(0, between);
        text.remove_prefix(between + kBetween.size());
    }
    event.message = text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Nothing for a record of another source, or of another form.
std::optional<ServiceEvent> EventIn(const std::vector<BYTE>& record)
{
    constexpr DWORD kCode = 0xFFFF;  // of an id; the rest tells severity and facility
    EVENTLOGRECORD head{};
    std::memcpy(&head, record.data(), sizeof(head));
    if ((head.EventID & kCode) != kEventId || head.NumStrings == 0) return std::nullopt;
    if (TextAt(record, sizeof(head)) != kEventSourceName) return std::nullopt;
    const auto text = TextAt(record, head.StringOffset);
    if (!text) return std::nullopt;
    ServiceEvent event{.utc = FromUnixTime(head.TimeGenerated), .type = head.EventType};
    SplitText(*text, event);
    return event;
}

// Takes the whole records that were read.
void TakeRecords(const std::vector<BYTE>& buffer, std::size_t size, ServiceEvents& found)
{
    for (std::size_t at = 0; size - at >= sizeof(EVENTLOGRECORD);) {
        DWORD length = 0;
        std::memcpy(&length, buffer.data() + at, sizeof(length));
        if (length < sizeof(EVENTLOGRECORD) || length > size - at) return;
        const auto* const first = buffer.data() + at;
        if (auto event = EventIn({first, first + length}))
            found.events.push_back(std::move(*event));
        at += length;
    }
}

}  // namespace

ServiceEvents ReadServiceEvents()
{
    constexpr DWORD kFlags = EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ;
    ServiceEvents found;
    const OwnedEventLog log(OpenEventLogW(nullptr, L"Application"));
    if (!log) {
        found.error = GetLastError();
        return found;
    }
    std::vector<BYTE> buffer(std::size_t{1} << 16);
    for (;;) {
        DWORD read = 0, needed = 0;
        if (ReadEventLogW(log.Get(), kFlags, 0, buffer.data(), static_cast<DWORD>(buffer.size()),
                          &read, &needed)) {
            if (read == 0) return found;
            TakeRecords(buffer, std::min<std::size_t>(read, buffer.size()), found);
            continue;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_INSUFFICIENT_BUFFER && needed > buffer.size()) {
            buffer.resize(needed);
            continue;
        }
        if (error != ERROR_HANDLE_EOF) found.error = error;
        return found;
    }
}
