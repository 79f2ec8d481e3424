#include "power/machine_power.h"

#include "log/log.h"
#include "platform/power.h"

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
