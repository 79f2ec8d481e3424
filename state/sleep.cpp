// Requests sleep, and handles suspend and resume.

#include <algorithm>

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "power/machine_power.h"
#include "state/activity.h"
#include "state/delayed_entry.h"
#include "state/feature.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

// Runs until the PC has woken again, when SetSuspendState returns.
DWORD WINAPI SuspendThreadProc(LPVOID)
{
    constexpr const wchar_t* kFunction = L"SuspendThreadProc";
    Log(6, kFunction, L"In suspend thread requesting suspend");
    if (IsS3Available() && !SetSuspendState(FALSE, TRUE, FALSE)) {
        Log(6, kFunction, L"SetSuspendState failed gle:%d", GetLastError());
    }
    Log(6, kFunction, L"In suspend thread, resumed from suspend");
    const Activity refresh(Activity::Kind::notice);
    // The do-not-disturb hours may have begun or ended during the sleep.
    CNeverSleepState::RefreshDoNotDisturbState();
    return 0;
}

}  // namespace

// The number of threads needs no limit: each ends when its request for sleep returns, and when the
// PC wakes all of them return.
void CNeverSleepState::GotToSleepNow()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::GotToSleepNow";
    if (m_bOverride) {
        Log(1, kFunction, L"Override detected will not initiate suspend");
        return;
    }
    Log(6, kFunction, L"Creating suspend thread");
    const OwnedHandle thread(CreateThread(nullptr, 0, SuspendThreadProc, nullptr, 0, nullptr));
}

void CNeverSleepState::OnSuspend()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnSuspend";
    Log(1, kFunction, L"*****System is Suspending*****");
    if (IsFeatureOff(kFunction)) return;
    OvertakeDelayedEntries();
    m_bAttendedWake = FALSE;
    const ULONGLONG arrived = GetTickCount64();
    m_ullLastSusResEventTime = arrived;
    EnterS3State();
    // The system suspends the PC two seconds after the notice, whether it is answered or not.
    constexpr ULONGLONG kToAnswerMs = 1500;
    const ULONGLONG spent = std::min(GetTickCount64() - arrived, kToAnswerMs);
    LogOutstandingPowerRequests(static_cast<DWORD>(kToAnswerMs - spent));
}

void CNeverSleepState::OnResume(BOOL attended)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnResume";
    Log(1, kFunction, L"*****System is Resuming [%s]*****", attended ? L"attended" : L"unattended");
    if (IsFeatureOff(kFunction)) return;
    m_ullLastSusResEventTime = GetTickCount64();
    if (!attended) return EnterNeverSleepStateWithDelay();
    m_bOverride = TRUE;
    m_bAttendedWake = TRUE;
    SignalGlobalEvent(EVENT_ENTER_S0);
}
