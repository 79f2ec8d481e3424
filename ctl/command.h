// What the commands of holvctl have in common: their exit codes, arguments and output.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// docs/holvctl.md lists them; scripts depend on them.
enum ExitCode : int
{
    kDone = 0,
    kLeft = 1,          // restore: something is left to restore
    kUsage = 2,         // not a command, or not its arguments
    kRefused = 3,       // restore: while the service runs
    kNotRunning = 4,    // the service is installed and does not run
    kNotInstalled = 5,  // there is no service
    kDenied = 6,        // the system refuses access
    kUnknownName = 7,   // no feature or event has the name
    kOutOfRange = 8,    // a value that the feature cannot have
    kReadOnly = 9,      // a feature that cannot be switched
    kFailed = 10,       // anything else that the system answers
};

using CommandArguments = std::vector<std::wstring>;

// Writes the text as UTF-8. A text may be longer than what PrintToConsole takes.
void Print(std::wstring_view text);

// In UTF-8.
std::string ToUtf8Bytes(std::wstring_view text);

// Prints the line and returns the code, for a command that ends with it.
int EndWith(ExitCode code, std::wstring_view line);

// The number, in decimal or "0x" digits; -1 for anything else.
long NumberIn(std::wstring_view text);
