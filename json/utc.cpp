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

std::wstring FormatUtc(UtcTime time)
{
    std::wstring text(kUtcLength, L'0');
    WriteUtc(time, text.data());
    return text;
}

// Each record has several times, and a record is made for each change: no format is parsed for it.
void WriteUtc(UtcTime time, wchar_t* text)
{
    const LocalTime utc = ToLocal(time, 0);
    const auto put = [&](int number, int digits, wchar_t after) {
        for (int i = digits; i-- > 0; number /= 10)
            text[i] = static_cast<wchar_t>(L'0' + number % 10);
        text[digits] = after;
        text += digits + 1;
    };
    put(utc.year, 4, L'-');
    put(utc.month, 2, L'-');
    put(utc.day, 2, L'T');
    put(utc.hour, 2, L':');
    put(utc.minute, 2, L':');
    put(utc.second, 2, L'.');
    put(static_cast<int>(time % kUnitsPerSecondOfDay / kUnitsPerMs), 3, L'Z');
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
