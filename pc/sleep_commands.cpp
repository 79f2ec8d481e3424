// The person at the PC, sleep and away mode, the processor's load, the battery, and daylight
// saving.

#include <charconv>
#include <chrono>

#include "pc/commands.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/power/battery.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"

using namespace virtual_pc;

namespace {

// --- The person ---

template <void (User::*operation)()>
Action OnUser(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) {
        (context.pc.user.*operation)();
        context.pc.Settle();
    };
}

// --- Sleep ---

Action PutToSleep(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        if (!context.pc.sleep.AskAsUser()) {
            throw ExpectationFailed(line, "the PC can neither sleep nor go into away mode");
        }
        context.pc.Settle();
    };
}

bool IsUp(const ScriptContext& context)
{
    const Hold hold(context.pc);
    return context.pc.sleep.phase() == SleepState::Phase::awake && !context.pc.sleep.stands_by();
}

template <void (SleepState::*operation)()>
Action WakeUp(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        if (IsUp(context)) throw ExpectationFailed(line, "the PC is not asleep");
        (context.pc.sleep.*operation)();
        context.pc.Settle();
    };
}

std::string HowItIs(const ScriptContext& context)
{
    const Hold hold(context.pc);
    switch (context.pc.sleep.phase()) {
        case SleepState::Phase::suspending:
            return "about to sleep";
        case SleepState::Phase::asleep:
            return "asleep";
        default:
            if (context.pc.sleep.stands_by()) return "standby";
            return context.pc.sleep.away() ? "away" : "awake";
    }
}

Action ExpectHow(const ScriptLine& line, const Arguments&)
{
    return [line](ScriptContext& context) {
        const std::string& expected = line.words[1];
        if (HowItIs(context) == expected) return;
        throw ExpectationFailed(
            line, "expected the PC to be " + expected + ", but it is " + HowItIs(context));
    };
}

Action ExpectDisplay(const ScriptLine& line, const Arguments& a)
{
    const bool on = ChoiceOf(line, a[0], {"off", "on"}) == 1;
    return [=](ScriptContext& context) {
        if (context.pc.user.display_on() == on) return;
        throw ExpectationFailed(line, "expected the display " + a[0] + ", but it is not");
    };
}

void ShowSleep(ScriptContext& context)
{
    const Hold hold(context.pc);
    const Machine& pc = context.pc;
    context.out << "the PC is " << HowItIs(context) << ", its display "
                << (pc.user.display_on() ? "on" : "off") << ", idle sleep in "
                << static_cast<std::int32_t>(pc.sleep.IdleSecondsLeft()) << " s, processor load "
                << pc.processor.load() << " %\n";
}

Action SetSleepKind(const ScriptLine& line, const Arguments& a)
{
    const std::size_t kind = ChoiceOf(line, a[0], {"never", "s3", "modern"});
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.power.s3_supported = kind == 1;
        context.pc.power.modern_standby = kind == 2;
        context.pc.sleep.Reconsider();
    };
}

// --- Requests of other programs and of drivers ---

Action SetListingLanguage(const ScriptLine& line, const Arguments& a)
{
    const bool japanese = ChoiceOf(line, a[0], {"english", "japanese"}) == 1;
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.power.listing_words = japanese ? kJapaneseListing : kEnglishListing;
    };
}

Action SetListingTime(const ScriptLine& line, const Arguments& a)
{
    const Duration span = DurationOf(line, a[0]);
    return [=](ScriptContext& context) {
        const Hold hold(context.pc);
        context.pc.power.listing_takes = span;
    };
}

template <bool hold, PowerRequest::Of of = PowerRequest::Of::process>
Action OnRequest(const ScriptLine& line, const Arguments& a)
{
    const auto type =
        static_cast<POWER_REQUEST_TYPE>(ChoiceOf(line, a[0], {"display", "system", "away"}));
    return [=, name = a[1]](ScriptContext& context) {
        auto& request = context.requests[name];
        if (!request) {
            const bool driver = of == PowerRequest::Of::driver;
            const bool is_path = driver || name.find('\\') != name.npos;
            const std::wstring folder = is_path ? L"" : LR"(C:\Program Files\)";
            request = context.pc.power.NewRequest(folder + FromUtf8(name), L"");
            request->of = of;
        }
        if (hold) {
            context.pc.power.SetRequest(*request, type);
        } else if (!context.pc.power.ClearRequest(*request, type)) {
            throw ExpectationFailed(line, name + " has no such request");
        }
        context.pc.Settle();
    };
}

// --- Processor, battery, clock ---

Action SetLoad(const ScriptLine& line, const Arguments& a)
{
    const std::uint32_t percent = NumberOf(line, a[0]);
    if (percent > 100) throw ScriptError(line, "\"" + a[0] + "\" is no load of 0 to 100");
    return [=](ScriptContext& context) { context.pc.processor.SetLoad(percent); };
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
    return [=](ScriptContext& context) { (context.pc.battery.*operation)(rate); };
}

template <int hours>
Action ShiftClock(const ScriptLine&, const Arguments&)
{
    return [](ScriptContext& context) { context.pc.ShiftClock(std::chrono::hours{hours}); };
}

}  // namespace

std::vector<Command> SleepCommands()
{
    return {
        {"user input", "a key, or a movement of the mouse", OnUser<&User::Input>},
        {"user works", "input without a pause from now on", OnUser<&User::Works>},
        {"user leaves", "ends the input; the PC is idle from now on", OnUser<&User::Leaves>},
        {"sleep", "the user puts the PC to sleep", PutToSleep},
        {"wake user", "the user wakes the PC, by its power button",
         WakeUp<&SleepState::WakeByUser>},
        {"wake timer", "a timer wakes the PC, where the plan allows it",
         WakeUp<&SleepState::WakeByTimer>},
        {"expect asleep", "the PC is really asleep", ExpectHow},
        {"expect away", "the PC is in away mode", ExpectHow},
        {"expect awake", "the PC is neither asleep nor in away mode or Modern Standby", ExpectHow},
        {"expect standby", "the PC is in Modern Standby", ExpectHow},
        {"pc sleeps HOW", "s3, modern (Modern Standby) or never: what kind of sleep the PC has",
         SetSleepKind},
        {"expect display ON", "the display is on or off", ExpectDisplay},
        {"show sleep", "whether the PC sleeps, and how long before it does", Show<ShowSleep>},
        {"program requires TYPE NAME", "another program requests display, system or away",
         OnRequest<true>},
        {"program releases TYPE NAME", "another program withdraws such a request",
         OnRequest<false>},
        {"driver requires TYPE NAME", "a driver does so",
         OnRequest<true, PowerRequest::Of::driver>},
        {"driver releases TYPE NAME", "a driver withdraws it",
         OnRequest<false, PowerRequest::Of::driver>},
        {"requests in LANGUAGE", "english or japanese: how the system lists requests",
         SetListingLanguage},
        {"requests take SPAN", "how long the system takes to list the requests, like 1s",
         SetListingTime},
        {"processor load PERCENT", "how busy the processor is from now on", SetLoad},
        {"battery drain RATE", "by how much a running PC drains its battery, like 6/h",
         SetRate<&Battery::DrainAt>},
        {"battery charge RATE", "by how much mains power charges it, like 60/h",
         SetRate<&Battery::ChargeAt>},
        {"daylight saving begins", "the clock goes forward an hour, unannounced", ShiftClock<1>},
        {"daylight saving ends", "the clock goes back an hour, unannounced", ShiftClock<-1>},
    };
}
