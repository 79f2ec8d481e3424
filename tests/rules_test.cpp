// What breaks each rule of the reconciler, and what does not: facts as they may be read, a change
// each from those of a PC where all is well.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/text.h"
#include "reconciler/rules.h"

using namespace virtual_pc;

namespace {

constexpr GUID kUsers{0xA, 0, 0, {}};
constexpr GUID kNeverSleep{0xB, 0, 0, {}};
constexpr GUID kOther{0xC, 0, 0, {}};
constexpr DWORD kNoon = 12 * 60;
constexpr DWORD kMidnight = 0;
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
    facts.now = kNoon;
    facts.to_start = 10 * 60 * kMsPerMinute;
    facts.active_plan = kUsers;
    facts.plans = {true, kUsers, kNeverSleep, false, false};
    return facts;
}

// Without its user, in away mode.
Facts Away(ESystemState state = HOLV_ACTIVE)
{
    Facts facts = InOrder();
    facts.user = {.away = true};
    facts.state = state;
    facts.active_plan = kNeverSleep;
    return facts;
}

Facts AwayAtMidnight(ESystemState state = HOLV_DND)
{
    Facts facts = Away(state);
    facts.now = kMidnight;
    facts.in_hours = facts.known_as_in_hours = true;
    facts.to_start.reset();
    facts.to_end = 6 * 60 * kMsPerMinute;
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

struct Case
{
    const char* what;
    Facts facts;
    void (*change)(Facts&);
    Names broken;
};

void Expect(const std::vector<Case>& cases)
{
    for (const auto& [what, facts, change, broken] : cases) {
        Facts changed = facts;
        change(changed);
        EXPECT_EQ(Broken(changed), broken) << what;
    }
}

TEST(RulesTest, OnAPcInOrderNoneIsBroken)
{
    const auto nothing = [](Facts&) {};
    Expect({{"normal use", InOrder(), nothing, {}},
            {"away", Away(), nothing, {}},
            {"away and idle", Away(HOLV_IDLE), nothing, {}},
            {"away in the hours", AwayAtMidnight(), nothing, {}},
            {"the feature off", FeatureOff(), nothing, {}}});
}

TEST(RulesTest, TheStateFollowsTheUserAndTheClock)
{
    Expect({
        {"away with the feature off",
         FeatureOff(),
         [](Facts& f) { f.state = HOLV_ACTIVE; },
         {"off"}},
        {"in the hours with the feature off",
         FeatureOff(),
         [](Facts& f) { f.state = HOLV_DND; },
         {"off"}},
        {"idle with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_IDLE; }, {"off"}},
        {"asleep with the feature off", FeatureOff(), [](Facts& f) { f.state = HOLV_S3; }, {}},
        {"the user there", Away(), [](Facts& f) { f.user = {.present = true}; }, {"user_there"}},
        {"the user there before the start",
         Away(),
         [](Facts& f) {
             f.user = {.present = true};
             f.state = HOLV_INIT;
             f.to_start.reset();
         },
         {}},
        {"away in normal use", InOrder(), [](Facts& f) { f.user = {.away = true}; }, {"away_mode"}},
        {"neither there nor away", InOrder(), [](Facts& f) { f.user = {}; }, {}},
        {"awake, and counts as asleep", Away(HOLV_S3), [](Facts&) {}, {"woken"}},
        {"counts as asleep, with the user there",
         Away(HOLV_S3),
         [](Facts& f) { f.user = {.present = true}; },
         {"user_there"}},
        {"active in the hours", AwayAtMidnight(HOLV_ACTIVE), [](Facts&) {}, {"hours"}},
        {"idle in the hours", AwayAtMidnight(HOLV_IDLE), [](Facts&) {}, {"hours"}},
        {"do not disturb by day", Away(HOLV_DND), [](Facts&) {}, {"hours"}},
        {"not in away mode", Away(), [](Facts& f) { f.user.away = false; }, {"not_away"}},
        {"suspended", Away(), [](Facts& f) { f.user = {.suspended = true}; }, {}},
        {"not in away mode where that is not allowed",
         Away(),
         [](Facts& f) {
             f.user.away = false;
             f.allowed = false;
         },
         {}},
    });
}

TEST(RulesTest, TheNextBoundaryOfTheHoursIsAwaitedAndNoOther)
{
    Expect({
        {"the end by day",
         InOrder(),
         [](Facts& f) { f.to_end = kMsPerMinute; },
         {"boundary_stale"}},
        {"the start in the hours",
         AwayAtMidnight(),
         [](Facts& f) { f.to_start = kMsPerMinute; },
         {"boundary_stale"}},
        {"the start with the feature off",
         FeatureOff(),
         [](Facts& f) { f.to_start = 1; },
         {"boundary_stale"}},
        {"the end with the feature off",
         FeatureOff(),
         [](Facts& f) { f.to_end = 1; },
         {"boundary_stale"}},
        {"the start without hours",
         InOrder(),
         [](Facts& f) { f.hours_enabled = false; },
         {"boundary_stale"}},
        {"the start of empty hours",
         InOrder(),
         [](Facts& f) { f.hours.end = f.hours.start; },
         {"boundary_stale"}},
        {"no start", InOrder(), [](Facts& f) { f.to_start.reset(); }, {"boundary_next"}},
        {"no end", AwayAtMidnight(), [](Facts& f) { f.to_end.reset(); }, {"boundary_next"}},
        {"two minutes early", InOrder(), [](Facts& f) { *f.to_start -= 2 * kMsPerMinute; }, {}},
        {"more than that",
         InOrder(),
         [](Facts& f) { *f.to_start -= 2 * kMsPerMinute + 1; },
         {"boundary_next"}},
        {"two minutes late", InOrder(), [](Facts& f) { *f.to_start += 2 * kMsPerMinute; }, {}},
        {"later than that",
         InOrder(),
         [](Facts& f) { *f.to_start += 2 * kMsPerMinute + 1; },
         {"boundary_next"}},
        {"taken for day in the hours",
         AwayAtMidnight(),
         [](Facts& f) { f.known_as_in_hours = false; },
         {"clock"}},
        {"taken for hours by day",
         InOrder(),
         [](Facts& f) { f.known_as_in_hours = true; },
         {"clock"}},
        {"the same with the feature off",
         FeatureOff(),
         [](Facts& f) { f.known_as_in_hours = true; },
         {}},
    });
}

TEST(RulesTest, TheSourceAndTheRequestsAreThoseOfThePc)
{
    Expect({
        {"on battery, taken for mains", InOrder(), [](Facts& f) { f.on_ac = false; }, {"source"}},
        {"on mains, taken for battery",
         InOrder(),
         [](Facts& f) { f.known_as_on_ac = false; },
         {"source"}},
        {"a low battery on mains", InOrder(), [](Facts& f) { f.battery_low = true; }, {"source"}},
        {"a low battery on battery",
         InOrder(),
         [](Facts& f) {
             f.on_ac = f.known_as_on_ac = false;
             f.battery_low = true;
         },
         {}},
        {"a source that nobody knows",
         InOrder(),
         [](Facts& f) {
             f.on_ac.reset();
             f.battery_low = true;
         },
         {}},
        {"held on a PC without S3", InOrder(), [](Facts& f) { f.sleeps = false; }, {"no_s3"}},
        {"not held there, as is not allowed",
         InOrder(),
         [](Facts& f) {
             f.sleeps = f.requests_as_allowed = false;
             f.requests_released = true;
         },
         {}},
        {"not as allowed",
         InOrder(),
         [](Facts& f) { f.requests_as_allowed = false; },
         {"requests"}},
        {"the same with the feature off",
         FeatureOff(),
         [](Facts& f) { f.requests_as_allowed = false; },
         {"requests"}},
    });
}

TEST(RulesTest, TheUserHasHisOwnPlanItsOwnValuesAndHisSound)
{
    Expect({
        {"values left", InOrder(), [](Facts& f) { f.values_left = true; }, {"plan_values"}},
        {"values left while away", Away(), [](Facts& f) { f.values_left = true; }, {}},
        {"mutes left", InOrder(), [](Facts& f) { f.mutes_left = true; }, {"mutes"}},
        {"another plan", InOrder(), [](Facts& f) { f.active_plan = kOther; }, {"plan_chosen"}},
        {"another plan while away", Away(), [](Facts& f) { f.active_plan = kOther; }, {}},
        {"no plan that could be asked", InOrder(), [](Facts& f) { f.active_plan.reset(); }, {}},
        {"the never-sleep plan",
         InOrder(),
         [](Facts& f) { f.active_plan = kNeverSleep; },
         {"plan_own"}},
        {"the never-sleep plan, before the user's is known",
         InOrder(),
         [](Facts& f) {
             f.active_plan = kNeverSleep;
             f.plans.user_saved = false;
         },
         {"plan_chosen"}},
        {"the never-sleep plan as the user's own",
         InOrder(),
         [](Facts& f) { f.active_plan = f.plans.user = kNeverSleep; },
         {}},
        {"that with the time-out shortened",
         InOrder(),
         [](Facts& f) {
             f.active_plan = f.plans.user = kNeverSleep;
             f.plans.timeout_shortened = true;
         },
         {"plan_own"}},
        {"the time-out shortened",
         InOrder(),
         [](Facts& f) { f.plans.timeout_shortened = true; },
         {"plan_own"}},
        {"an activation that failed",
         InOrder(),
         [](Facts& f) { f.plans.activation_failed = true; },
         {"plan_in_effect"}},
        {"that while another plan is chosen",
         InOrder(),
         [](Facts& f) {
             f.plans.activation_failed = true;
             f.active_plan = kOther;
         },
         {"plan_chosen"}},
        {"that before the user's plan is known",
         InOrder(),
         [](Facts& f) {
             f.plans.activation_failed = true;
             f.plans.user_saved = false;
             f.active_plan = kUsers;
         },
         {}},
    });
}

}  // namespace
