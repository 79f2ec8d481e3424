// Faults of platform functions, and listeners of pipes.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

Action SetFault(const ScriptLine& line, const Arguments& a, Faults::Fault fault)
{
    const Function* function = Function::Find(a[0]);
    if (!function || function->failing() == Failing::never) {
        throw ScriptError(line, function ? a[0] + " cannot fail"
                                         : "there is no platform function \"" + a[0] + "\"");
    }
    fault.error = NumberOf(line, a[1]);
    return [name = a[0], fault](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.faults.Set(name, fault);
    };
}

Action Once(const ScriptLine& line, const Arguments& a) { return SetFault(line, a, {}); }

Action Always(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = Faults::kAlways});
}

Action Times(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = NumberOf(line, a[2])});
}

Action Rate(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.rate = RateOf(line, a[2])});
}

Action Clear(const ScriptLine&, const Arguments& a)
{
    return [name = a[0]](ScriptContext& context) {
        const Hold hold(context.pc);
        if (name.empty()) {
            context.pc.faults.ClearAll();
        } else {
            context.pc.faults.Clear(name);
        }
    };
}

Action Listen(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        if (context.pipes.contains(name)) {
            throw ExpectationFailed(line, "pipe " + name + " has a listener already");
        }
        context.pipes[name] = context.pc.disk.Listen(FromUtf8(name));
    };
}

Action Hangup(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        const auto pipe = context.pipes.find(name);
        if (pipe == context.pipes.end()) {
            throw ExpectationFailed(line, "nobody listens on pipe " + name);
        }
        context.pc.disk.Hangup(pipe->second);
        context.pipes.erase(pipe);
    };
}

}  // namespace

std::vector<Command> FaultCommands()
{
    return {
        {"fault FUNCTION ERROR once", "makes the next call of a platform function fail", Once},
        {"fault FUNCTION ERROR times N", "makes the next N calls fail", Times},
        {"fault FUNCTION ERROR rate P", "makes each call fail with a probability", Rate},
        {"fault FUNCTION ERROR always", "makes every call fail", Always},
        {"fault clear [FUNCTION]", "removes the fault of a function, or all faults", Clear},
        {"pipe listen NAME", R"(listens on \\.\pipe\NAME)", Listen},
        {"pipe hangup NAME", "stops listening", Hangup},
    };
}
