// What the PC did: made from the history, and from what the service has reported to the event log.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ctl/history.h"
#include "ctl/service_events.h"

// What a stretch of time was spent in. The first are the service's states.
enum class Spent
{
    normal,
    active,
    idle,
    hours,
    asleep,
    off,      // the feature is off
    stopped,  // the service, or the PC
    unknown,  // after the last line of a process that was killed, or of a power cut
};
inline constexpr int kSpentCount = static_cast<int>(Spent::unknown) + 1;

// How each is called: for programs, and for people.
const wchar_t* SpentName(Spent spent);
const wchar_t* SpentTitle(Spent spent);

// A stretch of time by the local clock, in milliseconds since 1601. With a clock that was set, two
// stretches may overlap or leave a gap; `length` is what has really passed.
struct Stretch
{
    Spent spent;
    std::int64_t begin;
    std::int64_t length;
};

struct ReportDay
{
    std::array<std::int64_t, kSpentCount> ms{};
    std::vector<Stretch> stretches;  // each within the day
    std::int64_t on_battery_ms = 0;
    // Of the battery's charge, in percent: what was used, and the lowest that is known.
    int charge_used = 0;
    std::optional<int> lowest_charge;
    std::map<std::wstring, std::int64_t> held_ms;  // by the holder of a power request
    bool before_history = false;                   // told from the event log alone
};

// Something that happened at a time, in a sentence.
struct ReportedEvent
{
    UtcTime utc;
    int minutes_ahead;
    const wchar_t* kind;  // "sleep", "wake", "plan", "mute", "clock", "gap", "correction",
                          // "error"
    std::wstring text;
};

struct Report
{
    std::map<std::int64_t, ReportDay> days;  // by local days since 1601
    std::vector<ReportedEvent> events;
    std::size_t records = 0;
    int torn_lines = 0;
    // When the history begins, and the local clock's minutes ahead of UTC at that time; nothing
    // where there is none.
    std::optional<std::pair<UtcTime, int>> history_begin;
    std::size_t service_events = 0;   // records of the event log
    DWORD log_error = ERROR_SUCCESS;  // why the event log could not be read
};

inline constexpr std::int64_t kMsPerDay = 24 * 60 * 60 * 1000;

// Adds a stretch of time by the local clock, in milliseconds.
void AddStretch(Report& report, Spent spent, std::int64_t begin, std::int64_t length,
                bool on_battery);
// The way of spending time that a state is; unknown for another text.
Spent SpentIn(std::wstring_view state);

// The present, where the service still runs: it ends the last stretch.
struct ReportEnd
{
    UtcTime utc = 0;  // 0 where the service does not run
    std::optional<int> charge;
};

// The last `days` local days that are told of, or all of them for 0.
Report MakeReport(const History& history, const ServiceEvents& log, int days, const ReportEnd& end);

// "2026-03-02"
std::wstring DayText(std::int64_t day);
