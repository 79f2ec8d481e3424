// Enters and leaves the states, holds the power requests of never-sleep mode, and starts and ends
// the state machine.

#include "audio/audio_manager.h"
#include "log/log.h"
#include "platform/com.h"
#include "power/driver_api.h"
#include "power/never_sleep_away_mode.h"
#include "power/power_policy_manager.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/state_change.h"
#include "state/state_trail.h"

std::atomic<ESystemState> CNeverSleepState::m_eSystemState = HOLV_INIT;
std::atomic<ESystemState> CNeverSleepState::m_ePreviousState = HOLV_INIT;
std::atomic<BOOL> CNeverSleepState::m_bSeenDndStart = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bBatteryThresholdCrossed = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bOverride = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bAttendedWake = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bInAwayMode = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bIsWindows7 = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bDisplayRequired = FALSE;
std::atomic<BOOL> CNeverSleepState::m_bIdleExpiryPending = FALSE;
std::atomic<std::uint64_t> CNeverSleepState::m_ullLastSusResEventTime = 0;
std::atomic<std::uint64_t> CNeverSleepState::m_ullLastAudioEventTime = 0;
OwnedObject<CAudioManager> CNeverSleepState::m_pAudioManager;
OwnedObject<CPowerPolicyManager> CNeverSleepState::m_pPowerPolicyManager;
OwnedObject<CDriverApi> CNeverSleepState::m_pDriverApi;
OwnedObject<CUserProcess> CNeverSleepState::m_pLyncMonitor;

namespace {

// Whether the state machine's thread has entered a COM apartment that it has to leave.
bool g_in_apartment = false;

void TellDevice(DWORD mode)
{
    if (const auto driver = CNeverSleepState::m_pDriverApi.Get()) driver->SetNeverSleepMode(mode);
}

bool IsActiveOrIdle(ESystemState state) { return state == HOLV_ACTIVE || state == HOLV_IDLE; }

// The inputs of the never-sleep decision, read once, so that the decision and its log line agree
// although other threads may change them meanwhile.
struct DecisionInputs
{
    explicit DecisionInputs(BOOL onAc) : ac(onAc != FALSE) {}

    bool Ready() const
    {
        const bool powered = ac || (allowed_on_dc && !battery_low);
        const bool sleeps_in_dnd = seen_dnd_start && dnd_enabled && dnd_to_s3;
        return feature_on && powered && !sleeps_in_dnd;
    }

    void LogEntry(const wchar_t* function, const wchar_t* name) const
    {
        Log(1, function,
            L"%s entry: g_bEnableNeverSleep{%s}, bAc{%s}, g_bEnableHolvOnDC{%s}, "
            L"m_bBatteryThresholdCrossed{%s}, g_bEnableDoNotDisturb{%s}, m_bSeenDndStart{%s}, "
            L"g_bDndToS3{%s}",
            name, BoolText(feature_on), BoolText(ac), BoolText(allowed_on_dc),
            BoolText(battery_low), BoolText(dnd_enabled), BoolText(seen_dnd_start),
            BoolText(dnd_to_s3));
    }

    const bool feature_on = g_bEnableNeverSleep != 0;
    const bool ac;
    const bool allowed_on_dc = g_bEnableHolvOnDC != 0;
    const bool battery_low = CNeverSleepState::m_bBatteryThresholdCrossed != FALSE;
    const bool dnd_enabled = g_bEnableDoNotDisturb != 0;
    const bool seen_dnd_start = CNeverSleepState::m_bSeenDndStart != FALSE;
    const bool dnd_to_s3 = g_bDndToS3 != 0;
};

// Holds a power request if never-sleep mode is allowed now, otherwise releases it.
void ConfigureRequest(const wchar_t* function, const wchar_t* name, BOOL onAc, BOOL (*hold)(),
                      BOOL (*release)())
{
    const DecisionInputs inputs(onAc);
    inputs.LogEntry(function, name);
    if (inputs.Ready()) {
        hold();
    } else {
        release();
    }
    Log(1, function, L"%s exit", name);
}

}  // namespace

const wchar_t* StateName(ESystemState state)
{
    constexpr const wchar_t* kNames[] = {L"S0_NORMAL", L"HOLV_ACTIVE", L"HOLV_IDLE",
                                         L"HOLV_DND",  L"HOLV_S3",     L"HOLV_INIT"};
    return state >= S0_NORMAL && state <= HOLV_INIT ? kNames[state] : L"";
}

// --- Changes of state ---

void CNeverSleepState::SetStates(ESystemState previous, ESystemState state)
{
    m_ePreviousState = previous;
    m_eSystemState = state;
    NoteState(state);
}

void CNeverSleepState::UpdateState(ESystemState state)
{
    const ScopedLock lock(g_state_change);
    const ESystemState old = m_eSystemState;
    SetStates(old, state);
    Log(1, L"CNeverSleepState::UpdateState", L"State update %s >>----->> %s happened here",
        StateName(old), StateName(state));
    StateChange::End();
}

// --- The power requests ---

BOOL CNeverSleepState::OnAc()
{
    const auto manager = m_pPowerPolicyManager.Get();
    return manager ? manager->IsOnAcNow() : TRUE;
}

void CNeverSleepState::ConfigureAwayMode(BOOL bAc)
{
    ConfigureRequest(L"CNeverSleepState::ConfigureAwayMode", L"ConfigureAwayMode", bAc,
                     CNeverSleepAwayMode::EnableAwayMode, CNeverSleepAwayMode::DisableAwayMode);
}

void CNeverSleepState::ConfigureSystemRequired(BOOL bAc)
{
    ConfigureRequest(L"CNeverSleepState::ConfigureSystemRequired", L"ConfigureSystemRequired", bAc,
                     CNeverSleepAwayMode::DisableIdleTimer, CNeverSleepAwayMode::EnableIdleTimer);
}

BOOL CNeverSleepState::IsNeverSleepAllowed(BOOL bAc) { return DecisionInputs(bAc).Ready(); }

void CNeverSleepState::ConfigurePowerRequests()
{
    ConfigureAwayMode(OnAc());
    ConfigureSystemRequired(OnAc());
}

// --- Entries ---

void CNeverSleepState::EnterNormalS0State()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNormalS0State";
    m_bOverride = FALSE;
    if (m_eSystemState == S0_NORMAL) {
        if (m_ePreviousState == HOLV_S3) ConfigureSystemRequired(OnAc());
        return;
    }
    Log(1, kFunction, L"EnterNormalS0State entry");
    UpdateState(S0_NORMAL);
    ConfigureSystemRequired(OnAc());
    CAudioManager::ConfigureAudioDeviceMuteStates();
    MonitorIdleTimer();
    if (g_bEnableDoNotDisturb) CreateDoNotDisturbTimer();
    m_bInAwayMode = FALSE;
    Log(1, kFunction, L"EnterNormalS0State exit");
    LogOutstandingPowerRequests();
}

void CNeverSleepState::EnterNeverSleepActiveState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNeverSleepActiveState";
    if (m_eSystemState == HOLV_ACTIVE) return;
    Log(1, kFunction, L"EnterNeverSleepActiveState entry");
    m_bIdleExpiryPending = FALSE;
    if (m_bOverride) {
        Log(1, kFunction, L"Override detected, EnterNeverSleepActiveState exit");
        SignalGlobalEvent(EVENT_ENTER_S0);
        return;
    }
    UpdateState(HOLV_ACTIVE);
    ConfigurePowerRequests();
    CAudioManager::ConfigureAudioDeviceMuteStates();
    if (const auto manager = m_pPowerPolicyManager.Get()) manager->EnterHolvState();
    TellDevice(HOLV_ACTIVE);
    StartCpuUsageMonitor();
    if (IsLyncInstalled()) StartMonitorMicrosoftLyncActivity();
    // The PC has resumed from sleep and is not in away mode: nothing needs it awake.
    if (!m_bInAwayMode && m_ePreviousState == HOLV_S3) GotToSleepNow();
    Log(1, kFunction, L"EnterNeverSleepActiveState exit");
    LogOutstandingPowerRequests();
}

void CNeverSleepState::EnterNeverSleepIdleState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNeverSleepIdleState";
    if (m_eSystemState == HOLV_IDLE) return;
    Log(1, kFunction, L"EnterNeverSleepIdleState entry");
    UpdateState(HOLV_IDLE);
    TellDevice(HOLV_IDLE);
    Log(1, kFunction, L"EnterNeverSleepIdleState exit");
}

void CNeverSleepState::EnterNeverSleepDoNotDisturbState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNeverSleepDoNotDisturbState";
    if (m_eSystemState == HOLV_DND) return;
    m_bIdleExpiryPending = FALSE;
    Log(1, kFunction, L"EnterNeverSleepDoNotDisturbState entry");
    if (m_bOverride) {
        Log(1, kFunction, L"Override detected, EnterNeverSleepDoNotDisturbState exit");
        SignalGlobalEvent(EVENT_ENTER_S0);
        return;
    }
    UpdateState(HOLV_DND);
    ConfigureSystemRequired(OnAc());
    StopMonitorMicrosoftLyncActivity();
    CAudioManager::ConfigureAudioDeviceMuteStates();
    CancelGlobalTimer(TIMER_CPU_USAGE);
    TellDevice(HOLV_DND);
    if (const auto manager = m_pPowerPolicyManager.Get()) manager->EnterDoNotDisturbState();
    CreateDoNotDisturbTimer();
    Log(1, kFunction, L"EnterNeverSleepDoNotDisturbState exit");
    LogOutstandingPowerRequests();
}

void CNeverSleepState::EnterS3State()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterS3State";
    if (m_eSystemState == HOLV_S3) return;
    Log(1, kFunction, L"EnterS3State entry");
    UpdateState(HOLV_S3);
    if (g_bEnableDoNotDisturb) CreateDoNotDisturbTimer();
    Log(1, kFunction, L"EnterS3State exit");
}

void CNeverSleepState::EnterNeverSleepState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::EnterNeverSleepState";
    const auto go_to = [](ESystemState state, GlobalEvent event) {
        if (!HasGlobalEvent(event)) return false;
        Log(1, kFunction, L"Going to %s", StateName(state));
        SignalGlobalEvent(event);
        return true;
    };
    Log(1, kFunction, L"EnterNeverSleepState entry");
    if (g_bEnableDoNotDisturb) CreateDoNotDisturbTimer();
    if (!CheckIfDoNotDisturbTime() || !go_to(HOLV_DND, EVENT_ENTER_DND)) {
        m_bSeenDndStart = FALSE;
        go_to(HOLV_ACTIVE, EVENT_ENTER_ACTIVE);
    }
    Log(1, kFunction, L"EnterNeverSleepState exit");
}

// --- Leaves ---

void CNeverSleepState::LeaveNeverSleepState(ESystemState target)
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::LeaveNeverSleepState";
    const ESystemState state = m_eSystemState;
    if (state == S0_NORMAL || state == target) return;
    Log(1, kFunction, L"LeaveNeverSleepState entry");
    if (IsActiveOrIdle(state)) LeaveNeverSleepActiveState();
    if (state == HOLV_DND) LeaveNeverSleepDoNotDisturbState();
    if (state == HOLV_DND || state == HOLV_S3) {
        const ESystemState previous = m_ePreviousState;
        Log(1, kFunction, L"Transitioned to %s from %s", StateName(state), StateName(previous));
        if (IsActiveOrIdle(previous)) LeaveNeverSleepActiveState();
        if (previous == HOLV_DND) LeaveNeverSleepDoNotDisturbState();
    }
    TellDevice(S0_NORMAL);
    Log(1, kFunction, L"LeaveNeverSleepState exit");
}

// The two leaves below also act in HOLV_S3 when the PC went to sleep from their state, because what
// that state set up is still in place.

void CNeverSleepState::LeaveNeverSleepActiveState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::LeaveNeverSleepActiveState";
    const ESystemState state = m_eSystemState;
    if (state == HOLV_S3 && IsActiveOrIdle(m_ePreviousState)) {
        Log(1, kFunction, L"Transition caught");
    } else if (!IsActiveOrIdle(state)) {
        Log(1, kFunction, L"Current state not %s or %s", StateName(HOLV_ACTIVE),
            StateName(HOLV_IDLE));
        return;
    }
    Log(1, kFunction, L"LeaveNeverSleepActiveState entry");
    StopCpuUsageMonitor();
    if (const auto manager = m_pPowerPolicyManager.Get()) manager->ExitHolvState();
    Log(1, kFunction, L"LeaveNeverSleepActiveState exit");
}

void CNeverSleepState::LeaveNeverSleepDoNotDisturbState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::LeaveNeverSleepDoNotDisturbState";
    const ESystemState state = m_eSystemState;
    if (state == HOLV_S3 && m_ePreviousState == HOLV_DND) {
        Log(1, kFunction, L"Transition caught");
    } else if (state != HOLV_DND) {
        Log(1, kFunction, L"Current state not %s", StateName(HOLV_DND));
        return;
    }
    Log(1, kFunction, L"LeaveNeverSleepDoNotDisturbState entry");
    if (const auto manager = m_pPowerPolicyManager.Get()) manager->ExitDoNotDisturbState();
    Log(1, kFunction, L"LeaveNeverSleepDoNotDisturbState exit");
}

// --- Start and end ---

void CNeverSleepState::InitializeState()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::InitializeState";
    // If this fails, only the audio part does nothing; no other part needs COM.
    g_in_apartment = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    m_pAudioManager.Set(std::make_shared<CAudioManager>());
    CAudioManager::Initialize();
    m_pPowerPolicyManager.Set(std::make_shared<CPowerPolicyManager>());
    CNeverSleepAwayMode::Initialize();
    if (IsHolvDevicePresent()) {
        auto driver = std::make_shared<CDriverApi>();
        if (driver->Initialize()) m_pDriverApi.Set(std::move(driver));
    } else {
        Log(1, kFunction, L"HOLVDevice was not found");
    }
    const DWORD version = GetVersion();
    const DWORD major = version & 0xFF;
    const DWORD minor = (version >> 8) & 0xFF;
    m_bIsWindows7 = major == 6 && minor == 1;
    Log(1, kFunction, L"This system is%s running Windows 7 [%d.%d]", m_bIsWindows7 ? L"" : L" NOT",
        major, minor);
    {
        const ScopedLock lock(g_state_change);
        SetStates(HOLV_INIT, HOLV_INIT);
    }
    m_ullLastSusResEventTime = GetTickCount64();
}

void CNeverSleepState::UninitializeState()
{
    if (const auto audio = m_pAudioManager.Get()) audio->Uninitialize();
    m_pAudioManager.Set(nullptr);
    m_pPowerPolicyManager.Set(nullptr);
    CNeverSleepAwayMode::Uninitialize();
    m_pDriverApi.Set(nullptr);
    {
        const ScopedLock lock(g_state_change);
        SetStates(S0_NORMAL, S0_NORMAL);
    }
    if (g_in_apartment) CoUninitialize();
}

BOOL CNeverSleepState::StartNeverSleep()
{
    if (const auto manager = m_pPowerPolicyManager.Get()) {
        manager->EnterHolvControl();
        if (!manager->IsOnAcNow()) MonitorBatteryUsage();
    }
    if (!m_bBatteryThresholdCrossed) ConfigurePowerRequests();
    if (const auto audio = m_pAudioManager.Get()) audio->Start();
    SignalGlobalEvent(EVENT_ENTER_S0);
    return TRUE;
}

void CNeverSleepState::StopNeverSleep()
{
    if (const auto audio = m_pAudioManager.Get()) audio->Stop();
    for (const GlobalEvent timer : {TIMER_IDLE, TIMER_DND_START, TIMER_DND_END}) {
        CancelGlobalTimer(timer);
    }
    if (g_bEnableNeverSleep && m_eSystemState != S0_NORMAL) CancelGlobalTimer(TIMER_BATTERY_USAGE);
    if (const auto manager = m_pPowerPolicyManager.Get()) manager->ExitHolvControl();
    {
        const ScopedLock lock(g_state_change);
        SetStates(m_eSystemState, HOLV_INIT);
    }
    // If the feature was switched off, this releases both requests. At the service's end, closing
    // their handles does.
    ConfigurePowerRequests();
}
