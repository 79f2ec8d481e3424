#include "settings/settings_store.h"

#include <algorithm>

#include "log/log.h"
#include "platform/owned.h"
#include "settings/settings.h"

namespace {

constexpr const wchar_t* kUserKeyPath = LR"(Software\Orbeq\Holv\User)";
constexpr const wchar_t* kOemKeyPath = LR"(Software\Orbeq\Holv\OEM)";
constexpr const wchar_t* kOemPowerSchemeName = L"OemPowerScheme";

// The settings, in the order in which they are loaded.
struct StoredSetting
{
    const wchar_t* name;
    Setting* global;  // null for OemPowerScheme, the one string
    DWORD default_value;
};

constexpr StoredSetting kStoredSettings[] = {
    {L"LoggingLevel", &g_dwLoggingLevel, 4},
    {L"LoggingEnabled", &g_dwLoggingEnabled, 7},
    {L"EnableNeverSleep", &g_bEnableNeverSleep, 1},
    {L"MuteAudio", &g_bMuteAudio, 0},
    {L"EnableDoNotDisturb", &g_bEnableDoNotDisturb, 1},
    {L"DoNotDisturbStart", &g_dwDoNotDisturbStart, 22 * 60},
    {L"DoNotDisturbEnd", &g_dwDoNotDisturbEnd, 6 * 60},
    {L"EnableSoftwareUpdate", &g_bEnableSoftwareUpdate, 1},
    {L"LyncInstalled", &g_bLyncInstalled, 0},
    {L"LastUpdateVersion", &g_dwLastUpdateVersion, 0x7FFFFFFF},
    {L"MaxCpuPowerLimit", &g_dwMaxCpuPowerLimit, 50},
    {L"CpuIdleThreshold", &g_dwCpuIdleThreshold, 5},
    {L"DebugEnabled", &g_bDebugEnabled, 0},
    {L"UseOemPowerScheme", &g_bUseOemPowerScheme, 0},
    {kOemPowerSchemeName, nullptr, 0},
    {L"EnableHOLVOnDc", &g_bEnableHolvOnDC, 1},
    {L"TurnOnDisplayOnLync", &g_bTurnOnDisplayOnLync, 1},
    {L"SuspendBatteryThreshold", &g_dwSuspendBatteryThreshold, 15},
    {L"AppDisplayTimeout", &g_dwAppDisplayTimeout, 30},
    {L"CpuUsageCheckInterval", &g_dwCpuUsageCheckInterval, 10},
    {L"BatteryUsageCheckInterval", &g_dwBatteryUsageCheckInterval, 10},
    {L"DndToS3", &g_bDndToS3, 0},
};

struct Bounds
{
    Setting* global;
    DWORD minimum;
    DWORD maximum;
};

constexpr Bounds kBounds[] = {
    {&g_dwDoNotDisturbStart, 0, 24 * 60},    {&g_dwDoNotDisturbEnd, 0, 24 * 60},
    {&g_dwMaxCpuPowerLimit, 0, 100},         {&g_dwCpuIdleThreshold, 0, 100},
    {&g_dwSuspendBatteryThreshold, 0, 100},  {&g_dwAppDisplayTimeout, 5, 30},
    {&g_dwBatteryUsageCheckInterval, 5, 60}, {&g_dwCpuUsageCheckInterval, 5, 60},
};

// A REG_DWORD of another size is read without an error, and is no number.
bool ReadDword(HKEY key, const wchar_t* name, DWORD& value)
{
    DWORD size = sizeof(value);
    return RegGetValueW(key, nullptr, name, RRF_RT_DWORD, nullptr, &value, &size) ==
               ERROR_SUCCESS &&
           size == sizeof(value);
}

// Reads into a local buffer first: RegGetValueW may leave anything in it when the value does not
// fit, and the global must then keep its text.
DWORD ReadOemPowerScheme(HKEY key)
{
    wchar_t text[kOemPowerSchemeLength] = {};
    DWORD size = sizeof(text);
    if (RegGetValueW(key, nullptr, kOemPowerSchemeName, RRF_RT_REG_SZ, nullptr, text, &size) !=
        ERROR_SUCCESS) {
        return 0;
    }
    std::copy(std::begin(text), std::end(text), g_szOemPowerScheme);
    return size;
}

}  // namespace

void RegInit()
{
    OwnedKey user;
    const LSTATUS status = RegCreateKeyW(HKEY_LOCAL_MACHINE, kUserKeyPath, user.Receive());
    if (status != ERROR_SUCCESS) {
        Log(3, L"RegInit", L"Unable to open the root registry key, GLE=%d\n", status);
        return;
    }
    OwnedKey oem;
    if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kOemKeyPath, oem.Receive()) != ERROR_SUCCESS) {
        Log(1, L"RegInit", L"OEM default registry path does not exist.\n");
    }
    for (const StoredSetting& setting : kStoredSettings) {
        if (setting.global) {
            *setting.global =
                RegReadDWord(user.Get(), oem.Get(), setting.name, setting.default_value);
        } else {
            RegReadOemPowerScheme(user.Get(), oem.Get());
        }
    }
    ClampSettings();
}

BOOL RegWriteDWord(const wchar_t* name, DWORD value)
{
    OwnedKey user;
    const LSTATUS status = RegOpenKeyW(HKEY_LOCAL_MACHINE, kUserKeyPath, user.Receive());
    if (status != ERROR_SUCCESS) {
        Log(3, L"RegWriteDWord", L"Unable to open the root registry key, GLE=%d\n", status);
        return FALSE;
    }
    return RegWriteDWord(user.Get(), name, value);
}

BOOL RegWriteDWord(HKEY key, const wchar_t* name, DWORD value)
{
    if (!key) return FALSE;
    const LSTATUS status = RegSetValueExW(key, name, 0, REG_DWORD,
                                          reinterpret_cast<const BYTE*>(&value), sizeof(value));
    if (status == ERROR_SUCCESS) return TRUE;
    Log(3, L"RegWriteDWord", L"Failed to set registry value (%s), GLE = %d\n", name, status);
    return FALSE;
}

DWORD RegReadDWord(HKEY userKey, HKEY oemKey, const wchar_t* name, DWORD defaultValue)
{
    DWORD value = 0;
    if (ReadDword(userKey, name, value)) return value;
    if (oemKey && ReadDword(oemKey, name, value)) return value;
    return defaultValue;
}

DWORD RegReadOemPowerScheme(HKEY userKey, HKEY oemKey)
{
    const DWORD size = ReadOemPowerScheme(userKey);
    return size == 0 && oemKey ? ReadOemPowerScheme(oemKey) : size;
}

void ClampSettings()
{
    for (const Bounds& bounds : kBounds) {
        *bounds.global = std::clamp(bounds.global->load(), bounds.minimum, bounds.maximum);
    }
}
