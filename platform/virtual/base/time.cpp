#include "platform/virtual/base/time.h"

#include <charconv>
#include <cstdio>

namespace virtual_pc {
namespace {

using Days = std::chrono::duration<std::int64_t, std::ratio<86'400>>;

// The platform's calendar begins on 1601-01-01, the library's on 1970-01-01.
constexpr Days kFrom1601To1970{134'774};

}  // namespace

CalendarTime ToCalendar(const SYSTEMTIME& local)
{
    const std::chrono::year_month_day date{std::chrono::year{local.wYear},
                                           std::chrono::month{local.wMonth},
                                           std::chrono::day{local.wDay}};
    return std::chrono::sys_days{date}.time_since_epoch() + kFrom1601To1970 +
           std::chrono::hours{local.wHour} + std::chrono::minutes{local.wMinute} +
           std::chrono::seconds{local.wSecond} + std::chrono::milliseconds{local.wMilliseconds};
}

SYSTEMTIME FromCalendar(CalendarTime time)
{
    const auto days = std::chrono::floor<Days>(time);
    const std::chrono::sys_days date{
        std::chrono::days{static_cast<int>((days - kFrom1601To1970).count())}};
    const std::chrono::year_month_day ymd{date};
    const std::chrono::hh_mm_ss clock{
        std::chrono::duration_cast<std::chrono::milliseconds>(time - days)};

    SYSTEMTIME result{};
    result.wYear = static_cast<WORD>(static_cast<int>(ymd.year()));
    result.wMonth = static_cast<WORD>(static_cast<unsigned>(ymd.month()));
    result.wDayOfWeek = static_cast<WORD>(std::chrono::weekday{date}.c_encoding());
    result.wDay = static_cast<WORD>(static_cast<unsigned>(ymd.day()));
    result.wHour = static_cast<WORD>(clock.hours().count());
    result.wMinute = static_cast<WORD>(clock.minutes().count());
    result.wSecond = static_cast<WORD>(clock.seconds().count());
    result.wMilliseconds = static_cast<WORD>(clock.subseconds().count());
    return result;
}

FILETIME ToFileTime(CalendarTime time)
{
    const auto units = static_cast<ULONGLONG>(time.count());
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

std::optional<CalendarTime> ParseCalendar(std::string_view text)
{
    // Each field: where it starts, how long it is, what precedes it.
    struct Field
    {
        std::size_t at, length;
        char before;
    };
    static constexpr Field kFields[] = {{0, 4, 0},    {5, 2, '-'},  {8, 2, '-'},
                                        {11, 2, ' '}, {14, 2, ':'}, {17, 2, ':'}};
    int values[6] = {};
    if (text.size() != 16 && text.size() != 19) return std::nullopt;
    for (std::size_t i = 0; i < 6 && kFields[i].at < text.size(); ++i) {
        const auto [at, length, before] = kFields[i];
        const char* end = text.data() + at + length;
        const auto parsed = std::from_chars(text.data() + at, end, values[i]);
        if (parsed.ec != std::errc{} || parsed.ptr != end || values[i] < 0) return std::nullopt;
        if (before && text[at - 1] != before) return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year{values[0]},
                                           std::chrono::month{static_cast<unsigned>(values[1])},
                                           std::chrono::day{static_cast<unsigned>(values[2])}};
    if (!date.ok() || values[0] < 1601 || values[3] > 23 || values[4] > 59 || values[5] > 59) {
        return std::nullopt;
    }
    SYSTEMTIME time{};
    time.wYear = static_cast<WORD>(values[0]);
    time.wMonth = static_cast<WORD>(values[1]);
    time.wDay = static_cast<WORD>(values[2]);
    time.wHour = static_cast<WORD>(values[3]);
    time.wMinute = static_cast<WORD>(values[4]);
    time.wSecond = static_cast<WORD>(values[5]);
    return ToCalendar(time);
}

std::string FormatCalendar(CalendarTime time)
{
    const SYSTEMTIME t = FromCalendar(time);
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u.%03u", t.wYear, t.wMonth,
                  t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
    return text;
}

}  // namespace virtual_pc
