// Faults of platform functions, listeners of pipes, and files that other programs use.

#include "pc/commands.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

// Sets the fault, for a span when that is not zero.
Action Set(const ScriptLine& line, const std::string& name, const Faults::Fault& fault,
           Duration span = {})
{
    const Function* function = Function::Find(name);
    if (!function || function->failing() == Failing::never) {
        throw ScriptError(line, function ? name + " cannot fail"
                                         : "there is no platform function \"" + name + "\"");
    }
    if (fault.lie != Lie::none && function->role() != Role::acts) {
        throw ScriptError(line, name + " cannot lie");
    }
    return [name, fault, span](ScriptContext& context) {
        const Hold hold(context.pc);
        Faults::Fault set = fault;
        if (span > Duration{0}) set.until = context.pc.now() + span;
        context.pc.faults.Set(name, set);
    };
}

Action SetFault(const ScriptLine& line, const Arguments& a, Faults::Fault fault, Duration span = {})
{
    fault.error = NumberOf(line, a[1]);
    return Set(line, a[0], fault, span);
}

Action ForSpan(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = Faults::kAlways}, DurationOf(line, a[2]));
}

Action OnceOn(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.object = FromUtf8(a[2])});
}

Action AlwaysOn(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = Faults::kAlways, .object = FromUtf8(a[2])});
}

Action ForSpanOn(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = Faults::kAlways, .object = FromUtf8(a[3])},
                    DurationOf(line, a[2]));
}

template <std::uint64_t count>
Action Pretend(const ScriptLine& line, const Arguments& a)
{
    return Set(line, a[0], {.count = count, .lie = Lie::pretends});
}

template <std::uint64_t count>
Action Deny(const ScriptLine& line, const Arguments& a)
{
    return SetFault(line, a, {.count = count, .lie = Lie::denies});
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

Action Listen(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0], owner = a[1].empty() ? "SYSTEM" : a[1]](ScriptContext& context) {
        if (context.pipes.contains(name)) {
            throw ExpectationFailed(line, "pipe " + name + " has a listener already");
        }
        context.pipes[name] = context.pc.disk.Listen(FromUtf8(name), FromUtf8(owner));
    };
}

std::shared_ptr<PipeListener>& FindPipe(const ScriptLine& line, ScriptContext& context,
                                        const std::string& name)
{
    const auto pipe = context.pipes.find(name);
    if (pipe == context.pipes.end()) {
        throw ExpectationFailed(line, "pipe " + name + " has no listener");
    }
    return pipe->second;
}

Action Hangup(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        context.pc.disk.Hangup(FindPipe(line, context, name));
        context.pipes.erase(name);
    };
}

Action ReadAt(const ScriptLine& line, const Arguments& a)
{
    const std::uint32_t rate = NumberOf(line, a[1]);
    return [=, name = a[0]](ScriptContext& context) {
        FindPipe(line, context, name)->ReadAt(context.pc, rate);
        context.pc.Settle();
    };
}

Action ReadAtOnce(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        FindPipe(line, context, name)->ReadAt(context.pc, std::nullopt);
        context.pc.Settle();
    };
}

// --- Files that other programs use ---

Action OpenAlone(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        auto open = context.pc.disk.OpenElsewhere(FromUtf8(name), GENERIC_READ | GENERIC_WRITE, 0);
        if (!open) throw ExpectationFailed(line, name + " is open, and not shared so");
        context.files[name] = std::move(open);
    };
}

Action CloseFile(const ScriptLine& line, const Arguments& a)
{
    return [line, name = a[0]](ScriptContext& context) {
        if (context.files.erase(name) > 0) return;
        throw ExpectationFailed(line, "no other program has " + name + " open");
    };
}

Action SetOwner(const ScriptLine&, const Arguments& a)
{
    return [path = FromUtf8(a[0]), owner = FromUtf8(a[1])](ScriptContext& context) {
        context.pc.disk.SetRights(path, {owner, std::vector{owner}});
    };
}

Action LinkFile(const ScriptLine&, const Arguments& a)
{
    return [path = FromUtf8(a[0]), target = FromUtf8(a[1])](ScriptContext& context) {
        context.pc.disk.Link(path, target);
    };
}

}  // namespace

std::vector<Command> FaultCommands()
{
    return {
        {"fault FUNCTION pretends once", "makes the next call answer success and do nothing",
         Pretend<1>},
        {"fault FUNCTION pretends always", "makes every call answer success and do nothing",
         Pretend<Faults::kAlways>},
        {"fault FUNCTION ERROR done once", "makes the next call answer an error and do its work",
         Deny<1>},
        {"fault FUNCTION ERROR done always", "makes every call answer an error and do its work",
         Deny<Faults::kAlways>},
        {"fault FUNCTION ERROR for SPAN", "makes every call fail for a time", ForSpan},
        {"fault FUNCTION ERROR for SPAN on OBJECT",
         "the same, about one object: a plan, an endpoint, a key, a request's reason, a file",
         ForSpanOn},
        {"fault FUNCTION ERROR once on OBJECT", "makes the next call about an object fail", OnceOn},
        {"fault FUNCTION ERROR always on OBJECT", "makes every call about it fail", AlwaysOn},
        {"fault FUNCTION ERROR once", "makes the next call of a platform function fail", Once},
        {"fault FUNCTION ERROR times N", "makes the next N calls fail", Times},
        {"fault FUNCTION ERROR rate P", "makes each call fail with a probability", Rate},
        {"fault FUNCTION ERROR always", "makes every call fail", Always},
        {"fault clear [FUNCTION]", "removes the fault of a function, or all faults",
         Clear<&Machine::faults>},
        {"pipe listen NAME [OWNER]", R"(listens on \\.\pipe\NAME, as a user's program)", Listen},
        {"pipe hangup NAME", "stops listening", Hangup},
        {"pipe reads NAME at once", "reads what is written without delay, as at first", ReadAtOnce},
        {"pipe reads NAME RATE", "how many bytes a second the listener reads; 0 for none", ReadAt},
        {"file open PATH", "another program opens a file for itself alone", OpenAlone},
        {"file close PATH", "it closes the file", CloseFile},
        {"file owner PATH OWNER", "a file or folder gets an owner, who alone may write it",
         SetOwner},
        {"file link PATH TARGET", "makes a link to a file or folder", LinkFile},
    };
}
