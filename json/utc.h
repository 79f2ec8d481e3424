// Times as the published state and the history have them: UTC, in ISO 8601, with milliseconds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base.h"

// In 100-ns units since 1601, as the system counts them.
using UtcTime = std::uint64_t;

inline constexpr UtcTime kUnitsPerMs = 10'000;
inline constexpr UtcTime kUnitsPerMinute = 60 * 1000 * kUnitsPerMs;
inline constexpr UtcTime kUnitsPerDay = 24 * 60 * kUnitsPerMinute;

inline UtcTime ToUtc(const FILETIME& time)
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// The time now.
UtcTime UtcNow();
// How many minutes the local clock is ahead of UTC.
int MinutesAheadOfUtc();

// "2026-03-02T20:30:05.000Z"
std::wstring FormatUtc(UtcTime time);
inline constexpr std::size_t kUtcLength = 24;
// The same, without a terminating null character.
void WriteUtc(UtcTime time, wchar_t* text);
// Nothing for anything else.
std::optional<UtcTime> ParseUtc(std::wstring_view text);

// The local date and time of day that a clock shows which is so many minutes ahead.
struct LocalTime
{
    int year = 0, month = 0, day = 0;
    int hour = 0, minute = 0, second = 0;
};
LocalTime ToLocal(UtcTime time, int minutes_ahead);
