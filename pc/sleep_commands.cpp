// The person at the PC, sleep and away mode, the processor's load, the battery, and daylight
// saving.

#include <charconv>
#include <chrono>

#include "pc/commands.h"

using namespace virtual_pc;

namespace {

// --- The person ---

template <void (User::*operation)()>
Action OnUser(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) {
        (stage.pc.user.*operation)();
        stage.pc.Settle();
    };
}

// --- Sleep ---

Action PutToSleep(const ScriptLine& line, const Arguments&)
{
    return [line](Stage& stage) {
        if (!stage.pc.sleep.Ask(L"the user")) {
            throw ExpectationFailed(line, "the PC can neither sleep nor go into away mode");
        }
        stage.pc.Settle();
    };
}

template <void (SleepState::*operation)()>
Action WakeUp(const ScriptLine& line, const Arguments&)
{
    return [line](Stage& stage) {
        if (stage.pc.sleep.phase() == SleepState::Phase::awake) {
            throw ExpectationFailed(line, "the PC is not asleep");
        }
        (stage.pc.sleep.*operation)();
        stage.pc.Settle();
    };
}

std::string HowItIs(const Stage& stage)
{
    const Hold hold(stage.pc);
    switch (stage.pc.sleep.phase()) {
        case SleepState::Phase::suspending:
            return "about to sleep";
        case SleepState::Phase::asleep:
            return "asleep";
        default:
            return stage.pc.sleep.away() ? "away" : "awake";
    }
}

Action ExpectHow(const ScriptLine& line, const Arguments&)
{
    return [line](Stage& stage) {
        const std::string& expected = line.words[1];
        if (HowItIs(stage) == expected) return;
        throw ExpectationFailed(
            line, "expected the PC to be " + expected + ", but it is " + HowItIs(stage));
    };
}

Action ExpectDisplay(const ScriptLine& line, const Arguments& a)
{
    const bool on = ChoiceOf(line, a[0], {"off", "on"}) == 1;
    return [=](Stage& stage) {
        if (stage.pc.user.display_on() == on) return;
        throw ExpectationFailed(line, "expected the display " + a[0] + ", but it is not");
    };
}

void ShowSleep(Stage& stage)
{
    const Hold hold(stage.pc);
    const Machine& pc = stage.pc;
    stage.out << "the PC is " << HowItIs(stage) << ", its display "
              << (pc.user.display_on() ? "on" : "off") << ", idle sleep in "
              << static_cast<std::int32_t>(pc.sleep.IdleSecondsLeft()) << " s, processor load "
              << pc.processor.load() << " %\n";
}

// --- Requests of other programs ---

template <bool hold>
Action OnRequest(const ScriptLine& line, const Arguments& a)
{
    const auto type =
        static_cast<POWER_REQUEST_TYPE>(ChoiceOf(line, a[0], {"display", "system", "away"}));
    return [=, name = a[1]](Stage& stage) {
        auto& request = stage.requests[name];
        if (!request) {
            request = stage.pc.power.NewRequest(LR"(C:\Program Files\)" + FromUtf8(name), L"");
        }
        if (hold) {
            stage.pc.power.SetRequest(*request, type);
        } else if (!stage.pc.power.ClearRequest(*request, type)) {
            throw ExpectationFailed(line, name + " has no such request");
        }
        stage.pc.Settle();
    };
}

// --- Processor, battery, clock ---

Action SetLoad(const ScriptLine& line, const Arguments& a)
{
    const std::uint32_t percent = NumberOf(line, a[0]);
    if (percent > 100) throw ScriptError(line, "\"" + a[0] + "\" is no load of 0 to 100");
    return [=](Stage& stage) { stage.pc.processor.SetLoad(percent); };
}

// "6/h"
template <void (Battery::*operation)(double)>
Action SetRate(const ScriptLine& line, const Arguments& a)
{
    const std::string& text = a[0];
    double rate = -1;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), rate);
    if (parsed.ec != std::errc{} || std::string_view(parsed.ptr) != "/h" || rate < 0) {
        throw ScriptError(line, "\"" + text + "\" is no rate in percent, like 6/h");
    }
    return [=](Stage& stage) { (stage.pc.battery.*operation)(rate); };
}

template <int hours>
Action ShiftClock(const ScriptLine&, const Arguments&)
{
    return [](Stage& stage) { stage.pc.ShiftClock(std::chrono::hours{hours}); };
}

}  // namespace

std::vector<Command> SleepCommands()
{
    return {
        {"user input", "a key, or a movement of the mouse", OnUser<&User::Input>},
        {"user works", "input without a pause from now on", OnUser<&User::Works>},
        {"user leaves", "no input any more; the PC is idle from now on", OnUser<&User::Leaves>},
        {"sleep", "the user puts the PC to sleep", PutToSleep},
        {"wake user", "he wakes it, by its power button", WakeUp<&SleepState::WakeByUser>},
        {"wake timer", "a timer does, where the plan allows it", WakeUp<&SleepState::WakeByTimer>},
        {"expect asleep", "the PC is really asleep", ExpectHow},
        {"expect away", "it is in away mode", ExpectHow},
        {"expect awake", "it is neither", ExpectHow},
        {"expect display ON", "the display is on or off", ExpectDisplay},
        {"show sleep", "whether the PC sleeps, and how long before it does", Show<ShowSleep>},
        {"program requires TYPE NAME", "another program requests display, system or away",
         OnRequest<true>},
        {"program releases TYPE NAME", "and withdraws it", OnRequest<false>},
        {"processor load PERCENT", "how busy the processor is from now on", SetLoad},
        {"battery drain RATE", "what the PC takes out of its battery, like 6/h",
         SetRate<&Battery::DrainAt>},
        {"battery charge RATE", "what mains power puts in", SetRate<&Battery::ChargeAt>},
        {"daylight saving begins", "the clock goes forward an hour, unannounced", ShiftClock<1>},
        {"daylight saving ends", "and back", ShiftClock<-1>},
    };
}
