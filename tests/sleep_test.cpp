// The PC's sleep as a program sees it: real sleep or away mode, what stands still meanwhile, what
// wakes the PC, and the announcements in their order. scenarios/idle_pc.pc tells when it sleeps.

#include "platform/virtual/power/sleep.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/power/battery.h"
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
    struct Ears final : Announcer::Listener
    {
        bool Hear(const Announcement& said, const std::function<void()>&) override
        {
            const auto is = [&](const GUID& setting) {
                return said.setting && IsEqualGUID(*said.setting, setting);
            };
            const std::string value = said.data.empty() ? "" : std::to_string(said.data[0]);
            if (said.event == PBT_APMSUSPEND) heard += "suspend ";
            if (said.event == PBT_APMRESUMEAUTOMATIC) heard += "resume ";
            if (said.event == PBT_APMRESUMESUSPEND) heard += "attended ";
            if (is(GUID_SYSTEM_AWAYMODE)) heard += "away" + value + " ";
            if (is(GUID_MONITOR_POWER_ON)) heard += "display" + value + " ";
            if (is(GUID_GLOBAL_USER_PRESENCE)) heard += "user" + value + " ";
            return false;
        }
        std::string heard;
    };

    SleepTest() { pc.announcer.Add(m_ears); }
    ~SleepTest() override { pc.announcer.Remove(m_ears); }

    std::string Announced() { return std::exchange(m_ears.heard, {}); }

    std::shared_ptr<PowerRequest> Require(POWER_REQUEST_TYPE type)
    {
        auto request = pc.power.NewRequest(L"C:\\Film.exe", L"a film");
        pc.power.SetRequest(*request, type);
        return request;
    }

    void Plan(const GUID& setting, DWORD value)
    {
        const GUID plan = pc.power.active().guid;
        pc.power.Write(plan, setting, PowerSource::ac, value);
        pc.power.Activate(plan);
    }

private:
    Ears m_ears;
};

TEST_F(SleepTest, WhileAwayModeIsRequestedAndAllowedASleepBecomesAwayMode)
{
    const auto request = Require(PowerRequestAwayModeRequired);
    pc.sleep.Ask(L"test");
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep) << "the plan does not allow it";
    pc.sleep.WakeByUser();
    Announced();
    Plan(GUID_ALLOW_AWAYMODE, 1);
    pc.sleep.Ask(L"test");
    EXPECT_TRUE(pc.sleep.away());
    EXPECT_EQ(Announced(), "away1 display0 user2 ");
    pc.RunFor(10h);
    pc.sleep.Ask(L"test");
    EXPECT_EQ(pc.sleep.phase(), Phase::awake) << "it stays where it is";
    pc.user.Input();
    EXPECT_EQ(Announced(), "away0 display1 user0 ");

    // Idle time goes on counting: when the request goes, the PC really sleeps, and is away still
    // when it wakes with nobody there.
    pc.RunFor(1800s);
    EXPECT_TRUE(pc.sleep.away());
    pc.RunFor(1h);
    pc.power.ClearRequest(*request, PowerRequestAwayModeRequired);
    pc.Settle();
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep);
    Plan(GUID_ALLOW_RTC_WAKE, 1);
    pc.sleep.WakeByTimer();
    EXPECT_TRUE(pc.sleep.away());
    Announced();
    pc.user.Input();
    EXPECT_EQ(Announced(), "attended away0 display1 user0 ");
}

// A program's threads stand still during the sleep, and the timers that fell due have expired when
// the PC wakes.
TEST_F(SleepTest, ThreadsStandStillWhileTheClockGoesOn)
{
    Plan(GUID_ALLOW_RTC_WAKE, 1);
    pc.user.Leaves();
    int seconds = 0;
    Process& program = pc.Start([&] {
        const auto count = [](LPVOID counter) -> DWORD {
            for (int& n = *static_cast<int*>(counter); n < 100; ++n) Sleep(1000);
            return 0;
        };
        const OwnedHandle counting(CreateThread(nullptr, 0, count, &seconds, 0, nullptr));
        const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
        LARGE_INTEGER due;
        due.QuadPart = -36'000'000'000;
        EXPECT_TRUE(SetWaitableTimer(timer.Get(), &due, 0, nullptr, nullptr, TRUE));
        Sleep(10'500);
        const ULONGLONG before = GetTickCount64();
        FILETIME idle_before{};
        EXPECT_TRUE(GetSystemTimes(&idle_before, nullptr, nullptr));
        EXPECT_TRUE(SetSuspendState(FALSE, TRUE, FALSE));
        EXPECT_EQ(GetTickCount64() - before, 3'589'500u) << "until the timer woke it";
        FILETIME idle{};
        EXPECT_TRUE(GetSystemTimes(&idle, nullptr, nullptr));
        EXPECT_LT(idle.dwLowDateTime - idle_before.dwLowDateTime, 10'000'000u) << "not asleep";
        EXPECT_EQ(WaitForSingleObject(timer.Get(), 0), WAIT_OBJECT_0);
        WaitForSingleObject(counting.Get(), INFINITE);
        return 0;
    });
    pc.RunFor(30min);
    EXPECT_EQ(pc.sleep.phase(), Phase::asleep);
    EXPECT_EQ(seconds, 10);
    pc.RunFor(29min + 59s);
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
        Plan(GUID_ALLOW_RTC_WAKE, c.plan_allows);
        Process& program = pc.Start([&] {
            const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
            LARGE_INTEGER due;
            due.QuadPart = -600'000'000;
            EXPECT_TRUE(SetWaitableTimer(timer.Get(), &due, 0, nullptr, nullptr, c.resume));
            EXPECT_TRUE(SetSuspendState(FALSE, FALSE, c.disabled));
            return 0;
        });
        pc.RunFor(61s);
        EXPECT_EQ(pc.sleep.phase() == Phase::awake, c.wakes);
        EXPECT_EQ(program.running(), !c.wakes);
        if (!c.wakes) {
            EXPECT_THROW(pc.RunUntilEnd(program), StuckMachine) << "and it says so";
        }
        EXPECT_EQ(Announced(),
                  c.wakes ? "suspend display0 user2 resume " : "suspend display0 user2 ");
        pc.sleep.WakeByUser();
        pc.RunUntilEnd(program);
        Announced();
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

TEST_F(SleepTest, TheBatteryDrainsWhileThePcRunsOnItAndIsChargedOtherwise)
{
    pc.battery.DrainAt(12);
    pc.battery.ChargeAt(60);
    pc.RunFor(1h);
    pc.power.RunOnBattery(50, false);
    pc.RunFor(1h);
    EXPECT_EQ(pc.power.battery_percent, 38);
    pc.sleep.Ask(L"test");
    pc.RunFor(5h);
    EXPECT_EQ(pc.power.battery_percent, 38) << "asleep";
    pc.sleep.WakeByUser();
    pc.user.Works();
    pc.power.RunOnMains();
    pc.RunFor(30min);
    EXPECT_EQ(pc.power.battery_percent, 68);
    pc.RunFor(10h);
    EXPECT_EQ(pc.power.battery_percent, 100);
    pc.power.RunOnBattery(2, false);
    pc.RunFor(10h);
    EXPECT_EQ(pc.power.battery_percent, 0);
}

}  // namespace
