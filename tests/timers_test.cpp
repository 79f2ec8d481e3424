// The idle monitor, the readers of the request listing, and the processor and battery monitors: the
// effect of each check on timers, requests and the PC, and its log lines.

#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "platform/virtual/power/processor.h"
#include "power/never_sleep_away_mode.h"
#include "power/power_policy_manager.h"
#include "state/listed_holders.h"
#include "tests/running_service.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

using S = CNeverSleepState;

constexpr GUID kUsersPlan = GUID_TYPICAL_POWER_SAVINGS;

class TimersTest : public VirtualPcTest
{
protected:
    TimersTest()
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToDebugger;
        S::m_eSystemState = S0_NORMAL;
        pc.power.s3_supported = false;  // asked for, it does not come
    }

    void WithEvents(const std::function<void()>& body)
    {
        RunAsProcess([&] {
            const GlobalEvents events;
            CNeverSleepAwayMode::Initialize();
            S::m_pPowerPolicyManager.Set(std::make_shared<CPowerPolicyManager>());
            body();
            S::m_pPowerPolicyManager.Set(nullptr);
            CNeverSleepAwayMode::Uninitialize();
        });
    }

    // Whether a signal or timer of this slot comes within `seconds`, and after how many.
    static std::optional<int> Comes(const Machine& machine, GlobalEvent slot, DWORD seconds)
    {
        const Instant before = machine.now();
        const HANDLE handle = g_hGlobalEvents[slot];
        if (WaitForSingleObject(handle, seconds * 1000) != WAIT_OBJECT_0) return std::nullopt;
        return static_cast<int>((machine.now() - before) / 1s);
    }

    // Which of these lines were said since the last time.
    Lines Told(const Lines& lines)
    {
        Lines told = heard.Take();
        std::erase_if(told, [&](const std::string& line) {
            return std::ranges::find(lines, line) == lines.end();
        });
        return told;
    }

    // The first holder of the last listing.
    static std::wstring Holder()
    {
        Guarded<ListedHolders>::Copy kept;
        RefreshListedHolders(kept);
        return kept.value ? kept.value->at(0).name : L"none";
    }
};

// --- Idleness ---

// A step of the idle monitor: how long the PC has been idle, whether a film runs, and what follows.
enum class Then
{
    waits,   // for what is left
    checks,  // again in 30 seconds
    sleeps,
};
struct Check
{
    bool idle;
    bool film;
    Then then;
};
const std::vector<Check> kIdleStories[] = {
    {{false, false, Then::waits}, {true, false, Then::checks}, {true, false, Then::sleeps}},
    {{true, true, Then::checks}, {true, false, Then::checks}, {true, false, Then::sleeps}},
    {{true, false, Then::checks}, {true, true, Then::checks}, {true, false, Then::sleeps}},
    {{true, false, Then::checks},
     {false, false, Then::waits},
     {true, false, Then::checks},
     {true, false, Then::sleeps}},
    {{true, false, Then::checks}, {false, true, Then::waits}, {true, true, Then::checks}},
    // A sleep that did not come is asked for after two more checks, not after one.
    {{true, false, Then::checks}, {true, false, Then::sleeps}, {true, false, Then::checks}},
};

TEST_F(TimersTest, TwoChecksHalfAMinuteApartThatFindTheTimeOverAskForSleep)
{
    const auto film = pc.power.NewRequest(L"C:\\Film.exe", L"");
    WithEvents([&] {
        for (const auto& story : kIdleStories) {
            S::m_bIdleExpiryPending = FALSE;
            for (const Check& check : story) {
                SCOPED_TRACE(std::to_string(&story - kIdleStories) + "." +
                             std::to_string(&check - story.data()));
                pc.user.Works();
                if (check.idle) {
                    pc.user.Leaves();
                    Sleep(1'800'000);
                }
                if (check.film) pc.power.SetRequest(*film, PowerRequestDisplayRequired);
                heard.Forget();
                S::MonitorIdleTimer();
                const Lines asked{"Output from powercfg -requests", "Creating suspend thread"};
                EXPECT_EQ(Told(asked), check.then == Then::sleeps ? asked : Lines{});
                EXPECT_EQ(S::m_bDisplayRequired != FALSE, check.film);
                if (check.then != Then::sleeps) {
                    EXPECT_EQ(Comes(pc, TIMER_IDLE, 2000), check.then == Then::waits ? 1800 : 30);
                }
                if (check.film) pc.power.ClearRequest(*film, PowerRequestDisplayRequired);
            }
            EXPECT_EQ(Comes(pc, TIMER_IDLE, 2000).has_value(), false);
        }
    });
}

TEST_F(TimersTest, TheIdleMonitorRestsWhereItHasNothingToDecideAndAFailedReadIsNoExpiry)
{
    const std::string function = "MonitorIdleTimer";
    WithEvents([&] {
        heard.Forget();
        g_bDndToS3 = 1;
        S::m_eSystemState = HOLV_DND;
        S::MonitorIdleTimer();
        EXPECT_EQ(heard.Take(function),
                  Lines{"Did not start to monitor idle timer, m_eSystemState == HOLV_DND\n"});
        g_bDndToS3 = 0;
        pc.power.Write(kUsersPlan, GUID_STANDBY_TIMEOUT, PowerSource::ac, 0);
        S::MonitorIdleTimer();
        EXPECT_EQ(heard.Take(function),
                  Lines{"Idle timeout value is set to Never (0), not setting idle timer"});
        EXPECT_FALSE(Comes(pc, TIMER_IDLE, 100'000));

        pc.power.Write(kUsersPlan, GUID_STANDBY_TIMEOUT, PowerSource::ac, 1800);
        S::m_bIdleExpiryPending = TRUE;
        pc.faults.Set("CallNtPowerInformation", {});
        S::MonitorIdleTimer();
        EXPECT_EQ(heard.Take(function), (Lines{"Start to monitor idle timer\n",
                                               "30s remaining, setting waitable timer"}));
        EXPECT_FALSE(S::m_bIdleExpiryPending);
        EXPECT_EQ(Comes(pc, TIMER_IDLE, 2000), 30);

        pc.user.Leaves();
        Sleep(1'830'000);
        S::MonitorIdleTimer();
        EXPECT_EQ(heard.Take(function),
                  (Lines{"Start to monitor idle timer\n",
                         "-30s, setting 30 second timer to Determine if idle out is needed"}));
        S::m_bOverride = TRUE;
        S::MonitorIdleTimer();
        EXPECT_TRUE(heard.TakeHas("Override detected will not initiate suspend"));
    });
}

// --- The listing ---

TEST_F(TimersTest, OnlyAProcessUnderTheDisplaysHeaderRequiresTheDisplay)
{
    const std::wstring process = L"[PROCESS] \\Device\\HarddiskVolume1\\Film.exe\n";
    const std::wstring long_path(1100, L'x');
    const std::pair<std::wstring, BOOL> cases[] = {
        {L"DISPLAY:\n" + process, TRUE},
        {L"DISPLAY:\nNone.\n\nSYSTEM:\n" + process + L"\nAWAYMODE:\n" + process, FALSE},
        {L"AWAYMODE:\n" + process + L"DISPLAY:\n[DRIVER] Sound\n[SERVICE] x\n" + process, TRUE},
        {L"DISPLAY:\n[DRIVER] Sound\n[SERVICE] Film\nSYSTEM:\nNone.\n", FALSE},
        {L"DISPLAY: \n" + process, FALSE},
        {L"DISPLAY:\nSYSTEM: \n" + process, TRUE},
        {process, FALSE},
        {L"", FALSE},
        {L"DISPLAY:", FALSE},
        {L"DISPLAY:\n[PROCESS] " + long_path + L"\n", TRUE},
        // The rest of a long line does not count as a header, even if it reads like one.
        {std::wstring(1023, L'x') + L"DISPLAY:\n" + process, FALSE},
    };
    RunAsProcess([&] {
        for (const auto& [listing, required] : cases) {
            pc.power.listing_instead = listing;
            EXPECT_EQ(S::IsDisplayRequiredSet(), required) << ToUtf8(listing);
        }
        pc.power.listing_instead = L"DISPLAY:\n[PROCESS] x\n";
        heard.Forget();
        LogOutstandingPowerRequests();
        EXPECT_EQ(heard.Take("LogOutstandingPowerRequests"),
                  (Lines{"Output from powercfg -requests", "DISPLAY:\n", "[PROCESS] x\n"}));
        EXPECT_EQ(Holder(), L"x");
        pc.power.listing_instead =
            L"SYSTEM:\n[PROCESS] y\nOrbeq(R) Holv Technology\n[PROCESS] z\nCopying\n";
        LogOutstandingPowerRequests();
        EXPECT_EQ(Holder(), L"z") << "the service's own is none that it is to be told of";
        pc.faults.Set("_wpopen", {.error = 8, .count = 2});
        EXPECT_FALSE(S::IsDisplayRequiredSet());
        LogOutstandingPowerRequests();
        EXPECT_TRUE(heard.TakeHas("Failed to execute powercfg -requests, error=8\n"));
    });
}

TEST_F(TimersTest, ASlowListingHoldsUpNoSuspendNoticeAndLeavesNothing)
{
    const std::string name = "LogOutstandingPowerRequests";
    const std::string too_late = "The rest of the listing comes too late";
    pc.power.listing_instead = L"DISPLAY:\n[PROCESS] x\n";
    RunAsProcess([&] {
        const auto suspend = [&] {
            const ULONGLONG before = GetTickCount64();
            heard.Forget();
            S::OnSuspend();
            return GetTickCount64() - before;
        };
        pc.power.listing_takes = 1s;
        EXPECT_EQ(suspend(), 1000u);
        EXPECT_EQ(heard.Take(name),
                  (Lines{"Output from powercfg -requests", "DISPLAY:\n", "[PROCESS] x\n"}));
        EXPECT_EQ(Holder(), L"x");
        pc.power.listing_takes = 10min;
        EXPECT_EQ(suspend(), 1500u);
        EXPECT_EQ(heard.Take(name), Lines{too_late});
        EXPECT_EQ(suspend(), 0u);
        EXPECT_EQ(heard.Take(name), Lines{"powercfg -requests has not ended since the last time"});
        Sleep(600'000);
        pc.faults.Set("CreateThread", {.error = 8});
        suspend();
        EXPECT_TRUE(heard.TakeHas("Failed to execute powercfg -requests, error=8\n"));
        pc.power.listing_takes = {};
        EXPECT_EQ(suspend(), 0u);
        EXPECT_EQ(heard.Take(name).size(), 3u);
    });
}

// --- Monitors ---

TEST_F(TimersTest, TheMachineIsIdleBelowTheThresholdOfItsUsageSinceItStarted)
{
    const auto is_idle = [&](DWORD threshold) {
        ResetGlobalEvent(EVENT_ENTER_IDLE);
        g_dwCpuIdleThreshold = threshold;
        S::StartCpuUsageMonitor();
        EXPECT_EQ(Comes(pc, TIMER_CPU_USAGE, 100), 10);
        S::MonitorCpuUsage();
        const bool idle = Comes(pc, EVENT_ENTER_IDLE, 0).has_value();
        EXPECT_EQ(Comes(pc, TIMER_CPU_USAGE, 100), idle ? std::nullopt : std::optional(10))
            << "it is periodic";
        S::StopCpuUsageMonitor();
        return idle;
    };
    pc.processor.SetLoad(5);
    WithEvents([&] {
        g_dwCpuIdleThreshold = 1;
        S::MonitorCpuUsage();
        EXPECT_TRUE(Comes(pc, EVENT_ENTER_IDLE, 0)) << "before any time has passed";
        Sleep(3'600'000);
        EXPECT_TRUE(is_idle(6));
        EXPECT_FALSE(is_idle(5)) << "below it, not at it";
        EXPECT_FALSE(is_idle(0)) << "never";
        pc.processor.SetLoad(100);
        EXPECT_TRUE(is_idle(6)) << "a burst is little, since the start";
        Sleep(600'000);
        EXPECT_FALSE(is_idle(6));
        pc.faults.Set("GetSystemTimes", {});
        EXPECT_TRUE(is_idle(1)) << "what cannot be read counts as none";
    });
}

const struct Charge
{
    BYTE line;
    BYTE percent;
    ESystemState state;
    bool away;
    bool crossed;
    bool to_s3;
    bool goes_on;
} kCharges[] = {
    {0, 16, HOLV_ACTIVE, true, false, false, true},
    {0, 15, HOLV_ACTIVE, true, true, true, true},
    {0, 15, HOLV_DND, true, true, true, true},
    {0, 3, HOLV_ACTIVE, false, true, false, true},
    {0, 3, S0_NORMAL, true, true, false, true},
    {0, 3, HOLV_INIT, true, true, false, true},
    {0, 255, HOLV_ACTIVE, true, false, false, true},
    {1, 3, HOLV_ACTIVE, true, false, false, false},
    {255, 3, HOLV_ACTIVE, true, false, false, false},
};

TEST_F(TimersTest, TheThresholdIsCrossedOnceABatteryPeriodAndEndsTheRequests)
{
    const Lines steps{"ConfigureAwayMode exit", "ConfigureSystemRequired exit",
                      "Output from powercfg -requests", "System will suspend in 60s"};
    pc.power.battery_present = true;
    WithEvents([&] {
        for (const Charge& c : kCharges) {
            SCOPED_TRACE(&c - kCharges);
            S::m_bBatteryThresholdCrossed = FALSE;
            S::m_bInAwayMode = c.away;
            S::m_eSystemState = c.state;
            S::ConfigureAwayMode(TRUE);
            S::ConfigureSystemRequired(TRUE);
            pc.power.line = c.line;
            pc.power.battery_percent = c.percent;
            heard.Forget();
            CancelGlobalTimer(TIMER_BATTERY_USAGE);
            S::MonitorBatteryUsage();
            EXPECT_EQ(S::m_bBatteryThresholdCrossed != FALSE, c.crossed);
            EXPECT_EQ(pc.power.Held(PowerRequestAwayModeRequired), !c.crossed);
            EXPECT_EQ(pc.power.Held(PowerRequestSystemRequired), !c.crossed);
            EXPECT_EQ(Told(steps), Lines(steps.begin(), steps.begin() + (c.to_s3     ? 4
                                                                         : c.crossed ? 3
                                                                                     : 0)));
            EXPECT_EQ(Comes(pc, TIMER_BATTERY_USAGE, 100),
                      c.goes_on ? std::optional(10) : std::nullopt);
            S::MonitorBatteryUsage();
            EXPECT_FALSE(heard.TakeHas("ConfigureAwayMode entry")) << "once is enough";
        }
        pc.power.line = 0;
        pc.faults.Set("GetSystemPowerStatus", {});
        S::MonitorBatteryUsage();
        EXPECT_EQ(Comes(pc, TIMER_BATTERY_USAGE, 100), 10) << "it is asked again";
        g_bEnableNeverSleep = 0;
        S::MonitorBatteryUsage();
        EXPECT_FALSE(Comes(pc, TIMER_BATTERY_USAGE, 100));
    });
}

// --- Suspend and resume ---

TEST_F(TimersTest, ADelayedEntryThatASuspendHasOvertakenCountsNoMore)
{
    WithEvents([&] {
        pc.faults.Set("CreateThread", {});
        S::OnResume(FALSE);  // begins none, which a suspend could overtake
        S::OnResume(FALSE);
        Sleep(500);
        S::OnSuspend();
        S::OnResume(FALSE);
        Sleep(600);
        EXPECT_FALSE(Comes(pc, EVENT_ENTER_ACTIVE, 0)) << "it is not a second since the last wake";
        Sleep(500);
        EXPECT_TRUE(Comes(pc, EVENT_ENTER_ACTIVE, 0));
        EXPECT_EQ(heard.Times("Suspended in between"), 1);
    });
}

TEST_F(TimersTest, ASuspendThatFailsIsToldAndTheHoursAreLookedAtAllTheSame)
{
    pc.power.s3_supported = true;
    WithEvents([&] {
        pc.faults.Set("SetSuspendState", {.error = 21});
        heard.Forget();
        S::GotToSleepNow();
        Sleep(1);
        EXPECT_EQ(heard.Take("SuspendThreadProc"),
                  (Lines{"In suspend thread requesting suspend", "SetSuspendState failed gle:21",
                         "In suspend thread, resumed from suspend"}));
        EXPECT_TRUE(pc.power.Held(PowerRequestSystemRequired)) << "by the refresh";
        g_bDndToS3 = 1;
        S::OnEnterNeverSleepDoNotDisturbTime();
        EXPECT_FALSE(pc.power.Held(PowerRequestAwayModeRequired));
        S::OnLeaveNeverSleepDoNotDisturbTime();
        EXPECT_TRUE(pc.power.Held(PowerRequestAwayModeRequired));
    });
}

}  // namespace
