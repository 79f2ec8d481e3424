// Saves and restores the values of the two plans, in memory only.

#include <algorithm>

#include "log/log.h"
#include "platform/rpc.h"
#include "power/plan_settings.h"
#include "settings/settings.h"

namespace {

// Reads one value and marks it as read. Marks of another plan in `read` are cleared first.
void ReadValue(const PlanSetting& setting, const GUID& scheme, BOOL bAc, DWORD& value,
               PowerSchemeConfig& read)
{
    if (!SameScheme(read.guidScheme, scheme)) {
        read = {};
        read.guidScheme = scheme;
    }
    bool stored = false;
    setting.get(&scheme, bAc, &value, &stored);
    if (stored) read.*setting.Field(bAc) = TRUE;
}

}  // namespace

// --- What may be changed ---

// A value may be changed only if it was read, and so can be restored. Where no plan was ever saved
// every write is allowed: `scheme` is then the null GUID, the writes fail, and the log shows them.
bool CPowerPolicyManager::ChangeablePlan::MayChange(const PlanSetting& setting, BOOL bAc) const
{
    return !saved || read.*setting.Field(bAc) != 0;
}

void CPowerPolicyManager::ChangeablePlan::Set(const PlanSetting& setting, BOOL bAc,
                                              DWORD value) const
{
    if (MayChange(setting, bAc)) setting.set(&scheme, bAc, value);
}

CPowerPolicyManager::ChangeablePlan CPowerPolicyManager::UserPlan() const
{
    return {m_UserScheme, m_bUserOptionsSaved, m_UserRead};
}

CPowerPolicyManager::ChangeablePlan CPowerPolicyManager::HolvPlan() const
{
    return {m_HolvConfig.guidScheme, m_bHolvOptionsSaved, m_HolvRead};
}

CPowerPolicyManager::ChangeablePlan CPowerPolicyManager::HolvPlanUnderControl() const
{
    return {m_HolvConfig.guidScheme, m_bHolvOptionsSaved, m_HolvRestoreRead};
}

// --- The user scheme ---

void CPowerPolicyManager::SaveUserPowerOptions()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::SaveUserPowerOptions";
    OwnedScheme active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS) return;
    if (active) {
        m_UserScheme = *active.Get();
        NoteUserPlan(m_UserScheme);
        active.Reset();
        Log(1, kFunction, L"%s power scheme is used by the user", GetSchemeTitle(m_UserScheme));
    }
    ReadValue(kAwayMode, m_UserScheme, TRUE, m_dwUserAwayModeAc, m_UserRead);
    ReadValue(kAwayMode, m_UserScheme, FALSE, m_dwUserAwayModeDc, m_UserRead);
    ReadValue(kRtcWake, m_UserScheme, TRUE, m_dwUserRtcWakeAc, m_UserRead);
    ReadValue(kRtcWake, m_UserScheme, FALSE, m_dwUserRtcWakeDc, m_UserRead);
    m_bUserOptionsSaved = TRUE;
    Log(1, kFunction, L"Storing user selected scheme with following config");
    LogSchemeValues(m_UserScheme);
}

void CPowerPolicyManager::RestoreUserPowerOptions()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::RestoreUserPowerOptions";
    if (!m_bUserOptionsSaved) {
        Log(1, kFunction, L"%s called before save, doing nothing", kFunction);
        return;
    }
    const ChangeablePlan plan = UserPlan();
    plan.Set(kAwayMode, TRUE, m_dwUserAwayModeAc);
    plan.Set(kAwayMode, FALSE, m_dwUserAwayModeDc);
    plan.Set(kRtcWake, TRUE, m_dwUserRtcWakeAc);
    plan.Set(kRtcWake, FALSE, m_dwUserRtcWakeDc);
    Log(1, kFunction, L"Restored user selected scheme to the following config");
    LogSchemeValues(m_UserScheme);
}

// --- The never-sleep scheme ---

void CPowerPolicyManager::SaveHolvPowerOptions()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::SaveHolvPowerOptions";
    GUID scheme = GUID_MAX_POWER_SAVINGS;
    if (g_bUseOemPowerScheme &&
        UuidFromStringW(reinterpret_cast<RPC_WSTR>(g_szOemPowerScheme), &scheme) != RPC_S_OK) {
        Log(4, kFunction, L"Unable to convert string (%s) to GUID", g_szOemPowerScheme);
        return;
    }
    Log(1, kFunction, L"%s power scheme is used for Holv active", GetSchemeTitle(scheme));

    const PowerSchemeConfig before = m_HolvConfig;
    ReadPowerSchemeConfig(scheme, m_HolvConfig, m_HolvRead);
    // The time-out just read is not the plan's own while TransitionFromHolvToS3 has shortened it:
    // keep the saved one.
    if (m_bSleepTimeoutOverridden && SameScheme(before.guidScheme, scheme)) {
        m_HolvConfig.dwSleepTimeoutAc = before.dwSleepTimeoutAc;
        m_HolvConfig.dwSleepTimeoutDc = before.dwSleepTimeoutDc;
    }
    m_bHolvOptionsSaved = TRUE;

    // The plan is restored to a processor maximum of 100 percent, even if it had a lower one.
    m_HolvConfig.dwProcMaxAc = std::max<DWORD>(m_HolvConfig.dwProcMaxAc, 100);
    m_HolvConfig.dwProcMaxDc = std::max<DWORD>(m_HolvConfig.dwProcMaxDc, 100);
    Log(1, kFunction, L"Storing Holv active scheme with following config");
    LogSchemeValues(m_HolvConfig.guidScheme);
    Log(6, kFunction, L" remembering user AC power (%d, %d).", m_HolvConfig.dwProcMinAc,
        m_HolvConfig.dwProcMaxAc);
}

// Saves the never-sleep scheme's values. EnterHolvControl has changed the user scheme before this
// call, and changes the never-sleep scheme after it. Where both are one plan, its original values
// are those saved of the user scheme.
void CPowerPolicyManager::SaveHolvRestoreValues()
{
    const GUID& scheme = m_HolvConfig.guidScheme;
    if (m_bUserOptionsSaved && SameScheme(m_UserScheme, scheme)) {
        m_dwHolvAwayModeAc = m_dwUserAwayModeAc;
        m_dwHolvAwayModeDc = m_dwUserAwayModeDc;
        m_dwHolvRtcWakeAc = m_dwUserRtcWakeAc;
        m_dwHolvRtcWakeDc = m_dwUserRtcWakeDc;
        m_HolvRestoreRead = m_UserRead;
        return;
    }
    ReadValue(kAwayMode, scheme, TRUE, m_dwHolvAwayModeAc, m_HolvRestoreRead);
    ReadValue(kAwayMode, scheme, FALSE, m_dwHolvAwayModeDc, m_HolvRestoreRead);
    ReadValue(kRtcWake, scheme, TRUE, m_dwHolvRtcWakeAc, m_HolvRestoreRead);
    ReadValue(kRtcWake, scheme, FALSE, m_dwHolvRtcWakeDc, m_HolvRestoreRead);
}

void CPowerPolicyManager::RestoreHolvPowerOptions()
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::RestoreHolvPowerOptions";
    if (!m_bHolvOptionsSaved) {
        Log(1, kFunction, L"%s called before save, doing nothing", kFunction);
        return;
    }
    for (const BOOL ac : {TRUE, FALSE}) {
        RestoreHolvValue(kProcMax, ac);
        RestoreHolvValue(kProcMin, ac);
    }
    const ChangeablePlan plan = HolvPlanUnderControl();
    plan.Set(kRtcWake, TRUE, m_dwHolvRtcWakeAc);
    plan.Set(kRtcWake, FALSE, m_dwHolvRtcWakeDc);
    plan.Set(kAwayMode, TRUE, m_dwHolvAwayModeAc);
    plan.Set(kAwayMode, FALSE, m_dwHolvAwayModeDc);
    Log(1, kFunction, L"Restored Holv active scheme to the following config");
    LogSchemeValues(m_HolvConfig.guidScheme);
}

// --- Whole plans ---

void CPowerPolicyManager::ReadPowerSchemeConfig(const GUID& scheme, PowerSchemeConfig& config,
                                                PowerSchemeConfig& read)
{
    constexpr const PlanSetting* kOrder[] = {&kPowerButton,  &kProcMax,          &kProcMin,
                                             &kAwayMode,     &kPasswordRequired, &kRtcWake,
                                             &kSleepTimeout, &kDisplayTimeout,   &kBrightness};
    config.guidScheme = scheme;
    for (const BOOL ac : {TRUE, FALSE}) {
        for (const PlanSetting* setting : kOrder) {
            ReadValue(*setting, scheme, ac, config.*setting->Field(ac), read);
        }
    }
}

void CPowerPolicyManager::LogSchemeValues(const GUID& scheme)
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::LogSchemeValues";
    for (const BOOL ac : {TRUE, FALSE}) {
        DWORD maximum = 0, minimum = 0, sleep = 0, rtc = 0, hybrid = 0, away = 0;
        GetProcPowerMaxValue(&scheme, ac, &maximum);
        GetProcPowerMinValue(&scheme, ac, &minimum);
        GetSleepTimeoutValue(&scheme, ac, &sleep);
        GetRtcWakeValue(&scheme, ac, &rtc);
        GetHybridSleepValue(&scheme, ac, &hybrid);
        GetAwayModeValue(&scheme, ac, &away);
        Log(1, kFunction, L"%s", ac ? L"AC" : L"DC");
        Log(1, kFunction, L"Scheme: %s\tMin: %d\tMax: %d\tSleep: %d\tRtc: %d\tHybrid: %d\tAway: %d",
            GetSchemeName(&scheme), minimum, maximum, sleep, rtc, hybrid, away);
    }
}
