// What an unkind PC does: it kills the service, its power is cut, and its functions take time.

#include "pc/commands.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

// The process that was started last from the service's program; null when there was none.
Process* LastProcess(const ScriptContext& context)
{
    const Hold hold(context.pc);
    Process* last = nullptr;
    for (const auto& process : context.pc.processes()) {
        if (SameName(process->path(), context.image.path)) last = process.get();
    }
    return last;
}

Action Kill(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        Process* process = LastProcess(context);
        bool killed = false;
        {
            const Hold hold(context.pc);
            killed = process && process->Terminate(1);
        }
        if (!killed) throw ExpectationFailed(line, "the service's program does not run");
        context.pc.Settle();
    };
}

Action CutPower(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        context.pc.CutPower();
        context.pc.Settle();
    };
}

// A deed at a call of the service's program: of its running process, counted from its start, or of
// the next one.
template <void (*deed)(Machine& pc, Process& process)>
Action AtCall(const ScriptLine& line, const Arguments& a)
{
    const std::uint64_t number = NumberOf(line, a[0]);
    if (number == 0) throw ScriptError(line, "calls are counted from 1");
    return [line, number](ScriptContext& context) {
        Machine& pc = context.pc;
        const auto planned = [&pc](Process& process) { deed(pc, process); };
        Process* process = LastProcess(context);
        const Hold hold(pc);
        if (!process || !process->running()) {
            pc.programs.AtCall(context.image.path, number, planned);
        } else if (process->calls() < number) {
            process->AtCall(number, planned);
        } else {
            throw ExpectationFailed(line, "the service's program has made " +
                                              std::to_string(process->calls()) + " calls already");
        }
    };
}

void KillProcess(Machine&, Process& process) { process.Terminate(1); }
void CutThePower(Machine& pc, Process&) { pc.CutPower(); }

void ShowCalls(ScriptContext& context)
{
    const Process* process = LastProcess(context);
    context.out << (process ? process->calls() : 0) << " calls of the service's program"
                << (process && process->running() ? "" : ", which has ended") << "\n";
}

// --- Slow functions ---

Action SetPace(const ScriptLine& line, const Arguments& a, double rate)
{
    const Function* function = Function::Find(a[0]);
    if (!function || function->role() == Role::releases) {
        throw ScriptError(line, function ? a[0] + " takes no time"
                                         : "there is no platform function \"" + a[0] + "\"");
    }
    const Slowness::Pace pace{DurationOf(line, a[1]), rate};
    return [name = a[0], pace](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.slowness.Set(name, pace);
    };
}

Action Slow(const ScriptLine& line, const Arguments& a) { return SetPace(line, a, 1); }

Action SlowAtTimes(const ScriptLine& line, const Arguments& a)
{
    return SetPace(line, a, RateOf(line, a[2]));
}

Action SlowAll(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.slowness.SetAll();
    };
}

// --- Notices ---

Action Late(const ScriptLine& line, const Arguments& a)
{
    return [span = DurationOf(line, a[0])](ScriptContext& context) {
        context.pc.announcer.delivery.late = span;
    };
}

template <bool NoticeDelivery::*how>
Action Deliver(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.announcer.delivery.*how = true; };
}

Action DeliverAsEver(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.announcer.delivery = {}; };
}

Action ExpectPower(const ScriptLine& line, const Arguments& a)
{
    const bool on = ChoiceOf(line, a[0], {"off", "on"}) == 1;
    return [line, on, words = a[0]](ScriptContext& context) {
        if (context.pc.on() == on) return;
        throw ExpectationFailed(
            line, "expected the PC to be " + words + ", but it is " + (on ? "off" : "on"));
    };
}

}  // namespace

std::vector<Command> UnkindCommands()
{
    return {
        {"service kill", "kills the service's program: it runs nothing any more", Kill},
        {"service kill at call N", "kills it in place of its N-th call of a platform function",
         AtCall<KillProcess>},
        {"show calls", "how many platform functions the service's program has called",
         Show<ShowCalls>},
        {"power cut", "cuts the PC's power: only what was written to its disk stays", CutPower},
        {"power cut at call N", "cuts it in place of the N-th call of the service's program",
         AtCall<CutThePower>},
        {"slow all", "lets platform functions take time, each by a distribution of its own",
         SlowAll},
        {"slow clear [FUNCTION]", "lets one function, or all of them, take no time again",
         Clear<&Machine::slowness>},
        {"slow FUNCTION SPAN", "lets a platform function take about that long", Slow},
        {"slow FUNCTION SPAN rate P", "lets a share of its calls hang for about that long",
         SlowAtTimes},
        {"notices late SPAN", "lets the system's notices come to programs later", Late},
        {"notices doubled", "lets each notice come twice", Deliver<&NoticeDelivery::doubled>},
        {"notices merged", "lets a notice replace one of its kind that still waits",
         Deliver<&NoticeDelivery::merged>},
        {"notices clear", "lets notices come at once, and once each", DeliverAsEver},
        {"expect power STATE", "on or off: whether the PC is switched on", ExpectPower},
    };
}
