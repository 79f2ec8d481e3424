// Handles the system's notifications of away mode, display, user presence, power source, sleep
// time-out, power plan, session and clock changes.
//
// The handlers run on the control handler's thread at any time: while the event loop is inside an
// operation, before the state machine starts, and after it has ended. Therefore they take a
// reference to each object they use (Get), ignore missing handles and objects, and read the state
// once for each decision. They do not enter S0_NORMAL themselves but signal EVENT_ENTER_S0 to the
// loop.

#include <algorithm>
#include <iterator>

#include "log/log.h"
#include "platform/com.h"
#include "platform/kernel.h"
#include "platform/session.h"
#include "power/power_policy_manager.h"
#include "settings/settings.h"
#include "state/feature.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/on_ac_power.h"
#include "state/state_change.h"

// AC power is assumed until the source is known, as elsewhere in the service.
std::atomic<BOOL> g_bOnAcPower = TRUE;

namespace {

using S = CNeverSleepState;

// The notifications' values.
constexpr DWORD kAwayModeEntered = 1;
constexpr DWORD kDisplayOn = 1;
constexpr DWORD kUserPresent = 0;
constexpr DWORD kSourceAc = 0;
constexpr DWORD kSourceBattery = 1;
constexpr DWORD kSourceShortTerm = 2;

const struct Personality
{
    const GUID& guid;
    const wchar_t* name;
} kPersonalities[] = {
    {GUID_MAX_POWER_SAVINGS, L"Power Saver"},
    {GUID_MIN_POWER_SAVINGS, L"Max Performance"},
    {GUID_TYPICAL_POWER_SAVINGS, L"Balanced"},
};

const wchar_t* PersonalityName(const GUID& guid)
{
    for (const Personality& personality : kPersonalities) {
        if (IsEqualGUID(personality.guid, guid)) return personality.name;
    }
    return L"unknown";
}

// Indexed by the presence notification's value.
constexpr const wchar_t* kPresences[] = {L"Present", L"Not Present", L"Inactive"};

const struct SessionLine
{
    DWORD type;
    const wchar_t* before;  // text before the session's number
    const wchar_t* after;   // and after it
} kSessionLines[] = {
    {WTS_SESSION_LOGON, L"User has logged on session ", L""},
    {WTS_SESSION_LOGOFF, L"User has logged off session ", L""},
    {WTS_SESSION_LOCK, L"User session ", L" has locked"},
    {WTS_SESSION_UNLOCK, L"User session ", L" has unlocked"},
};

void ConfigureRequests(BOOL onAc)
{
    CNeverSleepState::ConfigureAwayMode(onAc);
    CNeverSleepState::ConfigureSystemRequired(onAc);
}

void OnMains()
{
    if (S::m_eSystemState != S0_NORMAL) CancelGlobalTimer(TIMER_BATTERY_USAGE);
    S::m_bBatteryThresholdCrossed = FALSE;
    ConfigureRequests(TRUE);
}

void OnBattery()
{
    S::MonitorBatteryUsage();
    if (!S::m_bBatteryThresholdCrossed) ConfigureRequests(FALSE);
    {
        const ScopedLock lock(g_state_change);
        if (g_bEnableHolvOnDC || S::m_eSystemState == S0_NORMAL) return;
        const auto manager = S::m_pPowerPolicyManager.Get();
        if (!manager) return;
        manager->TransitionFromHolvToS3();
    }
    LogOutstandingPowerRequests();
}

}  // namespace

void CNeverSleepState::OnAwayModeEvent(DWORD state)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnAwayModeEvent";
    const bool entered = state == kAwayModeEntered;
    const ULONGLONG now = GetTickCount64();
    Log(2, kFunction, L"**** Awaymode %s, Timestamp = %I64u ms\n", entered ? L"ON" : L"OFF", now);
    if (IsFeatureOff(kFunction)) return;
    m_ullLastSusResEventTime = now;
    if (entered) {
        m_bInAwayMode = TRUE;
        m_bOverride = FALSE;
        if (m_ullLastAudioEventTime <= now) AudioAndSusResEventsAreInWindow();
        EnterNeverSleepState();
    } else if (m_bInAwayMode) {
        // Lock before the event below leads to S0_NORMAL: in that state LockUserAccount does
        // nothing.
        LockUserAccount();
        m_bInAwayMode = FALSE;
        SignalGlobalEvent(EVENT_ENTER_S0);
    }
}

void CNeverSleepState::OnDisplayStateChange(DWORD state)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnDisplayStateChange";
    const bool on = state == kDisplayOn;
    Log(2, kFunction, L"**** Display is %s, Timestamp = %I64u ms\n", on ? L"ON" : L"OFF",
        GetTickCount64());
    if (IsFeatureOff(kFunction)) return;
    if (on && m_bIsWindows7) SignalGlobalEvent(EVENT_ENTER_S0);
}

void CNeverSleepState::OnUserPresenceEvent(DWORD presence)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnUserPresenceEvent";
    if (presence < std::size(kPresences)) {
        Log(2, kFunction, L"**** User %s, Timestamp = %I64u ms\n", kPresences[presence],
            GetTickCount64());
    }
    if (IsFeatureOff(kFunction)) return;
    if (presence == kUserPresent && m_eSystemState != HOLV_S3 && !m_bInAwayMode) {
        SignalGlobalEvent(EVENT_ENTER_S0);
    }
    CancelGlobalTimer(TIMER_SLEEP);
}

void CNeverSleepState::OnPowerSourceChange(DWORD source)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnPowerSourceChange";
    if (m_eSystemState == HOLV_INIT) {
        Log(6, kFunction,
            L"Received power source change event before state initialized, "
            L"current power source=%d, returning",
            source);
        return;
    }
    const bool ac = source == kSourceAc;
    Log(2, kFunction, L"**** System is on %s power, Timestamp = %I64u ms\n", ac ? L"AC" : L"DC",
        GetTickCount64());
    if (ac) {
        if (g_bEnableNeverSleep && !g_bOnAcPower) OnMains();
        g_bOnAcPower = TRUE;
    } else if (source == kSourceBattery || source == kSourceShortTerm) {
        if (g_bEnableNeverSleep) OnBattery();
        g_bOnAcPower = FALSE;
    }
}

void CNeverSleepState::OnSleepTimeoutChange(DWORD seconds)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnSleepTimeoutChange";
    if (!g_bEnableNeverSleep || m_eSystemState != S0_NORMAL) return;
    Log(2, kFunction, L"OnSleepTimeoutChange() is called");
    Log(6, kFunction, L"Standby timeout value changed to %d seconds\n", seconds);
    MonitorIdleTimer();
}

void CNeverSleepState::OnPowerOptionChanged(const GUID& personality)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnPowerOptionChanged";
    Log(6, kFunction, L"User has changed the active power scheme");
    if (IsFeatureOff(kFunction)) return;
    if (m_eSystemState != S0_NORMAL) return;
    Log(1, kFunction, L"Power Scheme is %s", PersonalityName(personality));
    if (const auto manager = m_pPowerPolicyManager.Get()) {
        manager->OnPowerOptionChanged(&personality);
    }
}

void CNeverSleepState::OnSessionChange(DWORD eventType,
                                       const tagWTSSESSION_NOTIFICATION* notification)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::OnSessionChange";
    Log(6, kFunction, L"User session change event type: %d", eventType);
    if (IsFeatureOff(kFunction)) return;
    if (!notification) {
        Log(6, kFunction, L"No event data");
        return;
    }
    const DWORD session = notification->dwSessionId;
    const auto* line = std::ranges::find(kSessionLines, eventType, &SessionLine::type);
    if (line != std::end(kSessionLines)) {
        Log(6, kFunction, L"%s%d%s", line->before, session, line->after);
    } else {
        Log(6, kFunction, L"Session change event: %d on session %d\n", eventType, session);
    }
}

void CNeverSleepState::OnSystemTimeChange()
{
    if (!g_bEnableNeverSleep) {
        Log(6, L"CNeverSleepState::OnSystemTimeChange",
            L"Doing nothing for SERVICE_CONTROL_TIMECHANGE event as HOLV is disabled..");
        return;
    }
    const BOOL in_dnd = CheckIfDoNotDisturbTime() ? TRUE : FALSE;
    if (in_dnd == (m_bSeenDndStart ? TRUE : FALSE)) return;
    if (g_bEnableDoNotDisturb) {
        CreateDoNotDisturbTimer();
        m_bSeenDndStart = in_dnd;
    } else {
        m_bSeenDndStart = FALSE;
        CancelGlobalTimer(TIMER_DND_START);
        CancelGlobalTimer(TIMER_DND_END);
    }
    ConfigurePowerRequests();
}
