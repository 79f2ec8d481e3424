#include "log/log.h"

#include "log/console.h"
#include "log/event_source.h"
#include "log/log_file.h"
#include "platform/eventlog.h"
#include "platform/fault.h"
#include "platform/last_error.h"
#include "platform/module.h"

namespace {

constexpr std::size_t kMessageSize = 1024;  // with the terminator

constexpr bool GoesToEventLog(DWORD level) { return level == 1 || level == 3 || level == 4; }

// Reports to the event log and the debugger, where the name of the operation stands before the
// message.
void WriteWithPrefix(DWORD level, const wchar_t* function, const wchar_t* message, bool debugger)
{
    wchar_t text[kMessageSize];
    FormatText(text, L"HOLV - %s   %s", function, message);
    if (GoesToEventLog(level)) ReportToEventLog(text, level);
    if (debugger) OutputDebugStringW(text);
}

void WriteToOutputs(DWORD level, const wchar_t* function, const wchar_t* message)
{
    const DWORD outputs = g_dwLoggingEnabled.load(std::memory_order_relaxed);
    const bool debugger = (outputs & kLogToDebugger) != 0;
    if (debugger || GoesToEventLog(level)) WriteWithPrefix(level, function, message, debugger);
    if (outputs & kLogToFile) {
        CLOGFile* const writer = CLOGFile::Instance();
        if (writer) writer->Write(static_cast<LONG>(level), L"%s", message);
    }
    if (outputs & kLogToConsole) PrintToConsole(L"%s   %s\n", function, message);
}

}  // namespace

void LogMessage(DWORD level, const wchar_t* function, const wchar_t* format,
                std::span<const FormatArgument> arguments)
{
    // Callers often log before they read the last error.
    const LastErrorKeeper kept;
    try {
        // A text may be at a bad address, and an output may run into a fault of its own.
        ThrowFaultsOf([&] {
            wchar_t message[kMessageSize];
            FormatPacked(message, format, arguments);
            WriteToOutputs(level, function, message);
        });
    } catch (...) {
        OutputDebugStringA("fault inside logging function, exception caught");
    }
}
