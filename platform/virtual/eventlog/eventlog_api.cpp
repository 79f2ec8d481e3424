// Event sources and their reports, and the log's records as programs read them.

#include "platform/eventlog.h"

#include <algorithm>
#include <cstring>
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

// A log that a program reads, and how far it has come.
class OpenLog final : public Object
{
public:
    std::string_view Kind() const override { return "event log"; }
    std::wstring Name() const override { return L"Application"; }

    std::uint64_t next = 1;  // the number of the record that is read next
};

constexpr std::wstring_view kComputer = L"PC";

void AddText(std::vector<BYTE>& bytes, std::wstring_view text)
{
    const std::wstring terminated(text);
    const auto* const first = reinterpret_cast<const BYTE*>(terminated.c_str());
    bytes.insert(bytes.end(), first, first + (terminated.size() + 1) * sizeof(wchar_t));
}

DWORD ToUnixTime(CalendarTime local)
{
    constexpr std::chrono::seconds k1970{11'644'473'600};  // since 1601
    return static_cast<DWORD>(
        std::chrono::floor<std::chrono::seconds>(local - kEastOfUtc - k1970).count());
}

std::vector<BYTE> BytesOf(const EventRecord& record, std::uint64_t number)
{
    constexpr DWORD kSignature = 0x654C664C;
    EVENTLOGRECORD head{};
    std::vector<BYTE> bytes(sizeof(head));
    const auto place = [&] { return static_cast<DWORD>(bytes.size()); };
    AddText(bytes, record.source);
    AddText(bytes, kComputer);
    head.UserSidOffset = head.StringOffset = place();
    for (const std::wstring& string : record.strings) AddText(bytes, string);
    head.DataOffset = place();
    bytes.insert(bytes.end(), record.data.begin(), record.data.end());
    bytes.resize((bytes.size() + sizeof(DWORD) - 1) / sizeof(DWORD) * sizeof(DWORD));
    head.Length = static_cast<DWORD>(bytes.size() + sizeof(DWORD));
    head.Reserved = kSignature;
    head.RecordNumber = static_cast<DWORD>(number);
    head.TimeGenerated = head.TimeWritten = ToUnixTime(record.clock);
    head.EventID = record.event_id;
    head.EventType = record.type;
    head.NumStrings = static_cast<WORD>(record.strings.size());
    head.EventCategory = record.category;
    head.DataLength = static_cast<DWORD>(record.data.size());
    std::memcpy(bytes.data(), &head, sizeof(head));
    bytes.resize(head.Length);
    std::memcpy(bytes.data() + head.Length - sizeof(DWORD), &head.Length, sizeof(DWORD));
    return bytes;
}

Function fn_register_event_source{"RegisterEventSourceW"};
Function fn_deregister_event_source{"DeregisterEventSource", Failing::last_error, Role::releases};
Function fn_report_event{"ReportEventW"};
Function fn_open_event_log{"OpenEventLogW"};
Function fn_close_event_log{"CloseEventLog", Failing::last_error, Role::releases};
Function fn_read_event_log{"ReadEventLogW"};

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

HANDLE WINAPI OpenEventLogW(LPCWSTR server, LPCWSTR name)
{
    Call call(fn_open_event_log);
    if (call.Fails()) return nullptr;
    if (name && *name && (!server || !*server)) return call.Open(std::make_shared<OpenLog>());
    call.Fail(name && *name ? kErrorServerUnavailable : ERROR_INVALID_PARAMETER);
    return nullptr;
}

BOOL WINAPI CloseEventLog(HANDLE log) { return CloseHandleOf<OpenLog>(fn_close_event_log, log); }

BOOL WINAPI ReadEventLogW(HANDLE handle, DWORD flags, DWORD, LPVOID buffer, DWORD size, DWORD* read,
                          DWORD* needed)
{
    Call call(fn_read_event_log);
    if (call.Fails()) return FALSE;
    // From a record of one's choice, or backwards, no program here reads.
    const bool known = flags == (EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ);
    if (!known || !buffer || !read || !needed) return call.Fail(ERROR_INVALID_PARAMETER);
    auto* log = call.Find<OpenLog>(handle);
    if (!log) return FALSE;
    *read = *needed = 0;
    const auto& records = call.machine.event_log.records();
    const std::uint64_t oldest = call.machine.event_log.oldest();
    for (log->next = std::max(log->next, oldest); log->next - oldest < records.size();
         ++log->next) {
        const std::vector<BYTE> bytes = BytesOf(records[log->next - oldest], log->next);
        if (bytes.size() > size - *read) {
            if (*read > 0) return TRUE;
            *needed = static_cast<DWORD>(bytes.size());
            return call.Fail(ERROR_INSUFFICIENT_BUFFER);
        }
        std::memcpy(static_cast<BYTE*>(buffer) + *read, bytes.data(), bytes.size());
        *read += static_cast<DWORD>(bytes.size());
    }
    return *read > 0 ? TRUE : call.Fail(ERROR_HANDLE_EOF);
}
}
