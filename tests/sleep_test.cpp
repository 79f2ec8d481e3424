// The PC's sleep as a program sees it: what stands still meanwhile, what wakes the PC, and how long
// it waits for the services. scenarios/idle_pc.pc tells when it sleeps, scenarios/put_to_sleep.pc
// how.

#include "platform/virtual/power/sleep.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using Phase = SleepState::Phase;

class SleepTest : public VirtualPcTest
{
protected:
    void AllowWakeTimers(DWORD allowed)
    {
        const GUID plan = pc.power.active().guid;
        pc.power.Write(plan, GUID_ALLOW_RTC_WAKE, PowerSource::ac, allowed);
        pc.power.Activate(plan);
    }
};

// Armed by the calling program.
OwnedHandle TimerIn(LONGLONG seconds, BOOL wakes)
{
    OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
    const LARGE_INTEGER due{.QuadPart = -seconds * 10'000'000};
    EXPECT_TRUE(SetWaitableTimer(timer.Get(), &due, 0, nullptr, nullptr, wakes));
    return timer;
}

// A program's threads stand still during the sleep, and the timers that fell due have expired when
// the PC wakes.
TEST_F(SleepTest, ThreadsStandStillWhileTheClockGoesOn)
{
    AllowWakeTimers(1);
    pc.user.Leaves();
    int seconds = 0;
    Process& program = pc.Start([&] {
        const auto count = [](LPVOID counter) -> DWORD {
            for (int& n = *static_cast<int*>(counter); n < 100; ++n) Sleep(1000);
            return 0;
        };
        const OwnedHandle counting(CreateThread(nullptr, 0, count, &seconds, 0, nullptr));
        const OwnedHandle timer = TimerIn(3600, TRUE);
        Sleep(10'500);
        const ULONGLONG before = GetTickCount64();
        FILETIME idle_before{}, idle{};
        EXPECT_TRUE(GetSystemTimes(&idle_before, nullptr, nullptr));
        EXPECT_TRUE(SetSuspendState(FALSE, TRUE, FALSE));
        EXPECT_EQ(GetTickCount64() - before, 3'589'500u) << "until the timer woke it";
        EXPECT_TRUE(GetSystemTimes(&idle, nullptr, nullptr));
        EXPECT_LT(idle.dwLowDateTime - idle_before.dwLowDateTime, 10'000'000u) << "not asleep";
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 0), WAIT_OBJECT_0);
        WaitForSingleObject(counting.Get(), INFINITE);
        return 0;
    });
    pc.RunFor(59min + 59s);
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep);
    EXPECT_EQ(seconds, 10);
    pc.RunFor(2s);
    EXPECT_NEAR(seconds, 12, 1);
    pc.RunUntilEnd(program);
}

TEST_F(SleepTest, OnlyATimerThatMayDoesWakeIt)
{
    const struct
    {
        DWORD plan_allows;
        BOOL resume;
        BOOLEAN disabled;
        bool wakes;
    } cases[] = {{1, TRUE, FALSE, true},
                 {0, TRUE, FALSE, false},
                 {1, FALSE, FALSE, false},
                 {1, TRUE, TRUE, false}};
    pc.user.Leaves();
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        AllowWakeTimers(c.plan_allows);
        Process& program = pc.Start([&] {
            const OwnedHandle timer = TimerIn(60, c.resume);
            EXPECT_TRUE(SetSuspendState(FALSE, FALSE, c.disabled));
            return 0;
        });
        pc.RunFor(61s);
        EXPECT_EQ(program.running(), !c.wakes);
        if (!c.wakes) {
            EXPECT_THROW(pc.RunUntilEnd(program), StuckMachine) << "and it says so";
        }
        pc.sleep.WakeByUser();
        pc.RunUntilEnd(program);
    }
}

TEST_F(SleepTest, TheServicesAreHeardOutButNotForEver)
{
    struct Slow final : Announcer::Listener
    {
        bool Hear(const Announcement& said, const std::function<void()>& handled) override
        {
            if (said.event == PBT_APMSUSPEND) done = handled;
            return said.event == PBT_APMSUSPEND;
        }
        std::function<void()> done;
    } slow;
    const auto handle = [&](const std::function<void()>& done) {
        const Hold hold(pc);
        done();
    };
    pc.announcer.Add(slow);
    pc.sleep.Ask(L"test");
    pc.RunFor(1900ms);
    EXPECT_EQ(pc.sleep.phase(), Phase::suspending);
    handle(slow.done);
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep);
    pc.sleep.WakeByUser();
    pc.sleep.Ask(L"test");
    const std::function<void()> late = slow.done;
    pc.RunFor(2s);
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep);
    pc.sleep.WakeByUser();
    pc.sleep.Ask(L"test");
    handle(late);
    EXPECT_EQ(pc.sleep.phase(), Phase::suspending) << "that was another sleep";
    pc.sleep.WakeByUser();
    handle(slow.done);
    EXPECT_EQ(pc.sleep.phase(), Phase::awake) << "the button was pressed too early, and counts";
    pc.announcer.Remove(slow);
}

TEST_F(SleepTest, SleepThatCannotBeIsRefusedAndInformationComesInItsForm)
{
    pc.power.s3_supported = false;
    pc.power.modern_standby = true;
    RunAsProcess([&] {
        EXPECT_FALSE(SetSuspendState(FALSE, TRUE, FALSE));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_SUPPORTED});
        SYSTEM_POWER_INFORMATION information{};
        EXPECT_NE(CallNtPowerInformation(SystemPowerInformation, nullptr, 0, &information, 12), 0);
        EXPECT_EQ(CallNtPowerInformation(SystemPowerInformation, nullptr, 0, &information,
                                         sizeof(information)),
                  0);
        EXPECT_EQ(information.TimeRemaining, 1800u);
    });
}

}  // namespace
