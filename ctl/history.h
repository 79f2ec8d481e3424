// The history, as the service has written it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "json/json_value.h"

// A line, and the members of it by which lines are put in order.
struct HistoryRecord
{
    UtcTime utc = 0;
    std::int64_t tick = 0;  // milliseconds since the PC was started
    std::int64_t number = 0;
    std::wstring boot;
    JsonValue line;
};

struct History
{
    // In the order in which they were written: by the starts of the PC, and within one by their
    // numbers. A clock that was set back does not disturb that.
    std::vector<HistoryRecord> records;
    int torn_lines = 0;  // that cannot be read
};

// Adds the lines of a file.
void AddLines(std::string_view file, History& history);
void PutInOrder(History& history);

// All files, in order.
History ReadHistory();
