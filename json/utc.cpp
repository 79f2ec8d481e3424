#include "json/utc.h"

#include <chrono>
#include <cmath>
#include <iterator>

#include "platform/kernel.h"

namespace {

using Days = std::chrono::sys_days;

constexpr std::int64_t kDaysTo1601 =
    Days(std::chrono::year(1601) / 1 / 1).time_since_epoch().count();

UtcTime FromDate(int year, int month, int day)
{
    const Days days = std::chrono::year(year) / month / day;
    return static_cast<UtcTime>(days.time_since_epoch().count() - kDaysTo1601) * kUnitsPerDay;
}

constexpr UtcTime kUnitsPerSecondOfDay = 1000 * kUnitsPerMs;

}  // namespace

UtcTime UtcNow()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return ToUtc(now);
}

int MinutesAheadOfUtc()
{
    SYSTEMTIME local{};
    GetLocalTime(&local);
    const UtcTime shown = FromDate(local.wYear, local.wMonth, local.wDay) +
                          (local.wHour * 60u + local.wMinute) * kUnitsPerMinute +
                          local.wSecond * kUnitsPerSecondOfDay;
    // The clock is read twice: the difference is rounded to whole minutes.
    const auto ahead = static_cast<double>(static_cast<std::int64_t>(shown - UtcNow()));
    return static_cast<int>(std::lround(ahead / static_cast<double>(kUnitsPerMinute)));
}

LocalTime ToLocal(UtcTime time, int minutes_ahead)
{
    time += static_cast<UtcTime>(minutes_ahead * static_cast<std::int64_t>(kUnitsPerMinute));
    const std::chrono::year_month_day date{
        Days(std::chrono::days(static_cast<std::int64_t>(time / kUnitsPerDay) + kDaysTo1601))};
    const auto seconds = static_cast<int>(time % kUnitsPerDay / kUnitsPerSecondOfDay);
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            seconds / 3600,
            seconds / 60 % 60,
            seconds % 60};
}

// Each record has several times, and a record is made for each change: no format is parsed for it.
std::wstring FormatUtc(UtcTime time)
{
    const LocalTime utc = ToLocal(time, 0);
    std::wstring text = L"0000-00-00T00:00:00.000Z";
    const auto put = [&](std::size_t at, std::size_t digits, int number) {
        for (; digits > 0; number /= 10)
            text[at + --digits] = static_cast<wchar_t>(L'0' + number % 10);
    };
    put(0, 4, utc.year);
    put(5, 2, utc.month);
    put(8, 2, utc.day);
    put(11, 2, utc.hour);
    put(14, 2, utc.minute);
    put(17, 2, utc.second);
    put(20, 3, static_cast<int>(time % kUnitsPerSecondOfDay / kUnitsPerMs));
    return text;
}

std::optional<UtcTime> ParseUtc(std::wstring_view text)
{
    constexpr std::wstring_view kForm = L"dddd-dd-ddTdd:dd:dd.dddZ";
    if (text.size() != kForm.size()) return std::nullopt;
    int parts[7] = {};
    std::size_t part = 0;
    for (std::size_t i = 0; i < kForm.size(); ++i) {
        if (kForm[i] != L'd') {
            if (text[i] != kForm[i]) return std::nullopt;
            ++part;
        } else {
            if (text[i] < L'0' || text[i] > L'9') return std::nullopt;
            parts[part] = parts[part] * 10 + (text[i] - L'0');
        }
    }
    const std::chrono::year_month_day date = std::chrono::year(parts[0]) / parts[1] / parts[2];
    if (!date.ok() || parts[0] < 1601 || parts[3] > 23 || parts[4] > 59 || parts[5] > 59) {
        return std::nullopt;
    }
    return FromDate(parts[0], parts[1], parts[2]) +
           static_cast<UtcTime>(parts[3] * 3600 + parts[4] * 60 + parts[5]) * kUnitsPerSecondOfDay +
           static_cast<UtcTime>(parts[6]) * kUnitsPerMs;
}
