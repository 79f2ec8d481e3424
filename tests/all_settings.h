// Every setting that is loaded at the service's start.
#pragma once

#include "settings/settings.h"

struct NamedSetting
{
    const wchar_t* name;  // in the registry
    const Setting& global;
    DWORD built_in;
};

inline const NamedSetting kAllSettings[] = {
    {L"LoggingLevel", g_dwLoggingLevel, 4},
    {L"LoggingEnabled", g_dwLoggingEnabled, 7},
    {L"EnableNeverSleep", g_bEnableNeverSleep, 1},
    {L"MuteAudio", g_bMuteAudio, 0},
    {L"EnableDoNotDisturb", g_bEnableDoNotDisturb, 1},
    {L"DoNotDisturbStart", g_dwDoNotDisturbStart, 1320},
    {L"DoNotDisturbEnd", g_dwDoNotDisturbEnd, 360},
    {L"EnableSoftwareUpdate", g_bEnableSoftwareUpdate, 1},
    {L"LyncInstalled", g_bLyncInstalled, 0},
    {L"LastUpdateVersion", g_dwLastUpdateVersion, 2147483647},
    {L"MaxCpuPowerLimit", g_dwMaxCpuPowerLimit, 50},
    {L"CpuIdleThreshold", g_dwCpuIdleThreshold, 5},
    {L"DebugEnabled", g_bDebugEnabled, 0},
    {L"UseOemPowerScheme", g_bUseOemPowerScheme, 0},
    {L"EnableHOLVOnDc", g_bEnableHolvOnDC, 1},
    {L"TurnOnDisplayOnLync", g_bTurnOnDisplayOnLync, 1},
    {L"SuspendBatteryThreshold", g_dwSuspendBatteryThreshold, 15},
    {L"AppDisplayTimeout", g_dwAppDisplayTimeout, 30},
    {L"CpuUsageCheckInterval", g_dwCpuUsageCheckInterval, 10},
    {L"BatteryUsageCheckInterval", g_dwBatteryUsageCheckInterval, 10},
    {L"DndToS3", g_bDndToS3, 0},
};
