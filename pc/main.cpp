// holvpc: the virtual PC as a program.

#include <malloc.h>
#include <poll.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>

#include "pc/player.h"
#include "pc/prompt.h"
#include "pc/report.h"
#include "pc/screen.h"
#include "pc/stop_signals.h"
#include "storm/command.h"

namespace {

// What a subcommand does once its options are read. Returns the exit status.
using Run = std::function<int()>;

struct Subcommand
{
    const char* name;
    const char* help;
    // Adds the options.
    Run (*add)(CLI::App& command);
};

// --- Options ---

// An option whose text `read` takes; where it returns false, the text is refused as no `what`.
void AddRead(CLI::App& command, const std::string& name, const std::string& help,
             const std::string& what, const std::function<bool(const std::string&)>& read)
{
    command.add_option_function<std::string>(
        name,
        [=](const std::string& text) {
            if (read(text)) return;
            throw CLI::ValidationError(name, "\"" + Printable(text) + "\" is no " + what);
        },
        help);
}

template <class Number>
bool ReadNumber(const std::string& text, Number& number)
{
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc{} && parsed.ptr == end;
}

std::string KindsWithCommas()
{
    std::string kinds;
    for (const std::string& kind : AllTraceKinds()) kinds += (kinds.empty() ? "" : ",") + kind;
    return kinds;
}

PlayOptions OwnFiles()
{
    PlayOptions options;
    options.image =
        std::filesystem::canonical("/proc/self/exe").parent_path() / "libHOLVService.so";
    options.resources = HOLV_SOURCE_DIR "/resources";
    options.machine.go_on = [] { return StopSignal() == 0; };
    return options;
}

// The options of a PC, for a subcommand that switches one on.
std::shared_ptr<PlayOptions> AddPcOptions(CLI::App& command)
{
    auto options = std::make_shared<PlayOptions>(OwnFiles());
    virtual_pc::Machine::Options& machine = options->machine;
    AddRead(command, "--root",
            "Keep the PC's disk, registry and event log in this folder between runs", "folder",
            [&](const std::string& text) { return !(machine.root = text).empty(); });
    command.add_option("--trace", options->trace, "Write every effect here, as lines of JSON");
    AddRead(command, "--trace-only", "Trace these kinds of effects only, like state,sleep",
            "list of kinds: " + KindsWithCommas(), [&, options](const std::string& text) {
                const auto kinds = ReadTraceKinds(text);
                options->trace_only = kinds.value_or(TraceKinds{});
                return kinds.has_value();
            });
    AddRead(command, "--seed",
            "Draw the thread that runs next from this seed; 0 is the fixed order",
            "whole number from 0 to 18446744073709551615",
            [&](const std::string& text) { return ReadNumber(text, machine.seed); });
    AddRead(command, "--priorities",
            "With a seed: run the thread of the highest priority, which changes at so many calls "
            "less one in some thousands",
            "whole number from 0 to 2147483647", [&](const std::string& text) {
                return ReadNumber(text, machine.priorities) && machine.priorities >= 0;
            });
    AddRead(command, "--os",
            "The version of Windows, like 7, 8.1, 10 or 11, where a script sets no other",
            "version of Windows, like 7, 8.1, 10 or 11", [&](const std::string& text) {
                const auto version = virtual_pc::ParseOsVersion(text);
                machine.os_version = version.value_or(0);
                return version.has_value();
            });
    command.add_flag("--free", machine.free, "Let the PC's threads run at once");
    AddRead(command, "--speed", "Machine seconds for each second of the host; 0 does not wait",
            kSpeedWords, [options](const std::string& text) {
                options->speed = ReadSpeed(text);
                options->machine.pace = options->speed.value_or(0);
                return options->speed.has_value();
            });
    return options;
}

// --- The subcommands ---

Run AddRun(CLI::App& command)
{
    const auto options = AddPcOptions(command);
    const auto scripts = std::make_shared<std::vector<std::filesystem::path>>();
    command.add_option("SCRIPT", *scripts, "The scripts, played one after the other on one PC")
        ->required();
    return [=] {
        CatchStopSignals();
        Screen screen;
        options->watcher = screen.progress();
        return PlayScripts(*scripts, *options, screen.out(), std::cerr);
    };
}

Run AddLive(CLI::App& command)
{
    const auto options = AddPcOptions(command);
    return [=] {
        CatchStopSignals();
        return Prompt(*options);
    };
}

Run AddHelp(CLI::App& command)
{
    const auto word = std::make_shared<std::string>();
    command.add_option("COMMAND", *word, "Only those that begin with this word");
    return [=] { return PrintHelp(std::cout, *word) ? kDone : kRefused; };
}

Run AddReport(CLI::App& command)
{
    const auto options = std::make_shared<PlayOptions>(OwnFiles());
    const auto report = std::make_shared<ReportOptions>();
    command.add_option("--root", options->machine.root, "The folder of that run")
        ->required()
        ->check(CLI::ExistingDirectory);
    command.add_option("--days", report->days, "So many days, up to the last")
        ->check(CLI::Range(1, 366));
    command.add_option("--html", report->html, "Write a page with a timeline here");
    command.add_flag("--json", report->json, "Print it as JSON");
    return [=] { return ReportOfRun(*options, *report, std::cout, std::cerr); };
}

Run AddStorm(CLI::App& command)
{
    const auto storm = std::make_shared<StormCommand>(command, OwnFiles());
    return [=] {
        CatchStopSignals();
        return storm->Run();
    };
}

constexpr Subcommand kSubcommands[] = {
    {"run", "Play scripts and print the story of the day", AddRun},
    {"live", "Type commands at a prompt (also without a word)", AddLive},
    {"help", "List the commands of the script language", AddHelp},
    {"report", "Tell what a PC did, from the disk that a run has left", AddReport},
    {"storm", "Live random lives from a seed, and find what breaks a promise", AddStorm},
};

// --- The command line ---

// Why the word cannot be a subcommand; nothing when it is one, or an option.
std::optional<std::string> WrongWord(const std::string& word)
{
    std::string names;
    for (const Subcommand& known : kSubcommands) {
        if (word == known.name) return std::nullopt;
        names += " " + std::string(known.name);
    }
    if (word.starts_with("-")) return std::nullopt;
    const std::string said = "\"" + Printable(word) + "\" is none of:" + names;
    std::error_code error;
    if (!std::filesystem::exists(word, error)) return said;
    return said + "; to play a script: holvpc run " + Printable(word);
}

int Main(int argc, char** argv)
{
    CLI::App app{"A virtual PC that runs the never-sleep service."};
    app.set_version_flag("--version", "holvpc " HOLV_BUILD_VERSION);
    app.require_subcommand(0, 1);
    std::vector<std::pair<CLI::App*, Run>> runs;
    for (const Subcommand& subcommand : kSubcommands) {
        CLI::App& command = *app.add_subcommand(subcommand.name, subcommand.help);
        runs.emplace_back(&command, subcommand.add(command));
    }
    if (const auto wrong = argc > 1 ? WrongWord(argv[1]) : std::nullopt) {
        std::cerr << "holvpc: " << *wrong << "\n";
        return kRefused;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kRefused;
    }
    for (const auto& [command, run] : runs) {
        if (command->parsed()) return run();
    }
    CatchStopSignals();
    return Prompt(OwnFiles());
}

// Whether what is written goes into a pipe whose reader has gone, as head goes.
bool ReaderIsGone()
{
    pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

}  // namespace

int main(int argc, char** argv)
{
    // One heap for all threads: one of them runs at a time, and with heaps of their own a long life
    // scatters its memory over all of them.
    mallopt(M_ARENA_MAX, 1);
    std::signal(SIGPIPE, SIG_IGN);  // a write tells that the reader has gone
    int status = kRefused;
    try {
        status = Main(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "holvpc: " << error.what() << "\n";
    }
    const bool written = static_cast<bool>(std::cout.flush());
    EndByStopSignal();
    if (written) return status;
    // The reader has read what it wanted, and needs no message.
    if (!ReaderIsGone()) std::cerr << "holvpc: the standard output cannot be written\n";
    return kNotWritten;
}
