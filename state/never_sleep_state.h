// The never-sleep state machine: the service's current state, the data that its decisions use, and
// the objects that carry them out.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/base.h"
#include "state/owned_object.h"

class CAudioManager;
class CDriverApi;
class CPowerPolicyManager;
class CUserProcess;
struct tagWTSSESSION_NOTIFICATION;

// The first four are also the mode numbers that are sent to the platform device.
enum ESystemState : std::int32_t
{
    S0_NORMAL = 0,    // in normal use
    HOLV_ACTIVE = 1,  // never-sleep mode, with the processor usage watched
    HOLV_IDLE = 2,    // never-sleep mode, with the processor mostly idle
    HOLV_DND = 3,     // never-sleep mode within the do-not-disturb hours
    HOLV_S3 = 4,      // suspending or suspended
    HOLV_INIT = 5,    // not started, or the feature is off
};

// A state's name as log lines show it; "" for a value that is no state.
const wchar_t* StateName(ESystemState state);

// One per process: all data and operations are static.
//
// The event loop's thread runs most operations, but the control handler's thread, the control
// interface's thread and short-lived threads call EnterNeverSleepState, EnterS3State,
// StopNeverSleep and others while the loop is inside an operation. Therefore no operation holds a
// lock throughout. Every member is atomic, and a thread that uses an owned object holds a reference
// to it (OwnedObject). Only a change of state takes a lock (state_change.h): it covers the leave of
// the old state, m_eSystemState, m_ePreviousState and their log line, so that in the log each
// change starts from the state where the previous one ended. (The machine's start and end and
// switching the feature off change the state without a log line.)
class CNeverSleepState
{
public:
    // --- The event loop (event_loop.cpp) ---

    // Initialises the state machine, handles g_hGlobalEvents until EVENT_SERVICE_STOP is signalled
    // or a wait fails, and uninitialises it. The service runs it on a thread of its own.
    static void Run();

    // --- Entries and leaves (transitions.cpp) ---

    static void EnterNormalS0State();
    static void EnterNeverSleepActiveState();
    static void EnterNeverSleepIdleState();
    static void EnterNeverSleepDoNotDisturbState();
    static void EnterS3State();

    // Chooses the never-sleep state for the time of day and signals its event.
    static void EnterNeverSleepState();

    // Undoes what the current never-sleep state set up, before `target` is entered. Does not change
    // the state; the entry that follows does.
    static void LeaveNeverSleepState(ESystemState target);
    static void LeaveNeverSleepActiveState();
    static void LeaveNeverSleepDoNotDisturbState();

    // Makes `state` the current state, and logs the change.
    static void UpdateState(ESystemState state);

    // --- The power requests (transitions.cpp) ---

    // Holds the away-mode request if never-sleep mode is allowed now, otherwise releases it.
    static void ConfigureAwayMode(BOOL bAc);
    // The same for the system-required request. While it is held, the service and not the system
    // decides when an idle PC sleeps.
    static void ConfigureSystemRequired(BOOL bAc);
    static void ConfigurePowerRequests();

    // Whether never-sleep mode is allowed now.
    static BOOL IsNeverSleepAllowed(BOOL bAc);

    // Whether the PC is on AC power; TRUE when there is no power policy manager to ask.
    static BOOL OnAc();

    // --- Start and end (transitions.cpp) ---

    static void InitializeState();
    static void UninitializeState();

    // Switch the feature on and off. StartNeverSleep always returns TRUE.
    static BOOL StartNeverSleep();
    static void StopNeverSleep();

    // --- Idle, do-not-disturb and delayed-entry timers (timers.cpp) ---

    static BOOL CheckIfDoNotDisturbTime();
    static void CreateDoNotDisturbTimer();
    static void OnEnterNeverSleepDoNotDisturbTime();
    static void OnLeaveNeverSleepDoNotDisturbTime();
    static void RefreshDoNotDisturbState();
    static void MonitorIdleTimer();
    static void EnterNeverSleepStateWithDelay();
    static void OnDelayedNeverSleepStateEntry();

    // --- Processor and battery monitors (monitors.cpp) ---

    static void StartCpuUsageMonitor();
    static void MonitorCpuUsage();
    static void StopCpuUsageMonitor();
    static void MonitorBatteryUsage();

    // --- Suspend, resume and sleep (sleep.cpp) ---

    // Requests sleep on a new thread and returns at once.
    static void GotToSleepNow();
    static void OnSuspend();
    static void OnResume(BOOL attended);
    static BOOL IsDisplayRequiredSet();

    // --- Notifications from the system (platform_events.cpp) ---

    static void OnAwayModeEvent(DWORD state);
    static void OnDisplayStateChange(DWORD state);
    static void OnUserPresenceEvent(DWORD presence);
    static void OnPowerSourceChange(DWORD source);
    static void OnSleepTimeoutChange(DWORD seconds);
    static void OnPowerOptionChanged(const GUID& personality);
    static void OnSessionChange(DWORD eventType, const tagWTSSESSION_NOTIFICATION* notification);
    static void OnSystemTimeChange();

    // --- Audio mute policy (audio_policy.cpp) ---

    static BOOL GetDesiredMuteState(BOOL cached);
    static BOOL RecordAudioDeviceMuteState();
    static BOOL EnforceHolvMuteState();
    static BOOL AudioAndSusResEventsAreInWindow();
    static void OnDefaultAudioDeviceCallbackReceived();

    // --- Helper programs in the user's session (helpers.cpp) ---

    static BOOL IsLyncInstalled();
    static void StartMonitorMicrosoftLyncActivity();
    static void StopMonitorMicrosoftLyncActivity();
    static void LockUserAccount();
    static BOOL ShowLyncControls();

    // --- The state record ---

    static std::atomic<ESystemState> m_eSystemState;
    static std::atomic<ESystemState> m_ePreviousState;  // before the last change

    static std::atomic<BOOL> m_bSeenDndStart;             // the do-not-disturb hours have begun
    static std::atomic<BOOL> m_bBatteryThresholdCrossed;  // on battery, with too low a charge
    static std::atomic<BOOL> m_bOverride;      // the user woke the machine: no never-sleep entry
    static std::atomic<BOOL> m_bAttendedWake;  // the user woke it since the last suspend
    static std::atomic<BOOL> m_bInAwayMode;
    static std::atomic<BOOL> m_bIsWindows7;
    static std::atomic<BOOL> m_bDisplayRequired;    // a process requires the display
    static std::atomic<BOOL> m_bIdleExpiryPending;  // the idle time-out was seen expired once

    // Tick counts in milliseconds.
    static std::atomic<std::uint64_t> m_ullLastSusResEventTime;  // suspend, resume, away mode
    static std::atomic<std::uint64_t> m_ullLastAudioEventTime;

    static OwnedObject<CAudioManager> m_pAudioManager;
    static OwnedObject<CPowerPolicyManager> m_pPowerPolicyManager;
    static OwnedObject<CDriverApi> m_pDriverApi;  // empty without the platform device
    static OwnedObject<CUserProcess> m_pLyncMonitor;

private:
    // Sets both states without logging, and notes it (state_trail.h); the caller holds the lock.
    static void SetStates(ESystemState previous, ESystemState state);
};

// Writes the system's list of outstanding power requests to the log. With a limit, what has not
// been printed after that many milliseconds is left out.
void LogOutstandingPowerRequests(DWORD patienceMs = INFINITE);
