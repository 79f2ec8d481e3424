// The service's events in the Windows Application event log.
#pragma once

#include "log/format.h"

// Under which source and id the messages of the log stand.
inline constexpr const wchar_t* kEventSourceName = L"Orbeq( R ) HOLV";
inline constexpr DWORD kEventId = 2000;  // the message that is its insertion string

// Registers the event source with this executable as its message file and, with `categoryCount`
// above 0, as its category file. A failure is reported to the debugger only: events are still
// reported, but the viewer lacks their texts.
void InstallEventLogSource(DWORD categoryCount);

// Reports one event, of the type that belongs to the log level, with `text` (which may be null) as
// its one insertion string. The event is dropped when the event log cannot be reached. Any thread.
void ReportToEventLog(const wchar_t* text, DWORD level);

// Sets whether the process runs as a service (at first it does not), for LogEvent.
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
