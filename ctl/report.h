// What the PC did: made from the history.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "ctl/history.h"

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
    std::map<std::wstring, std::int64_t> held_ms;  // by the holder of a power request
};

// Something that happened at a time, in a sentence.
struct ReportedEvent
{
    UtcTime utc;
    int minutes_ahead;
    const wchar_t* kind;  // "sleep", "wake", "plan", "mute", "clock", "gap", "correction"
    std::wstring text;
};

struct Report
{
    std::map<std::int64_t, ReportDay> days;  // by local days since 1601
    std::vector<ReportedEvent> events;
    std::size_t records = 0;
    int torn_lines = 0;
};

inline constexpr std::int64_t kMsPerDay = 24 * 60 * 60 * 1000;

// The last `days` local days that the history tells of, or all of them for 0. `now` ends the last
// stretch where the service still runs; 0 where it does not.
Report MakeReport(const History& history, int days, UtcTime now);

// "2026-03-02"
std::wstring DayText(std::int64_t day);
