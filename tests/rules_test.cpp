// What breaks each rule of the reconciler, and what does not: facts as they may be read, a change
// each from those of a PC where all is well.

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
Facts Away(ESystemState state = HOLV_ACTIVE)
{
    Facts facts = InOrder();
    facts.user = {.away = true};
    facts.state = state;
    facts.active_plan = kNeverSleepPlan;
    return facts;
}

Facts AwayAtMidnight(ESystemState state = HOLV_DND)
{
    Facts facts = Away(state);
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

using Names = std::vector<std::string>;

Names Broken(const Facts& facts)
{
    Names names;
    for (const Rule& rule : Rules()) {
        if (rule.broken(facts)) names.push_back(ToUtf8(rule.name));
    }
    return names;
}

// The change breaks these rules, and no other.
void Breaks(const char* what, Facts facts, void (*change)(Facts&), const Names& broken)
{
    change(facts);
    EXPECT_EQ(Broken(facts), broken) << what;
}

TEST(RulesTest, OnAPcInOrderNoneIsBroken)
{
    const auto nothing = [](Facts&) {};
    Breaks("normal use", InOrder(), nothing, {});
    Breaks("away", Away(), nothing, {});
    Breaks("away and idle", Away(HOLV_IDLE), nothing, {});
    Breaks("away in the hours", AwayAtMidnight(), nothing, {});
    Breaks("the feature off", FeatureOff(), nothing, {});
}

TEST(RulesTest, TheStateFollowsTheUserAndTheClock)
{
    Breaks("away with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_ACTIVE; },
           {"off"});
    Breaks("in the hours with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_DND; },
           {"off"});
    Breaks("idle with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_IDLE; },
           {"off"});
    Breaks("asleep with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_S3; }, {});
    Breaks("the user there", Away(), [](Facts& f) { f.user = {.present = true}; }, {"user_there"});
    Breaks("the user there before the start", Away(),
           [](Facts& f) {
               f.user = {.present = true};
               f.state = HOLV_INIT;
               f.to_start.reset();
           },
           {});
    Breaks("away in normal use", InOrder(), [](Facts& f) { f.user = {.away = true}; },
           {"away_mode"});
    Breaks("neither there nor away", InOrder(), [](Facts& f) { f.user = {}; }, {});
    Breaks("awake, and counts as asleep", Away(HOLV_S3), [](Facts&) {}, {"woken"});
    Breaks("counts as asleep, with the user there", Away(HOLV_S3),
           [](Facts& f) { f.user = {.present = true}; }, {"user_there"});
    Breaks("active in the hours", AwayAtMidnight(HOLV_ACTIVE), [](Facts&) {}, {"hours"});
    Breaks("idle in the hours", AwayAtMidnight(HOLV_IDLE), [](Facts&) {}, {"hours"});
    Breaks("do not disturb by day", Away(HOLV_DND), [](Facts&) {}, {"hours"});
    Breaks("not in away mode", Away(), [](Facts& f) { f.user.away = false; }, {"not_away"});
    Breaks("suspended", Away(), [](Facts& f) { f.user = {.suspended = true}; }, {});
    Breaks("not in away mode where that is not allowed", Away(),
           [](Facts& f) {
               f.user.away = false;
               f.allowed = false;
           },
           {});
}

TEST(RulesTest, TheNextBoundaryOfTheHoursIsAwaitedAndNoOther)
{
    Breaks("the end by day", InOrder(), [](Facts& f) { f.to_end = kMsPerMinute; },
           {"boundary_stale"});
    Breaks("the start in the hours", AwayAtMidnight(), [](Facts& f) { f.to_start = kMsPerMinute; },
           {"boundary_stale"});
    Breaks("the start with the feature off", FeatureOff(), [](Facts& f) { f.to_start = 1; },
           {"boundary_stale"});
    Breaks("the end with the feature off", FeatureOff(), [](Facts& f) { f.to_end = 1; },
           {"boundary_stale"});
    Breaks("the start without hours", InOrder(), [](Facts& f) { f.hours_enabled = false; },
           {"boundary_stale"});
    Breaks("the start of empty hours", InOrder(), [](Facts& f) { f.hours.end = f.hours.start; },
           {"boundary_stale"});
    Breaks("no start", InOrder(), [](Facts& f) { f.to_start.reset(); }, {"boundary_next"});
    Breaks("no end", AwayAtMidnight(), [](Facts& f) { f.to_end.reset(); }, {"boundary_next"});
    Breaks("two minutes early", InOrder(), [](Facts& f) { *f.to_start -= 2 * kMsPerMinute; }, {});
    Breaks("more than that", InOrder(), [](Facts& f) { *f.to_start -= 2 * kMsPerMinute + 1; },
           {"boundary_next"});
    Breaks("two minutes late", InOrder(), [](Facts& f) { *f.to_start += 2 * kMsPerMinute; }, {});
    Breaks("later than that", InOrder(), [](Facts& f) { *f.to_start += 2 * kMsPerMinute + 1; },
           {"boundary_next"});
    Breaks("taken for day in the hours", AwayAtMidnight(),
           [](Facts& f) { f.known_as_in_hours = false; }, {"clock"});
    Breaks("taken for hours by day", InOrder(), [](Facts& f) { f.known_as_in_hours = true; },
           {"clock"});
    Breaks("the same with the feature off", FeatureOff(),
           [](Facts& f) { f.known_as_in_hours = true; }, {});
}

TEST(RulesTest, TheSourceAndTheRequestsAreThoseOfThePc)
{
    Breaks("on battery, taken for mains", InOrder(), [](Facts& f) { f.on_ac = false; }, {"source"});
    Breaks("on mains, taken for battery", InOrder(), [](Facts& f) { f.known_as_on_ac = false; },
           {"source"});
    Breaks("a low battery on mains", InOrder(), [](Facts& f) { f.battery_low = true; }, {"source"});
    Breaks("a low battery on battery", InOrder(),
           [](Facts& f) {
               f.on_ac = f.known_as_on_ac = false;
               f.battery_low = true;
           },
           {});
    Breaks("a power source that the system does not report", InOrder(),
           [](Facts& f) {
               f.on_ac.reset();
               f.battery_low = true;
           },
           {});
    Breaks("held on a PC without S3", InOrder(), [](Facts& f) { f.sleeps = false; }, {"no_s3"});
    Breaks("not held there, as is not allowed", InOrder(),
           [](Facts& f) {
               f.sleeps = f.requests_as_allowed = false;
               f.requests_released = true;
           },
           {});
    Breaks("not as allowed", InOrder(), [](Facts& f) { f.requests_as_allowed = false; },
           {"requests"});
    Breaks("the same with the feature off", FeatureOff(),
           [](Facts& f) { f.requests_as_allowed = false; }, {"requests"});
}

TEST(RulesTest, TheUserHasHisOwnPlanItsOwnValuesAndHisSound)
{
    Breaks("values left", InOrder(), [](Facts& f) { f.values_left = true; }, {"plan_values"});
    Breaks("values left while away", Away(), [](Facts& f) { f.values_left = true; }, {});
    Breaks("mutes left", InOrder(), [](Facts& f) { f.mutes_left = true; }, {"mutes"});
    Breaks("another plan", InOrder(), [](Facts& f) { f.active_plan = kOtherPlan; },
           {"plan_chosen"});
    Breaks("another plan while away", Away(), [](Facts& f) { f.active_plan = kOtherPlan; }, {});
    Breaks("no plan that could be asked", InOrder(), [](Facts& f) { f.active_plan.reset(); }, {});
    Breaks("the never-sleep plan", InOrder(), [](Facts& f) { f.active_plan = kNeverSleepPlan; },
           {"plan_own"});
    Breaks("the never-sleep plan, before the user's is known", InOrder(),
           [](Facts& f) {
               f.active_plan = kNeverSleepPlan;
               f.plans.user_saved = false;
           },
           {"plan_chosen"});
    Breaks("the never-sleep plan as the user's own", InOrder(),
           [](Facts& f) { f.active_plan = f.plans.user = kNeverSleepPlan; }, {});
    Breaks("that with the time-out shortened", InOrder(),
           [](Facts& f) {
               f.active_plan = f.plans.user = kNeverSleepPlan;
               f.plans.timeout_shortened = true;
           },
           {"plan_own"});
    Breaks("the time-out shortened", InOrder(), [](Facts& f) { f.plans.timeout_shortened = true; },
           {"plan_own"});
    Breaks("an activation that failed", InOrder(),
           [](Facts& f) { f.plans.activation_failed = true; }, {"plan_in_effect"});
    Breaks("that while another plan is chosen", InOrder(),
           [](Facts& f) {
               f.plans.activation_failed = true;
               f.active_plan = kOtherPlan;
           },
           {"plan_chosen"});
    Breaks("that before the user's plan is known", InOrder(),
           [](Facts& f) {
               f.plans.activation_failed = true;
               f.plans.user_saved = false;
               f.active_plan = kUsersPlan;
           },
           {});
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
            EXPECT_EQ(Broken(unwatched), seconds > 0 ? Names{"idle_time"} : Names{});
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
