// The helper programs in the user's session, for Lync and for locking the workstation, belong here.
// Only whether Lync is installed is answered yet: no helper is started or ended.
#include "platform/owned.h"
#include "state/never_sleep_state.h"

namespace {

// Any of these is there where Lync, or Communicator before it, is installed.
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

void CNeverSleepState::StartMonitorMicrosoftLyncActivity() {}
void CNeverSleepState::StopMonitorMicrosoftLyncActivity() {}
void CNeverSleepState::LockUserAccount() {}
BOOL CNeverSleepState::ShowLyncControls() { return FALSE; }
