// The process entry.

#include "log/event_source.h"
#include "log/log.h"
#include "platform/module.h"
#include "service/command_line.h"
#include "service/module.h"
#include "service/platform_check.h"
#include "service/unhandled_exception.h"
#include "settings/settings.h"
#include "settings/settings_store.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int show)
{
    constexpr const wchar_t* kFunction = L"wWinMain";
    CNeverSleepModule& module = Module();
    RegInit();
    Log(6, kFunction, L"EnableHOLV (%d), MuteAudio(%d), EnableDND(%d), DND Time(%d-%d)",
        g_bEnableNeverSleep, g_bMuteAudio, g_bEnableDoNotDisturb, g_dwDoNotDisturbStart,
        g_dwDoNotDisturbEnd);
    InstallEventLogSource(1);
    SetUnhandledExceptionFilter(theUnhandledExceptionHandler);
    if (!IsPlatformSupported()) {
        Log(1, kFunction, L"Platform not Supported");
        return 1;
    }
    if (module.failed()) return -1;
    HRESULT hr = S_OK;
    const int result = ParseCommandLine(GetCommandLineW(), hr) ? module.Start(show) : hr;
    module.UninitializeCom();
    return result;
}
