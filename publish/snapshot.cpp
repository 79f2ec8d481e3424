#include "publish/snapshot.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "log/format.h"
#include "platform/kernel.h"
#include "power/never_sleep_away_mode.h"
#include "restore/journal.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/listed_holders.h"
#include "state/on_ac_power.h"
#include "state/state_trail.h"

namespace {

using S = CNeverSleepState;

// Indexed by Reason. A name that a rule of the reconciler's has, too, is that rule's.
constexpr const wchar_t* kReasonNames[] = {L"feature_off",    L"starting",  L"user_there",
                                           L"nobody_left",    L"away_mode", L"woken",
                                           L"processor_idle", L"hours",     L"asleep"};
static_assert(std::size(kReasonNames) == static_cast<std::size_t>(Reason::asleep) + 1);

std::wstring TextOf(const GUID& plan)
{
    if (IsEqualGUID(plan, GUID{})) return {};
    wchar_t text[40];
    FormatText(text, L"%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", plan.Data1, plan.Data2,
               plan.Data3, plan.Data4[0], plan.Data4[1], plan.Data4[2], plan.Data4[3],
               plan.Data4[4], plan.Data4[5], plan.Data4[6], plan.Data4[7]);
    return text;
}

Requests ReadRequests()
{
    if (CNeverSleepAwayMode::AreBoth(FALSE)) return Requests::released;
    return CNeverSleepAwayMode::AreBoth(TRUE) ? Requests::held : Requests::partly;
}

}  // namespace

Reason ReasonOf(ESystemState state, const UserFacts& user, bool featureOn)
{
    switch (state) {
        case S0_NORMAL:
            return user.present ? Reason::user_there : Reason::nobody_left;
        case HOLV_ACTIVE:
            return user.away ? Reason::away_mode : Reason::woken;
        case HOLV_IDLE:
            return Reason::processor_idle;
        case HOLV_DND:
            return Reason::hours;
        case HOLV_S3:
            return Reason::asleep;
        case HOLV_INIT:
            break;
    }
    return featureOn ? Reason::starting : Reason::feature_off;
}

Snapshot TakeSnapshot()
{
    Snapshot now{};
    const std::vector<StateNote> notes = StateNotesFrom(StatesNoted() - 1);
    now.state = S::m_eSystemState;
    now.since = notes.empty() ? 0 : notes.back().at;
    const UserFacts user = KnownUser();
    now.away = user.away;
    now.suspended = user.suspended;
    now.user_present = user.present;
    now.feature_on = g_bEnableNeverSleep != 0;
    now.reason = ReasonOf(now.state, user, now.feature_on);
    now.on_ac = g_bOnAcPower != FALSE;
    now.battery_low = S::m_bBatteryThresholdCrossed != FALSE;
    now.battery_allowed = g_bEnableHolvOnDC != 0;
    now.requests = ReadRequests();
    now.hours_enabled = g_bEnableDoNotDisturb != 0;
    now.in_hours = S::m_bSeenDndStart != FALSE;
    now.sleeps_in_hours = g_bDndToS3 != 0;
    now.hours_start = g_dwDoNotDisturbStart;
    now.hours_end = g_dwDoNotDisturbEnd;
    now.kept_mutes = KeptMutes();
    now.correction = LastCorrection();
    const CPowerPolicyManager::KnownPlans plans = CPowerPolicyManager::GetKnownPlans();
    now.user_plan = TextOf(plans.user);
    now.active_plan = TextOf(plans.active);
    now.holders = ListedHolders();
    return now;
}

NextTimers TakeNextTimers()
{
    return {GlobalTimerDue(TIMER_IDLE), GlobalTimerDue(TIMER_DND_START),
            GlobalTimerDue(TIMER_DND_END)};
}

const wchar_t* ReasonName(Reason reason) { return kReasonNames[static_cast<int>(reason)]; }

const wchar_t* RuleBehind(Reason reason)
{
    const std::wstring_view name = ReasonName(reason);
    const auto rule = std::ranges::find_if(Rules(), [&](const Rule& r) { return r.name == name; });
    return rule == Rules().end() ? nullptr : rule->what_holds;
}
