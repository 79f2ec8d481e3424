// The assertions of scripts.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/eventlog/event_log.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

[[noreturn]] void Fail(const ScriptLine& line, const std::string& expected, const std::string& is)
{
    throw ExpectationFailed(line, "expected " + expected + ", but " + is);
}

Action ExpectState(const ScriptLine& line, const Arguments& a)
{
    const std::int32_t expected = StateOf(line, a[0]);
    return [=](ScriptContext& context) {
        const std::optional<std::int32_t> state = context.view.state();
        if (state == expected) return;
        Fail(line, "state " + a[0],
             state ? "it is " + ToUtf8(StateNameOf(*state)) : "the service does not run");
    };
}

// The log file's bytes are characters of the same value.
bool LogSays(ScriptContext& context, const std::string& text)
{
    return context.pc.disk.Read(kServiceLogFile).value_or("").find(text) != std::string::npos;
}

Action ExpectLog(const ScriptLine& line, const Arguments& a)
{
    return [line, text = a[0]](ScriptContext& context) {
        if (!LogSays(context, text)) Fail(line, "\"" + text + "\" in the log", "it is not there");
    };
}

Action ExpectNoLog(const ScriptLine& line, const Arguments& a)
{
    return [line, text = a[0]](ScriptContext& context) {
        if (LogSays(context, text)) Fail(line, "no \"" + text + "\" in the log", "it is there");
    };
}

Action ExpectValue(const ScriptLine& line, const Arguments& a)
{
    return [line, key = KeyOf(line, a[0]), a](ScriptContext& context) {
        const std::wstring name = FromUtf8(a[1] == "@" ? "" : a[1]);
        const std::optional<RegistryValue> value = context.pc.registry.Get(key, name);
        const std::string expected = a[0] + " " + a[1] + " to be " + a[2];
        if (!value) Fail(line, expected, "it is not there");
        const std::optional<DWORD> number = context.pc.registry.GetDword(key, name);
        if (number && *number == NumberOf(line, a[2])) return;
        if (!number && ToUtf8(value->Text()) == a[2]) return;
        Fail(line, expected, "it is " + (number ? std::to_string(*number) : ToUtf8(value->Text())));
    };
}

Action ExpectEvent(const ScriptLine& line, const Arguments& a)
{
    return [line, text = a[0]](ScriptContext& context) {
        for (const EventRecord& record : context.pc.event_log.records()) {
            if (ToUtf8(context.pc.event_log.Text(record)).find(text) != std::string::npos) return;
        }
        Fail(line, "an event with \"" + text + "\"",
             "none of the " + std::to_string(context.pc.event_log.records().size()) + " has it");
    };
}

Action ExpectFile(const ScriptLine& line, const Arguments& a)
{
    return [line, path = a[0]](ScriptContext& context) {
        if (!context.pc.disk.Read(FromUtf8(path)))
            Fail(line, "the file " + path, "it is not there");
    };
}

Action ExpectNoFile(const ScriptLine& line, const Arguments& a)
{
    return [line, path = a[0]](ScriptContext& context) {
        if (context.pc.disk.Read(FromUtf8(path))) Fail(line, "no file " + path, "it is there");
    };
}

Action ExpectPipeHeard(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0], text = a[1]](ScriptContext& context) {
        const auto pipe = context.pipes.find(name);
        if (pipe == context.pipes.end()) Fail(line, "a listener on " + name, "there is none");
        const Hold hold(context.pc);
        if (pipe->second->heard.find(text) == std::string::npos) {
            Fail(line, "\"" + text + "\" from pipe " + name, "it was not heard");
        }
    };
}

// The log file does not count: the service's log writer keeps it open until the process ends, and
// the system closes it.
Action ExpectNoHandles(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        std::string open;
        const auto add = [&](const LeftOpen& left) {
            if (left.name == kServiceLogFile) return;
            open += "\n  " + left.kind + " " + ToUtf8(left.name);
        };
        {
            const Hold hold(context.pc);
            for (const LeftOpen& left : context.pc.handles.List()) add(left);
        }
        for (const auto& process : context.pc.processes()) {
            for (const LeftOpen& left : process->left_open()) add(left);
        }
        for (const std::string& misuse : context.pc.misuses()) open += "\n  misuse: " + misuse;
        if (!open.empty()) Fail(line, "nothing left open", "there is:" + open);
    };
}

}  // namespace

std::vector<Command> ExpectCommands()
{
    return {
        {"expect state STATE", "the service is in a state, like HOLV_ACTIVE", ExpectState},
        {"expect log TEXT", "the service's log file contains a text", ExpectLog},
        {"expect no log TEXT", "the log file does not contain a text", ExpectNoLog},
        {"expect reg KEY NAME VALUE", "a registry value is VALUE", ExpectValue},
        {"expect event TEXT", "an event in the viewer contains a text", ExpectEvent},
        {"expect file PATH", "a file is on the PC's disk", ExpectFile},
        {"expect no file PATH", "a file is not on the PC's disk", ExpectNoFile},
        {"expect heard PIPE TEXT", "a text was written to a pipe", ExpectPipeHeard},
        {"expect handles none", "nothing is open, was left open or was misused", ExpectNoHandles},
    };
}
