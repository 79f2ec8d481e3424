// The event log's records as a file of the host, for a PC that is kept between runs.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "platform/virtual/eventlog/event_log.h"

namespace virtual_pc {

// A record a line, in UTF-8: its number, its clock in 100-ns units, type, category, id, data in
// hexadecimal digits, source, and strings, with tabs between them.
//
// The file is replaced as a whole. Throws std::runtime_error "FILE: cannot be written".
void WriteEventFile(const std::string& file, const std::deque<EventRecord>& records,
                    std::uint64_t first_number);

struct EventFile
{
    std::deque<EventRecord> records;
    std::uint64_t first_number = 1;
};

// Empty where the file is not there. Throws std::runtime_error "FILE:LINE: what is wrong".
EventFile ReadEventFile(const std::string& file);

}  // namespace virtual_pc
