// Log: the one call through which every operation of the service reports.
#pragma once

#include <atomic>
#include <span>

#include "log/format.h"
#include "settings/settings.h"

// The outputs that g_dwLoggingEnabled switches on. Any value but 0 also sends levels 1, 3 and 4 to
// the event log.
inline constexpr DWORD kLogToFile = 0x2;
inline constexpr DWORD kLogToDebugger = 0x4;
inline constexpr DWORD kLogToConsole = 0x8;

// A flag as log lines show it.
constexpr const wchar_t* BoolText(bool flag) { return flag ? L"TRUE" : L"FALSE"; }

// Whether a message of this level is logged at all.
inline bool IsLogged(DWORD level)
{
    return g_dwLoggingEnabled.load(std::memory_order_relaxed) != 0 &&
           level <= g_dwLoggingLevel.load(std::memory_order_relaxed);
}

// Sends a message to the outputs, whatever its level.
void LogMessage(DWORD level, const wchar_t* function, const wchar_t* format,
                std::span<const FormatArgument> arguments);

// Reports what `function` (its qualified name) does. Levels: 1 milestones, 2 events as they arrive,
// 3 errors, 4 warnings, 6 detail; a message above g_dwLoggingLevel is dropped. Never fails, and
// leaves the last error as it is. Any thread.
template <class... Args>
void Log(DWORD level, const wchar_t* function, FormatFor<Args...> format, const Args&... args)
{
    if (!IsLogged(level)) return;
    const PackedArguments<Args...> packed{FormatArgument(args)...};
    LogMessage(level, function, format.text(), packed);
}
