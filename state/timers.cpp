// The idle monitor, the do-not-disturb hours, and the never-sleep entry a second after a resume.

#include <algorithm>
#include <utility>

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "power/power_policy_manager.h"
#include "settings/settings.h"
#include "state/delayed_entry.h"
#include "state/do_not_disturb.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/state_change.h"

namespace {

constexpr DWORD kSecondsPerMinute = 60;
constexpr DWORD kIdleRecheckSeconds = 30;
constexpr DWORD kEntryDelaySeconds = 1;

DoNotDisturbHours Hours() { return {g_dwDoNotDisturbStart, g_dwDoNotDisturbEnd}; }

// Takes time and hours as arguments, so that the caller continues with the same snapshot.
bool IsDoNotDisturbTime(DWORD now, const DoNotDisturbHours& hours)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::CheckIfDoNotDisturbTime";
    if (!g_bEnableDoNotDisturb) {
        Log(6, kFunction,
            L"g_bEnableDoNotDisturb == FALSE, CheckIfDoNotDisturbTime returning FALSE");
        return false;
    }
    const bool inside = hours.Contain(now);
    Log(6, kFunction,
        L"CheckIfDoNotDisturbTime with g_dwDoNotDisturbStart=%d and g_dwDoNotDisturbEnd=%d "
        L"returned %s",
        hours.start, hours.end, BoolText(inside));
    return inside;
}

void CancelDoNotDisturbTimers()
{
    CancelGlobalTimer(TIMER_DND_START);
    CancelGlobalTimer(TIMER_DND_END);
}

// The remaining seconds of the system's idle time-out. It has expired when none remain; the count
// goes below zero while something keeps the PC awake.
struct IdleTime
{
    DWORD seconds;
    bool expired;
};

// A failed query counts as not expired, with the next query in kIdleRecheckSeconds: a failed call
// must not send the PC to sleep.
IdleTime ReadIdleTime()
{
    SYSTEM_POWER_INFORMATION information{};
    if (CallNtPowerInformation(SystemPowerInformation, nullptr, 0, &information,
                               sizeof(information)) != 0) {
        return {kIdleRecheckSeconds, false};
    }
    const DWORD seconds = information.TimeRemaining;
    return {seconds, seconds == 0 || seconds >= 0x80000000u};
}

void ArmIdleTimer(DWORD seconds)
{
    ArmGlobalTimer(TIMER_IDLE, -(seconds * kUnitsPerSecond), 0, FALSE);
}

// The delayed entries under way. They are alike, so that it does not matter which of them finds
// that it has been overtaken.
class DelayedEntries
{
public:
    void Begin()
    {
        const ScopedLock lock(m_lock);
        ++m_due;
    }
    void Overtake()
    {
        const ScopedLock lock(m_lock);
        m_overtaken += std::exchange(m_due, 0);
    }
    // Whether one that has fallen due still counts.
    bool End()
    {
        const ScopedLock lock(m_lock);
        if (m_overtaken > 0) {
            --m_overtaken;
            return false;
        }
        --m_due;
        return true;
    }

private:
    CriticalSection m_lock;
    int m_due = 0;
    int m_overtaken = 0;
};

DelayedEntries g_delayed_entries;

DWORD WINAPI EnterNeverSleepStateWithDelayProc(LPVOID)
{
    constexpr const wchar_t* kFunction = L"EnterNeverSleepStateWithDelayProc";
    Log(6, kFunction, L"Delaying HOLV state entry for %d seconds", kEntryDelaySeconds);
    Sleep(kEntryDelaySeconds * 1000);
    Log(1, kFunction, L"Delayed state entry time elapsed");
    CNeverSleepState::OnDelayedNeverSleepStateEntry();
    return 0;
}

}  // namespace

// --- Do-not-disturb hours ---

DWORD MinutesSinceMidnight()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    return now.wHour * 60u + now.wMinute;
}

BOOL CNeverSleepState::CheckIfDoNotDisturbTime()
{
    return IsDoNotDisturbTime(MinutesSinceMidnight(), Hours());
}

// The due time is relative, so the timer fires an hour early or late by the clock when daylight
// saving begins or ends before it. The next state entry arms the timer anew from the clock.
void CNeverSleepState::CreateDoNotDisturbTimer()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::CreateDoNotDisturbTimer";
    const DWORD now = MinutesSinceMidnight();
    Log(6, kFunction, L"currTime is %d minutes since midnight\n", now);
    const DoNotDisturbHours hours = Hours();
    if (hours.Empty()) return CancelDoNotDisturbTimers();
    Log(6, kFunction, L"startDNDTime is %d minutes since midnight\n", hours.start);
    Log(6, kFunction, L"endDNDTime is %d minutes since midnight\n", hours.end);

    const bool inside = IsDoNotDisturbTime(now, hours);
    const DWORD minutes = hours.MinutesToBoundary(now, inside);
    const DWORD seconds = minutes * kSecondsPerMinute;
    const LONGLONG due = seconds * -kUnitsPerSecond;
    const BOOL wakes = inside && g_bDndToS3;
    Log(6, kFunction,
        L"Configuring DND timer to fire in %d minutes\t[timerDue: %I64d], this timer %s wake the "
        L"system.\n",
        minutes, due, wakes ? L"will" : L"will not");
    if (inside) {
        if (!ArmGlobalTimer(TIMER_DND_END, due, 0, wakes)) {
            Log(3, kFunction, L"Can't set timer for DoNotDisturb end.");
        }
    } else if (!ArmGlobalTimer(TIMER_DND_START, due, 0, FALSE)) {
        Log(3, kFunction, L"Can't set timer for DoNotDisturb start.");
    }
}

void CNeverSleepState::OnEnterNeverSleepDoNotDisturbTime()
{
    m_bSeenDndStart = TRUE;
    ConfigureAwayMode(OnAc());
    if (m_eSystemState != S0_NORMAL) {
        EnterNeverSleepDoNotDisturbState();
    } else {
        ConfigureSystemRequired(OnAc());
    }
    StateChange::End();  // an entry that was refused has not done it; the listing is waited for
    LogOutstandingPowerRequests();
}

void CNeverSleepState::OnLeaveNeverSleepDoNotDisturbTime()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnLeaveNeverSleepDoNotDisturbTime";
    m_bSeenDndStart = FALSE;
    ConfigureAwayMode(OnAc());
    const ESystemState state = m_eSystemState;
    Log(1, kFunction, L"OnLeaveNeverSleepDoNotDisturbTime, current state %s", StateName(state));
    if (state == HOLV_S3) {
        Log(1, kFunction, L"Will let OnResume handle state transition");
    } else if (state != S0_NORMAL) {
        EnterNeverSleepState();
    }
}

void CNeverSleepState::RefreshDoNotDisturbState()
{
    const BOOL inside = CheckIfDoNotDisturbTime();
    if (g_bEnableDoNotDisturb) {
        CreateDoNotDisturbTimer();
        m_bSeenDndStart = inside;
    } else {
        m_bSeenDndStart = FALSE;
        CancelDoNotDisturbTimers();
    }
    ConfigurePowerRequests();
}

// --- Idleness ---

void CNeverSleepState::MonitorIdleTimer()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::MonitorIdleTimer";
    const ESystemState state = m_eSystemState;
    if (!g_bEnableNeverSleep || (g_bDndToS3 && state == HOLV_DND)) {
        Log(6, kFunction, L"Did not start to monitor idle timer, m_eSystemState == %s\n",
            StateName(state));
        return;
    }
    if (CPowerPolicyManager::GetActiveSleepIdleTimeoutValue() == 0) {
        Log(6, kFunction, L"Idle timeout value is set to Never (0), not setting idle timer");
        return;
    }
    Log(6, kFunction, L"Start to monitor idle timer\n");
    m_bDisplayRequired = IsDisplayRequiredSet();
    const bool display_required = m_bDisplayRequired;
    const IdleTime idle = ReadIdleTime();
    if (!idle.expired) {
        m_bIdleExpiryPending = FALSE;
        Log(6, kFunction, L"%ds remaining, setting waitable timer", idle.seconds);
        ArmIdleTimer(idle.seconds);
    } else if (!display_required && m_bIdleExpiryPending) {
        m_bIdleExpiryPending = FALSE;
        Log(6, kFunction, L"Power requests at the time of idle timer expiration:");
        LogOutstandingPowerRequests();
        GotToSleepNow();
    } else {
        Log(6, kFunction, L"%ds, setting 30 second timer to Determine if idle out is needed",
            static_cast<LONG>(idle.seconds));
        ArmIdleTimer(kIdleRecheckSeconds);
        if (!display_required) m_bIdleExpiryPending = TRUE;
    }
}

// --- The delayed entry ---

void CNeverSleepState::EnterNeverSleepStateWithDelay()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNeverSleepStateWithDelay";
    Log(1, kFunction, L"EnterNeverSleepStateWithDelay entry");
    g_delayed_entries.Begin();
    const OwnedHandle thread(
        CreateThread(nullptr, 0, EnterNeverSleepStateWithDelayProc, nullptr, 0, nullptr));
    if (!thread) g_delayed_entries.End();
    Log(1, kFunction, L"EnterNeverSleepStateWithDelay exit");
}

void OvertakeDelayedEntries() { g_delayed_entries.Overtake(); }

void CNeverSleepState::OnDelayedNeverSleepStateEntry()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnDelayedNeverSleepStateEntry";
    Log(1, kFunction, L"OnDelayedNeverSleepStateEntry entry");
    const bool counts = g_delayed_entries.End();
    if (m_bAttendedWake) {
        Log(1, kFunction, L"Attended wake observed, OnDelayedNeverSleepStateEntry exit");
        return;
    }
    if (!counts) {
        Log(1, kFunction, L"Suspended in between, OnDelayedNeverSleepStateEntry exit");
        return;
    }
    EnterNeverSleepState();
    Log(1, kFunction, L"OnDelayedNeverSleepStateEntry exit");
}
