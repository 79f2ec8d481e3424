// The process's standard output.
#pragma once

#include "log/format.h"

// Writes the text as UTF-8 in one piece. Does nothing when the process has no standard output.
void PrintPackedToConsole(const wchar_t* format, std::span<const FormatArgument> arguments);

template <class... Args>
void PrintToConsole(FormatFor<Args...> format, const Args&... args)
{
    const PackedArguments<Args...> packed{FormatArgument(args)...};
    PrintPackedToConsole(format.text(), packed);
}
