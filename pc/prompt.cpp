#include "pc/prompt.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>

#include "pc/line_editor.h"
#include "pc/live_clock.h"
#include "pc/screen.h"
#include "pc/stop_signals.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

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

struct Typing
{
    Player& player;
    std::ostream& out;
    std::ostream& errors;
    LiveClock clock;
    bool quit = false;
};

// --- The commands of the prompt itself ---

struct OwnCommand
{
    std::string_view pattern;
    std::string_view help;
    Status (*play)(Typing& session, const ScriptLine& line);
};
const std::vector<OwnCommand>& OwnCommands();

Status Help(Typing& session, const ScriptLine& line)
{
    const std::string word = line.words.size() > 1 ? line.words[1] : "";
    bool own = false;
    for (const OwnCommand& command : OwnCommands()) {
        const std::string_view name = command.pattern.substr(0, command.pattern.find(' '));
        if (!word.empty() && name != word) continue;
        session.out << std::left << std::setw(44) << command.pattern << command.help << "\n";
        if (name == word) session.out << "    " << ExampleOf(command.pattern) << "\n";
        own = true;
    }
    if (own && !word.empty()) return kDone;
    return PrintHelp(session.out, word) ? kDone : kRefused;
}

Status Speed(Typing& session, const ScriptLine& line)
{
    if (line.words.size() > 1) {
        const auto speed = ReadSpeed(line.words[1]);
        if (!speed) throw ScriptError(line, "\"" + line.words[1] + "\" is no " + kSpeedWords);
        session.clock.SetSpeed(*speed);
    }
    session.out << "while you type, the PC's time passes " << session.clock.speed()
                << " times as fast\n";
    return kDone;
}

Status Quit(Typing& session, const ScriptLine&)
{
    session.quit = true;
    return kDone;
}

const std::vector<OwnCommand>& OwnCommands()
{
    static const std::vector<OwnCommand> commands = {
        {"help [COMMAND]", "lists the commands, or those of that name with examples", Help},
        {"speed [X]", "how fast the PC's time passes while you type; 0 stops it", Speed},
        {"quit", "switches the PC off, as the end of the input does", Quit},
    };
    return commands;
}

Status PlayTyped(Typing& session, const ScriptLine& line)
{
    if (line.words.empty()) return kDone;
    for (const OwnCommand& command : OwnCommands()) {
        if (command.pattern.substr(0, command.pattern.find(' ')) == line.words.front()) {
            return command.play(session, line);
        }
    }
    session.player.Play(line);
    return kDone;
}

// Plays a line and prints its error.
Status PlayAndTell(Typing& session, const std::string& text, int number)
{
    try {
        return PlayTyped(session, ReadLine(text, {}, number));
    } catch (const ScriptError& error) {
        session.errors << error.what() << std::endl;
        return kRefused;
    } catch (const std::runtime_error& error) {
        session.errors << error.what() << std::endl;
        return kFailed;
    }
}

// --- At a terminal ---

// "22:01:30 HOLV_IDLE> "
std::string PromptOf(ScriptContext& context)
{
    const Hold hold(context.pc);
    const std::optional<std::int32_t> state = context.view.state();
    std::string where = FormatCalendar(context.pc.clock()).substr(11, 8) + " ";
    if (!context.pc.on()) {
        where += "off";
    } else if (!context.view.service() || !state) {
        where += "no service";
    } else {
        where += ToUtf8(StateNameOf(*state));
    }
    return where + (context.pc.at_one_instant ? " {> " : "> ");
}

std::vector<std::string> NamesIn(ScriptContext& context, Things things)
{
    const Hold hold(context.pc);
    std::vector<std::string> names;
    if (things == Things::plans) {
        for (const auto& [guid, plan] : context.pc.power.plans()) {
            names.push_back(ToUtf8(plan.name));
        }
    } else if (things == Things::endpoints) {
        for (const Endpoint* endpoint : context.pc.audio.All()) {
            names.push_back(ToUtf8(endpoint->name()));
        }
    } else if (things == Things::programs) {
        for (const auto& process : context.pc.processes()) {
            const std::string path = ToUtf8(process->path());
            names.push_back(path.substr(path.rfind('\\') + 1));
        }
    } else if (things == Things::clients) {
        for (const auto& [name, client] : context.clients) names.push_back(name);
    } else if (things == Things::pipes) {
        for (const auto& [name, pipe] : context.pipes) names.push_back(name);
    }
    return names;
}

// Lets the time pass that has passed at the terminal.
void LetLive(Typing& session)
{
    const Duration passed = session.clock.Passed(LiveClock::Host::now());
    if (passed <= Duration::zero()) return;
    try {
        session.player.Live(passed);
    } catch (const StuckMachine& stuck) {
        session.clock.SetSpeed(0);
        session.out << stuck.what() << "its time stands still from now on\n" << std::flush;
    } catch (const Interrupted&) {
        // The signal concerns the line that is being typed.
    }
}

std::string HistoryFile()
{
    const char* home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.holvpc_history" : "";
}

void TypedAtTerminal(Typing& session, Terminal& terminal)
{
    session.out << "A PC is on. Type help for the commands, and quit to switch it off.\n"
                << std::flush;
    std::vector<std::string_view> patterns;
    for (const OwnCommand& command : OwnCommands()) patterns.push_back(command.pattern);
    for (const Command& command : AllCommands()) patterns.push_back(command.pattern);
    ScriptContext& context = session.player.context();
    LineEditor editor(terminal,
                      {.prompt = [&] { return PromptOf(context); },
                       .complete =
                           [&](std::string_view line) {
                               return Complete(line, patterns, [&](Things things) {
                                   return NamesIn(context, things);
                               });
                           },
                       .idle = [&] { LetLive(session); }},
                      HistoryFile());
    for (int number = 1; !session.quit; ++number) {
        session.clock.Start(LiveClock::Host::now());
        const std::optional<std::string> text = editor.Read();
        if (!text) return;
        PlayAndTell(session, *text, number);
        // An interrupt has stopped the command, and not the PC.
        if (StopSignal() == SIGINT) ForgetStopSignal();
        session.out << std::flush;
    }
}

// --- From a file or a pipe ---

// The next line of the standard input; nothing at its end, and after a signal.
std::optional<std::string> NextLine(std::string& read_ahead)
{
    constexpr int kLookForSignalMilliseconds = 100;
    while (true) {
        if (const auto end = read_ahead.find('\n'); end != read_ahead.npos) {
            std::string line = read_ahead.substr(0, end);
            read_ahead.erase(0, end + 1);
            return line;
        }
        pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        const int ready = poll(&input, 1, kLookForSignalMilliseconds);
        if (StopSignal() != 0) return std::nullopt;
        if (ready <= 0) continue;
        char bytes[4096];
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
        if (count < 0 && errno == EINTR) continue;
        if (count > 0) {
            read_ahead.append(bytes, static_cast<std::size_t>(count));
        } else if (read_ahead.empty()) {
            return std::nullopt;
        } else {
            read_ahead += '\n';
        }
    }
}

Status Piped(Typing& session)
{
    Status worst = kDone;
    std::string read_ahead;
    for (int number = 1; !session.quit && session.out; ++number) {
        const std::optional<std::string> text = NextLine(read_ahead);
        if (!text) break;
        worst = std::max(worst, PlayAndTell(session, *text, number));
    }
    return worst;
}

}  // namespace

Status Prompt(const PlayOptions& options)
{
    Losses losses;
    Status status = kRefused;
    Screen screen;
    const bool typed = screen.terminal() && isatty(STDIN_FILENO);
    PlayOptions own = options;
    own.watcher = screen.progress();
    // At a terminal time passes while one types; what is to be run is run at once.
    if (typed) own.machine.pace = 0;
    try {
        Player player(own, screen.out(), losses);
        Typing session{player, screen.out(), typed ? screen.out() : std::cerr,
                       LiveClock(options.speed.value_or(1))};
        status = kDone;
        if (typed) {
            TypedAtTerminal(session, *screen.terminal());
        } else {
            status = Piped(session);
        }
    } catch (const SetupError& error) {
        std::cerr << error.what() << "\n";
    }
    return EndWith(status, losses, screen.out(), std::cerr);
}
