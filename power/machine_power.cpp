#include "power/machine_power.h"

#include <atomic>

#include "log/log.h"

namespace {

std::atomic<int> g_known_charge = -1;  // percent

}  // namespace

BOOL ReadPowerStatus(SYSTEM_POWER_STATUS* status)
{
    constexpr BYTE kNoBattery = 128;
    constexpr BYTE kMostPercent = 100;
    if (!GetSystemPowerStatus(status)) return FALSE;
    const BYTE percent = status->BatteryLifePercent;
    const bool known = !(status->BatteryFlag & kNoBattery) && percent <= kMostPercent;
    g_known_charge = known ? percent : -1;
    return TRUE;
}

std::optional<int> KnownCharge()
{
    const int charge = g_known_charge;
    return charge < 0 ? std::nullopt : std::optional(charge);
}

BOOL IsBatteryPresent()
{
    constexpr const wchar_t* kFunction = L"IsBatteryPresent";
    SYSTEM_POWER_CAPABILITIES capabilities{};
    if (!GetPwrCapabilities(&capabilities)) return FALSE;
    if (capabilities.SystemBatteriesPresent && !capabilities.BatteriesAreShortTerm) {
        Log(2, kFunction, L"This platform has a battery");
        return TRUE;
    }
    Log(2, kFunction, L"This platform does not have a battery");
    return FALSE;
}

BOOL IsS3Available()
{
    constexpr const wchar_t* kFunction = L"IsS3Available";
    SYSTEM_POWER_CAPABILITIES capabilities{};
    static_assert(sizeof(capabilities) == 76);
    if (CallNtPowerInformation(SystemPowerCapabilities, nullptr, 0, &capabilities,
                               sizeof(capabilities)) != 0) {
        Log(6, kFunction, L"CallNtPowerInformation call failed, assuming S3 not supported");
        return FALSE;
    }
    if (!capabilities.SystemS3) {
        Log(6, kFunction, L"CallNtPowerInformation called, S3 not supported");
        return FALSE;
    }
    Log(6, kFunction, L"CallNtPowerInformation called, is S3 supported");
    return TRUE;
}
