// What the service has begun ends with its cause: timers, requests and delayed entries that would
// otherwise act on a PC whose user has other plans.

#include "api/agent_features.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/sessions/session.h"
#include "tests/never_sleep_pc_test.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

Instant At(const char* time) { return *ParseCalendar(std::string("2026-03-02 ") + time); }

// A PC whose user leaves it at a time of the day, with hours from 22:00 to 6:00.
struct EveningPc : NeverSleepPc
{
    EveningPc(const char* time, bool sleeps_in_the_hours) : NeverSleepPc(DrawnSchedule())
    {
        Set(L"DndToS3", sleeps_in_the_hours);
        pc.SetClock(At(time));
        pc.user.Works();
        pc.processor.SetLoad(100);  // never idle
        StartService();
    }

    bool Asleep() const { return pc.sleep.phase() == SleepState::Phase::asleep; }
    void Run(Duration time) { pc.RunFor(time); }
};

TEST(UndoneTest, OnlyTheEndOfHoursThatAreSleptThroughWakesThePc)
{
    // Asleep from when, whether it sleeps in the hours and by the service, and whether it wakes.
    const std::tuple<std::string, bool, bool, bool> cases[] = {{"20:00", false, false, false},
                                                               {"20:00", true, false, false},
                                                               {"23:00", false, false, false},
                                                               {"23:00", true, false, true},
                                                               {"23:00", true, true, true}};
    for (const auto& [slept_at, in_the_hours, by_service, wakes] : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "asleep from " << slept_at << ", sleeps in the hours: " << in_the_hours);
        EveningPc evening(slept_at.c_str(), in_the_hours);
        const GUID plan = evening.pc.power.active().guid;
        evening.pc.power.Write(plan, GUID_ALLOW_AWAYMODE, PowerSource::ac, 0);
        evening.pc.power.Activate(plan);
        const auto copy = evening.pc.power.NewRequest(L"C:\\Copy.exe", L"");
        if (by_service) {
            // The PC's own sleep waits for the request, and the service does not.
            evening.pc.power.SetRequest(*copy, PowerRequestSystemRequired);
            evening.pc.user.Leaves();
        } else {
            evening.pc.sleep.AskAsUser();
        }
        evening.Run(6h + 50min);
        if (by_service) evening.pc.power.ClearRequest(*copy, PowerRequestSystemRequired);
        EXPECT_TRUE(evening.Asleep()) << "nothing wakes the PC before the hours' end";
        evening.Run(slept_at == "20:00" ? 5h : 20min);
        EXPECT_EQ(evening.Asleep(), !wakes) << "at the hours' end";
        if (evening.Asleep()) evening.pc.sleep.WakeByUser();
        evening.pc.user.Works();
        evening.Run(2min);
        evening.StopService();
    }
}

class UndoneInServiceTest : public RunningServiceTest
{
};

// The service goes on without the feature, and nothing that it had planned takes place.
TEST_F(UndoneInServiceTest, AfterTheFeatureWasSwitchedOffNothingOfTheNightHappens)
{
    pc.processor.SetLoad(100);  // the monitor of its usage goes on, and would enter HOLV_IDLE
    for (const auto& [time, event] : {std::pair{"21:00", EVENT_ENTER_S0},
                                      {"21:00", EVENT_ENTER_ACTIVE},
                                      {"23:00", EVENT_ENTER_DND}}) {
        SCOPED_TRACE(::testing::Message() << "at " << time << " after event " << event);
        pc.SetClock(At(time));
        const GUID plan = pc.power.active().guid;
        Set(L"EnableNeverSleep", 1);
        Start();
        Go(pc, event);
        InService([] { SetFeature(E_HOLV_STATE, 0); });
        pc.RunFor(1s);
        const ESystemState state = S::m_eSystemState;
        for (const GlobalEvent timer :
             {TIMER_IDLE, TIMER_DND_START, TIMER_DND_END, TIMER_CPU_USAGE}) {
            EXPECT_FALSE(GlobalTimerDue(timer, GetTickCount64()))
                << "timer " << timer << " is still armed";
        }
        pc.RunFor(12h);
        EXPECT_EQ(S::m_eSystemState, state) << "a state was entered by itself";
        EXPECT_FALSE(pc.power.Held(PowerRequestAwayModeRequired));
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
        EXPECT_TRUE(IsEqualGUID(pc.power.active().guid, plan)) << "the user's plan is not in force";
        heard.Forget();
        pc.slowness.Set("EnumAudioEndpoints", {.typical = 1s});
        InService([] { SetFeature(E_HOLV_STATE, 1); });
        pc.slowness.ClearAll();
        pc.RunFor(1s);
        EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
        const std::string said = Joined(heard.Said());
        EXPECT_LT(said.find("No endpoints found"), said.find("EnterNormalS0State entry"))
            << "a state is entered before all is ready for it";
        Stop();
    }
}

}  // namespace
