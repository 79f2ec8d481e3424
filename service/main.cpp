// The process entry. Until the service control manager starts the service, the process itself runs
// the state machine, on a thread of its own, and ends with it.

#include <algorithm>
#include <cwctype>
#include <string_view>

#include "log/event_source.h"
#include "log/log.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "service/state_machine_thread.h"
#include "service/unhandled_exception.h"
#include "settings/settings.h"
#include "settings/settings_store.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

bool SameWord(std::wstring_view a, std::wstring_view b)
{
    return std::ranges::equal(a, b, [](wchar_t x, wchar_t y) {
        return std::towlower(static_cast<wint_t>(x)) == std::towlower(static_cast<wint_t>(y));
    });
}

// Whether a switch, a word that stands right after '-' or '/', is on the command line, in any
// letter case.
bool HasSwitch(std::wstring_view commandLine, std::wstring_view name)
{
    for (auto at = commandLine.find_first_of(L"-/"); at != commandLine.npos;
         at = commandLine.find_first_of(L"-/", at + 1)) {
        const std::wstring_view rest = commandLine.substr(at + 1);
        if (SameWord(rest.substr(0, rest.find_first_of(L" \t\r\n")), name)) return true;
    }
    return false;
}

void RunStateMachine()
{
    createGlobalEvents();
    {
        const OwnedHandle thread(
            CreateThread(nullptr, 0, StateMachineThreadProc, nullptr, 0, nullptr));
        if (thread) WaitForSingleObject(thread.Get(), INFINITE);
    }
    closeGlobalEvents();
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int)
{
    RegInit();
    Log(6, L"wWinMain", L"EnableHOLV (%d), MuteAudio(%d), EnableDND(%d), DND Time(%d-%d)",
        g_bEnableNeverSleep, g_bMuteAudio, g_bEnableDoNotDisturb, g_dwDoNotDisturbStart,
        g_dwDoNotDisturbEnd);
    InstallEventLogSource(1);
    SetUnhandledExceptionFilter(theUnhandledExceptionHandler);
    if (HasSwitch(GetCommandLineW(), L"Debug")) {
        // Without events: the machine starts, finds that it has nothing to wait for, and stops.
        CNeverSleepState::Run();
    } else {
        RunStateMachine();
    }
    return 0;
}
