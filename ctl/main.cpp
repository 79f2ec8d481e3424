// holvctl: what an administrator does with the service from a command line.

#include <iterator>
#include <string>
#include <string_view>

#include "ctl/restore_command.h"
#include "log/console.h"
#include "log/log.h"
#include "platform/module.h"

namespace {

constexpr int kUsage = 2;

const struct Command
{
    std::wstring_view name;
    const wchar_t* help;
    int (*run)();
} kCommands[] = {
    {L"restore", L"restores what a service that was ended has changed", RunRestore},
};

// What follows the program's path, without the blanks around it.
std::wstring_view ArgumentsOf(std::wstring_view line)
{
    constexpr std::wstring_view kBlanks = L" \t";
    const std::size_t path_end = line.starts_with(L'"') ? line.find(L'"', 1) : line.find(L' ');
    line.remove_prefix(path_end == line.npos ? line.size() : path_end + 1);
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first == line.npos) return {};
    return line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int)
{
    // The service's code, of which parts are linked in, logs; its lines are not for the console.
    g_dwLoggingEnabled = 0;
    const std::wstring_view arguments = ArgumentsOf(GetCommandLineW());
    for (const Command& command : kCommands) {
        if (command.name == arguments) return command.run();
    }
    PrintToConsole(L"Usage: holvctl COMMAND\n");
    for (const Command& command : kCommands) {
        PrintToConsole(L"  %s   %s\n", std::wstring(command.name).c_str(), command.help);
    }
    return kUsage;
}
