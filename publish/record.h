// The published state as JSON, and a line of the history, which is the same with what has happened
// in place of what comes next.
#pragma once

#include <string>

#include "json/utc.h"
#include "publish/snapshot.h"

// Who tells, and when.
struct RecordHead
{
    UtcTime utc;
    int minutes_ahead;   // of UTC
    std::uint64_t tick;  // the milliseconds of GetTickCount64 at `utc`
    std::wstring boot;
    std::uint64_t number;  // of the record, since the PC was started
    DWORD process_id;
    UtcTime process_started;
};

// What a line of the history tells.
enum class RecordEvent
{
    start,  // the service's
    change,
    stop,
};
std::wstring HistoryRecord(const RecordHead& head, const Snapshot& now, RecordEvent event);

// `running` is false in the last record of a process.
std::wstring PublishedRecord(const RecordHead& head, const Snapshot& now, const NextTimers& next,
                             bool running);
