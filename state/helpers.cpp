// The helper programs in the user's session: one watches Lync in never-sleep mode, the other locks
// the workstation when away mode ends.

#include <string>

#include "log/format.h"
#include "log/log.h"
#include "platform/owned.h"
#include "power/power_policy_manager.h"
#include "process/user_process.h"
#include "settings/settings.h"
#include "state/never_sleep_state.h"

namespace {

// If any of these keys exists, Lync or its predecessor Communicator is installed.
constexpr const wchar_t* kLyncKeys[] = {
    LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\{11849FBC-C416-4742-8279-17C3A2C85F72})",
    LR"(Software\Wow6432Node\Microsoft\Communicator\4.0)",
    LR"(Software\Microsoft\Communicator\4.0)",
    LR"(Software\Microsoft\Windows\CurrentVersion\Uninstall\Office15.LYNC)",
    LR"(SOFTWARE\Wow6432Node\Microsoft\Office\15.0\Lync)",
    LR"(Software\Microsoft\Windows\CurrentVersion\Uninstall\Office15.LYNCENTRY)",
    LR"(SOFTWARE\Wow6432Node\Microsoft\Office\15.0\Registration\{0EA305CE-B708-4D79-8087-D636AB0F1A4D})",
    LR"(SOFTWARE\Microsoft\Office\15.0\Registration\{0EA305CE-B708-4D79-8087-D636AB0F1A4D})",
};

constexpr const wchar_t* kOemKeyPath = LR"(Software\Orbeq\Holv\OEM)";
constexpr const wchar_t* kLyncHelper = L"\\HOLVLyncHelper.LycnConsole.exe";
constexpr const wchar_t* kLockHelper = L"\\HOLVLockWorkStation.exe";

// The path of a program in the service's folder. Empty, so that its launch fails, when the folder
// is unknown or the path exceeds MAX_PATH: a shortened path could name another program.
std::wstring PathBeside(const wchar_t* name)
{
    wchar_t folder[MAX_PATH];
    if (!GetModuleFilePath(folder, MAX_PATH)) return {};
    const std::wstring path = std::wstring(folder) + name;
    return path.size() < MAX_PATH ? path : std::wstring();
}

void ReportLaunch(const wchar_t* function, const CUserProcess& process)
{
    if (process.IsLaunched()) {
        Log(6, function, L"Launch user process succeeded");
    } else {
        Log(6, function, L"Launch user process failed, error=%d\n", GetLastError());
    }
}

// The log lines show GetLastError, although the registry functions return their error instead of
// setting it.
bool IsLockScreenDisabled()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::LockUserAccount";
    OwnedKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kOemKeyPath, 0, KEY_ALL_ACCESS, key.Receive()) !=
        ERROR_SUCCESS) {
        Log(6, kFunction, L"RegOpenKeyEx is failed in LockUserAccount(), error=%d\n",
            GetLastError());
        return false;
    }
    Log(6, kFunction, L"RegOpenKeyEx is successful");
    DWORD disabled = 0;
    DWORD size = sizeof(disabled);
    if (RegGetValueW(key.Get(), nullptr, L"DisableLockScreen", RRF_RT_REG_DWORD, nullptr, &disabled,
                     &size) != ERROR_SUCCESS) {
        Log(6, kFunction, L"RegGetValue is failed in LockUserAccount(), error=%d\n",
            GetLastError());
        return false;
    }
    Log(6, kFunction, L"RegGetValue is successful");
    return disabled == 1;
}

}  // namespace

BOOL CNeverSleepState::IsLyncInstalled()
{
    for (const wchar_t* path : kLyncKeys) {
        OwnedKey key;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, key.Receive()) == ERROR_SUCCESS) {
            return TRUE;
        }
    }
    return FALSE;
}

// --- The Lync helper: on the state machine's thread only ---

void CNeverSleepState::StartMonitorMicrosoftLyncActivity()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::StartMonitorMicrosoftLyncActivity";
    if (!g_bTurnOnDisplayOnLync) return;
    StopMonitorMicrosoftLyncActivity();
    const auto monitor = std::make_shared<CUserProcess>();
    m_pLyncMonitor.Set(monitor);
    const std::wstring path = PathBeside(kLyncHelper);
    wchar_t arguments[32];  // room for two numbers of eleven characters
    FormatText(arguments, L"D:%d T:%d", g_bTurnOnDisplayOnLync, g_dwAppDisplayTimeout);
    Log(6, kFunction, L"Launch user process %wS %wS\n", path.c_str(), arguments);
    monitor->ExecuteProcessAsUserByHandle(path, arguments, 0);
    ReportLaunch(kFunction, *monitor);
}

void CNeverSleepState::StopMonitorMicrosoftLyncActivity()
{
    const auto monitor = m_pLyncMonitor.Get();
    if (!monitor) return;
    Log(6, L"CNeverSleepState::StopMonitorMicrosoftLyncActivity",
        L"Killing Lync activity monitor.");
    monitor->QuitProcess();
    m_pLyncMonitor.Set(nullptr);
}

BOOL CNeverSleepState::ShowLyncControls()
{
    const BOOL installed = IsLyncInstalled();
    Log(6, L"CNeverSleepState::ShowLyncControls", L"Lync %s installed",
        installed ? L"is" : L"is not");
    return installed;
}

// --- The lock helper: on the control handler's thread ---

void CNeverSleepState::LockUserAccount()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::LockUserAccount";
    if (!g_bEnableNeverSleep || m_eSystemState == S0_NORMAL) return;
    const bool disabled = IsLockScreenDisabled();
    const auto manager = m_pPowerPolicyManager.Get();
    if (manager && !manager->IsPasswordRequiredOnWake()) return;
    if (disabled) return;
    CUserProcess process;
    const std::wstring path = PathBeside(kLockHelper);
    Log(6, kFunction, L"Launch user process %wS\n", path.c_str());
    process.ExecuteProcessAsUserByHandle(path, L"", 0);
    ReportLaunch(kFunction, process);
}
