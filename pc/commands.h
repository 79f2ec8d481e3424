// The commands of the script language: one table, a row for each form of a command.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "pc/script.h"
#include "pc/service_view.h"
#include "pc/story.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/processes/programs.h"

class AgentClient;

// Observed values by name.
using Observations = std::map<std::string, std::string>;

// The registry, the power plans and the mute states, each by a name that a person can read.
Observations Observe(virtual_pc::Machine& pc);

// What a running command works on.
struct ScriptContext
{
    virtual_pc::Machine& pc;
    const virtual_pc::Image& image;
    ServiceView& view;
    Story& story;
    std::ostream& out;
    std::map<std::string, std::shared_ptr<virtual_pc::PipeListener>> pipes;
    // The files that other programs have open, by their paths.
    std::map<std::string, std::shared_ptr<virtual_pc::OpenMode>> files = {};
    // The power requests of other programs, by the names of the programs.
    std::map<std::string, std::shared_ptr<virtual_pc::PowerRequest>> requests = {};

    // The clients of the control interface, the one that commands act on, and the last answer it
    // got.
    std::map<std::string, std::shared_ptr<AgentClient>> clients = {};
    std::string client = "UI";
    std::string client_answer = {};

    Observations remembered = {};

    // Of the last holvctl.
    int ctl_exit = 0;
    std::string ctl_said = {};
};

// Where holvctl lies on the PC's disk.
inline constexpr const wchar_t* kCtlPath = LR"(C:\Program Files\Orbeq\Holv\holvctl.exe)";

using Action = std::function<void(ScriptContext&)>;
using Arguments = std::vector<std::string>;

struct Command
{
    // Literal words in lower case, arguments in upper case, the last ones optional in brackets.
    std::string_view pattern;
    std::string_view help;
    // Checks the arguments, in the pattern's order and with "" for one left out, and returns the
    // action. Throws ScriptError.
    Action (*bind)(const ScriptLine& line, const Arguments& arguments);
};

// Binds a command without arguments that only prints.
template <void (*show)(ScriptContext&)>
Action Show(const ScriptLine&, const Arguments&)
{
    return show;
}

// Clears one of the machine's settings for platform functions (faults, slowness), or all of them.
template <auto settings>
Action Clear(const ScriptLine&, const Arguments& a)
{
    return [name = a[0]](ScriptContext& context) {
        const virtual_pc::Hold hold(context.pc);
        if (name.empty()) {
            (context.pc.*settings).ClearAll();
        } else {
            (context.pc.*settings).Clear(name);
        }
    };
}

// The rows of each facet.
std::vector<Command> LifeCommands();      // clock, signal, run, say
std::vector<Command> ServiceCommands();   // service, pc, cpu
std::vector<Command> CtlCommands();       // ctl
std::vector<Command> RegistryCommands();  // reg
std::vector<Command> FaultCommands();     // fault, pipe, file
std::vector<Command> UnkindCommands();    // service kill, power cut, slow
std::vector<Command> PowerCommands();     // power, plan
std::vector<Command> SleepCommands();     // user, sleep, wake, processor, battery
std::vector<Command> SessionCommands();   // session, program
std::vector<Command> AudioCommands();     // audio
std::vector<Command> ClientCommands();    // client
std::vector<Command> ExpectCommands();    // expect
std::vector<Command> ShowCommands();      // show
std::vector<Command> RememberCommands();  // remember

const std::vector<Command>& AllCommands();

// The action of a line. Throws ScriptError, which names the forms of the command, when the line has
// none of them.
Action Bind(const ScriptLine& line);

// Prints the commands: all of them, or those whose first word is `word`, with an example of each.
// Returns false, and prints
// that, when there is none.
bool PrintHelp(std::ostream& out, std::string_view word);

// --- Reading arguments; each throws ScriptError that says what is expected ---

virtual_pc::Duration DurationOf(const ScriptLine& line, std::string_view text);  // "30m", "1h30m"
std::uint32_t NumberOf(const ScriptLine& line, std::string_view text);           // decimal or 0x...
double RateOf(const ScriptLine& line, std::string_view text);                    // 0 to 1
// The number of the service's state.
std::int32_t StateOf(const ScriptLine& line, std::string_view text);
// The index of the word among `choices`.
std::size_t ChoiceOf(const ScriptLine& line, std::string_view text,
                     const std::vector<std::string_view>& choices);
// "HKLM\..." checked for its root.
std::wstring KeyOf(const ScriptLine& line, std::string_view text);
