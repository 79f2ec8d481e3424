// Machine time. The clock counts 100-ns units from the moment the machine was switched on; the
// calendar adds a start that a script may set.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base.h"

namespace virtual_pc {

using Duration = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
using Instant = Duration;  // since the machine was switched on

using namespace std::chrono_literals;

inline constexpr Instant kNever = Instant::max();

// A local date and time, in 100-ns units since 1601-01-01 as the platform counts them.
using CalendarTime = Duration;

// The PC's time zone: local time less UTC. It has no daylight saving.
inline constexpr Duration kEastOfUtc = std::chrono::hours{1};

CalendarTime ToCalendar(const SYSTEMTIME& local);
SYSTEMTIME FromCalendar(CalendarTime time);
FILETIME ToFileTime(CalendarTime time);

// "2026-03-02 21:30" or "2026-03-02 21:30:05"; nothing for anything else.
std::optional<CalendarTime> ParseCalendar(std::string_view text);

// "2026-03-02 21:30:05.000"
std::string FormatCalendar(CalendarTime time);

}  // namespace virtual_pc
