// The system's announcements before the state machine runs, while it runs and after its end, where
// no scenario can tell them.

#include "platform/kernel.h"
#include "platform/session.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/sessions/session.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

constexpr const wchar_t* kLockHelper = LR"(C:\Program Files\Orbeq\Holv\HOLVLockWorkStation.exe)";
const std::string kDisabled = "Holv is disabled, do nothing";

class PlatformEventsTest : public RunningServiceTest
{
protected:
    PlatformEventsTest()
    {
        pc.session.Logon(L"alice");
        pc.session.InstallProgram(kLockHelper, 1s, 0);
    }

    // What the handlers say while `act` runs in the service, with times as '#'.
    Lines Said(const std::function<void()>& act)
    {
        heard.Forget();
        InService(act);
        pc.Settle();
        Lines lines = heard.Said("CNeverSleepState::On");
        for (std::string& line : lines) line = WithoutNumber(line, "Timestamp = ");
        return lines;
    }

    std::size_t Locks() const
    {
        std::size_t locks = 0;
        for (const auto& process : pc.processes()) locks += process->path() == kLockHelper;
        return locks;
    }

    // Enters a state from normal use and leaves it again.
    void Enter(ESystemState state)
    {
        if (state == HOLV_ACTIVE) Go(pc, EVENT_ENTER_ACTIVE);
        if (state == HOLV_DND) Go(pc, EVENT_ENTER_DND);
        if (state == HOLV_S3) InService(S::EnterS3State);
        ASSERT_EQ(S::m_eSystemState, state);
    }
    void Return()
    {
        S::m_bInAwayMode = FALSE;
        Go(pc, EVENT_ENTER_S0);
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

TEST_F(PlatformEventsTest, WithTheFeatureOffWhatIsHeardIsOnlySaid)
{
    pc.processor.SetLoad(100);  // never idle
    Start();
    Enter(HOLV_ACTIVE);
    const std::uint64_t stamped = S::m_ullLastSusResEventTime;
    const std::uint64_t plan_calls = pc.faults.CallsOf("PowerSetActiveScheme");
    const std::uint64_t timer_calls = pc.faults.CallsOf("CancelWaitableTimer");
    g_bEnableNeverSleep = 0;
    heard.Forget();
    InService(HandleAll);
    pc.RunFor(1s);
    EXPECT_EQ(heard.Times(kDisabled), 14) << "all but those of source, time-out and clock say it";
    EXPECT_FALSE(g_bOnAcPower) << "known all the same";
    EXPECT_EQ(S::m_eSystemState, HOLV_ACTIVE);
    EXPECT_EQ(S::m_ullLastSusResEventTime, stamped);
    EXPECT_FALSE(S::m_bInAwayMode);
    EXPECT_EQ(pc.faults.CallsOf("PowerSetActiveScheme"), plan_calls);
    EXPECT_EQ(pc.faults.CallsOf("CancelWaitableTimer"), timer_calls);
    EXPECT_EQ(Locks(), 0u);
    Stop();
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
    Said([] {
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

// --- Display and presence ---

TEST_F(PlatformEventsTest, ADisplayThatGoesOnEndsNeverSleepModeUnderWindows7Only)
{
    for (const DWORD minor : {1, 2}) {
        pc.os_version = 6 | minor << 8;
        Start();
        Enter(HOLV_ACTIVE);
        EXPECT_EQ(Said([] { S::OnDisplayStateChange(0); }),
                  Lines{"**** Display is OFF, Timestamp = # ms\n"});
        EXPECT_EQ(S::m_eSystemState, HOLV_ACTIVE);
        EXPECT_EQ(Said([] { S::OnDisplayStateChange(1); }),
                  Lines{"**** Display is ON, Timestamp = # ms\n"});
        EXPECT_EQ(S::m_eSystemState, minor == 1 ? S0_NORMAL : HOLV_ACTIVE);
        Stop();
    }
}

TEST_F(PlatformEventsTest, AUserWhoIsPresentEndsNeverSleepModeAndAnySignOfHimTheWayToSleep)
{
    const struct
    {
        ESystemState state;
        BOOL away;
        DWORD presence;
        bool returns;
    } cases[] = {
        {HOLV_ACTIVE, FALSE, 0, true},  {HOLV_ACTIVE, TRUE, 0, false},
        {HOLV_DND, FALSE, 0, true},     {HOLV_S3, FALSE, 0, false},
        {HOLV_ACTIVE, FALSE, 1, false}, {HOLV_ACTIVE, FALSE, 2, false},
        {HOLV_ACTIVE, FALSE, 3, false},
    };
    Start();
    for (const auto& each : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << &each - cases);
        Enter(each.state);
        S::m_bInAwayMode = each.away;
        const std::uint64_t before = pc.faults.CallsOf("CancelWaitableTimer");
        std::uint64_t cancelled = 0;
        InService([&] {
            S::OnUserPresenceEvent(each.presence);
            cancelled = pc.faults.CallsOf("CancelWaitableTimer") - before;
        });
        pc.Settle();
        EXPECT_GE(cancelled, 1u);
        EXPECT_EQ(S::m_eSystemState == S0_NORMAL, each.returns);
        Return();
    }
    Stop();
}

}  // namespace
