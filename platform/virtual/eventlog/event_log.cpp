#include "platform/virtual/eventlog/event_log.h"

#include <cwctype>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/eventlog/event_file.h"
#include "platform/virtual/registry/registry.h"

namespace virtual_pc {
namespace {

constexpr std::wstring_view kSources =
    LR"(HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\)";
constexpr std::wstring_view kLineEnd = L"\r\n";

bool IsDigit(wchar_t character) { return character >= L'0' && character <= L'9'; }

// The number of one or two digits at `place`, which moves behind it.
std::size_t TakeNumber(std::wstring_view text, std::size_t& place)
{
    std::size_t number = 0;
    for (int digits = 0; digits < 2 && place < text.size() && IsDigit(text[place]); ++digits) {
        number = number * 10 + static_cast<std::size_t>(text[place++] - L'0');
    }
    return number;
}

// Puts the strings in: %1 to %99. %0 ends the text, %n is a line end, and any other character
// after the sign stands for itself. The line end that closes a message is not shown.
std::wstring Insert(std::wstring_view message, const std::vector<std::wstring>& strings)
{
    if (message.ends_with(kLineEnd)) message.remove_suffix(kLineEnd.size());
    std::wstring text;
    for (std::size_t place = 0; place < message.size();) {
        const wchar_t character = message[place++];
        if (character != L'%' || place == message.size()) {
            text += character;
        } else if (message[place] == L'0') {
            break;
        } else if (IsDigit(message[place])) {
            const std::size_t from = place - 1;
            const std::size_t number = TakeNumber(message, place);
            text += number <= strings.size() ? std::wstring_view(strings[number - 1])
                                             : message.substr(from, place - from);
        } else {
            const wchar_t code = message[place++];
            text += code == L'n' ? kLineEnd : std::wstring_view(&code, 1);
        }
    }
    return text;
}

}  // namespace

// Effect "event": the record's `source`, `type`, `category` and `id`, and `text`, as the viewer
// would show it at that moment.
void EventLog::Add(EventRecord record)
{
    const Hold hold(m_machine);
    record.clock = m_machine.clock();
    if (m_machine.journal.Listened("event")) {
        m_machine.journal.Record("event", {{"source", record.source},
                                           {"type", std::uint64_t{record.type}},
                                           {"category", std::uint64_t{record.category}},
                                           {"id", std::uint64_t{record.event_id}},
                                           {"text", Text(record)}});
    }
    m_records.push_back(std::move(record));
    DropOldest();
}

void EventLog::DropOldest()
{
    for (; m_records.size() > kRecordsKept; ++m_oldest) m_records.pop_front();
}

void EventLog::Load(const std::string& file)
{
    EventFile kept = ReadEventFile(file);
    const Hold hold(m_machine);
    m_records = std::move(kept.records);
    m_oldest = kept.first_number;
    DropOldest();
}

void EventLog::Save(const std::string& file) const
{
    const Hold hold(m_machine);
    WriteEventFile(file, m_records, m_oldest);
}

void EventLog::AddMessageFile(std::wstring_view module_path, const std::string& messages)
{
    MessageTable table = ReadMessageFile(messages);
    const Hold hold(m_machine);
    m_messages[std::wstring(module_path)] = std::move(table);
}

std::wstring EventLog::Text(const EventRecord& record) const
{
    const Hold hold(m_machine);
    const std::wstring* message = FindMessage(record.source, L"EventMessageFile", record.event_id);
    if (message) return Insert(*message, record.strings);

    // The viewer shows the code in the low half of an id; the high half tells its severity.
    std::wstring text = L"The description for Event ID " +
                        std::to_wstring(record.event_id & 0xFFFF) + L" from source " +
                        record.source +
                        L" cannot be found. The following information was included with the "
                        L"event: ";
    const wchar_t* separator = L"";
    for (const std::wstring& string : record.strings) {
        text += separator + string;
        separator = L"; ";
    }
    return text;
}

std::wstring EventLog::Category(const EventRecord& record) const
{
    const Hold hold(m_machine);
    if (record.category == 0) return L"None";
    const std::wstring* name = FindMessage(record.source, L"CategoryMessageFile", record.category);
    return name ? Insert(*name, {}) : L"(" + std::to_wstring(record.category) + L")";
}

// The text of an id in the modules that the source's value names, separated by semicolons.
const std::wstring* EventLog::FindMessage(const std::wstring& source, std::wstring_view file_value,
                                          DWORD id) const
{
    const auto files = m_machine.registry.GetString(std::wstring(kSources) + source, file_value);
    if (!files) return nullptr;
    for (std::size_t from = 0; from <= files->size();) {
        const std::size_t to = std::min(files->find(L';', from), files->size());
        const auto module = m_messages.find(files->substr(from, to - from));
        if (module != m_messages.end()) {
            const auto message = module->second.find(id);
            if (message != module->second.end()) return &message->second;
        }
        from = to + 1;
    }
    return nullptr;
}

}  // namespace virtual_pc
