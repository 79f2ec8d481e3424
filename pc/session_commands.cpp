// The user at the console, and the programs that run for that user.

#include "pc/commands.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/sessions/session.h"

using namespace virtual_pc;

namespace {

// A command on the session, without arguments.
template <void (Session::*operation)()>
Action OnSession(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        (context.pc.session.*operation)();
        context.pc.Settle();
    };
}

Action Logon(const ScriptLine&, const Arguments& arguments)
{
    return [user = FromUtf8(arguments[0])](ScriptContext& context) {
        context.pc.session.Logon(user);
        context.pc.Settle();
    };
}

Action Switch(const ScriptLine&, const Arguments& arguments)
{
    return [user = FromUtf8(arguments[0])](ScriptContext& context) {
        context.pc.session.Switch(user);
        context.pc.Settle();
    };
}

// A program's path; a name without a folder is in the folder of the service's program.
std::wstring PathOf(const ScriptContext& context, const std::string& name)
{
    std::wstring path = FromUtf8(name);
    if (path.find(L'\\') != path.npos) return path;
    return context.image.path.substr(0, context.image.path.rfind(L'\\') + 1) + path;
}

Action AddProgram(const ScriptLine& line, const Arguments& a)
{
    std::optional<Duration> span;
    if (a.size() > 1) span = DurationOf(line, a[1]);
    const int exit_code = a.size() > 2 ? static_cast<int>(NumberOf(line, a[2])) : 0;
    return [=, name = a[0]](ScriptContext& context) {
        context.pc.session.InstallProgram(PathOf(context, name), span, exit_code);
    };
}

// The last process of a program; null when it was never started.
Process* LastOf(const ScriptContext& context, const std::string& name)
{
    const Hold hold(context.pc);
    Process* last = nullptr;
    for (const auto& process : context.pc.processes()) {
        if (SameName(process->path(), PathOf(context, name))) last = process.get();
    }
    return last;
}

bool Runs(const ScriptContext& context, const std::string& name)
{
    const Process* process = LastOf(context, name);
    const Hold hold(context.pc);
    return process && process->running();
}

Action EndProgram(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        Process* process = LastOf(context, name);
        bool ended = false;
        {
            const Hold hold(context.pc);
            ended = process && process->Terminate(1);
        }
        if (!ended) throw ExpectationFailed(line, name + " does not run");
        context.pc.Settle();
    };
}

Action ExpectRunning(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        if (Runs(context, name)) return;
        throw ExpectationFailed(line, "expected " + name + " to run, but it does not");
    };
}

Action ExpectNotRunning(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        if (!Runs(context, name)) return;
        throw ExpectationFailed(line, "expected " + name + " not to run, but it does");
    };
}

// Compares a property of a program's last process with its expected value.
void ExpectLaunch(const ScriptLine& line, const ScriptContext& context, const std::string& name,
                  const std::string& what, std::wstring (*is)(const Process&),
                  const std::string& expected)
{
    const Process* process = LastOf(context, name);
    if (!process) throw ExpectationFailed(line, name + " has never been started");
    const std::string found = ToUtf8(is(*process));
    if (found == expected) return;
    throw ExpectationFailed(
        line, "expected " + name + " with " + what + " " + expected + ", but it is " + found);
}

std::wstring ArgumentsOf(const Process& process)
{
    const std::wstring& line = process.command_line();
    const bool quoted = line.starts_with(L'"');
    const std::size_t end = line.find(quoted ? L'"' : L' ', 1);
    if (end == line.npos || end + 1 + quoted >= line.size()) return {};
    return line.substr(end + 1 + quoted);
}

Action ExpectArguments(const ScriptLine& line, const Arguments& a)
{
    return [line, a](ScriptContext& context) {
        ExpectLaunch(line, context, a[0], "arguments", ArgumentsOf, a[1]);
    };
}

Action ExpectUser(const ScriptLine& line, const Arguments& a)
{
    return [line, a](ScriptContext& context) {
        const auto user = [](const Process& process) {
            return process.launch ? process.launch->user : Launch{}.user;
        };
        ExpectLaunch(line, context, a[0], "user", user, a[1]);
    };
}

Action ShowPrograms(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        const Hold hold(context.pc);
        for (const auto& process : context.pc.processes()) {
            const Launch launch = process->launch.value_or(Launch{});
            context.out << process->id() << "  " << ToUtf8(launch.user) << " (session "
                        << launch.session << ")  "
                        << (process->running()
                                ? "runs"
                                : "ended with " + std::to_string(process->exit_code()))
                        << "  " << ToUtf8(process->command_line()) << "\n";
        }
    };
}

}  // namespace

std::vector<Command> SessionCommands()
{
    return {
        {"session logon NAME", "a user logs on at the console", Logon},
        {"session switch NAME", "another user takes the console; the one before stays logged on",
         Switch},
        {"session logoff", "the user logs off, and the user's programs end",
         OnSession<&Session::Logoff>},
        {"session lock", "the workstation is locked", OnSession<&Session::Lock>},
        {"session unlock", "the workstation is unlocked", OnSession<&Session::Unlock>},
        {"session none", "the console has no session, until the next logon",
         OnSession<&Session::Disconnect>},
        {"program add NAME", "puts a program on the disk that runs until it is ended", AddProgram},
        {"program add NAME for SPAN", "puts a program there that runs for a time", AddProgram},
        {"program add NAME for SPAN exit N", "puts one there that ends with an exit code",
         AddProgram},
        {"program end NAME", "ends a running program, as a user does", EndProgram},
        {"expect program NAME running", "a program runs", ExpectRunning},
        {"expect program NAME not running", "a program does not run", ExpectNotRunning},
        {"expect program NAME arguments TEXT", "a program was last started with these arguments",
         ExpectArguments},
        {"expect program NAME user NAME", "a program was last started as this user", ExpectUser},
        {"show programs", "every program started: number, user, whether it runs", ShowPrograms},
    };
}
