// Where the history lies: a file for each day of the year, of the UTC calendar, in a folder beside
// the log. A file that is of an earlier year is begun anew, so that the history never holds more
// than a year, and is cut by whole days.
#pragma once

#include <string>

#include "json/utc.h"

inline constexpr int kHistoryMonths = 12;
inline constexpr int kHistoryDaysOfMonth = 31;  // at most

// What a day's file may hold, in bytes: what comes after that is left out.
inline constexpr DWORD kHistoryBytesOfDay = 1 << 20;

// The folder, without a closing backslash; empty where the system does not name it.
std::wstring HistoryFolder();
// The path of a day's file.
std::wstring HistoryPath(const std::wstring& folder, int month, int day);
