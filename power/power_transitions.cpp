// The transitions of never-sleep mode: which values each writes into which plan, and which plan it
// activates.

#include "log/log.h"
#include "power/plan_settings.h"
#include "settings/settings.h"

namespace {

constexpr DWORD kAllowed = 1;
constexpr DWORD kDndProcessorMinimumPercent = 5;
constexpr DWORD kSleepSoonSeconds = 60;

// Holds the lock for the length of a transition, and logs the transition's name. The lock is
// recursive: OnPowerOptionChanged calls EnterHolvControl with the lock held.
class Transition
{
public:
    Transition(CriticalSection& lock, const wchar_t* name) : m_lock(lock)
    {
        Log(6, name, L"%s", name);
    }

private:
    ScopedLock m_lock;
};

}  // namespace

// --- Steps ---

void CPowerPolicyManager::ConfigureSchemeForHolv(const ChangeablePlan& plan)
{
    plan.Set(kAwayMode, TRUE, kAllowed);
    plan.Set(kAwayMode, FALSE, kAllowed);
    plan.Set(kRtcWake, TRUE, kAllowed);
    plan.Set(kRtcWake, FALSE, kAllowed);
}

CPowerPolicyManager::AcDcValues CPowerPolicyManager::ReadUserValues(
    const PlanSetting& setting) const
{
    AcDcValues values;
    for (const BOOL ac : {TRUE, FALSE}) {
        DWORD value = 0;
        bool read = false;
        setting.get(&m_UserScheme, ac, &value, &read);
        if (read) (ac ? values.ac : values.dc) = value;
    }
    return values;
}

void CPowerPolicyManager::SetHolvValues(const PlanSetting& setting, const AcDcValues& values) const
{
    const ChangeablePlan plan = HolvPlan();
    if (values.ac) plan.Set(setting, TRUE, *values.ac);
    if (values.dc) plan.Set(setting, FALSE, *values.dc);
}

void CPowerPolicyManager::RestoreHolvValue(const PlanSetting& setting, BOOL bAc) const
{
    HolvPlan().Set(setting, bAc, m_HolvConfig.*setting.Field(bAc));
}

void CPowerPolicyManager::RestoreHolvValues(const PlanSetting& setting) const
{
    RestoreHolvValue(setting, TRUE);
    RestoreHolvValue(setting, FALSE);
}

// Changes minimum and maximum together, or neither of them if one could not be restored.
void CPowerPolicyManager::LimitProcessor(BOOL bAc, DWORD maximumPercent) const
{
    const ChangeablePlan plan = HolvPlan();
    if (!plan.MayChange(kProcMin, bAc) || !plan.MayChange(kProcMax, bAc)) return;
    plan.Set(kProcMin, bAc, kDndProcessorMinimumPercent);
    plan.Set(kProcMax, bAc, maximumPercent);
}

void CPowerPolicyManager::RestoreProcessor(BOOL bAc) const
{
    if (m_HolvConfig.*kProcMin.Field(bAc) == 0 || m_HolvConfig.*kProcMax.Field(bAc) == 0) return;
    RestoreHolvValue(kProcMin, bAc);
    RestoreHolvValue(kProcMax, bAc);
}

void CPowerPolicyManager::RestoreOverriddenSleepTimeout()
{
    if (!m_bSleepTimeoutOverridden) return;
    m_bSleepTimeoutOverridden = FALSE;
    RestoreHolvValues(kSleepTimeout);
}

// --- Control ---

void CPowerPolicyManager::EnterHolvControl()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::EnterHolvControl";
    const Transition transition(m_lock, kFunction);
    SaveUserPowerOptions();
    ConfigureSchemeForHolv(UserPlan());
    Log(6, kFunction, L"User scheme configured to support Holv");
    LogSchemeValues(m_UserScheme);

    SaveHolvPowerOptions();
    SaveHolvRestoreValues();
    ConfigureSchemeForHolv(HolvPlanUnderControl());
    Log(6, kFunction, L"Holv active scheme configured to support Holv");
    LogSchemeValues(m_HolvConfig.guidScheme);

    Log(6, kFunction,
        L"Calling SetActivePowerToUserPref() to apply the settings changed to support HOLV");
    SetActivePowerScheme(&m_UserScheme);
}

void CPowerPolicyManager::ExitHolvControl()
{
    const Transition transition(m_lock, L"CPowerPolicyManager::ExitHolvControl");
    m_bInNeverSleepState = FALSE;
    RestoreUserPowerOptions();
    RestoreHolvPowerOptions();
}

// --- HOLV_ACTIVE and HOLV_IDLE ---

void CPowerPolicyManager::EnterHolvState()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::EnterHolvState";
    const Transition transition(m_lock, kFunction);
    m_bInNeverSleepState = TRUE;
    SaveHolvPowerOptions();
    SetHolvValues(kBrightness, ReadUserValues(kBrightness));
    const AcDcValues password = ReadUserValues(kPasswordRequired);
    Log(6, kFunction, L"Power saver AC value is %d for password before change",
        m_HolvConfig.dwPasswordRequiredAc);
    Log(6, kFunction, L"Power saver DC value is %d for password before change",
        m_HolvConfig.dwPasswordRequiredDc);
    SetHolvValues(kPasswordRequired, password);
    SetActivePowerScheme(&m_HolvConfig.guidScheme);
}

void CPowerPolicyManager::ExitHolvState()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::ExitHolvState";
    const Transition transition(m_lock, kFunction);
    m_bInNeverSleepState = FALSE;
    RestoreOverriddenSleepTimeout();
    RestoreHolvValues(kBrightness);
    Log(6, kFunction, L"Power saver AC value is %d for password before restore",
        m_HolvConfig.dwPasswordRequiredAc);
    Log(6, kFunction, L"Power saver DC value is %d for password before restore",
        m_HolvConfig.dwPasswordRequiredDc);
    RestoreHolvValues(kPasswordRequired);
    SetActivePowerScheme(&m_UserScheme);
}

// --- HOLV_DND ---

void CPowerPolicyManager::EnterDoNotDisturbState()
{
    const Transition transition(m_lock, L"CPowerPolicyManager::EnterDoNotDisturbState");
    m_bInNeverSleepState = TRUE;
    SaveHolvPowerOptions();
    SetHolvValues(kBrightness, ReadUserValues(kBrightness));
    SetHolvValues(kPasswordRequired, ReadUserValues(kPasswordRequired));

    const DWORD limit = g_dwMaxCpuPowerLimit;
    m_bProcessorLimitedOnDc = limit != 0 && g_bEnableHolvOnDC;
    if (limit != 0) LimitProcessor(TRUE, limit);
    if (m_bProcessorLimitedOnDc) LimitProcessor(FALSE, limit);

    m_bSleepAllowedInDnd = g_bDndToS3 != 0;
    if (m_bSleepAllowedInDnd) {
        SetHolvValues(kSleepTimeout, {kSleepSoonSeconds, kSleepSoonSeconds});
        SetHolvValues(kRtcWake, {kAllowed, kAllowed});
    }
    SetActivePowerScheme(&m_HolvConfig.guidScheme);
}

void CPowerPolicyManager::ExitDoNotDisturbState()
{
    const Transition transition(m_lock, L"CPowerPolicyManager::ExitDoNotDisturbState");
    m_bInNeverSleepState = FALSE;
    // Restore what the entry changed, even if the settings have changed since.
    if (g_bEnableHolvOnDC || m_bProcessorLimitedOnDc) RestoreProcessor(FALSE);
    RestoreProcessor(TRUE);
    if (g_bDndToS3 || m_bSleepAllowedInDnd) {
        RestoreHolvValues(kSleepTimeout);
        RestoreHolvValues(kRtcWake);
    }
    RestoreOverriddenSleepTimeout();
    RestoreHolvValues(kBrightness);
    RestoreHolvValues(kPasswordRequired);
    SetActivePowerScheme(&m_UserScheme);
}

// --- Others ---

void CPowerPolicyManager::TransitionFromHolvToS3()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::TransitionFromHolvToS3";
    const Transition transition(m_lock, kFunction);
    m_bSleepTimeoutOverridden = TRUE;
    Log(6, kFunction, L"System will suspend in %ds", kSleepSoonSeconds);
    SetHolvValues(kSleepTimeout, {kSleepSoonSeconds, kSleepSoonSeconds});
    SetActivePowerScheme(&m_HolvConfig.guidScheme);
}

void CPowerPolicyManager::CallAlone(void (*what)())
{
    const ScopedLock lock(m_lock);
    what();
}

void CPowerPolicyManager::OnPowerOptionChanged(const GUID* newScheme)
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::OnPowerOptionChanged";
    if (!newScheme) return;
    const ScopedLock lock(m_lock);
    Log(6, kFunction, L"CPowerPolicyManager::OnPowerOptionChanged");
    // The caller saw S0_NORMAL, but a never-sleep state may have been entered since. The active
    // plan is then the service's, not the user's choice. TransitionFromHolvToS3 activates it too,
    // also where the state before the sleep was S0_NORMAL.
    const bool own_activation =
        m_bInNeverSleepState ||
        (m_bSleepTimeoutOverridden && SameScheme(*newScheme, m_HolvConfig.guidScheme));
    if (SameScheme(*newScheme, m_UserScheme) || own_activation) {
        Log(6, kFunction, L"Doing nothing");
        return;
    }
    Log(6, kFunction, L"Detected user selected new preference");
    RestoreUserPowerOptions();
    RestoreHolvPowerOptions();
    EnterHolvControl();
}
