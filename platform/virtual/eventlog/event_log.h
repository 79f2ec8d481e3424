// The Application event log and its viewer.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/eventlog.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/eventlog/message_file.h"

namespace virtual_pc {

class Machine;

struct EventRecord
{
    CalendarTime clock;  // set by the log
    std::wstring source;
    WORD type = 0;
    WORD category = 0;
    DWORD event_id = 0;
    std::vector<std::wstring> strings;
    std::vector<BYTE> data;
};

class EventLog
{
public:
    explicit EventLog(Machine& machine) : m_machine(machine) {}

    // The last kRecordsKept: the log overwrites the oldest, as the real one does in its 20 MB.
    const std::deque<EventRecord>& records() const { return m_records; }
    // The number of the first of them; the log counts from 1.
    std::uint64_t oldest() const { return m_oldest; }
    void Add(EventRecord record);
    static constexpr std::size_t kRecordsKept = 15'000;

    // Gives a module on the PC's disk the message texts of a file in the message compiler's form,
    // in place of those it had. Throws std::runtime_error "FILE:LINE: what is wrong".
    void AddMessageFile(std::wstring_view module_path, const std::string& messages);

    // For a PC that is kept: the records of its last run, and the file for its next one
    // (event_file.h says what they throw). A file that is not there has none.
    void Load(const std::string& file);
    void Save(const std::string& file) const;

    // What the viewer shows: the message text with its insertions, found through the source's
    // registration; or, when that finds no text, that the description cannot be found, and the
    // insertion strings.
    std::wstring Text(const EventRecord& record) const;
    // The category's name, or its number in parentheses where no file names it; "None" for 0.
    std::wstring Category(const EventRecord& record) const;

private:
    void DropOldest();
    const std::wstring* FindMessage(const std::wstring& source, std::wstring_view file_value,
                                    DWORD id) const;

    Machine& m_machine;
    std::deque<EventRecord> m_records;
    std::uint64_t m_oldest = 1;
    std::map<std::wstring, MessageTable, NoCase> m_messages;  // by module
};

}  // namespace virtual_pc
