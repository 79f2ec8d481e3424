// The system's announcements before the state machine runs, while it runs and after its end, where
// no scenario can tell them.

#include "platform/kernel.h"
#include "platform/session.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/sessions/session.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

constexpr const wchar_t* kLockHelper = LR"(C:\Program Files\Orbeq\Holv\HOLVLockWorkStation.exe)";

class PlatformEventsTest : public RunningServiceTest
{
protected:
    PlatformEventsTest()
    {
        pc.session.Logon(L"alice");
        pc.session.InstallProgram(kLockHelper, 1s, 0);
    }

    std::size_t Locks() const
    {
        std::size_t locks = 0;
        for (const auto& process : pc.processes()) locks += process->path() == kLockHelper;
        return locks;
    }

    // Enters a state from normal use.
    void Enter(ESystemState state)
    {
        if (state == HOLV_ACTIVE) Go(pc, EVENT_ENTER_ACTIVE);
        if (state == HOLV_DND) Go(pc, EVENT_ENTER_DND);
        if (state == HOLV_S3) InService(S::EnterS3State);
        ASSERT_EQ(S::m_eSystemState, state);
    }
};

// Everything that the system may announce.
void HandleAll()
{
    WTSSESSION_NOTIFICATION session{sizeof(session), 3};
    for (const DWORD value : {0, 1, 2, 3}) {
        S::OnAwayModeEvent(value);
        S::OnDisplayStateChange(value);
        S::OnUserPresenceEvent(value);
        S::OnPowerSourceChange(value);
    }
    S::OnSleepTimeoutChange(60);
    S::OnPowerOptionChanged(GUID_MIN_POWER_SAVINGS);
    S::OnSessionChange(WTS_SESSION_LOCK, &session);
    S::OnSystemTimeChange();
}

TEST_F(PlatformEventsTest, BeforeTheStateMachineAndAfterItNothingIsSignalledHeldOrWritten)
{
    RunAsProcess([&] {
        RegInit();
        HandleAll();
        EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
        EXPECT_TRUE(g_bOnAcPower) << "as it was when the service started";
    });
    EXPECT_EQ(heard.Times("Received power source change event before state initialized, current "
                          "power source=3, returning"),
              1);
    EXPECT_EQ(heard.Times("Going to HOLV_"), 0) << "there is no event to signal";
    FreshService();
    RunAsProcess([&] {
        RunService([] { SignalGlobalEvent(EVENT_SERVICE_STOP); });
        const std::map<GUID, PowerPlan, GuidLess> before = pc.power.plans();
        HandleAll();
        EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
        EXPECT_FALSE(pc.power.Held(PowerRequestAwayModeRequired));
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
        for (const auto& [guid, plan] : before) {
            for (const auto& [setting, value] : plan.values) {
                EXPECT_EQ(pc.power.Read(guid, setting, PowerSource::ac), value.ac);
            }
        }
    });
    EXPECT_EQ(Locks(), 1u) << "away mode that ended before; not after, in normal use";
    EXPECT_EQ(pc.power.active().name, L"Balanced");
    pc.RunFor(2s);
}

TEST_F(PlatformEventsTest, AwayModeThatBeginsIsStampedAndAnEarlierOverrideCountsNoMore)
{
    Start();
    S::m_bOverride = TRUE;
    pc.RunFor(10s);
    InService([] {
        S::m_ullLastAudioEventTime = GetTickCount64();
        S::OnAwayModeEvent(1);
    });
    EXPECT_TRUE(heard.Has("with a delta of 0 ms which is in the window."));
    EXPECT_EQ(S::m_eSystemState, HOLV_ACTIVE);
    EXPECT_EQ(S::m_ullLastSusResEventTime, 10'010u);
    Stop();
}

// Until the state machine has come to normal use an entry may be due.
TEST_F(PlatformEventsTest, AWakeIsStampedAndTheUsersGivesUpAnEntry)
{
    Start();
    Enter(HOLV_S3);
    pc.RunFor(5s);
    InService(S::OnSuspend);
    EXPECT_EQ(S::m_ullLastSusResEventTime, 5'010u);
    pc.RunFor(5s);
    InService([] { S::OnResume(FALSE); });
    EXPECT_EQ(S::m_ullLastSusResEventTime, 10'010u);
    Stop();
    FreshService();
    RunAsProcess([&] {
        RegInit();
        const GlobalEvents events;
        S::OnResume(TRUE);
        EXPECT_TRUE(S::m_bAttendedWake);
        EXPECT_EQ(WaitForSingleObject(g_hGlobalEvents[EVENT_ENTER_S0], 0), DWORD{WAIT_OBJECT_0});
        S::EnterNeverSleepActiveState();
        EXPECT_EQ(S::m_eSystemState, HOLV_INIT);
    });
}

// --- The power source ---

TEST_F(PlatformEventsTest, TheBatterysMonitorEndsWithItsPeriodAndWithTheFeature)
{
    const auto on_battery = [&](BYTE percent) {
        pc.power.line = 0;
        pc.power.battery_percent = percent;
        heard.Forget();
        InService([] { S::OnPowerSourceChange(1); });
    };
    const auto watched = [] { return GlobalTimerDue(TIMER_BATTERY_USAGE, 0).has_value(); };
    pc.power.battery_present = true;
    for (const auto& [state, feature] :
         {std::pair{S0_NORMAL, 1}, {HOLV_ACTIVE, 1}, {S0_NORMAL, 0}, {HOLV_ACTIVE, 0}}) {
        SCOPED_TRACE(::testing::Message() << "state " << state << ", feature " << feature);
        const bool normal = state == S0_NORMAL;
        Start();
        if (!normal) Enter(state);
        on_battery(3);
        EXPECT_TRUE(watched() && S::m_bBatteryThresholdCrossed);
        heard.Forget();
        InService([] { S::OnPowerSourceChange(0); });
        EXPECT_EQ(watched(), normal) << "in normal use it finds by itself that it is over";
        EXPECT_TRUE(heard.Said("::Configure").at(0).starts_with("ConfigureAwayMode entry"));
        EXPECT_FALSE(heard.Has("m_bBatteryThresholdCrossed{TRUE}"));
        g_bEnableHolvOnDC = 0;
        on_battery(80);
        EXPECT_EQ(heard.Times("Output from powercfg -requests"), normal ? 0 : 1);
        g_bEnableNeverSleep = feature;
        InService(S::StopNeverSleep);
        EXPECT_EQ(watched(), normal || !feature);
        EXPECT_TRUE(heard.Has("CPowerPolicyManager::ExitHolvControl"));
        InService([] { EXPECT_TRUE(S::StartNeverSleep()); });
        Stop();
        pc.power.line = 1;
    }
}

// --- The display ---

TEST_F(PlatformEventsTest, ADisplayThatGoesOnEndsNeverSleepModeUnderWindows7Only)
{
    for (const auto& [version, state] :
         {std::pair{kWindows7, S0_NORMAL}, {kWindows8, HOLV_ACTIVE}}) {
        pc.os_version = version;
        Start();
        Enter(HOLV_ACTIVE);
        InService([] { S::OnDisplayStateChange(0); });
        EXPECT_EQ(S::m_eSystemState, HOLV_ACTIVE);
        InService([] { S::OnDisplayStateChange(1); });
        pc.Settle();
        EXPECT_EQ(S::m_eSystemState, state);
        Stop();
    }
}

}  // namespace
