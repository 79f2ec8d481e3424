// holvctl: what people and scripts ask the service, and do with it, from a command line.

#include <algorithm>
#include <iterator>

#include "ctl/agent.h"
#include "ctl/command.h"
#include "ctl/report_command.h"
#include "ctl/restore_command.h"
#include "ctl/status_command.h"
#include "ctl/watch_command.h"
#include "log/log.h"
#include "platform/module.h"

namespace {

const struct Command
{
    std::wstring_view name;
    const wchar_t* arguments;
    const wchar_t* help;
    int (*run)(const CommandArguments& arguments);
} kCommands[] = {
    {L"status", L"[--json]", L"the state, why the PC is awake, and what comes next", RunStatus},
    {L"why", L"", L"the chain of reasons, and what would have to change", RunWhy},
    {L"watch", L"[CHANGES]", L"tells each change as it happens, without end or so many", RunWatch},
    {L"report", L"[--days N] [--html FILE] [--json]", L"what the PC did, of the last 7 days",
     RunReport},
    {L"get", L"[FEATURE]", L"a feature's value, or all of them", RunGet},
    {L"set", L"FEATURE on|off", L"switches a feature", RunSet},
    {L"interval", L"[START END]", L"the do-not-disturb hours, like 22:00 06:00", RunInterval},
    {L"refresh", L"", L"puts back what clients have changed since a policy set it", RunRefresh},
    {L"event", L"CODE [refuse]", L"raises an event code, hears it, and may refuse it", RunEvent},
    {L"version", L"", L"the service's version, by its control interface", RunVersion},
    {L"restore", L"", L"restores what a service that was ended has changed", RunRestore},
};

// The words after the program's path; quotes keep blanks together.
CommandArguments ArgumentsOf(std::wstring_view line)
{
    CommandArguments words;
    bool in_word = false;
    bool quoted = false;
    for (const wchar_t character : line) {
        const bool blank = !quoted && (character == L' ' || character == L'\t');
        if (!blank && !in_word) words.emplace_back();
        in_word = !blank;
        if (character == L'"') {
            quoted = !quoted;
        } else if (in_word) {
            words.back() += character;
        }
    }
    if (!words.empty()) words.erase(words.begin());
    return words;
}

void PrintUsage()
{
    std::wstring text = L"Usage: holvctl COMMAND\n";
    for (const Command& command : kCommands) {
        constexpr std::size_t kWidth = 26;
        std::wstring form = L"  " + std::wstring(command.name) + L" " + command.arguments;
        form.resize(std::max(kWidth, form.size() + 1), L' ');
        text += form + command.help + L"\n";
    }
    Print(text);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int)
{
    // The service's code, of which parts are linked in, logs; its lines are not for the console.
    g_dwLoggingEnabled = 0;
    CommandArguments arguments = ArgumentsOf(GetCommandLineW());
    const auto command = arguments.empty()
                             ? std::end(kCommands)
                             : std::ranges::find(kCommands, arguments.front(), &Command::name);
    if (command == std::end(kCommands)) {
        if (!arguments.empty()) Print(L"There is no command \"" + arguments.front() + L"\".\n");
        PrintUsage();
        return kUsage;
    }
    arguments.erase(arguments.begin());
    const int code = command->run(arguments);
    if (code == kUsage) {
        Print(L"Usage: holvctl " + std::wstring(command->name) + L" " + command->arguments + L"\n");
    }
    return code;
}
