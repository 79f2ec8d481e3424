#include "reconciler/rules.h"

#include <cstdlib>
#include <functional>

#include "power/driver_api.h"
#include "power/never_sleep_away_mode.h"
#include "restore/restoring.h"
#include "state/global_events.h"
#include "state/on_ac_power.h"

namespace {

using S = CNeverSleepState;

bool InUse(const Facts& f) { return f.feature_on && f.state != HOLV_INIT; }
bool InNormalUse(const Facts& f) { return f.feature_on && f.state == S0_NORMAL; }
bool InNeverSleepMode(const Facts& f)
{
    return f.state == HOLV_ACTIVE || f.state == HOLV_IDLE || f.state == HOLV_DND;
}
bool NoUser(const Facts& f) { return InUse(f) && !f.user.present; }
bool Same(const std::optional<GUID>& plan, const GUID& other)
{
    return plan && IsEqualGUID(*plan, other);
}

// Calls an operation of the power policy manager, if there is one.
void Manage(const std::function<void(CPowerPolicyManager&)>& what)
{
    if (const auto manager = S::m_pPowerPolicyManager.Get()) what(*manager);
}

// --- The state ---

bool AwayInNormalUse(const Facts& f) { return NoUser(f) && f.user.away && f.state == S0_NORMAL; }

// Handles the start of away mode, which an entry has absorbed: the state machine ignores the end of
// away mode as long as it has not handled the start.
void EnterAwayMode(const Facts&)
{
    constexpr DWORD kEntered = 1;
    S::OnAwayModeEvent(kEntered);
}

bool AwakeButAsleep(const Facts& f) { return NoUser(f) && f.state == HOLV_S3; }

bool NotByTheClock(const Facts& f)
{
    if (!NoUser(f)) return false;
    const bool outside_state = f.state == HOLV_ACTIVE || f.state == HOLV_IDLE;
    return f.in_hours ? outside_state : f.state == HOLV_DND;
}

void ChooseState(const Facts&) { S::EnterNeverSleepState(); }

// A timer has woken the PC out of a sleep that the state machine has not noticed: it asks for away
// mode only where it comes out of HOLV_S3, and the requests that it holds keep the PC awake.
bool NotInAwayMode(const Facts& f)
{
    return NoUser(f) && InNeverSleepMode(f) && f.allowed && f.sleeps && !f.user.away &&
           !f.user.suspended;
}

// --- The do-not-disturb hours ---

bool HasBoundary(const Facts& f) { return InUse(f) && f.hours_enabled && !f.hours.Empty(); }

bool StaleTimer(const Facts& f)
{
    const bool start_may = HasBoundary(f) && !f.in_hours;
    const bool end_may = HasBoundary(f) && f.in_hours;
    return (f.to_start && !start_may) || (f.to_end && !end_may);
}

void CancelStaleTimer(const Facts& f)
{
    if (!HasBoundary(f) || f.in_hours) CancelGlobalTimer(TIMER_DND_START);
    if (!HasBoundary(f) || !f.in_hours) CancelGlobalTimer(TIMER_DND_END);
}

// The timers are set by whole minutes, so they differ from the boundary by up to one.
bool NoTimerForTheBoundary(const Facts& f)
{
    if (!HasBoundary(f)) return false;
    constexpr LONGLONG kMsPerMinute = 60'000;
    const auto& armed = f.in_hours ? f.to_end : f.to_start;
    const LONGLONG wanted = f.hours.MinutesToBoundary(f.now, f.in_hours) * kMsPerMinute;
    return !armed || std::abs(static_cast<LONGLONG>(*armed) - wanted) > 2 * kMsPerMinute;
}

bool HoursNotNoticed(const Facts& f) { return InUse(f) && f.known_as_in_hours != f.in_hours; }

// --- The power source and the requests ---

bool SourceNotNoticed(const Facts& f)
{
    return InUse(f) && f.on_ac && (*f.on_ac != f.known_as_on_ac || (*f.on_ac && f.battery_low));
}

void ReadSourceAnew(const Facts& f)
{
    constexpr DWORD kSourceAc = 0;
    g_bOnAcPower = FALSE;
    // On battery the monitor runs since the feature went on.
    if (*f.on_ac) S::OnPowerSourceChange(kSourceAc);
}

bool HeldWithoutSleep(const Facts& f) { return !f.sleeps && !f.requests_released; }

void ReleaseRequests(const Facts&)
{
    CNeverSleepAwayMode::DisableAwayMode();
    CNeverSleepAwayMode::EnableIdleTimer();
}

bool RequestsWrong(const Facts& f) { return f.sleeps && !f.requests_as_allowed; }

void ConfigureRequests(const Facts& f)
{
    if (f.allowed && InUse(f)) CNeverSleepAwayMode::CreateMissing();
    S::ConfigurePowerRequests();
}

// While the requests are held the system's own idle timer puts no PC to sleep. Normal use arms the
// service's when it begins, but not where the feature goes on in it.
bool IdleTimeNotWatched(const Facts& f)
{
    return InNormalUse(f) && f.allowed && f.sleeps && !f.idle_time_watched &&
           CPowerPolicyManager::GetActiveSleepIdleTimeoutValue() != 0;
}

// The state machine reads the idle time then.
void LetIdleTimeBeRead(const Facts&) { ArmGlobalTimer(TIMER_IDLE, -kUnitsPerSecond, 0, FALSE); }

// --- The plans ---

bool ValuesNotRestored(const Facts& f) { return InNormalUse(f) && f.values_left; }

bool MutesNotRestored(const Facts& f) { return InNormalUse(f) && f.mutes_left; }

bool NeverSleepPlanInNormalUse(const Facts& f)
{
    if (!InNormalUse(f) || !f.plans.user_saved) return false;
    const bool own = IsEqualGUID(f.plans.user, f.plans.never_sleep);
    return f.plans.timeout_shortened || (!own && Same(f.active_plan, f.plans.never_sleep));
}

bool ChoiceNotNoticed(const Facts& f)
{
    if (!InNormalUse(f) || !f.active_plan || Same(f.active_plan, f.plans.user)) return false;
    return !f.plans.user_saved || !Same(f.active_plan, f.plans.never_sleep);
}

// Where a policy named another plan while the activation failed, that plan is the choice.
bool PlanNotActivated(const Facts& f)
{
    return InNormalUse(f) && f.plans.user_saved && f.plans.activation_failed &&
           !ChoiceNotNoticed(f);
}

void ActivateUsersPlan(const Facts& f)
{
    CPowerPolicyManager::SetActivePowerScheme(&f.plans.user);
    // One that has been deleted cannot be. Then the one that stays takes its own values into
    // effect.
    if (f.active_plan && !Same(CPowerPolicyManager::GetActiveScheme(), f.plans.user)) {
        CPowerPolicyManager::SetActivePowerScheme(&*f.active_plan);
    }
}

// --- The feature ---

// An entry that was signalled before the feature went off is still handled.
bool NeverSleepWithFeatureOff(const Facts& f) { return !f.feature_on && InNeverSleepMode(f); }

void EndNeverSleepMode(const Facts&)
{
    S::StopNeverSleep();
    RestoreWhatIsTheUsers(SendDeviceMode);
}

// A plan's choice is noticed before the never-sleep plan is left, as the leave activates the user's
// plan.
constexpr Rule kRules[] = {
    {L"off", L"While the feature is off there is no never-sleep mode.",
     L"The feature is off but never-sleep mode is not", L"ending it", NeverSleepWithFeatureOff,
     EndNeverSleepMode},
    {L"user_there", L"A PC with its user there is in normal use.",
     L"The user is back but normal use has not begun", L"signalling EVENT_ENTER_S0",
     [](const Facts& f) { return InUse(f) && f.user.present && f.state != S0_NORMAL; },
     [](const Facts&) { SignalGlobalEvent(EVENT_ENTER_S0); }},
    {L"away_mode", L"A PC in away mode is in never-sleep mode.",
     L"Away mode is on but never-sleep mode is not", L"entering it", AwayInNormalUse,
     EnterAwayMode},
    {L"woken", L"A PC that has woken without its user is in never-sleep mode, or sleeps again.",
     L"The PC is awake but counts as asleep", L"choosing a state", AwakeButAsleep, ChooseState},
    {L"hours",
     L"A PC without its user is in HOLV_DND within the do-not-disturb hours, and only then.",
     L"The state is not that for the time of day", L"choosing it", NotByTheClock, ChooseState},
    {L"not_away", L"A PC in never-sleep mode that is allowed to be there is in away mode.",
     L"The PC is in never-sleep mode but not in away mode", L"asking for it", NotInAwayMode,
     [](const Facts&) { S::GotToSleepNow(); }},
    {L"boundary_stale",
     L"No other boundary of the do-not-disturb hours is awaited, and none while the feature is "
     L"off.",
     L"A boundary of the do-not-disturb hours is awaited that is not the next", L"cancelling it",
     StaleTimer, CancelStaleTimer},
    {L"boundary_next", L"The next boundary of the do-not-disturb hours is awaited.",
     L"The next boundary of the do-not-disturb hours is not awaited", L"arming its timer",
     NoTimerForTheBoundary, [](const Facts&) { S::CreateDoNotDisturbTimer(); }},
    {L"clock", L"The do-not-disturb hours begin and end by the clock.",
     L"The do-not-disturb hours are not those of the clock", L"reading it anew", HoursNotNoticed,
     [](const Facts&) { S::RefreshDoNotDisturbState(); }},
    {L"source", L"The power source is the one that the system reports.",
     L"The power source is not the one that the service knows", L"reading it anew",
     SourceNotNoticed, ReadSourceAnew},
    {L"no_s3",
     L"A PC that cannot sleep in S3 is not held awake: never-sleep mode cannot work there.",
     L"This PC does not support S3", L"releasing the power requests", HeldWithoutSleep,
     ReleaseRequests, true},
    {L"requests", L"The power requests are held while never-sleep mode is allowed, and only then.",
     L"The power requests are not as they should be", L"configuring them", RequestsWrong,
     ConfigureRequests},
    {L"idle_time", L"In normal use the idle time is watched, so that the PC goes into away mode.",
     L"The idle time is not watched", L"reading it", IdleTimeNotWatched, LetIdleTimeBeRead},
    {L"plan_values", L"In normal use the plans have their own values.",
     L"A value of a plan was not restored", L"restoring it", ValuesNotRestored,
     [](const Facts&) { RestoreValuesAfterLeave(); }},
    {L"mutes", L"In normal use the endpoints sound as the user left them.",
     L"An endpoint is still muted in normal use", L"restoring it", MutesNotRestored,
     [](const Facts&) { RestoreMutes(); }},
    {L"plan_chosen",
     L"The plan that is active in normal use is the user's, and prepared for never-sleep mode.",
     L"The active plan is not the one that the service knows as the user's", L"taking it over",
     ChoiceNotNoticed,
     [](const Facts& f) {
         Manage([&f](auto& manager) { manager.OnPowerOptionChanged(&*f.active_plan); });
     }},
    {L"plan_own", L"In normal use the user's plan is active.",
     L"The never-sleep plan is set up in normal use", L"leaving it", NeverSleepPlanInNormalUse,
     [](const Facts&) { Manage([](auto& manager) { manager.ExitHolvState(); }); }},
    {L"plan_in_effect", L"In normal use the user's plan is in effect as the service set it up.",
     L"The user's plan could not be activated", L"activating it", PlanNotActivated,
     ActivateUsersPlan},
};

}  // namespace

std::span<const Rule> Rules() { return kRules; }
