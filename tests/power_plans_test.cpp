// The power plans, as never-sleep mode changes them and puts them back: every write and activation
// in its order, the lines of the log, and what is left when platform calls fail.

#include <algorithm>

#include "log/log.h"
#include "platform/owned.h"
#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/power_plans.h"
#include "power/never_sleep_away_mode.h"
#include "power/power_policy_manager.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

using Manager = CPowerPolicyManager;
using Plans = std::map<GUID, PowerPlan, GuidLess>;

constexpr const GUID& kSaver = GUID_MAX_POWER_SAVINGS;
constexpr const GUID& kBalanced = GUID_TYPICAL_POWER_SAVINGS;
constexpr const GUID& kHigh = GUID_MIN_POWER_SAVINGS;

Lines Both(const std::string& setting, DWORD ac, DWORD dc)
{
    return {setting + " ac " + std::to_string(ac), setting + " dc " + std::to_string(dc)};
}

Lines Processor(const std::string& source, DWORD limit)
{
    return {"Power saver: processor-min " + source + " 5",
            "Power saver: processor-max " + source + " " + std::to_string(limit)};
}

// A user who likes it different from what the plans come with.
void Furnish(Power& power)
{
    power.FindPlan(kBalanced)->values[GUID_ALLOW_AWAYMODE] = {0, 1};
    power.FindPlan(kBalanced)->values[GUID_ALLOW_RTC_WAKE] = {1, 0};
    power.FindPlan(kBalanced)->values[GUID_LOCK_CONSOLE_ON_WAKE] = {1, 0};
    power.FindPlan(kSaver)->values[GUID_ALLOW_AWAYMODE] = {1, 0};
    power.FindPlan(kSaver)->values[GUID_ALLOW_RTC_WAKE] = {0, 1};
    power.FindPlan(kSaver)->values[GUID_LOCK_CONSOLE_ON_WAKE] = {0, 1};
}

// What that makes of each step, Balanced being the user's plan.
const Lines kAllowUser = Both("Balanced: away-mode", 1, 1) + Both("Balanced: wake-timers", 1, 1);
const Lines kAllowSaver =
    Both("Power saver: away-mode", 1, 1) + Both("Power saver: wake-timers", 1, 1);
const Lines kActivateUser{"activate Balanced"};
const Lines kActivateSaver{"activate Power saver"};
const Lines kGiveUserBack = Both("Balanced: away-mode", 0, 1) + Both("Balanced: wake-timers", 1, 0);
const Lines kGiveSaverBack =
    Lines{"Power saver: processor-max ac 100", "Power saver: processor-min ac 5",
          "Power saver: processor-max dc 100", "Power saver: processor-min dc 5"} +
    Both("Power saver: wake-timers", 0, 1) + Both("Power saver: away-mode", 1, 0);
const Lines kCopyUser =
    Both("Power saver: brightness", 100, 40) + Both("Power saver: password-on-wake", 1, 0);
const Lines kUncopyUser =
    Both("Power saver: brightness", 60, 20) + Both("Power saver: password-on-wake", 0, 1);
const Lines kSleepSoon = Both("Power saver: sleep-timeout", 60, 60);
const Lines kSleepAsBefore = Both("Power saver: sleep-timeout", 1200, 600);

class PowerPlansTest : public VirtualPcTest
{
protected:
    PowerPlansTest()
    {
        g_dwLoggingLevel = 6;
        g_dwLoggingEnabled = kLogToFile | kLogToDebugger;
        Furnish(pc.power);
        pc.journal.Listen([this](const Effect& effect) {
            const std::string plan = ToUtf8(effect.Text("plan"));
            if (effect.kind == "plan written") {
                const std::wstring what = effect.Text("setting") + L" " + effect.Text("source");
                m_effects.push_back(plan + ": " + ToUtf8(what) + " " +
                                    std::to_string(effect.Number("value")));
            } else if (effect.kind == "plan activated") {
                m_effects.push_back("activate " + plan);
            }
        });
    }

    // What is written and activated while `act` runs.
    Lines Effects(const std::function<void()>& act)
    {
        m_effects.clear();
        act();
        return m_effects;
    }

    // What is said while `act` runs: level and message.
    Lines Said(const std::function<void()>& act = [] {})
    {
        act();
        return m_log.TakeWithLevels();
    }

    Lines m_effects;

private:
    Heard m_log{pc, Heard::From::log_file};
};

// --- Access to plans ---

TEST_F(PowerPlansTest, EachSettingIsReadAndWrittenUnderItsOwnNameAndLevels)
{
#define GET(X, setting, ...)                                                \
    {                                                                       \
        Manager::Get##X##Value, nullptr, #X, #setting, setting, __VA_ARGS__ \
    }
#define GET_SET(X, setting, ...)                                                           \
    {                                                                                      \
        Manager::Get##X##Value, Manager::Set##X##Value, #X, #setting, setting, __VA_ARGS__ \
    }
    const struct
    {
        BOOL (*get)(const GUID*, BOOL, DWORD*, bool*);
        BOOL (*set)(const GUID*, BOOL, DWORD);
        const char* operation;
        const char* name;
        const GUID& setting;
        int read_ac, read_dc, write;  // levels
    } cases[] = {
        GET_SET(SleepTimeout, GUID_STANDBY_TIMEOUT, 3, 3, 3),
        GET_SET(RtcWake, GUID_ALLOW_RTC_WAKE, 3, 3, 3),
        GET_SET(AwayMode, GUID_ALLOW_AWAYMODE, 3, 3, 4),
        GET(HybridSleep, GUID_HIBERNATE_FASTS4_POLICY, 3, 3, 0),
        GET_SET(ProcPowerMin, GUID_PROCESSOR_THROTTLE_MINIMUM, 4, 4, 4),
        GET_SET(ProcPowerMax, GUID_PROCESSOR_THROTTLE_MAXIMUM, 4, 4, 4),
        GET(DisplayTimeout, GUID_VIDEO_POWERDOWN_TIMEOUT, 3, 3, 0),
        GET_SET(DisplayBrightness, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, 3, 3, 3),
        GET(PowerButtonPressAction, GUID_POWERBUTTON_ACTION, 3, 3, 0),
        GET_SET(PasswordRequired, GUID_LOCK_CONSOLE_ON_WAKE, 2, 3, 3),
    };
    const auto failure = [](int level, const std::string& function, const char* name) {
        return std::to_string(level) + " " + function + " for " + name + " failed with error 77";
    };
    RunAsProcess([&] {
        SetLastError(77);
        for (const auto& each : cases) {
            SCOPED_TRACE(each.operation);
            AcDc& held = pc.power.FindPlan(kSaver)->values.at(each.setting);
            held = {31, 32};
            for (const BOOL ac : {TRUE, FALSE}) {
                const std::string suffix = ac ? "ACValueIndex" : "DCValueIndex";
                DWORD value = 0;
                EXPECT_TRUE(each.get(&kSaver, ac, &value, nullptr));
                EXPECT_EQ(value, ac ? 31u : 32u);
                pc.faults.Set("PowerRead" + suffix, {});
                EXPECT_EQ(Said([&] { EXPECT_TRUE(each.get(&kSaver, ac, &value, nullptr)); }),
                          Lines{failure(ac ? each.read_ac : each.read_dc, "PowerRead" + suffix,
                                        each.name)});
                EXPECT_EQ(value, each.get == Manager::GetRtcWakeValue ? 1u : ac ? 31u : 32u);
                EXPECT_TRUE(pc.outputs.debug().back().text.starts_with(
                    FromUtf8("HOLV - CPowerPolicyManager::Get" + std::string(each.operation) +
                             "Value   PowerRead")));
                if (!each.set) continue;
                EXPECT_TRUE(each.set(&kSaver, ac, 40));
                pc.faults.Set("PowerWrite" + suffix, {});
                EXPECT_EQ(Said([&] { EXPECT_FALSE(each.set(&kSaver, ac, 50)); }).back(),
                          failure(each.write, "PowerWrite" + suffix, each.name));
                EXPECT_EQ(ac ? held.ac : held.dc, 40u);
            }
            const auto refused = [&](const std::string& verb) {
                return Lines{"3 Invalid input for power action " + verb + each.operation + "Value"};
            };
            EXPECT_EQ(Said([&] { EXPECT_FALSE(each.get(&kSaver, TRUE, nullptr, nullptr)); }),
                      refused("Get"));
            if (!each.set) continue;
            EXPECT_EQ(Said([&] { EXPECT_FALSE(each.set(nullptr, TRUE, 1)); }), refused("Set"));
        }
    });
}

TEST_F(PowerPlansTest, PlansHaveShortNamesInTheLog)
{
    GUID nearly_balanced = kBalanced;
    nearly_balanced.Data4[7] ^= 1;
    EXPECT_STREQ(Manager::GetSchemeName(nullptr), L"???");
    EXPECT_STREQ(Manager::GetSchemeName(&kHigh), L"Hig");
    EXPECT_STREQ(Manager::GetSchemeName(&nearly_balanced), L"Custom");
}

TEST_F(PowerPlansTest, QuestionsHaveAnAnswerEvenWhenTheSystemHasNone)
{
    RunAsProcess([&] {
        Manager manager;
        manager.EnterHolvControl();
        for (const BYTE line : {1, 0, 255}) {
            pc.power.line = line;
            EXPECT_EQ(manager.IsOnAcNow(), line == 1);
            EXPECT_EQ(manager.IsPasswordRequiredOnWake(), line == 1);
            EXPECT_EQ(manager.GetActiveSleepIdleTimeoutValue(), line == 1 ? 1800u : 900u);
        }
        manager.ExitHolvControl();
        pc.faults.Set("GetSystemPowerStatus", {.error = 5, .count = 2});
        pc.faults.Set("PowerGetActiveScheme", {});
        pc.faults.Set("PowerReadACValueIndex", {});
        Said();
        EXPECT_EQ(Said([&] {
                      EXPECT_TRUE(manager.IsOnAcNow());
                      EXPECT_TRUE(manager.IsPasswordRequiredOnWake());
                      EXPECT_EQ(manager.GetActiveSleepIdleTimeoutValue(TRUE), 0xFFFFFFFF);
                      EXPECT_EQ(manager.GetActiveSleepIdleTimeoutValue(TRUE), 0xFFFFFFFF);
                      Manager::SetActivePowerScheme(nullptr);
                  }),
                  (Lines{"3 GetSystemPowerStatus failed with error 5",
                         "3 GetSystemPowerStatus failed with error 5",
                         "2 PowerGetActiveScheme failed with error 5",
                         "3 PowerReadACValueIndex for GUID_STANDBY_TIMEOUT failed with error 5",
                         "3 Invalid parameter for SetActivePowerScheme"}));
    });
}

// --- Transitions ---

// In their order, the plans' changes first and then the lines of the log, but for the banners.
TEST_F(PowerPlansTest, ControlAndStatesChangeThePlansPutThemBackAndTellOfIt)
{
    const std::map<std::string, void (Manager::*)()> steps{
        {"control ends before it began", &Manager::ExitHolvControl},
        {"control begins", &Manager::EnterHolvControl},
        {"never-sleep mode begins", &Manager::EnterHolvState},
        {"it turns into sleep", &Manager::TransitionFromHolvToS3},
        {"it ends", &Manager::ExitHolvState},
        {"it ends once more", &Manager::ExitHolvState},
        {"control ends", &Manager::ExitHolvControl},
    };
    RunAsProcess([&] {
        Manager manager;
        for (const Block& block : BlocksOf("plans.txt")) {
            Lines lines = Effects([&] { (manager.*steps.at(block.title))(); });
            lines = lines + Said();
            std::erase_if(lines, [](const std::string& line) { return line[0] == '4'; });
            EXPECT_LINES(lines, block.lines) << block.title;
        }
        EXPECT_EQ(BlocksOf("plans.txt").size(), steps.size());
    });
}

TEST_F(PowerPlansTest, DoNotDisturbTimeLimitsTheProcessorAndSleepsAsTheSettingsSay)
{
    const struct
    {
        DWORD limit, on_dc, to_s3;
    } cases[] = {{50, 1, 0}, {50, 0, 1}, {0, 1, 1}, {3, 1, 1}, {100, 0, 0}};
    pc.power.Write(kSaver, GUID_PROCESSOR_THROTTLE_MAXIMUM, PowerSource::ac, 80);
    RunAsProcess([&] {
        Manager manager;
        manager.EnterHolvControl();
        pc.power.Write(kSaver, GUID_STANDBY_TIMEOUT, PowerSource::ac, 1200);  // the user's latest
        for (const auto& [limit, on_dc, to_s3] : cases) {
            SCOPED_TRACE(::testing::Message() << limit << " " << on_dc << " " << to_s3);
            g_dwMaxCpuPowerLimit = limit;
            g_bEnableHolvOnDC = on_dc;
            g_bDndToS3 = to_s3;
            const Lines wake = Both("Power saver: wake-timers", 1, 1);
            Lines in = kCopyUser;
            if (limit) in = in + Processor("ac", limit);
            if (limit && on_dc) in = in + Processor("dc", limit);
            if (to_s3) in = in + kSleepSoon + wake;
            Lines out = (on_dc ? Processor("dc", 100) : Lines{}) + Processor("ac", 100);
            if (to_s3) out = out + kSleepAsBefore + wake;
            EXPECT_LINES(Effects([&] { manager.EnterDoNotDisturbState(); }), in + kActivateSaver);
            EXPECT_LINES(Effects([&] { manager.ExitDoNotDisturbState(); }),
                         out + kUncopyUser + kActivateUser);
            manager.EnterDoNotDisturbState();
            manager.TransitionFromHolvToS3();
            // The leave restores what the entry changed, although the settings have changed since.
            g_bEnableHolvOnDC = g_bDndToS3 = 0;
            if (!limit && on_dc) out.erase(out.begin(), out.begin() + 2);
            EXPECT_LINES(Effects([&] { manager.ExitDoNotDisturbState(); }),
                         out + kSleepAsBefore + kUncopyUser + kActivateUser);
        }
        // A processor minimum of 0 is not restored, and neither is the maximum.
        pc.power.Write(kSaver, GUID_PROCESSOR_THROTTLE_MINIMUM, PowerSource::ac, 0);
        manager.EnterDoNotDisturbState();
        EXPECT_LINES(Effects([&] { manager.ExitDoNotDisturbState(); }),
                     kUncopyUser + kActivateUser);
    });
}

TEST_F(PowerPlansTest, TheOemsPlanServesInsteadAndABadNameOfItHarmsNobody)
{
    const std::wstring name = L"11111111-2222-3333-4444-555555555555";
    const PowerPlan& quiet = pc.power.AddPlan(L"Quiet", *ParseGuid(name), kHigh);
    g_bUseOemPowerScheme = g_bDndToS3 = 1;
    RunAsProcess([&] {
        Manager manager;
        wcscpy(g_szOemPowerScheme, (L"{" + name + L"}").c_str());
        EXPECT_LINES(Effects([&] {
                         manager.EnterHolvControl();
                         manager.EnterDoNotDisturbState();
                         manager.TransitionFromHolvToS3();
                         manager.ExitDoNotDisturbState();
                         manager.ExitHolvControl();
                     }),
                     kAllowUser + kActivateUser + kActivateUser + kGiveUserBack);
        const Lines said = Said();
        const std::string refused = "4 Unable to convert string ({" + ToUtf8(name) + "}) to GUID";
        EXPECT_EQ(std::ranges::count(said, refused), 2);
        EXPECT_EQ(std::ranges::count(said, "3 PowerSetActiveScheme failed with error 0"), 2);
        const std::string write =
            "3 PowerWriteDCValueIndex for GUID_STANDBY_TIMEOUT failed with error 0";
        EXPECT_EQ(std::ranges::count(said, write), 4);

        wcscpy(g_szOemPowerScheme, name.c_str());
        EXPECT_LINES(Effects([&] { manager.EnterHolvControl(); }),
                     kAllowUser + Both("Quiet: away-mode", 1, 1) +
                         Both("Quiet: wake-timers", 1, 1) + kActivateUser);
        EXPECT_EQ(std::ranges::count(Said(), "1 A custom power scheme is used for Holv active"), 1);
        EXPECT_EQ(Effects([&] { manager.EnterHolvState(); }).back(), "activate Quiet");
        manager.ExitHolvState();
        manager.ExitHolvControl();
        EXPECT_EQ(quiet.values.at(GUID_ALLOW_AWAYMODE).ac, 0u);
    });
}

TEST_F(PowerPlansTest, ANewChoiceOfTheUsersIsTakenControlOfAndTheOldOnePutBack)
{
    RunAsProcess([&] {
        Manager manager;
        manager.EnterHolvControl();
        Said();
        EXPECT_LINES(Effects([&] {
                         manager.OnPowerOptionChanged(nullptr);
                         manager.OnPowerOptionChanged(&kBalanced);
                     }),
                     Lines{});
        EXPECT_LINES(Said(),
                     (Lines{"6 CPowerPolicyManager::OnPowerOptionChanged", "6 Doing nothing"}));
        pc.power.Activate(kHigh);
        EXPECT_LINES(Effects([&] { manager.OnPowerOptionChanged(&kHigh); }),
                     kGiveUserBack + kGiveSaverBack + Both("High performance: away-mode", 1, 1) +
                         Both("High performance: wake-timers", 1, 1) + kAllowSaver +
                         Lines{"activate High performance"});
        EXPECT_EQ(Said()[1], "6 Detected user selected new preference");
        // A notification during the entry into a never-sleep state concerns that state's plan.
        manager.EnterHolvState();
        EXPECT_LINES(Effects([&] { manager.OnPowerOptionChanged(&kSaver); }), Lines{});
        manager.ExitHolvState();
        EXPECT_EQ(pc.power.active().name, L"High performance");
        manager.ExitHolvControl();
    });
}

// --- What is left afterwards ---

void LiveThroughANight()
{
    Manager manager;
    manager.EnterHolvControl();
    manager.EnterHolvState();
    manager.TransitionFromHolvToS3();
    manager.ExitHolvState();
    manager.EnterDoNotDisturbState();
    manager.ExitDoNotDisturbState();
    manager.ExitHolvControl();
}

// Tells of each value that is not what it was, but for the never-sleep plan's processor maximum,
// which may be 100.
void ExpectUnchanged(const Plans& before, const Plans& now)
{
    for (const auto& [guid, plan] : before) {
        for (const auto& [setting, values] : plan.values) {
            for (const PowerSource source : {PowerSource::ac, PowerSource::dc}) {
                const DWORD value = now.at(guid).values.at(setting)[source];
                const std::string what =
                    ToUtf8(plan.name) + ": " + ToUtf8(PowerSettingName(setting));
                if (what == "Power saver: processor-max" && value == 100) continue;
                EXPECT_EQ(value, values[source])
                    << what << (source == PowerSource::ac ? " ac" : " dc");
            }
        }
    }
}

TEST_F(PowerPlansTest, WhereTheUsersPlanIsTheNeverSleepPlanItIsPutBackToo)
{
    auto& values = pc.power.FindPlan(kSaver)->values;
    values[GUID_ALLOW_AWAYMODE] = values[GUID_ALLOW_RTC_WAKE] = {1, 1};
    const Plans had = pc.power.plans();
    g_bDndToS3 = 1;
    pc.power.Activate(kSaver);
    RunAsProcess(LiveThroughANight);
    ExpectUnchanged(had, pc.power.plans());
}

TEST_F(PowerPlansTest, NeitherAnotherPlansValueNorHalfAPairMakesUpForAnUnreadOne)
{
    pc.power.FindPlan(kSaver)->values.erase(GUID_PROCESSOR_THROTTLE_MINIMUM);
    g_bDndToS3 = 1;
    const Lines effects = Effects([&] {
        RunAsProcess([&] {
            Manager manager;
            manager.EnterHolvControl();
            pc.power.Activate(kHigh);
            pc.faults.Set("PowerReadACValueIndex", {.count = Faults::kAlways});
            manager.OnPowerOptionChanged(&kHigh);
            manager.EnterDoNotDisturbState();
        });
    });
    EXPECT_EQ(std::ranges::count(effects, "High performance: away-mode dc 1"), 1);
    EXPECT_EQ(std::ranges::count(effects, "High performance: away-mode ac 1"), 0);
    EXPECT_EQ(std::ranges::count(effects, "Power saver: processor-max dc 50"), 0);
    EXPECT_EQ(std::ranges::count(effects, "Power saver: brightness dc 100"), 1);
    EXPECT_EQ(std::ranges::count(effects, "Power saver: brightness ac 0"), 0);
}

// The handler's thread and the state machine's at once, each turn a night or a user's choice.
TEST(PowerPlanThreadsTest, ThreadsThatChangePlansAtOnceLeaveThemAsTheyWere)
{
    StormOnPc({.seeds = 200, .free = 20}, [](Machine& pc, const Machine::Options&) {
        g_dwLoggingEnabled = 0;
        g_bDndToS3 = 1;
        Furnish(pc.power);
        const Plans before = pc.power.plans();
        const auto request = [] {
            CNeverSleepAwayMode::EnableAwayMode();
            CNeverSleepAwayMode::DisableIdleTimer();
            CNeverSleepAwayMode::DisableAwayMode();
            CNeverSleepAwayMode::EnableIdleTimer();
        };
        Process& process = pc.Start([&] {
            Manager manager;
            CNeverSleepAwayMode::Initialize();
            manager.EnterHolvControl();
            std::function<void()> handle = [&] {
                for (const GUID& choice : {kHigh, kSaver, kBalanced}) {
                    request();
                    pc.power.Activate(choice);
                    manager.OnPowerOptionChanged(&choice);
                    manager.TransitionFromHolvToS3();
                    manager.IsPasswordRequiredOnWake();
                }
            };
            const auto run = [](LPVOID body) -> DWORD {
                (*static_cast<std::function<void()>*>(body))();
                return 0;
            };
            const OwnedHandle handler(CreateThread(nullptr, 0, run, &handle, 0, nullptr));
            for (int night = 0; night < 3; ++night) {
                request();
                manager.EnterHolvState();
                manager.ExitHolvState();
                manager.EnterDoNotDisturbState();
                manager.ExitDoNotDisturbState();
            }
            WaitForSingleObject(handler.Get(), INFINITE);
            EXPECT_FALSE(pc.power.Held(PowerRequestAwayModeRequired));
            EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
            manager.EnterHolvState();  // the handler may have cut the time-out after the last leave
            manager.ExitHolvState();
            manager.ExitHolvControl();
            CNeverSleepAwayMode::Uninitialize();
            return 0;
        });
        pc.RunUntilEnd(process);
        ExpectUnchanged(before, pc.power.plans());
    });
}

}  // namespace
