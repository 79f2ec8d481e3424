// Reading and writing single power settings, activating a plan, and what other rooms ask of the
// machine's power.
//
// The platform's functions for plans return their error and leave the thread's last error alone;
// the lines that tell of their failures show the last error all the same.

#include <iterator>
#include <string>

#include "log/log.h"
#include "power/plan_settings.h"

namespace {

// --- The settings ---

struct Accessor
{
    const wchar_t* name;          // of its operations, between "Get" or "Set" and "Value"
    const wchar_t* setting_name;  // in messages
    const GUID* subgroup;
    const GUID* setting;
    // Levels of the lines that tell of failures.
    DWORD read_ac_level;
    DWORD read_dc_level;
    DWORD write_level;
};

constexpr Accessor kSleepTimeoutAccess{
    L"SleepTimeout", L"GUID_STANDBY_TIMEOUT", &GUID_SLEEP_SUBGROUP, &GUID_STANDBY_TIMEOUT, 3, 3, 3};
constexpr Accessor kRtcWakeAccess{
    L"RtcWake", L"GUID_ALLOW_RTC_WAKE", &GUID_SLEEP_SUBGROUP, &GUID_ALLOW_RTC_WAKE, 3, 3, 3};
constexpr Accessor kAwayModeAccess{
    L"AwayMode", L"GUID_ALLOW_AWAYMODE", &GUID_SLEEP_SUBGROUP, &GUID_ALLOW_AWAYMODE, 3, 3, 4};
constexpr Accessor kHybridSleepAccess{L"HybridSleep",
                                      L"GUID_HIBERNATE_FASTS4_POLICY",
                                      &GUID_SLEEP_SUBGROUP,
                                      &GUID_HIBERNATE_FASTS4_POLICY,
                                      3,
                                      3,
                                      3};
constexpr Accessor kProcPowerMinAccess{L"ProcPowerMin",
                                       L"GUID_PROCESSOR_THROTTLE_MINIMUM",
                                       &GUID_PROCESSOR_SETTINGS_SUBGROUP,
                                       &GUID_PROCESSOR_THROTTLE_MINIMUM,
                                       4,
                                       4,
                                       4};
constexpr Accessor kProcPowerMaxAccess{L"ProcPowerMax",
                                       L"GUID_PROCESSOR_THROTTLE_MAXIMUM",
                                       &GUID_PROCESSOR_SETTINGS_SUBGROUP,
                                       &GUID_PROCESSOR_THROTTLE_MAXIMUM,
                                       4,
                                       4,
                                       4};
constexpr Accessor kDisplayTimeoutAccess{L"DisplayTimeout",
                                         L"GUID_VIDEO_POWERDOWN_TIMEOUT",
                                         &GUID_VIDEO_SUBGROUP,
                                         &GUID_VIDEO_POWERDOWN_TIMEOUT,
                                         3,
                                         3,
                                         3};
constexpr Accessor kDisplayBrightnessAccess{L"DisplayBrightness",
                                            L"GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS",
                                            &GUID_VIDEO_SUBGROUP,
                                            &GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS,
                                            3,
                                            3,
                                            3};
constexpr Accessor kPowerButtonPressActionAccess{L"PowerButtonPressAction",
                                                 L"GUID_POWERBUTTON_ACTION",
                                                 &GUID_SYSTEM_BUTTON_SUBGROUP,
                                                 &GUID_POWERBUTTON_ACTION,
                                                 3,
                                                 3,
                                                 3};
constexpr Accessor kPasswordRequiredAccess{L"PasswordRequired",
                                           L"GUID_LOCK_CONSOLE_ON_WAKE",
                                           &NO_SUBGROUP_GUID,
                                           &GUID_LOCK_CONSOLE_ON_WAKE,
                                           2,
                                           3,
                                           3};

// An operation's name, as messages show it and with its class.
class OperationName
{
public:
    OperationName(const wchar_t* verb, const Accessor& accessor)
    {
        FormatText(m_qualified, L"CPowerPolicyManager::%s%sValue", verb, accessor.name);
    }
    const wchar_t* qualified() const { return m_qualified; }
    const wchar_t* bare() const { return m_qualified + std::size(L"CPowerPolicyManager::") - 1; }

private:
    wchar_t m_qualified[64];
};

BOOL RefuseInput(const OperationName& name)
{
    Log(3, name.qualified(), L"Invalid input for power action %s", name.bare());
    return FALSE;
}

void LogFailure(DWORD level, const OperationName& name, const wchar_t* platformFunction,
                const Accessor& accessor)
{
    Log(level, name.qualified(), L"%s for %s failed with error %d", platformFunction,
        accessor.setting_name, GetLastError());
}

// --- Get and Set ---

// The one setting whose failed read stores a value: wake timers count as allowed.
constexpr DWORD kRtcWakeUnlessRead = 1;

BOOL Get(const Accessor& accessor, const GUID* scheme, BOOL bAc, DWORD* value, bool* read)
{
    const OperationName name(L"Get", accessor);
    if (read) *read = false;
    if (!scheme || !value) return RefuseInput(name);
    const auto function = bAc ? PowerReadACValueIndex : PowerReadDCValueIndex;
    DWORD found = 0;
    bool stored =
        function(nullptr, scheme, accessor.subgroup, accessor.setting, &found) == ERROR_SUCCESS;
    if (!stored) {
        LogFailure(bAc ? accessor.read_ac_level : accessor.read_dc_level, name,
                   bAc ? L"PowerReadACValueIndex" : L"PowerReadDCValueIndex", accessor);
        if (&accessor == &kRtcWakeAccess) {
            found = kRtcWakeUnlessRead;
            stored = true;
        }
    }
    if (stored) *value = found;
    if (read) *read = stored;
    return TRUE;
}

BOOL Set(const Accessor& accessor, const GUID* scheme, BOOL bAc, DWORD value)
{
    const OperationName name(L"Set", accessor);
    if (!scheme) return RefuseInput(name);
    const auto function = bAc ? PowerWriteACValueIndex : PowerWriteDCValueIndex;
    if (function(nullptr, scheme, accessor.subgroup, accessor.setting, value) != ERROR_SUCCESS) {
        LogFailure(accessor.write_level, name,
                   bAc ? L"PowerWriteACValueIndex" : L"PowerWriteDCValueIndex", accessor);
        return FALSE;
    }
    return TRUE;
}

void LogAwayModeBanner(const GUID* scheme, BOOL bAc, DWORD value)
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::SetAwayModeValue";
    constexpr std::size_t kAbove = 86;
    constexpr std::size_t kBelow = 85;
    Log(4, kFunction, L"%s", std::wstring(kAbove, L'~').c_str());
    Log(4, kFunction,
        L"~~~~~~~%s scheme's %s AWAY MODE REQESTS WILL %s BE HONORED FROM HERE ON~~~~~~~~~~~~",
        CPowerPolicyManager::GetSchemeName(scheme), bAc ? L"AC" : L"DC", value == 1 ? L"" : L"NOT");
    Log(4, kFunction, L"%s", std::wstring(kBelow, L'~').c_str());
}

// --- Plans ---

struct PredefinedScheme
{
    const GUID* guid;
    const wchar_t* name;
    const wchar_t* title;
};

constexpr PredefinedScheme kPredefinedSchemes[] = {
    {&GUID_MAX_POWER_SAVINGS, L"Low", L"Power Saver"},
    {&GUID_MIN_POWER_SAVINGS, L"Hig", L"High Performance"},
    {&GUID_TYPICAL_POWER_SAVINGS, L"Bal", L"Balanced"},
};

const PredefinedScheme* FindPredefined(const GUID& scheme)
{
    for (const PredefinedScheme& predefined : kPredefinedSchemes) {
        if (SameScheme(*predefined.guid, scheme)) return &predefined;
    }
    return nullptr;
}

constexpr BYTE kOnline = 1;

}  // namespace

BOOL CPowerPolicyManager::GetSleepTimeoutValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                               bool* read)
{
    return Get(kSleepTimeoutAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetSleepTimeoutValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kSleepTimeoutAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetRtcWakeValue(const GUID* scheme, BOOL bAc, DWORD* value, bool* read)
{
    return Get(kRtcWakeAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetRtcWakeValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kRtcWakeAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetAwayModeValue(const GUID* scheme, BOOL bAc, DWORD* value, bool* read)
{
    return Get(kAwayModeAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetAwayModeValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    if (scheme) LogAwayModeBanner(scheme, bAc, value);
    return Set(kAwayModeAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetHybridSleepValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                              bool* read)
{
    return Get(kHybridSleepAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::GetProcPowerMinValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                               bool* read)
{
    return Get(kProcPowerMinAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetProcPowerMinValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kProcPowerMinAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetProcPowerMaxValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                               bool* read)
{
    return Get(kProcPowerMaxAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetProcPowerMaxValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kProcPowerMaxAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetDisplayTimeoutValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                                 bool* read)
{
    return Get(kDisplayTimeoutAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::GetDisplayBrightnessValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                                    bool* read)
{
    return Get(kDisplayBrightnessAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetDisplayBrightnessValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kDisplayBrightnessAccess, scheme, bAc, value);
}

BOOL CPowerPolicyManager::GetPowerButtonPressActionValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                                         bool* read)
{
    return Get(kPowerButtonPressActionAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::GetPasswordRequiredValue(const GUID* scheme, BOOL bAc, DWORD* value,
                                                   bool* read)
{
    return Get(kPasswordRequiredAccess, scheme, bAc, value, read);
}

BOOL CPowerPolicyManager::SetPasswordRequiredValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    return Set(kPasswordRequiredAccess, scheme, bAc, value);
}

// --- Plans ---

const wchar_t* CPowerPolicyManager::GetSchemeName(const GUID* scheme)
{
    if (!scheme) return L"???";
    const PredefinedScheme* predefined = FindPredefined(*scheme);
    return predefined ? predefined->name : L"Custom";
}

const wchar_t* GetSchemeTitle(const GUID& scheme)
{
    const PredefinedScheme* predefined = FindPredefined(scheme);
    return predefined ? predefined->title : L"A custom";
}

void CPowerPolicyManager::SetActivePowerScheme(const GUID* scheme)
{
    constexpr const wchar_t* kFunction = L"CPowerPolicyManager::SetActivePowerScheme";
    if (!scheme) {
        Log(3, kFunction, L"Invalid parameter for SetActivePowerScheme");
        return;
    }
    if (PowerSetActiveScheme(nullptr, scheme) != ERROR_SUCCESS) {
        Log(3, kFunction, L"PowerSetActiveScheme failed with error %d", GetLastError());
        return;
    }
    Log(6, kFunction, L"Power scheme is updated to %s", GetSchemeName(scheme));
}

DWORD CPowerPolicyManager::GetActiveSleepIdleTimeoutValue(BOOL bAc)
{
    DWORD seconds = 0xFFFFFFFF;
    OwnedScheme active;
    if (PowerGetActiveScheme(nullptr, active.Receive()) != ERROR_SUCCESS) {
        Log(2, L"CPowerPolicyManager::GetActiveSleepIdleTimeoutValue",
            L"PowerGetActiveScheme failed with error %d", GetLastError());
        return seconds;
    }
    GetSleepTimeoutValue(active.Get(), bAc, &seconds);
    return seconds;
}

// --- The machine ---

// Takes no lock: it is asked from every thread, and keeps nothing.
BOOL CPowerPolicyManager::IsOnAcNow()
{
    SYSTEM_POWER_STATUS status{};
    if (!GetSystemPowerStatus(&status)) {
        Log(3, L"CPowerPolicyManager::IsOnAcNow", L"GetSystemPowerStatus failed with error %d",
            GetLastError());
        return TRUE;
    }
    return status.ACLineStatus == kOnline;
}

BOOL CPowerPolicyManager::IsPasswordRequiredOnWake()
{
    SYSTEM_POWER_STATUS status{};
    if (!GetSystemPowerStatus(&status)) {
        Log(3, L"CPowerPolicyManager::IsPasswordRequiredOnWake",
            L"GetSystemPowerStatus failed with error %d", GetLastError());
        return TRUE;
    }
    const ScopedLock lock(m_lock);
    DWORD required = 0;
    GetPasswordRequiredValue(&m_UserScheme, status.ACLineStatus == kOnline, &required);
    return required == 1;
}
