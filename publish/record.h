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
    JsonObject process;    // its id and when it was started
};

JsonObject ProcessRecord(DWORD id, UtcTime started);

// The members that both have, but for the head, the state, its time and its reason: the same for
// each record that is made of a snapshot, and for those of states that it passed through.
JsonObject FactsOf(const Snapshot& now);
// All members that both have.
JsonObject CommonRecord(const RecordHead& head, const Snapshot& now, const JsonObject& facts);

// What a line of the history tells.
enum class RecordEvent
{
    start,  // the service's
    change,
    stop,
};
// `charge` is the battery's, in percent; nothing where it is not known.
std::wstring HistoryRecord(JsonObject common, const Snapshot& now, RecordEvent event,
                           std::optional<int> charge);

// `running` is false in the last record of a process.
std::wstring PublishedRecord(JsonObject common, const RecordHead& head, const Snapshot& now,
                             const NextTimers& next, bool running);
