// Internal to power/: the plan settings that it reads and writes.
#pragma once

#include <cstring>

#include "platform/owned.h"
#include "power/power_policy_manager.h"

inline bool SameScheme(const GUID& a, const GUID& b)
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

// "Power Saver", "High Performance", "Balanced"; "A custom" for any other plan.
const wchar_t* GetSchemeTitle(const GUID& scheme);

using OwnedScheme = Owned<GUID*, LocalFree>;

// A setting of a plan: how to read and write it, and its fields in PowerSchemeConfig.
struct PlanSetting
{
    BOOL (*get)(const GUID* scheme, BOOL bAc, DWORD* value, bool* read);
    BOOL (*set)(const GUID* scheme, BOOL bAc, DWORD value);  // null where it is never written
    DWORD PowerSchemeConfig::*ac;
    DWORD PowerSchemeConfig::*dc;

    DWORD PowerSchemeConfig::*Field(BOOL bAc) const { return bAc ? ac : dc; }
};

using Manager = CPowerPolicyManager;
using Config = PowerSchemeConfig;

inline constexpr PlanSetting kProcMax{&Manager::GetProcPowerMaxValue,
                                      &Manager::SetProcPowerMaxValue, &Config::dwProcMaxAc,
                                      &Config::dwProcMaxDc};
inline constexpr PlanSetting kProcMin{&Manager::GetProcPowerMinValue,
                                      &Manager::SetProcPowerMinValue, &Config::dwProcMinAc,
                                      &Config::dwProcMinDc};
inline constexpr PlanSetting kSleepTimeout{&Manager::GetSleepTimeoutValue,
                                           &Manager::SetSleepTimeoutValue,
                                           &Config::dwSleepTimeoutAc, &Config::dwSleepTimeoutDc};
inline constexpr PlanSetting kDisplayTimeout{&Manager::GetDisplayTimeoutValue, nullptr,
                                             &Config::dwDisplayTimeoutAc,
                                             &Config::dwDisplayTimeoutDc};
inline constexpr PlanSetting kBrightness{&Manager::GetDisplayBrightnessValue,
                                         &Manager::SetDisplayBrightnessValue,
                                         &Config::dwBrightnessAc, &Config::dwBrightnessDc};
inline constexpr PlanSetting kPowerButton{&Manager::GetPowerButtonPressActionValue, nullptr,
                                          &Config::dwPowerButtonAc, &Config::dwPowerButtonDc};
inline constexpr PlanSetting kRtcWake{&Manager::GetRtcWakeValue, &Manager::SetRtcWakeValue,
                                      &Config::dwRtcWakeAc, &Config::dwRtcWakeDc};
inline constexpr PlanSetting kAwayMode{&Manager::GetAwayModeValue, &Manager::SetAwayModeValue,
                                       &Config::dwAwayModeAc, &Config::dwAwayModeDc};
inline constexpr PlanSetting kPasswordRequired{
    &Manager::GetPasswordRequiredValue, &Manager::SetPasswordRequiredValue,
    &Config::dwPasswordRequiredAc, &Config::dwPasswordRequiredDc};
