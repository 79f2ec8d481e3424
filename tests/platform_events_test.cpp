// The system's announcements before the state machine runs, while it runs and after its end: the
// log lines and the effects.

#include "platform/kernel.h"
#include "platform/session.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/sessions/session.h"
#include "platform/virtual/sound/audio.h"
#include "power/power_policy_manager.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

constexpr const wchar_t* kLockHelper = LR"(C:\Program Files\Orbeq\Holv\HOLVLockWorkStation.exe)";
constexpr GUID kUnknown{1, 2, 3, {4}};
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

// --- Away mode, and the lock on the user's return ---

TEST_F(PlatformEventsTest, AwayModeBringsNeverSleepModeAndItsEndNormalUse)
{
    Start();
    EXPECT_EQ(Said([] { S::OnAwayModeEvent(0); }), Lines{"**** Awaymode OFF, Timestamp = # ms\n"});
    EXPECT_EQ(heard.Times("Entering S0"), 0) << "it was not in away mode";
    S::m_bOverride = TRUE;
    pc.RunFor(10s);
    EXPECT_EQ(Said([] { S::OnAwayModeEvent(1); }), Lines{"**** Awaymode ON, Timestamp = # ms\n"});
    EXPECT_EQ(S::m_eSystemState, HOLV_ACTIVE);
    EXPECT_TRUE(S::m_bInAwayMode);
    EXPECT_EQ(S::m_ullLastSusResEventTime, 10'010u);
    EXPECT_EQ(heard.Times("Audio event happened before the Sus/Res event with a delta of 10010 ms "
                          "which is not in the window."),
              1);
    EXPECT_EQ(Locks(), 0u);
    Said([] { S::OnAwayModeEvent(0); });
    EXPECT_EQ(S::m_eSystemState, S0_NORMAL);
    EXPECT_FALSE(S::m_bInAwayMode);
    EXPECT_EQ(Locks(), 1u);
    pc.RunFor(2s);
    Stop();
}

TEST_F(PlatformEventsTest, TheWorkstationIsLockedOnReturnUnlessSomethingSpeaksAgainstIt)
{
    const GUID& balanced = GUID_TYPICAL_POWER_SAVINGS;
    const auto lock_screen = [&](DWORD disabled) {
        pc.registry.SetDword(kOemKey, L"DisableLockScreen", disabled);
    };
    const auto password = [&](DWORD ac) {
        pc.power.Write(balanced, GUID_LOCK_CONSOLE_ON_WAKE, PowerSource::ac, ac);
    };
    const std::string no_key = "RegOpenKeyEx is failed in LockUserAccount(), error=#\n";
    const std::string key = "RegOpenKeyEx is successful";
    const std::string value = "RegGetValue is successful";
    const std::string no_value = "RegGetValue is failed in LockUserAccount(), error=#\n";
    const std::string launch = "Launch user process " + ToUtf8(kLockHelper) + "\n";
    const std::string launched = "Launch user process succeeded";
    const struct
    {
        std::function<void()> make_so;
        Lines said;
    } cases[] = {
        {[] {}, {no_key, launch, launched}},
        {[&] { pc.registry.SetDword(kOemKey, L"Other", 1); }, {key, no_value, launch, launched}},
        {[&] { lock_screen(1); }, {key, value}},
        {[&] { lock_screen(2); }, {key, value, launch, launched}},
        {[&] { pc.registry.Set(kOemKey, L"DisableLockScreen", RegistryValue::String(L"1")); },
         {key, no_value, launch, launched}},
        {[&] {
             lock_screen(0);
             password(0);
         },
         {key, value}},
        {[&] { pc.power.RunOnBattery(80); }, {key, value, launch, launched}},
        {[&] {
             pc.power.RunOnMains();
             InService([] { S::m_pPowerPolicyManager.Set(nullptr); });
         },
         {key, value, launch, launched}},
        {[&] { pc.session.Logoff(); },
         {key, value, launch, "Launch user process failed, error=1008\n"}},
        {[&] { S::m_eSystemState = S0_NORMAL; }, {}},
    };
    Start();
    std::size_t locks = 0;
    for (const auto& each : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << &each - cases);
        Go(pc, EVENT_ENTER_ACTIVE);
        S::m_bInAwayMode = TRUE;
        each.make_so();
        Said([] { S::OnAwayModeEvent(0); });
        Lines said = heard.Said("CNeverSleepState::LockUserAccount");
        for (std::string& line : said) line = WithoutNumber(line, "Account(), error=");
        EXPECT_EQ(said, each.said);
        locks += !said.empty() && said.back() == launched;
        EXPECT_EQ(Locks(), locks);
        EXPECT_EQ(S::m_eSystemState, S0_NORMAL) << "in every case";
    }
    EXPECT_EQ(locks, 6u);
    pc.RunFor(2s);
    Stop();
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

// --- The power source ---

TEST_F(PlatformEventsTest, OnBatteryNeverSleepModeGoesOnOrEndsInSleepAsTheSettingSays)
{
    const struct
    {
        ESystemState state;
        DWORD on_dc;
        DWORD source;
        bool held;
        bool sleeps_soon;
    } cases[] = {
        {S0_NORMAL, 1, 1, true, false},   {S0_NORMAL, 0, 1, false, false},
        {HOLV_ACTIVE, 1, 1, true, false}, {HOLV_ACTIVE, 0, 1, false, true},
        {HOLV_DND, 0, 2, false, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(::testing::Message() << "case " << &each - cases);
        Set(L"EnableHOLVOnDc", each.on_dc);
        Start();
        Enter(each.state);
        pc.power.RunOnBattery(80, each.source == 2);
        EXPECT_EQ(Said([&] { S::OnPowerSourceChange(each.source); }),
                  Lines{"**** System is on DC power, Timestamp = # ms\n"});
        EXPECT_FALSE(g_bOnAcPower);
        EXPECT_EQ(pc.power.Held(PowerRequestAwayModeRequired), each.held);
        EXPECT_EQ(pc.power.Held(PowerRequestSystemRequired), each.held);
        EXPECT_EQ(heard.Times("System will suspend in 60s"), each.sleeps_soon);
        EXPECT_EQ(pc.power.InForce(GUID_STANDBY_TIMEOUT) == 60u, each.sleeps_soon);

        pc.power.RunOnMains();
        S::m_bBatteryThresholdCrossed = TRUE;
        EXPECT_EQ(Said([] { S::OnPowerSourceChange(0); }),
                  Lines{"**** System is on AC power, Timestamp = # ms\n"});
        EXPECT_TRUE(g_bOnAcPower);
        EXPECT_FALSE(S::m_bBatteryThresholdCrossed);
        EXPECT_TRUE(pc.power.Held(PowerRequestAwayModeRequired));
        EXPECT_TRUE(pc.power.Held(PowerRequestSystemRequired));
        Said([] { S::OnPowerSourceChange(0); });
        Said([] { S::OnPowerSourceChange(9); });
        EXPECT_EQ(heard.Times("ConfigureAwayMode entry"), 0) << "no change";
        EXPECT_TRUE(g_bOnAcPower);
        Return();
        EXPECT_EQ(pc.power.InForce(GUID_STANDBY_TIMEOUT), 1800u);
        Stop();
    }
}

// --- Plans, sessions and the clock ---

TEST_F(PlatformEventsTest, APlanThatTheUserChoosesInNormalUseIsTakenControlOf)
{
    const Lines changed{"User has changed the active power scheme"};
    const std::string taken = "Detected user selected new preference";
    Start();
    const auto choose = [&](const GUID& plan) {
        return Said([&] { S::OnPowerOptionChanged(plan); });
    };
    const GUID& high = GUID_MIN_POWER_SAVINGS;
    const Lines own{"CPowerPolicyManager::OnPowerOptionChanged", "Doing nothing"};
    pc.power.Activate(high);
    EXPECT_EQ(choose(high), (Lines{changed[0], "Power Scheme is Max Performance"}));
    EXPECT_EQ(pc.power.Read(high, GUID_ALLOW_AWAYMODE, PowerSource::dc), 1u);
    EXPECT_EQ(choose(high), (Lines{changed[0], "Power Scheme is Max Performance"}));
    EXPECT_EQ(heard.Said("CPowerPolicyManager::OnPower"), own);
    Enter(HOLV_ACTIVE);
    EXPECT_EQ(choose(GUID_TYPICAL_POWER_SAVINGS), changed) << "the service's own change";
    EXPECT_EQ(pc.power.active().name, L"Power saver");
    Return();
    EXPECT_EQ(pc.power.active().name, L"High performance");
    EXPECT_EQ(choose(GUID_MAX_POWER_SAVINGS)[1], "Power Scheme is Power Saver");
    EXPECT_EQ(choose(GUID_TYPICAL_POWER_SAVINGS)[1], "Power Scheme is Balanced");
    EXPECT_EQ(choose(kUnknown)[1], "Power Scheme is unknown");
    Stop();
    EXPECT_EQ(pc.power.Read(high, GUID_ALLOW_AWAYMODE, PowerSource::dc), 0u);
}

TEST_F(PlatformEventsTest, SessionsAndTheSleepTimeoutAreToldOfWhereTheyMatter)
{
    Start();
    WTSSESSION_NOTIFICATION session{sizeof(session), 3};
    const std::pair<DWORD, const char*> events[] = {
        {5, "User has logged on session 3"},
        {6, "User has logged off session 3"},
        {7, "User session 3 has locked"},
        {8, "User session 3 has unlocked"},
        {1, "Session change event: 1 on session 3\n"},
    };
    for (const auto& [type, line] : events) {
        EXPECT_EQ(Said([&, type = type] { S::OnSessionChange(type, &session); }),
                  (Lines{"User session change event type: " + std::to_string(type), line}));
    }
    EXPECT_EQ(Said([] { S::OnSessionChange(5, nullptr); }),
              (Lines{"User session change event type: 5", "No event data"}));
    EXPECT_EQ(Said([] { S::OnSleepTimeoutChange(300); }),
              (Lines{"OnSleepTimeoutChange() is called",
                     "Standby timeout value changed to 300 seconds\n"}));
    Enter(HOLV_ACTIVE);
    EXPECT_EQ(Said([] { S::OnSleepTimeoutChange(300); }), Lines{});
    Stop();
}

TEST_F(PlatformEventsTest, AClockSetOutOfTheDoNotDisturbHoursGivesTheRequestsBack)
{
    Set(L"DndToS3", 1);
    for (const DWORD enabled : {1, 0}) {
        Set(L"EnableDoNotDisturb", enabled);
        Start();
        // The last boundary seen was the start of the hours, but by the clock it is morning.
        InService([] {
            S::m_bSeenDndStart = TRUE;
            S::ConfigurePowerRequests();
        });
        EXPECT_EQ(pc.power.Held(PowerRequestAwayModeRequired), enabled == 0);
        Said(S::OnSystemTimeChange);
        EXPECT_FALSE(S::m_bSeenDndStart);
        EXPECT_TRUE(pc.power.Held(PowerRequestAwayModeRequired));
        EXPECT_TRUE(pc.power.Held(PowerRequestSystemRequired));
        EXPECT_EQ(heard.Times("ConfigureAwayMode entry"), 1);
        Said(S::OnSystemTimeChange);
        EXPECT_EQ(heard.Times("ConfigureAwayMode entry"), 0) << "no boundary is crossed";
        Stop();
    }
}

}  // namespace
