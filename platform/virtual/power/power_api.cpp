// Power plans, status, capabilities and requests, and the processors' times.

#include "platform/kernel.h"
#include "platform/power.h"

#include <cstring>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/processor.h"
#include "platform/virtual/power/sleep.h"

using namespace virtual_pc;

namespace {

Function fn_power_read_ac{"PowerReadACValueIndex", Failing::status};
Function fn_power_read_dc{"PowerReadDCValueIndex", Failing::status};
Function fn_power_write_ac{"PowerWriteACValueIndex", Failing::status, Role::acts};
Function fn_power_write_dc{"PowerWriteDCValueIndex", Failing::status, Role::acts};
Function fn_power_get_active_scheme{"PowerGetActiveScheme", Failing::status};
Function fn_power_set_active_scheme{"PowerSetActiveScheme", Failing::status, Role::acts};
Function fn_get_system_power_status{"GetSystemPowerStatus"};
Function fn_get_pwr_capabilities{"GetPwrCapabilities"};
Function fn_call_nt_power_information{"CallNtPowerInformation", Failing::status};
Function fn_set_suspend_state{"SetSuspendState"};
Function fn_get_system_times{"GetSystemTimes"};
Function fn_local_free{"LocalFree", Failing::never, Role::releases};
Function fn_power_create_request{"PowerCreateRequest"};
Function fn_power_set_request{"PowerSetRequest", Failing::last_error, Role::acts};
Function fn_power_clear_request{"PowerClearRequest", Failing::last_error, Role::acts};

// Whether a fault of the plan makes a call fail.
bool FailsForPlan(Call& call, const GUID& guid)
{
    const PowerPlan* plan = call.faulty() ? call.machine.power.FindPlan(guid) : nullptr;
    return plan && call.FailsFor(plan->name);
}

// What a call answers that has `done` its work, or has not found what it was for.
DWORD Answer(Call& call, bool done)
{
    if (!done) return ERROR_FILE_NOT_FOUND;
    return call.Denies() ? call.error() : ERROR_SUCCESS;
}

constexpr DWORD kErrorDisabledByPolicy = 1260;

DWORD ReadValue(Function& function, PowerSource source, const GUID* scheme, const GUID* subgroup,
                const GUID* setting, LPDWORD value)
{
    Call call(function);
    if (call.Fails()) return call.error();
    if (!scheme || !setting || !value) return ERROR_INVALID_PARAMETER;
    if (!StandsUnder(subgroup, *setting)) return ERROR_FILE_NOT_FOUND;
    if (FailsForPlan(call, *scheme)) return call.error();
    const std::optional<DWORD> read = call.machine.power.Read(*scheme, *setting, source);
    if (!read) return ERROR_FILE_NOT_FOUND;
    *value = *read;
    return ERROR_SUCCESS;
}

DWORD WriteValue(Function& function, PowerSource source, const GUID* scheme, const GUID* subgroup,
                 const GUID* setting, DWORD value)
{
    Call call(function);
    if (call.Fails()) return call.error();
    if (!scheme || !setting) return ERROR_INVALID_PARAMETER;
    if (!StandsUnder(subgroup, *setting)) return ERROR_FILE_NOT_FOUND;
    if (FailsForPlan(call, *scheme)) return call.error();
    return Answer(call,
                  call.Pretends() || call.machine.power.Write(*scheme, *setting, source, value));
}

// High above 66 %, low below 33 %, critical below 5 %, and charging.
BYTE BatteryFlag(const Power& power)
{
    constexpr BYTE kHigh = 1, kLow = 2, kCritical = 4, kCharging = 8, kNone = 128, kUnknown = 255;
    if (!power.battery_present) return kNone;
    const BYTE percent = power.battery_percent;
    if (percent > 100) return kUnknown;
    BYTE flag = 0;
    if (percent > 66) flag = kHigh;
    if (percent < 33) flag = kLow;
    if (percent < 5) flag = kCritical;
    const bool charging = power.source() == PowerSource::ac && percent < 100;
    return static_cast<BYTE>(flag | (charging ? kCharging : 0));
}

SYSTEM_POWER_CAPABILITIES Capabilities(const Power& power)
{
    SYSTEM_POWER_CAPABILITIES capabilities{};
    capabilities.PowerButtonPresent = TRUE;
    capabilities.SystemS3 = power.s3_supported;
    capabilities.SystemS4 = TRUE;
    capabilities.SystemS5 = TRUE;
    capabilities.ProcessorThrottle = TRUE;
    capabilities.ProcessorMaxThrottle = 100;
    capabilities.SystemBatteriesPresent = power.battery_present;
    capabilities.BatteriesAreShortTerm = power.batteries_short_term;
    return capabilities;
}

SYSTEM_POWER_INFORMATION Information(const Machine& machine)
{
    SYSTEM_POWER_INFORMATION information{};
    information.MaxIdlenessAllowed = 90;
    information.Idleness = 100 - machine.processor.load();
    information.TimeRemaining = machine.sleep.IdleSecondsLeft();
    return information;
}

constexpr NTSTATUS kStatusInvalidParameter = static_cast<NTSTATUS>(0xC000000Du);
constexpr NTSTATUS kStatusBufferTooSmall = static_cast<NTSTATUS>(0xC0000023u);

template <class T>
NTSTATUS Give(const T& what, PVOID output, ULONG outputSize)
{
    if (!output) return kStatusInvalidParameter;
    if (outputSize < sizeof(what)) return kStatusBufferTooSmall;
    std::memcpy(output, &what, sizeof(what));
    return 0;
}

}  // namespace

extern "C" {

BOOL WINAPI GetSystemTimes(FILETIME* idle, FILETIME* kernel, FILETIME* user)
{
    Call call(fn_get_system_times);
    if (call.Fails()) return FALSE;
    const Processor::Times times = call.machine.processor.times();
    const auto give = [](FILETIME* to, Duration time) {
        if (!to) return;
        const auto units = static_cast<std::uint64_t>(time.count());
        *to = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    };
    give(idle, times.idle);
    give(kernel, times.kernel);
    give(user, times.user);
    return TRUE;
}

DWORD WINAPI PowerReadACValueIndex(HKEY, const GUID* scheme, const GUID* subgroup,
                                   const GUID* setting, LPDWORD value)
{
    return ReadValue(fn_power_read_ac, PowerSource::ac, scheme, subgroup, setting, value);
}

DWORD WINAPI PowerReadDCValueIndex(HKEY, const GUID* scheme, const GUID* subgroup,
                                   const GUID* setting, LPDWORD value)
{
    return ReadValue(fn_power_read_dc, PowerSource::dc, scheme, subgroup, setting, value);
}

DWORD WINAPI PowerWriteACValueIndex(HKEY, const GUID* scheme, const GUID* subgroup,
                                    const GUID* setting, DWORD value)
{
    return WriteValue(fn_power_write_ac, PowerSource::ac, scheme, subgroup, setting, value);
}

DWORD WINAPI PowerWriteDCValueIndex(HKEY, const GUID* scheme, const GUID* subgroup,
                                    const GUID* setting, DWORD value)
{
    return WriteValue(fn_power_write_dc, PowerSource::dc, scheme, subgroup, setting, value);
}

DWORD WINAPI PowerGetActiveScheme(HKEY, GUID** scheme)
{
    Call call(fn_power_get_active_scheme);
    if (call.Fails()) return call.error();
    if (!scheme) return ERROR_INVALID_PARAMETER;
    *scheme = static_cast<GUID*>(Allocate(call, sizeof(GUID), "local memory"));
    **scheme = call.machine.power.active().guid;
    return ERROR_SUCCESS;
}

DWORD WINAPI PowerSetActiveScheme(HKEY, const GUID* scheme)
{
    Call call(fn_power_set_active_scheme);
    if (call.Fails()) return call.error();
    if (!scheme) return ERROR_INVALID_PARAMETER;
    if (call.machine.power.PolicyNamesPlan()) return kErrorDisabledByPolicy;
    if (FailsForPlan(call, *scheme)) return call.error();
    return Answer(call, call.Pretends() || call.machine.power.Activate(*scheme));
}

BOOL WINAPI GetSystemPowerStatus(SYSTEM_POWER_STATUS* status)
{
    Call call(fn_get_system_power_status);
    if (call.Fails()) return FALSE;
    const Power& power = call.machine.power;
    *status = {};
    status->ACLineStatus = power.line;
    status->BatteryFlag = BatteryFlag(power);
    status->BatteryLifePercent = power.battery_present ? power.battery_percent : 255;
    status->BatteryLifeTime = 0xFFFFFFFF;
    status->BatteryFullLifeTime = 0xFFFFFFFF;
    return TRUE;
}

BYTE WINAPI GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* capabilities)
{
    Call call(fn_get_pwr_capabilities);
    if (call.Fails()) return FALSE;
    *capabilities = Capabilities(call.machine.power);
    return TRUE;
}

NTSTATUS WINAPI CallNtPowerInformation(POWER_INFORMATION_LEVEL level, PVOID, ULONG inputSize,
                                       PVOID output, ULONG outputSize)
{
    Call call(fn_call_nt_power_information);
    if (call.Fails()) return static_cast<NTSTATUS>(call.error());
    if (inputSize > 0) return kStatusInvalidParameter;  // neither level has an input
    if (level == SystemPowerCapabilities) {
        return Give(Capabilities(call.machine.power), output, outputSize);
    }
    if (level == SystemPowerInformation) {
        return Give(Information(call.machine), output, outputSize);
    }
    return kStatusInvalidParameter;
}

BOOLEAN WINAPI SetSuspendState(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wakeEventsDisabled)
{
    Call call(fn_set_suspend_state);
    if (call.Fails()) return FALSE;
    SleepState& sleep = call.machine.sleep;
    std::wstring why = L"a program";
    if (!force) why += L", if all agree";
    if (wakeEventsDisabled) why += L", until a user wakes it";
    if (hibernate || !sleep.Ask(why, !wakeEventsDisabled)) {
        call.Fail(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    sleep.AwaitResume(call.thread);
    return TRUE;
}

HANDLE WINAPI LocalFree(HANDLE memory)
{
    Call call(fn_local_free);
    return Free(call, memory) ? nullptr : memory;
}

HANDLE WINAPI PowerCreateRequest(PREASON_CONTEXT context)
{
    Call call(fn_power_create_request);
    if (call.Fails()) return INVALID_HANDLE_VALUE;
    if (!context || context->Version != POWER_REQUEST_CONTEXT_VERSION ||
        context->Flags != POWER_REQUEST_CONTEXT_SIMPLE_STRING) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    return call.Open(
        call.machine.power.NewRequest(call.process().path(), context->Reason.SimpleReasonString));
}

BOOL WINAPI PowerSetRequest(HANDLE handle, POWER_REQUEST_TYPE type)
{
    Call call(fn_power_set_request);
    if (call.Fails()) return FALSE;
    auto* request = call.Find<PowerRequest>(handle);
    if (!request) return FALSE;
    if (call.Pretends()) return TRUE;
    return call.machine.power.SetRequest(*request, type) && !call.Denies();
}

BOOL WINAPI PowerClearRequest(HANDLE handle, POWER_REQUEST_TYPE type)
{
    Call call(fn_power_clear_request);
    if (call.Fails()) return FALSE;
    auto* request = call.Find<PowerRequest>(handle);
    if (!request) return FALSE;
    if (call.Pretends()) return TRUE;
    if (!call.machine.power.ClearRequest(*request, type)) return call.Fail(ERROR_INVALID_PARAMETER);
    return !call.Denies();
}
}
