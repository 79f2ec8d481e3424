#include "state/feature.h"

#include "log/log.h"
#include "settings/settings.h"

bool IsFeatureOff(const wchar_t* function)
{
    if (g_bEnableNeverSleep) return false;
    Log(6, function, L"Holv is disabled, do nothing");
    return true;
}
