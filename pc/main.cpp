// holvpc: the virtual PC as a program.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

#include "pc/player.h"
#include "storm/command.h"

namespace {

// Plays typed commands. An error is printed, and the PC runs on.
int Prompt(const PlayOptions& options)
{
    Player player(options, std::cout);
    std::cout << "A PC is on. Type help for the commands, and quit to switch it off.\n";
    std::string text;
    for (int number = 1; std::cout << "> " << std::flush && std::getline(std::cin, text);
         ++number) {
        try {
            const ScriptLine line = ReadLine(text, {}, number);
            if (line.words.empty()) continue;
            if (line.words.front() == "quit") break;
            if (line.words.front() == "help") {
                PrintHelp(std::cout, line.words.size() > 1 ? line.words[1] : "");
                continue;
            }
            player.Play(line);
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << "\n";
        }
    }
    return 0;
}

// The options of a machine, for a command that switches one on.
void AddOptions(CLI::App& command, PlayOptions& options)
{
    command.add_option("--root", options.machine.root,
                       "Keep the PC's disk and registry in this folder between runs");
    command.add_option("--trace", options.trace, "Write every effect here, as lines of JSON");
    command.add_option("--seed", options.machine.seed,
                       "Draw the thread that runs next from this seed; 0 is the fixed order");
    command.add_option("--priorities", options.machine.priorities,
                       "With a seed: run the thread of the highest priority, which changes at so "
                       "many calls less one in some thousands");
    command.add_option_function<std::string>(
        "--os",
        [&](const std::string& text) {
            const auto version = virtual_pc::ParseOsVersion(text);
            if (!version) throw CLI::ValidationError("--os", text + " is no version");
            options.machine.os_version = *version;
        },
        "The version of Windows, like 7, 8.1, 10 or 11, where a script sets no other");
    command.add_flag("--free", options.machine.free, "Let the PC's threads run at once");
    command
        .add_option("--speed", options.machine.pace,
                    "Machine seconds for each second of the host; 0 does not wait")
        ->check(CLI::NonNegativeNumber);
}

int Main(int argc, char** argv)
{
    CLI::App app{"A virtual PC that runs the never-sleep service."};
    PlayOptions options;
    options.image =
        std::filesystem::canonical("/proc/self/exe").parent_path() / "libHOLVService.so";
    options.resources = HOLV_SOURCE_DIR "/resources";
    std::vector<std::filesystem::path> scripts;
    CLI::App& run = *app.add_subcommand("run", "Play scripts and print the story of the day");
    run.add_option("SCRIPT", scripts, "The scripts, played one after the other on one PC")
        ->required();
    AddOptions(run, options);
    CLI::App& live = *app.add_subcommand("live", "Type commands at a prompt (also without a word)");
    AddOptions(live, options);
    std::string word;
    CLI::App& help = *app.add_subcommand("help", "List the commands of the script language");
    help.add_option("COMMAND", word, "Only those that begin with this word");
    StormCommand storm(app, options);
    app.require_subcommand(0, 1);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (help) {
        PrintHelp(std::cout, word);
        return 0;
    }
    if (run) return PlayScripts(scripts, options, std::cout, std::cerr);
    if (storm) return storm.Run();
    return Prompt(options);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "holvpc: " << error.what() << "\n";
        return 2;
    }
}
