// The arithmetic of the do-not-disturb hours. All times are minutes since local midnight.
#pragma once

#include "platform/base.h"

// From `start` up to, and without, `end`; over midnight when the start is the later one. Values
// that no clock shows (1440 and above) are taken as they are: such a minute is never reached.
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

    // From now to the end, inside; to the start, outside. In 32 bits, as everything is here.
    DWORD MinutesToBoundary(DWORD now, bool inside) const
    {
        const bool tomorrow = inside ? start > end && now >= start : now > start;
        return (inside ? end : start) - now + (tomorrow ? kMinutesPerDay : 0);
    }
};
