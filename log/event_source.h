// The service's events in the Windows Application event log.
#pragma once

#include "log/format.h"

// Registers the event source with this executable as its message file; with `categoryCount` above 0
// also as its category file. A failure is told to the debugger only: events are reported all the
// same, without their texts in the viewer.
void InstallEventLogSource(DWORD categoryCount);

// Reports one event of the type that belongs to the log level, with `text` (which may be null) as
// its one insertion string. Drops it in silence when the event log cannot be reached. Any thread.
void ReportToEventLog(const wchar_t* text, DWORD level);

// Tells LogEvent whether the process runs as a service. Until told, it does not.
void SetRunsAsService(bool runs);

// Reports one informational event under the service's own name, cut to 255 characters; a process
// that does not run as a service prints it too.
void LogPackedEvent(const wchar_t* format, std::span<const FormatArgument> arguments);

template <class... Args>
void LogEvent(FormatFor<Args...> format, const Args&... args)
{
    const PackedArguments<Args...> packed{FormatArgument(args)...};
    LogPackedEvent(format.text(), packed);
}
