// Reads and writes single power settings, activates plans, and answers queries about the PC's
// power.
//
// The log lines of failures show GetLastError, although the platform's plan functions return their
// error instead of setting it.

#include <iterator>
#include <string>

#include "log/log.h"
#include "power/machine_power.h"
#include "power/plan_settings.h"
#include "restore/changes.h"

namespace {

// --- The settings ---

struct Accessor
{
    const wchar_t* name;          // of its operations, between "Get" or "Set" and "Value"
    const wchar_t* setting_name;  // in messages
    const GUID* subgroup;
    const GUID* setting;
    // Log levels of failures.
    DWORD read_ac_level = 3;
    DWORD read_dc_level = 3;
    DWORD write_level = 3;
};

constexpr Accessor kSleepTimeoutAccess{L"SleepTimeout", L"GUID_STANDBY_TIMEOUT",
                                       &GUID_SLEEP_SUBGROUP, &GUID_STANDBY_TIMEOUT};
constexpr Accessor kRtcWakeAccess{L"RtcWake", L"GUID_ALLOW_RTC_WAKE", &GUID_SLEEP_SUBGROUP,
                                  &GUID_ALLOW_RTC_WAKE};
constexpr Accessor kAwayModeAccess{
    L"AwayMode", L"GUID_ALLOW_AWAYMODE", &GUID_SLEEP_SUBGROUP, &GUID_ALLOW_AWAYMODE, 3, 3, 4};
constexpr Accessor kHybridSleepAccess{L"HybridSleep", L"GUID_HIBERNATE_FASTS4_POLICY",
                                      &GUID_SLEEP_SUBGROUP, &GUID_HIBERNATE_FASTS4_POLICY};
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
constexpr Accessor kDisplayTimeoutAccess{L"DisplayTimeout", L"GUID_VIDEO_POWERDOWN_TIMEOUT",
                                         &GUID_VIDEO_SUBGROUP, &GUID_VIDEO_POWERDOWN_TIMEOUT};
constexpr Accessor kDisplayBrightnessAccess{
    L"DisplayBrightness", L"GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS", &GUID_VIDEO_SUBGROUP,
    &GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS};
constexpr Accessor kPowerButtonPressActionAccess{
    L"PowerButtonPressAction", L"GUID_POWERBUTTON_ACTION", &GUID_SYSTEM_BUTTON_SUBGROUP,
    &GUID_POWERBUTTON_ACTION};
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

// A failed read of the wake timers counts as read, with this value: allowed.
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
    const JournaledChange change = ChangeOfPlanValue(*scheme, *accessor.setting, bAc, value);
    if (!change.Made(function(nullptr, scheme, accessor.subgroup, accessor.setting, value) ==
                     ERROR_SUCCESS)) {
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

// The operations of one setting, by its name.
#define DEFINE_GET(Name)                                                                   \
    BOOL CPowerPolicyManager::Get##Name##Value(const GUID* scheme, BOOL bAc, DWORD* value, \
                                               bool* read)                                 \
    {                                                                                      \
        return Get(k##Name##Access, scheme, bAc, value, read);                             \
    }
#define DEFINE_SET(Name)                                                                  \
    BOOL CPowerPolicyManager::Set##Name##Value(const GUID* scheme, BOOL bAc, DWORD value) \
    {                                                                                     \
        return Set(k##Name##Access, scheme, bAc, value);                                  \
    }

DEFINE_GET(SleepTimeout)
DEFINE_GET(RtcWake)
DEFINE_GET(AwayMode)
DEFINE_GET(HybridSleep)
DEFINE_GET(ProcPowerMin)
DEFINE_GET(ProcPowerMax)
DEFINE_GET(DisplayTimeout)
DEFINE_GET(DisplayBrightness)
DEFINE_GET(PowerButtonPressAction)
DEFINE_GET(PasswordRequired)

DEFINE_SET(SleepTimeout)
DEFINE_SET(RtcWake)
DEFINE_SET(ProcPowerMin)
DEFINE_SET(ProcPowerMax)
DEFINE_SET(DisplayBrightness)
DEFINE_SET(PasswordRequired)

#undef DEFINE_GET
#undef DEFINE_SET

BOOL CPowerPolicyManager::SetAwayModeValue(const GUID* scheme, BOOL bAc, DWORD value)
{
    if (scheme) LogAwayModeBanner(scheme, bAc, value);
    return Set(kAwayModeAccess, scheme, bAc, value);
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
    const JournaledChange change = ChangeOfActivePlan(*scheme, LastKnownActivePlan());
    m_bActivationFailed = !change.Made(PowerSetActiveScheme(nullptr, scheme) == ERROR_SUCCESS);
    if (m_bActivationFailed) {
        Log(3, kFunction, L"PowerSetActiveScheme failed with error %d", GetLastError());
        return;
    }
    NoteActivePlan(*scheme);
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

// Takes no lock, because it uses no member.
BOOL CPowerPolicyManager::IsOnAcNow()
{
    SYSTEM_POWER_STATUS status{};
    if (!ReadPowerStatus(&status)) {
        Log(3, L"CPowerPolicyManager::IsOnAcNow", L"GetSystemPowerStatus failed with error %d",
            GetLastError());
        return TRUE;
    }
    return status.ACLineStatus == kOnline;
}

BOOL CPowerPolicyManager::IsPasswordRequiredOnWake()
{
    SYSTEM_POWER_STATUS status{};
    if (!ReadPowerStatus(&status)) {
        Log(3, L"CPowerPolicyManager::IsPasswordRequiredOnWake",
            L"GetSystemPowerStatus failed with error %d", GetLastError());
        return TRUE;
    }
    const ScopedLock lock(m_lock);
    DWORD required = 0;
    GetPasswordRequiredValue(&m_UserScheme, status.ACLineStatus == kOnline, &required);
    return required == 1;
}
