#include "settings/settings.h"

// The values in use until RegInit has loaded the settings, and after it when it could not.

Setting g_dwLoggingLevel{4};
// RegInit's default is 7: bit 1 belongs to no output, so both values log to the same ones.
Setting g_dwLoggingEnabled{6};
Setting g_bEnableNeverSleep{1};
Setting g_bMuteAudio{0};
Setting g_bEnableDoNotDisturb{1};
Setting g_dwDoNotDisturbStart{22 * 60};
Setting g_dwDoNotDisturbEnd{6 * 60};
Setting g_bEnableSoftwareUpdate{1};
Setting g_bLyncInstalled{0};
Setting g_dwLastUpdateVersion{0x7FFFFFFF};
Setting g_dwMaxCpuPowerLimit{50};
Setting g_dwCpuIdleThreshold{5};
Setting g_bDebugEnabled{0};
Setting g_bUseOemPowerScheme{0};
Setting g_bEnableHolvOnDC{1};
Setting g_bTurnOnDisplayOnLync{1};
Setting g_dwSuspendBatteryThreshold{15};
Setting g_dwAppDisplayTimeout{30};
Setting g_dwCpuUsageCheckInterval{10};
Setting g_dwBatteryUsageCheckInterval{10};
Setting g_bDndToS3{0};
Setting g_bEnableAppSuspend{0};

wchar_t g_szOemPowerScheme[kOemPowerSchemeLength] = L"0";
