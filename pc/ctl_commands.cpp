// holvctl, as an administrator runs it at a command line.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"

using namespace virtual_pc;

namespace {

Action Run(const ScriptLine& line, const Arguments& a)
{
    return [line, arguments = a[0]](ScriptContext& context) {
        const std::size_t said_before = context.pc.outputs.console().size();
        const std::wstring path = kCtlPath;
        const Process* process =
            context.pc.StartInstalled(path, L"\"" + path + L"\" " + FromUtf8(arguments));
        if (!process) throw ExpectationFailed(line, "holvctl is not on the disk");
        if (!context.pc.RunUntil([&] { return !process->running(); }, std::chrono::minutes{1})) {
            throw ExpectationFailed(line, "it has not ended within a minute");
        }
        context.ctl_exit = process->exit_code();
        context.ctl_said = context.pc.outputs.console().substr(said_before);
        context.story.Flush();
        context.out << context.ctl_said;
    };
}

Action ExpectExit(const ScriptLine& line, const Arguments& a)
{
    return [line, expected = static_cast<int>(NumberOf(line, a[0]))](ScriptContext& context) {
        if (context.ctl_exit == expected) return;
        throw ExpectationFailed(line, "expected holvctl's exit code " + std::to_string(expected) +
                                          ", but it is " + std::to_string(context.ctl_exit));
    };
}

Action ExpectSays(const ScriptLine& line, const Arguments& a)
{
    return [line, text = a[0]](ScriptContext& context) {
        if (context.ctl_said.find(text) != std::string::npos) return;
        throw ExpectationFailed(line, "holvctl did not say that, but: " + context.ctl_said);
    };
}

}  // namespace

std::vector<Command> CtlCommands()
{
    return {
        {"ctl COMMAND", "runs holvctl with a command to its end, and prints what it says", Run},
        {"expect ctl exit N", "the exit code of the last holvctl", ExpectExit},
        {"expect ctl says TEXT", "what the last holvctl has said contains the text", ExpectSays},
    };
}
