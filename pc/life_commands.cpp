// The clock, interventions in the running service, and running the PC.

#include <charconv>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

Process& RunningService(const ScriptLine& line, ScriptContext& context)
{
    Process* service = context.view.service();
    if (!service) throw ExpectationFailed(line, "the service does not run");
    return *service;
}

Action SetClock(const ScriptLine& line, const Arguments& arguments)
{
    const std::optional<CalendarTime> time = ParseCalendar(arguments[0] + " " + arguments[1]);
    if (!time) {
        throw ScriptError(line, "\"" + arguments[0] + " " + arguments[1] +
                                    "\" is no date and time, like 2026-03-02 21:30");
    }
    return [=](ScriptContext& context) {
        context.pc.SetClock(*time);
        context.pc.Settle();
    };
}

Action SetVersion(const ScriptLine& line, const Arguments& arguments)
{
    const std::optional<DWORD> version = ParseOsVersion(arguments[0]);
    if (!version) {
        throw ScriptError(line, "\"" + arguments[0] + "\" is no version, like 6.1, 7 or 11");
    }
    return [=](ScriptContext& context) { context.pc.os_version = *version; };
}

Action Signal(const ScriptLine& line, const Arguments& arguments)
{
    const std::optional<int> slot = SlotOf(arguments[0]);
    if (!slot) {
        std::string names;
        for (const std::string_view name : SlotNames()) names += " " + std::string(name);
        throw ScriptError(line, "\"" + arguments[0] + "\" is none of:" + names);
    }
    return [line, slot = *slot, name = arguments[0]](ScriptContext& context) {
        RunningService(line, context);
        if (!context.view.Raise(slot)) throw ExpectationFailed(line, "there is no " + name);
        context.story.Tell(name + " is signalled");
        context.pc.Settle();
    };
}

Action Override(const ScriptLine& line, const Arguments& arguments)
{
    const bool on = ChoiceOf(line, arguments[0], {"off", "on"}) == 1;
    return [line, on](ScriptContext& context) {
        RunningService(line, context);
        context.view.SetOverride(on);
    };
}

Action RunFor(const ScriptLine& line, const Arguments& arguments)
{
    const Duration duration = DurationOf(line, arguments[0]);
    return [=](ScriptContext& context) { context.pc.RunFor(duration); };
}

Action RunUntilTime(const ScriptLine& line, const Arguments& arguments)
{
    const std::optional<CalendarTime> time = ParseCalendar("2000-01-01 " + arguments[0]);
    if (!time) throw ScriptError(line, "\"" + arguments[0] + "\" is no time of day, like 06:00");
    constexpr Duration kDay = 24h;
    const Duration of_day = *time % kDay;
    return [=](ScriptContext& context) {
        const Duration left = (of_day - context.pc.clock() % kDay + kDay) % kDay;
        context.pc.RunFor(left == Duration::zero() ? kDay : left);
    };
}

Action RunUntilState(const ScriptLine& line, const Arguments& arguments)
{
    const std::int32_t state = StateOf(line, arguments[0]);
    const Duration max = DurationOf(line, arguments[1]);
    return [=](ScriptContext& context) {
        if (context.pc.RunUntil([&] { return context.view.state() == state; }, max)) return;
        throw ExpectationFailed(line, "expected state " + arguments[0] + " within " + arguments[1] +
                                          ", but it is " +
                                          ToUtf8(StateNameOf(context.view.state().value_or(-1))));
    };
}

Action RunUntilEnd(const ScriptLine& line, const Arguments& arguments)
{
    const Duration max = arguments.empty() ? Duration::max() : DurationOf(line, arguments[0]);
    return [=](ScriptContext& context) {
        const Process& service = RunningService(line, context);
        if (context.pc.RunUntil([&] { return !service.running(); }, max)) return;
        throw ExpectationFailed(line, "the service's program has not ended within " + arguments[0]);
    };
}

Action Meanwhile(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.at_one_instant = true; };
}

Action EndMeanwhile(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        context.pc.at_one_instant = false;
        context.pc.Settle();
    };
}

Action Say(const ScriptLine&, const Arguments& arguments)
{
    return [text = arguments[0]](ScriptContext& context) { context.story.Tell("-- " + text); };
}

Action Try(const ScriptLine& line, const Arguments&)
{
    ScriptLine tried = line;
    tried.words.erase(tried.words.begin());
    return [action = Bind(tried)](ScriptContext& context) {
        try {
            action(context);
        } catch (const ExpectationFailed& refused) {
            context.story.Tell(std::string("refused: ") + refused.what());
        }
    };
}

}  // namespace

std::vector<Command> LifeCommands()
{
    return {
        {"clock DATE TIME", "sets the PC's clock, like 2026-03-02 21:30", SetClock},
        {"os VERSION", "sets the version of Windows, like 6.1, 7, 8.1, 10 or 11", SetVersion},
        {"signal EVENT", "signals an event of the service, or makes one of its timers due", Signal},
        {"override ON", "on or off: sets the service's mark of a wake by the user", Override},
        {"run until end max SPAN", "runs the PC until the service's program has ended",
         RunUntilEnd},
        {"run until end", "the same, however long it takes", RunUntilEnd},
        {"run until state STATE max SPAN", "runs the PC until the service is in a state",
         RunUntilState},
        {"run until TIME", "runs the PC until its clock shows a time of day", RunUntilTime},
        {"run SPAN", "runs the PC for a time, like 30m or 1h30m", RunFor},
        {"meanwhile {", "lets the commands up to the next } happen at one instant", Meanwhile},
        {"}", "ends that: now the programs can run", EndMeanwhile},
        {"try COMMAND [WORD] [WORD] [WORD] [WORD] [WORD] [WORD] [WORD] [WORD]",
         "does a command, and goes on where the PC refuses it", Try},
        {"say TEXT", "prints a line in the story", Say},
    };
}
