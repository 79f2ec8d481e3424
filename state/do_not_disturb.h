// The arithmetic of the do-not-disturb hours. All times are minutes since local midnight.
#pragma once

#include "platform/base.h"

// The present local time. Any thread.
DWORD MinutesSinceMidnight();

// The minutes from `start` up to but not including `end`, across midnight when `start` is the later
// one. Values of 1440 and above are kept as they are: the clock never shows them.
struct DoNotDisturbHours
{
    static constexpr DWORD kMinutesPerDay = 24 * 60;

    DWORD start;
    DWORD end;

    bool Empty() const { return start == end; }

    bool Contain(DWORD now) const
    {
        if (Empty()) return false;
        if (start < end) return start <= now && now < end;
        return now >= start || now < end;
    }

    // Minutes from `now` to the end of the hours when `inside` them, otherwise to their start.
    // Unsigned, so the difference may wrap before the day is added.
    DWORD MinutesToBoundary(DWORD now, bool inside) const
    {
        const bool tomorrow = inside ? start > end && now >= start : now > start;
        return (inside ? end : start) - now + (tomorrow ? kMinutesPerDay : 0);
    }
};
