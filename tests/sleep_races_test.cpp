// What happens to the service at the same moment, in every order that a seed draws: suspends and
// resumes, away mode, timers and the user. Whatever the order, the PC comes to rest as its state
// says, the log tells one unbroken chain of states, and normal use comes back.
//
// HOLV_RACE_SEEDS sets how many seeds are tried of each; a failure names its seed.

#include <cstdlib>
#include <sstream>

#include "log/log.h"
#include "tests/never_sleep_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

std::uint64_t Seeds()
{
    const char* seeds = std::getenv("HOLV_RACE_SEEDS");
    return seeds ? std::strtoull(seeds, nullptr, 10) : 60;
}

// The PC of one race. The user sits at it, and it sleeps for real where that is wanted.
class RacePc : public NeverSleepPc
{
public:
    explicit RacePc(std::uint64_t seed)
        : NeverSleepPc({.free = kRunFree, .seed = seed}), m_seed(seed)
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

    // Whatever plan is active: no sleep becomes away mode.
    void ForbidAwayMode()
    {
        const GUID plan = pc.power.active().guid;
        pc.power.Write(plan, GUID_ALLOW_AWAYMODE, PowerSource::ac, 0);
        pc.power.Activate(plan);
    }

    void ExpectUnbrokenChain() const
    {
        std::wstring at = L"HOLV_INIT";
        for (const DebugLine& line : pc.outputs.debug()) {
            const std::size_t text = line.text.find(L"State update ");
            if (text == std::wstring::npos) continue;
            std::wistringstream words(line.text.substr(text));
            std::wstring state, update, from, arrow, to;
            words >> state >> update >> from >> arrow >> to;
            EXPECT_EQ(from, at);
            at = to;
        }
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

const Race kRaces[] = {
    {"UserAgainstDelayedEntry", [](RacePc&) {},
     [](RacePc& race) {
         race.ForbidAwayMode();
         race.pc.sleep.Ask(L"test");
         race.pc.RunFor(1h);
         race.pc.sleep.WakeByTimer();
         race.pc.RunFor(race.Jitter());
         race.pc.user.Input();
     }},
    {"SuspendAgainstEntry", [](RacePc&) {},
     [](RacePc& race) {
         constexpr int kEnterActive = 1;
         race.ForbidAwayMode();
         race.view.Raise(kEnterActive);
         race.pc.sleep.Ask(L"test");
         race.pc.RunFor(race.Jitter());
         race.pc.sleep.WakeByUser();
         race.pc.RunFor(1s);
         race.pc.sleep.WakeByUser();
     }},
    {"AwayModeOnAndOff", [](RacePc&) {},
     [](RacePc& race) {
         for (int i = 0; i < 4; ++i) {
             race.pc.sleep.Ask(L"test");
             if (i % 2) race.pc.RunFor(race.Jitter() / 1000);
             race.pc.user.Input();
         }
         race.pc.RunFor(race.Jitter());
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
         race.pc.RunFor(28s + race.Jitter());
         race.pc.sleep.WakeByUser();
     }},
    {"HoursSetFromElsewhere", [](RacePc&) {},
     [](RacePc& race) {
         race.pc.SetClock(*ParseCalendar("2026-03-02 23:00"));
         race.pc.sleep.Ask(L"test");
         race.pc.SetClock(*ParseCalendar("2026-03-02 21:59"));
         race.pc.RunFor(race.Jitter());
         race.pc.SetClock(*ParseCalendar("2026-03-03 05:59"));
         race.pc.RunFor(60s);
         race.pc.user.Input();
     }},
    {"LowBatteryAgainstMains", [](RacePc&) {},
     [](RacePc& race) {
         race.pc.power.RunOnBattery(10, false);
         race.pc.sleep.Ask(L"test");
         race.pc.RunFor(race.Jitter());
         race.pc.power.RunOnMains();
         race.pc.RunFor(race.Jitter());
         race.pc.power.RunOnBattery(14, false);
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
    for (std::uint64_t seed = 1; seed <= Seeds(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RacePc race(seed);
        GetParam().settings(race);
        race.StartService();
        GetParam().run(race);
        race.pc.RunFor(5s);
        race.ExpectConsistent("after the race");
        race.pc.sleep.Ask(L"test");
        race.pc.RunFor(20s);
        race.pc.sleep.WakeByUser();
        race.pc.RunFor(5s);
        race.ExpectNormalUse("with the user back");
        race.ExpectUnbrokenChain();
        race.StopService();
        if (::testing::Test::HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(All, SleepRaceTest, ::testing::ValuesIn(kRaces),
                         [](const auto& race) { return race.param.name; });

}  // namespace
