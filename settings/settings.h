// The settings as the running service sees them: one process-wide value for each registry value,
// loaded once at process start by settings_store and changed afterwards only by the control
// interface. Every thread reads them without a lock and sees the old or the new value.
#pragma once

#include <atomic>

#include "platform/base.h"

using Setting = std::atomic<DWORD>;

extern Setting g_dwLoggingLevel;
extern Setting g_dwLoggingEnabled;
extern Setting g_bEnableNeverSleep;
extern Setting g_bMuteAudio;
extern Setting g_bEnableDoNotDisturb;
extern Setting g_dwDoNotDisturbStart;  // minutes since local midnight
extern Setting g_dwDoNotDisturbEnd;    // minutes since local midnight
extern Setting g_bEnableSoftwareUpdate;
extern Setting g_bLyncInstalled;
extern Setting g_dwLastUpdateVersion;
extern Setting g_dwMaxCpuPowerLimit;  // percent
extern Setting g_dwCpuIdleThreshold;  // percent
extern Setting g_bDebugEnabled;
extern Setting g_bUseOemPowerScheme;
extern Setting g_bEnableHolvOnDC;
extern Setting g_bTurnOnDisplayOnLync;
extern Setting g_dwSuspendBatteryThreshold;    // percent
extern Setting g_dwAppDisplayTimeout;          // passed unchanged to the Lync helper
extern Setting g_dwCpuUsageCheckInterval;      // seconds
extern Setting g_dwBatteryUsageCheckInterval;  // seconds
extern Setting g_bDndToS3;
extern Setting g_bEnableAppSuspend;  // never loaded: 0 in every new process

// A plan's GUID as text, without braces. Written only while the settings are loaded, before any
// thread is started.
inline constexpr DWORD kOemPowerSchemeLength = 128;  // characters, terminator included
extern wchar_t g_szOemPowerScheme[kOemPowerSchemeLength];
