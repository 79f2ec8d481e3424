// The event loop: waits for the thirteen events and timers and handles the signalled one, the
// lowest slot first.

#include <array>
#include <optional>

#include "log/log.h"
#include "power/power_policy_manager.h"
#include "restore/restoring.h"
#include "service/service_status.h"
#include "settings/settings.h"
#include "state/activity.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/state_change.h"

namespace {

constexpr const wchar_t* kRun = L"CNeverSleepState::Run";

using Target = std::optional<ESystemState>;
constexpr Target kStay = std::nullopt;

struct Slot
{
    // The target with which LeaveNeverSleepState is called before the action: `leave_dnd_for` if
    // the current state is HOLV_DND, `leave_other_for` in the other states. kStay: no call.
    // S0_NORMAL has nothing to leave.
    Target leave_dnd_for;
    Target leave_other_for;
    DWORD level;
    const wchar_t* line;  // null for none
    bool names_state;     // the line ends with the current state's name
    void (*action)();     // null for none
};

void LeaveDoNotDisturbForActive()
{
    CNeverSleepState::LeaveNeverSleepDoNotDisturbState();
    CNeverSleepState::EnterNeverSleepActiveState();
}

using S = CNeverSleepState;

// The service never signals EVENT_LEAVE_DND or EVENT_REGISTRY_CHANGED and never arms TIMER_SLEEP.
// They keep their slots, because a slot's number is its priority.
constexpr std::array<Slot, kGlobalEventCount> kSlots{{
    // EVENT_ENTER_S0
    {S0_NORMAL, S0_NORMAL, 1, L"Entering S0 from HOLV State ", true, S::EnterNormalS0State},
    // EVENT_ENTER_ACTIVE
    {HOLV_ACTIVE, HOLV_ACTIVE, 2, L"Entering HOLV Active State", false,
     S::EnterNeverSleepActiveState},
    // EVENT_ENTER_IDLE
    {kStay, kStay, 2, L"Entering HOLV Idle State", false, S::EnterNeverSleepIdleState},
    // EVENT_ENTER_DND
    {HOLV_DND, HOLV_DND, 2, L"Entering HOLV DND State", false, S::EnterNeverSleepDoNotDisturbState},
    // EVENT_LEAVE_DND
    {kStay, kStay, 1, L"Leaving HOLV DND State -> HOLV_ACTIVE", false, LeaveDoNotDisturbForActive},
    // EVENT_SERVICE_STOP
    {kStay, kStay, 2, L"HOLV service is stopping", false, nullptr},
    // EVENT_REGISTRY_CHANGED
    {kStay, kStay, 2, L"HOLV Registry has been changed", false, nullptr},
    // TIMER_IDLE
    {kStay, kStay, 2, L"HOLV Idle timer expired", false, S::MonitorIdleTimer},
    // TIMER_DND_START
    {HOLV_DND, HOLV_DND, 2, L"Entering HOLV Registry Do Not Disturb time interval", false,
     S::OnEnterNeverSleepDoNotDisturbTime},
    // TIMER_DND_END
    {HOLV_ACTIVE, S0_NORMAL, 2, L"Leaving HOLV Registry Do Not Disturb time interval", false,
     S::OnLeaveNeverSleepDoNotDisturbTime},
    // TIMER_CPU_USAGE
    {kStay, kStay, 0, nullptr, false, S::MonitorCpuUsage},
    // TIMER_BATTERY_USAGE
    {kStay, kStay, 0, nullptr, false, S::MonitorBatteryUsage},
    // TIMER_SLEEP
    {kStay, kStay, 0, nullptr, false, S::GotToSleepNow},
}};

void StartUp()
{
    const Activity start(Activity::Kind::fact);
    S::InitializeState();
    if (!g_bDebugEnabled && !S::m_pDriverApi.Get()) {
        Log(1, kRun, L"ACPI device is mssing. No hardware notification will be supported ....\n");
    }
    ReportServiceState(SERVICE_RUNNING);
    if (S::CheckIfDoNotDisturbTime()) S::m_bSeenDndStart = TRUE;
    if (g_bEnableNeverSleep) {
        Log(1, kRun, L"HOLV Feature is enabled on service start\n");
        S::StartNeverSleep();
        S::EnterNormalS0State();
    } else {
        Log(1, kRun, L"HOLV Feature is not enabled on service start\n");
    }
    Log(6, kRun, L"HOLV State Machine initialized");
}

// Leaves the current state where the slot says so, and returns whether it has. The change of state
// that begins with that is kept in `change`.
bool LeaveCurrentState(const Slot& slot, std::optional<StateChange>& change)
{
    if (!slot.leave_dnd_for && !slot.leave_other_for) return false;
    change.emplace();
    const ESystemState state = S::m_eSystemState;
    const Target target = state == HOLV_DND ? slot.leave_dnd_for : slot.leave_other_for;
    const bool leaves = state != S0_NORMAL && target && state != *target;
    if (leaves) {
        S::LeaveNeverSleepState(*target);
        RestoreValuesAfterLeave();
    } else {
        change.reset();
    }
    return leaves;
}

// While the manager's lock is held: another thread may just be taking over the plan that the leave
// has activated, and its last step would activate that plan again, over the restored one.
void RestorePlan()
{
    if (const auto manager = S::m_pPowerPolicyManager.Get()) {
        manager->CallAlone(RestorePlanAfterReturn);
    }
}

void Act(GlobalEvent signalled)
{
    const Activity pass(Activity::Kind::pass);
    const Slot& slot = kSlots[signalled];
    std::optional<StateChange> change;
    const bool left = LeaveCurrentState(slot, change);
    if (slot.line) {
        const ESystemState state = S::m_eSystemState;
        Log(slot.level, kRun, L"%s%s", slot.line, slot.names_state ? StateName(state) : L"");
    }
    if (slot.action) slot.action();
    if (left && S::m_eSystemState == S0_NORMAL) RestorePlan();
    // Reset after the action, so that the same event signalled while the action runs counts as
    // handled by it.
    if (signalled < kFirstTimer) ResetGlobalEvent(signalled);
}

}  // namespace

void CNeverSleepState::Run()
{
    StartUp();
    for (bool stop_requested = false; !stop_requested;) {
        const DWORD signalled =
            WaitForMultipleObjects(kGlobalEventCount, g_hGlobalEvents, FALSE, INFINITE);
        if (signalled >= kGlobalEventCount) {
            Log(2, kRun, L"Unknown event, WaitForMultipleObjects Return Code=%d, GLE=%d", signalled,
                GetLastError());
            break;
        }
        Act(static_cast<GlobalEvent>(signalled));
        stop_requested = signalled == EVENT_SERVICE_STOP;
    }
    const Activity end(Activity::Kind::pass);
    StopNeverSleep();
    UninitializeState();
    Log(6, kRun, L"HOLV State Machine Exited");
}
