// The published state as JSON, and a line of the history, which is the same with what has happened
// in place of what comes next.
#pragma once

#include <string>

#include "json/json_writer.h"
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

// The members that both have, but for the state, its time and its reason: the same for each record
// that is made of a snapshot, and for those of states that it passed through.
JsonObject FactsOf(const Snapshot& now);

// What a line of the history tells.
enum class RecordEvent
{
    start,  // the service's
    change,
    stop,
};
// `charge` is the battery's, in percent; nothing where it is not known.
std::wstring HistoryRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts,
                           RecordEvent event, std::optional<int> charge);

// `running` is false in the last record of a process.
std::wstring PublishedRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts,
                             const NextTimers& next, bool running);
