#include "publish/snapshot.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/kernel.h"
#include "power/never_sleep_away_mode.h"
#include "restore/journal.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/on_ac_power.h"
#include "state/state_trail.h"

namespace {

using S = CNeverSleepState;

// Indexed by Reason. A name that a rule of the reconciler's has, too, is that rule's.
constexpr const wchar_t* kReasonNames[] = {L"feature_off",    L"starting",  L"user_there",
                                           L"nobody_left",    L"away_mode", L"woken",
                                           L"processor_idle", L"hours",     L"asleep"};
static_assert(std::size(kReasonNames) == static_cast<std::size_t>(Reason::asleep) + 1);

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

Snapshot Camera::Take()
{
    Snapshot now{};
    // From one note: the state itself is changed a moment before it is noted.
    const StateNote note = LastStateNote();
    now.state = note.state;
    if (!m_began) m_began = GetTickCount64();
    now.since = std::max(note.at, *m_began);
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
    CPowerPolicyManager::RefreshKnownPlans(m_plans);
    now.plans = m_plans.value;
    RefreshListedHolders(m_holders);
    now.holders = m_holders.value;
    return now;
}

NextTimers TakeNextTimers()
{
    const ULONGLONG now = GetTickCount64();
    return {GlobalTimerDue(TIMER_IDLE, now), GlobalTimerDue(TIMER_DND_START, now),
            GlobalTimerDue(TIMER_DND_END, now)};
}

const wchar_t* ReasonName(Reason reason) { return kReasonNames[static_cast<int>(reason)]; }

const wchar_t* RuleBehind(Reason reason)
{
    const std::wstring_view name = ReasonName(reason);
    const auto rule = std::ranges::find_if(Rules(), [&](const Rule& r) { return r.name == name; });
    return rule == Rules().end() ? nullptr : rule->what_holds;
}
