// Suspends and resumes, away mode, timers and the user at the same moment, in the order that a seed
// draws. In every order the settled PC agrees with its state, the log has one unbroken chain of
// states, and the user's return leads to normal use.

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/virtual/power/battery.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// In which a user's return that was absorbed leads to normal use all the same, and a little more.
constexpr Duration kQuiet = 1min;

// The PC of one race. The user sits at it, and it sleeps for real where that is wanted.
class RacePc : public NeverSleepPc
{
public:
    explicit RacePc(const Machine::Options& life) : NeverSleepPc(life), m_seed(life.seed)
    {
        Set(L"LoggingEnabled", kLogToDebugger);
        pc.user.Works();
    }

    // A different delay for each seed, around the moment that the race is about.
    Duration Jitter() const
    {
        constexpr Duration kDelays[] = {0s, 1ms, 999ms, 1s, 1001ms};
        return kDelays[m_seed % std::size(kDelays)];
    }

    // Runs a function after a delay, on a thread of another program, so that the seed draws its
    // order among the threads that are due at the same moment.
    void Meanwhile(Duration after, const std::function<void(Machine&)>& what)
    {
        pc.Start([this, after, what] {
            Sleep(static_cast<DWORD>(after / 1ms));
            what(pc);
            return 0;
        });
    }

    // Presses the power button until the PC stays awake. A delayed entry that a sleep has cut short
    // goes on at the next wake, and may put the PC to sleep again before the service has received
    // that a user caused it.
    void AwaitAwake()
    {
        constexpr int kPressesMax = 10;
        for (int press = 0; pc.sleep.phase() != SleepState::Phase::awake; ++press) {
            ASSERT_LT(press, kPressesMax);
            pc.sleep.WakeByUser();
            pc.RunFor(kQuiet);
        }
    }

    // No plan allows away mode, so that every sleep is real.
    void ForbidAwayMode()
    {
        const GUID plan = pc.power.active().guid;
        pc.power.Write(plan, GUID_ALLOW_AWAYMODE, PowerSource::ac, 0);
        pc.power.Activate(plan);
    }

private:
    const std::uint64_t m_seed;
};

struct Race
{
    const char* name;
    void (*settings)(RacePc&);
    void (*run)(RacePc&);
};

std::ostream& operator<<(std::ostream& out, const Race& race) { return out << race.name; }

const Race kRaces[] = {
    {"UserAgainstDelayedEntry", [](RacePc&) {},
     [](RacePc& race) {
         race.ForbidAwayMode();
         race.pc.sleep.Ask(L"test");
         race.pc.RunFor(1h);
         race.pc.sleep.WakeByTimer();
         race.Meanwhile(race.Jitter(), [](Machine& pc) { pc.user.Input(); });
         const bool same_moment = race.Jitter() == 1s;
         race.pc.RunFor(same_moment ? kQuiet : 3s);
         // At the moment of the entry both happen, in either order: the sleep that the entry asks
         // for may come after the user's input.
         const bool sleeps = race.pc.sleep.phase() != SleepState::Phase::awake;
         if (same_moment && (sleeps || race.pc.sleep.away())) return;
         race.ExpectNormalUse("the user was there in time");
     }},
    {"SuspendAgainstEntry", [](RacePc&) {},
     [](RacePc& race) {
         constexpr int kEnterActive = 1;
         race.ForbidAwayMode();
         race.Meanwhile(0s, [](Machine& pc) { pc.sleep.Ask(L"test"); });
         race.view.Raise(kEnterActive);
         race.pc.RunFor(race.Jitter());
         race.pc.sleep.WakeByUser();
         race.pc.RunFor(1s);
         race.pc.sleep.WakeByUser();
     }},
    {"AwayModeOnAndOff", [](RacePc&) {},
     [](RacePc& race) {
         for (int i = 0; i < 3; ++i) {
             race.Meanwhile(0s, [](Machine& pc) { pc.sleep.Ask(L"test"); });
             race.Meanwhile(race.Jitter() / 999, [](Machine& pc) { pc.user.Input(); });
         }
         // If EVENT_ENTER_S0 and the entry are signalled before the loop waits again,
         // EVENT_ENTER_S0 has the lower slot and is handled first. Never-sleep mode then stays, so
         // the user returns once more.
         race.pc.RunFor(1s);
         race.pc.user.Input();
     }},
    {"EndOfTheHoursAgainstTheUser",
     [](RacePc& race) {
         race.Set(L"DndToS3", 1);
         race.pc.SetClock(*ParseCalendar("2026-03-02 21:59:30"));
     },
     [](RacePc& race) {
         race.pc.sleep.Ask(L"test");
         race.pc.RunFor(8h + 30s);
         EXPECT_EQ(race.pc.sleep.phase(), SleepState::Phase::asleep);
         race.Meanwhile(0s, [](Machine& pc) { pc.user.Input(); });
         race.pc.RunFor(28s + race.Jitter());
         race.pc.sleep.WakeByUser();
         race.pc.RunFor(3s);
         race.ExpectNormalUse("the user has come");
     }},
    {"ClockSetAtABoundary", [](RacePc&) {},
     [](RacePc& race) {
         race.pc.SetClock(*ParseCalendar("2026-03-02 23:00"));
         race.pc.sleep.Ask(L"test");
         race.pc.SetClock(*ParseCalendar("2026-03-02 21:59"));
         race.pc.RunFor(race.Jitter());
         race.pc.SetClock(*ParseCalendar("2026-03-03 05:59"));
         race.Meanwhile(60s, [](Machine& pc) {
             pc.SetClock(*ParseCalendar("2026-03-03 22:30"));
             pc.user.Input();
         });
         race.pc.RunFor(61s);
         race.pc.user.Input();
     }},
    {"LowBatteryAgainstMains", [](RacePc&) {},
     [](RacePc& race) {
         race.pc.power.RunOnBattery(16, false);
         race.pc.sleep.Ask(L"test");
         race.pc.battery.DrainAt(360);
         // The monitor looks every ten seconds.
         for (const Duration at : {10s, 20s, 30s}) {
             race.Meanwhile(at, [](Machine& pc) { pc.power.RunOnMains(); });
             race.Meanwhile(at + race.Jitter(),
                            [](Machine& pc) { pc.power.RunOnBattery(14, false); });
         }
         race.pc.RunFor(2min);
         race.pc.power.RunOnMains();
         race.pc.sleep.WakeByUser();
     }},
};

class SleepRaceTest : public ::testing::TestWithParam<Race>
{
};

TEST_P(SleepRaceTest, WhateverTheOrderThePcComesToRestAsItsStateSays)
{
    Storm({.seeds = 60, .free = kRunFree ? 20u : 0u}, [](const Machine::Options& life) {
        RacePc race(life);
        GetParam().settings(race);
        race.StartService();
        GetParam().run(race);
        race.pc.RunFor(kQuiet);
        race.AwaitAwake();
        race.ExpectConsistent("after the race");
        race.pc.sleep.Ask(L"test");
        race.pc.RunFor(20s);
        race.pc.sleep.WakeByUser();
        race.pc.RunFor(5s);
        race.ExpectNormalUse("with the user back");
        ExpectUnbrokenChain(race.heard);
        race.StopService();
    });
}

INSTANTIATE_TEST_SUITE_P(All, SleepRaceTest, ::testing::ValuesIn(kRaces),
                         [](const auto& race) { return race.param.name; });

}  // namespace
