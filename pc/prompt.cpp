#include "pc/prompt.h"

#include <charconv>
#include <iostream>

#include "pc/stop_signals.h"

std::optional<double> ReadSpeed(const std::string& text)
{
    double speed = -1;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, speed);
    const bool known = speed == 0 || (speed >= 0.001 && speed <= 1e6);
    if (parsed.ec != std::errc{} || parsed.ptr != end || !known) return std::nullopt;
    return speed;
}

namespace {

Status PlayTyped(Player& player, const ScriptLine& line)
{
    if (line.words.front() == "help") {
        return PrintHelp(std::cout, line.words.size() > 1 ? line.words[1] : "") ? kDone : kRefused;
    }
    player.Play(line);
    return kDone;
}

// Plays a line and prints its error. Sets `quit` where the line asks for that.
Status PlayAndTell(Player& player, const std::string& text, int number, bool& quit)
{
    try {
        const ScriptLine line = ReadLine(text, {}, number);
        quit = !line.words.empty() && line.words.front() == "quit";
        return quit || line.words.empty() ? kDone : PlayTyped(player, line);
    } catch (const ScriptError& error) {
        std::cout << error.what() << "\n";
        return kRefused;
    } catch (const std::runtime_error& error) {
        std::cout << error.what() << "\n";
        return kFailed;
    }
}

Status Session(Player& player)
{
    std::cout << "A PC is on. Type help for the commands, and quit to switch it off.\n";
    std::string text;
    Status worst = kDone;
    bool quit = false;
    for (int number = 1; !quit && std::cout << "> " << std::flush && StopSignal() == 0 &&
                         std::getline(std::cin, text);
         ++number) {
        worst = std::max(worst, PlayAndTell(player, text, number, quit));
    }
    return worst;
}

}  // namespace

Status Prompt(const PlayOptions& options)
{
    Losses losses;
    Status status = kRefused;
    try {
        Player player(options, std::cout, losses);
        status = Session(player);
    } catch (const SetupError& error) {
        std::cerr << error.what() << "\n";
    }
    return EndWith(status, losses, std::cout, std::cerr);
}
