// What breaks each rule of the reconciler, and what does not (expected/rules.txt): facts as they
// may be read, each different from those of a PC where all is well.

#include <map>
#include <ranges>
#include <string>
#include <vector>

#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/power/power.h"
#include "power/machine_power.h"
#include "reconciler/rules.h"
#include "state/global_events.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr GUID kUsersPlan{0xA, 0, 0, {}};
constexpr GUID kNeverSleepPlan{0xB, 0, 0, {}};
constexpr GUID kOtherPlan{0xC, 0, 0, {}};
constexpr DWORD kAtNoon = 12 * 60;
constexpr DWORD kAtMidnight = 0;
constexpr ULONGLONG kMsPerMinute = 60'000;

// In normal use on mains at noon, with do-not-disturb hours from 22:00 to 6:00.
Facts InOrder()
{
    Facts facts{};
    facts.user.present = true;
    facts.running = facts.feature_on = facts.allowed = facts.requests_as_allowed = true;
    facts.sleeps = facts.idle_time_watched = facts.known_as_on_ac = facts.hours_enabled = true;
    facts.on_ac = true;
    facts.state = S0_NORMAL;
    facts.hours = {22 * 60, 6 * 60};
    facts.now = kAtNoon;
    facts.to_start = 600 * kMsPerMinute;
    facts.active_plan = kUsersPlan;
    facts.plans = {true, kUsersPlan, kNeverSleepPlan, false, false};
    return facts;
}

// Without its user, in away mode.
Facts Away()
{
    Facts facts = InOrder();
    facts.user = {.away = true};
    facts.state = HOLV_ACTIVE;
    facts.active_plan = kNeverSleepPlan;
    return facts;
}

Facts AwayAtMidnight()
{
    Facts facts = Away();
    facts.state = HOLV_DND;
    facts.now = kAtMidnight;
    facts.in_hours = facts.known_as_in_hours = true;
    facts.to_start.reset();
    facts.to_end = 360 * kMsPerMinute;
    return facts;
}

Facts FeatureOff()
{
    Facts facts = InOrder();
    facts.feature_on = false;
    facts.state = HOLV_INIT;
    facts.to_start.reset();
    return facts;
}

// What may differ, by its name in expected/rules.txt. A state goes by its own name.
const std::map<std::string, void (*)(Facts&)> kDifferences{
    {"the user is there", [](Facts& f) { f.user = {.present = true}; }},
    {"away", [](Facts& f) { f.user = {.away = true}; }},
    {"nobody is told of", [](Facts& f) { f.user = {}; }},
    {"not away", [](Facts& f) { f.user.away = false; }},
    {"suspended", [](Facts& f) { f.user = {.suspended = true}; }},
    {"not allowed", [](Facts& f) { f.allowed = false; }},
    {"no hours", [](Facts& f) { f.hours_enabled = false; }},
    {"empty hours", [](Facts& f) { f.hours.end = f.hours.start; }},
    {"taken for day", [](Facts& f) { f.known_as_in_hours = false; }},
    {"taken for the hours", [](Facts& f) { f.known_as_in_hours = true; }},
    {"no start comes", [](Facts& f) { f.to_start.reset(); }},
    {"no end comes", [](Facts& f) { f.to_end.reset(); }},
    {"the start comes in a minute", [](Facts& f) { f.to_start = kMsPerMinute; }},
    {"the end comes in a minute", [](Facts& f) { f.to_end = kMsPerMinute; }},
    {"the start comes two minutes early", [](Facts& f) { *f.to_start -= 2 * kMsPerMinute; }},
    {"the start comes two minutes late", [](Facts& f) { *f.to_start += 2 * kMsPerMinute; }},
    {"and a little", [](Facts& f) { --*f.to_start; }},
    {"and a little later", [](Facts& f) { ++*f.to_start; }},
    {"on battery", [](Facts& f) { f.on_ac = false; }},
    {"taken for battery", [](Facts& f) { f.known_as_on_ac = false; }},
    {"an unknown source", [](Facts& f) { f.on_ac.reset(); }},
    {"a low battery", [](Facts& f) { f.battery_low = true; }},
    {"no S3", [](Facts& f) { f.sleeps = false; }},
    {"requests not as allowed", [](Facts& f) { f.requests_as_allowed = false; }},
    {"requests released", [](Facts& f) { f.requests_released = true; }},
    {"values left", [](Facts& f) { f.values_left = true; }},
    {"mutes left", [](Facts& f) { f.mutes_left = true; }},
    {"another plan", [](Facts& f) { f.active_plan = kOtherPlan; }},
    {"no plan told", [](Facts& f) { f.active_plan.reset(); }},
    {"the never-sleep plan", [](Facts& f) { f.active_plan = kNeverSleepPlan; }},
    {"which is the user's", [](Facts& f) { f.plans.user = kNeverSleepPlan; }},
    {"the user's is not known", [](Facts& f) { f.plans.user_saved = false; }},
    {"a shortened time-out", [](Facts& f) { f.plans.timeout_shortened = true; }},
    {"a failed activation", [](Facts& f) { f.plans.activation_failed = true; }},
    {"HOLV_INIT", [](Facts& f) { f.state = HOLV_INIT; }},
    {"HOLV_ACTIVE", [](Facts& f) { f.state = HOLV_ACTIVE; }},
    {"HOLV_IDLE", [](Facts& f) { f.state = HOLV_IDLE; }},
    {"HOLV_DND", [](Facts& f) { f.state = HOLV_DND; }},
    {"HOLV_S3", [](Facts& f) { f.state = HOLV_S3; }},
};

// With a space before each.
std::string Broken(const Facts& facts)
{
    std::string names;
    for (const Rule& rule : Rules()) {
        if (rule.broken(facts)) names += " " + ToUtf8(rule.name);
    }
    return names;
}

TEST(RulesTest, EachIsBrokenByWhatItNamesAndByNothingElse)
{
    const std::map<std::string, Facts> in_order{{"normal use", InOrder()},
                                                {"away", Away()},
                                                {"away in the hours", AwayAtMidnight()},
                                                {"the feature off", FeatureOff()}};
    const std::vector<Block> blocks = BlocksOf("rules.txt");
    EXPECT_EQ(blocks.size(), in_order.size());
    for (const Block& block : blocks) {
        Lines found;
        for (const std::string& line : block.lines) {
            Facts facts = in_order.at(block.title);
            const std::string differences = line.substr(0, line.find(" =>"));
            for (const auto name : std::views::split(differences, std::string_view(", "))) {
                const std::string difference(name.begin(), name.end());
                ASSERT_TRUE(kDifferences.contains(difference)) << difference;
                kDifferences.at(difference)(facts);
            }
            found.push_back(differences + " =>" + Broken(facts));
        }
        EXPECT_LINES(found, block.lines) << block.title;
    }
}

// --- On a PC ---

class RulesOnPcTest : public VirtualPcTest
{
protected:
    static void Cure(const std::string& name, const Facts& facts)
    {
        for (const Rule& rule : Rules()) {
            if (ToUtf8(rule.name) == name) rule.cure(facts);
        }
    }
};

TEST_F(RulesOnPcTest, ACureTouchesOnlyWhatIsWrong)
{
    const std::tuple<Facts, bool, bool> boundaries[] = {
        {InOrder(), true, false}, {AwayAtMidnight(), false, true}, {FeatureOff(), false, false}};
    RunAsProcess([&] {
        createGlobalEvents();
        Cure("idle_time", InOrder());
        for (const DWORD expected : {DWORD{WAIT_OBJECT_0}, DWORD{WAIT_TIMEOUT}}) {
            EXPECT_EQ(WaitForSingleObject(g_hGlobalEvents[TIMER_IDLE], 2'000), expected);
        }
        for (const auto& each : boundaries) {
            for (const GlobalEvent timer : {TIMER_DND_START, TIMER_DND_END}) {
                ArmGlobalTimer(timer, -kUnitsPerSecond, 0, FALSE);
            }
            Cure("boundary_stale", std::get<Facts>(each));
            EXPECT_EQ(GlobalTimerDue(TIMER_DND_START, 0).has_value(), std::get<1>(each));
            EXPECT_EQ(GlobalTimerDue(TIMER_DND_END, 0).has_value(), std::get<2>(each));
        }
        closeGlobalEvents();
        Cure("requests", FeatureOff());
        EXPECT_EQ(pc.faults.CallsOf("PowerCreateRequest"), 0u);
    });
}

TEST_F(RulesOnPcTest, IdleTimeSourceAndPlansAreThePcs)
{
    Facts unwatched = InOrder();
    unwatched.idle_time_watched = false;
    RunAsProcess([&] {
        for (const DWORD seconds : {0, 60}) {
            pc.power.Write(GUID_TYPICAL_POWER_SAVINGS, GUID_STANDBY_TIMEOUT, PowerSource::ac,
                           seconds);
            EXPECT_EQ(Broken(unwatched), seconds > 0 ? " idle_time" : "");
        }
        const auto manager = std::make_shared<CPowerPolicyManager>();
        CNeverSleepState::m_pPowerPolicyManager.Set(manager);
        for (const BYTE line : {0, 1, 255}) {
            pc.power.line = line;
            EXPECT_EQ(ReadFacts().on_ac, line > 1 ? std::nullopt : std::optional(line == 1));
        }
        pc.power.RunOnBattery(100);
        ReadFacts();
        EXPECT_EQ(KnownCharge(), 100);
        pc.power.battery_percent = 255;
        ReadFacts();
        EXPECT_EQ(KnownCharge(), std::nullopt);
        Guarded<CPowerPolicyManager::KnownPlans>::Copy plans;
        manager->EnterHolvControl();
        manager->EnterHolvState();
        CPowerPolicyManager::RefreshKnownPlans(plans);
        manager->EnterHolvControl();
        CPowerPolicyManager::RefreshKnownPlans(plans);
        EXPECT_TRUE(IsEqualGUID(plans.value.user, GUID_MAX_POWER_SAVINGS));
        CNeverSleepState::m_pPowerPolicyManager.Set(nullptr);
    });
}

}  // namespace
