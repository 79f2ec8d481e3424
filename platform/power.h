// Power plans, power requests, power status and capabilities.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

#include <powrprof.h>

#else

// --- Predefined plans ---
inline constexpr GUID GUID_MAX_POWER_SAVINGS{
    0xA1841308, 0x3541, 0x4FAB, {0xBC, 0x81, 0xF7, 0x15, 0x56, 0xF2, 0x0B, 0x4A}};
inline constexpr GUID GUID_MIN_POWER_SAVINGS{
    0x8C5E7FDA, 0xE8BF, 0x4A96, {0x9A, 0x85, 0xA6, 0xE2, 0x3A, 0x8C, 0x63, 0x5C}};
inline constexpr GUID GUID_TYPICAL_POWER_SAVINGS{
    0x381B4222, 0xF694, 0x41F0, {0x96, 0x85, 0xFF, 0x5B, 0xB2, 0x60, 0xDF, 0x2E}};

// --- Notifications about the PC and its user: 32-bit values ---
// 1 on entering away mode, 0 on leaving it.
inline constexpr GUID GUID_SYSTEM_AWAYMODE{
    0x98A7F580, 0x01F7, 0x48AA, {0x9C, 0x0F, 0x44, 0x35, 0x2C, 0x29, 0xE5, 0xC0}};
// The display: 1 on, 0 off.
inline constexpr GUID GUID_MONITOR_POWER_ON{
    0x02731015, 0x4510, 0x4526, {0x99, 0xE6, 0xE5, 0xA1, 0x7E, 0xBD, 0x1A, 0xEA}};
// The user: 0 present, 1 not present, 2 inactive.
inline constexpr GUID GUID_GLOBAL_USER_PRESENCE{
    0x786E8A1D, 0xB427, 0x4344, {0x92, 0x07, 0x09, 0xE7, 0x0B, 0xDC, 0xBE, 0xA9}};

// --- Subgroups of settings ---
inline constexpr GUID GUID_SLEEP_SUBGROUP{
    0x238C9FA8, 0x0AAD, 0x41ED, {0x83, 0xF4, 0x97, 0xBE, 0x24, 0x2C, 0x8F, 0x20}};
inline constexpr GUID GUID_PROCESSOR_SETTINGS_SUBGROUP{
    0x54533251, 0x82BE, 0x4824, {0x96, 0xC1, 0x47, 0xB6, 0x0B, 0x74, 0x0D, 0x00}};
inline constexpr GUID GUID_VIDEO_SUBGROUP{
    0x7516B95F, 0xF776, 0x4464, {0x8C, 0x53, 0x06, 0x16, 0x7F, 0x40, 0xCC, 0x99}};
inline constexpr GUID GUID_SYSTEM_BUTTON_SUBGROUP{
    0x4F971E89, 0xEEBD, 0x4455, {0xA8, 0xDE, 0x9E, 0x59, 0x04, 0x0E, 0x73, 0x47}};
inline constexpr GUID NO_SUBGROUP_GUID{
    0xFEA3413E, 0x7E05, 0x4911, {0x9A, 0x71, 0x70, 0x03, 0x31, 0xF1, 0xC2, 0x94}};

// --- Settings: each an unsigned 32-bit index, for mains power (AC) and for battery (DC) ---
// Idle seconds before sleep; 0 never.
inline constexpr GUID GUID_STANDBY_TIMEOUT{
    0x29F6C1DB, 0x86DA, 0x48C5, {0x9F, 0xDB, 0xF2, 0xB6, 0x7B, 0x1F, 0x44, 0xDA}};
// Wake timers: 0 disabled, 1 enabled.
inline constexpr GUID GUID_ALLOW_RTC_WAKE{
    0xBD3B718A, 0x0680, 0x4D9D, {0x8A, 0xB2, 0xE1, 0xD2, 0xB4, 0xAC, 0x80, 0x6D}};
// Away mode: 0 not allowed, 1 allowed.
inline constexpr GUID GUID_ALLOW_AWAYMODE{
    0x25DFA149, 0x5DD1, 0x4736, {0xB5, 0xAB, 0xE8, 0xA3, 0x7B, 0x5B, 0x81, 0x87}};
// Hybrid sleep: 0 off, 1 on.
inline constexpr GUID GUID_HIBERNATE_FASTS4_POLICY{
    0x94AC6D29, 0x73CE, 0x41A6, {0x80, 0x9F, 0x63, 0x63, 0xBA, 0x21, 0xB4, 0x7E}};
// Processor states, percent.
inline constexpr GUID GUID_PROCESSOR_THROTTLE_MINIMUM{
    0x893DEE8E, 0x2BEF, 0x41E0, {0x89, 0xC6, 0xB5, 0x5D, 0x09, 0x29, 0x96, 0x4C}};
inline constexpr GUID GUID_PROCESSOR_THROTTLE_MAXIMUM{
    0xBC5038F7, 0x23E0, 0x4960, {0x96, 0xDA, 0x33, 0xAB, 0xAF, 0x59, 0x35, 0xEC}};
// Seconds before the display goes off; 0 never.
inline constexpr GUID GUID_VIDEO_POWERDOWN_TIMEOUT{
    0x3C0BC021, 0xC8A8, 0x4E07, {0xA9, 0x73, 0x6B, 0x14, 0xCB, 0xCB, 0x2B, 0x7E}};
// Percent.
inline constexpr GUID GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS{
    0xADED5E82, 0xB909, 0x4619, {0x99, 0x49, 0xF5, 0xD7, 0x1D, 0xAC, 0x0B, 0xCB}};
// 0 nothing, 1 sleep, 2 hibernate, 3 shut down.
inline constexpr GUID GUID_POWERBUTTON_ACTION{
    0x7648EFA3, 0xDD9C, 0x4E3E, {0xB5, 0x66, 0x50, 0xF9, 0x29, 0x38, 0x62, 0x80}};
// Password on wake: 0 no, 1 yes.
inline constexpr GUID GUID_LOCK_CONSOLE_ON_WAKE{
    0x0E796BDB, 0x100D, 0x47D6, {0xA2, 0xD5, 0xF7, 0xD2, 0xDA, 0xA5, 0x1F, 0x51}};

// --- Notifications about power, besides GUID_STANDBY_TIMEOUT ---
// 32 bits: 0 mains, 1 battery, 2 an uninterruptible power supply.
inline constexpr GUID GUID_ACDC_POWER_SOURCE{
    0x5D3E9A59, 0xE9D5, 0x4B00, {0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48}};
// A GUID: the predefined plan that the active plan resembles.
inline constexpr GUID GUID_POWERSCHEME_PERSONALITY{
    0x245D8541, 0x3943, 0x4422, {0xB0, 0x25, 0x13, 0xA7, 0x84, 0xF6, 0x79, 0xB7}};

// --- Status and capabilities ---
struct SYSTEM_POWER_STATUS
{
    BYTE ACLineStatus;        // 0 offline, 1 online, 255 unknown
    BYTE BatteryFlag;         // bits: 1 high, 2 low, 4 critical, 8 charging, 128 no battery
    BYTE BatteryLifePercent;  // 0 to 100, 255 unknown
    BYTE SystemStatusFlag;
    DWORD BatteryLifeTime;      // seconds, 0xFFFFFFFF unknown
    DWORD BatteryFullLifeTime;  // seconds, 0xFFFFFFFF unknown
};

using BOOLEAN = BYTE;

struct BATTERY_REPORTING_SCALE
{
    DWORD Granularity;
    DWORD Capacity;
};

enum SYSTEM_POWER_STATE
{
    PowerSystemUnspecified = 0,
    PowerSystemWorking = 1,
    PowerSystemSleeping1 = 2,
    PowerSystemSleeping2 = 3,
    PowerSystemSleeping3 = 4,
    PowerSystemHibernate = 5,
    PowerSystemShutdown = 6,
    PowerSystemMaximum = 7
};

struct SYSTEM_POWER_CAPABILITIES
{
    BOOLEAN PowerButtonPresent;
    BOOLEAN SleepButtonPresent;
    BOOLEAN LidPresent;
    BOOLEAN SystemS1;
    BOOLEAN SystemS2;
    BOOLEAN SystemS3;
    BOOLEAN SystemS4;
    BOOLEAN SystemS5;
    BOOLEAN HiberFilePresent;
    BOOLEAN FullWake;
    BOOLEAN VideoDimPresent;
    BOOLEAN ApmPresent;
    BOOLEAN UpsPresent;
    BOOLEAN ThermalControl;
    BOOLEAN ProcessorThrottle;
    BYTE ProcessorMinThrottle;
    BYTE ProcessorMaxThrottle;
    BOOLEAN FastSystemS4;
    BYTE spare2[3];
    BOOLEAN DiskSpinDown;
    BYTE spare3[8];
    BOOLEAN SystemBatteriesPresent;
    BOOLEAN BatteriesAreShortTerm;
    BATTERY_REPORTING_SCALE BatteryScale[3];
    SYSTEM_POWER_STATE AcOnLineWake;
    SYSTEM_POWER_STATE SoftLidWake;
    SYSTEM_POWER_STATE RtcWake;
    SYSTEM_POWER_STATE MinDeviceWakeState;
    SYSTEM_POWER_STATE DefaultLowLatencyWake;
};
static_assert(sizeof(SYSTEM_POWER_CAPABILITIES) == 76);

enum POWER_INFORMATION_LEVEL
{
    SystemPowerCapabilities = 4,
    SystemPowerInformation = 12
};

using NTSTATUS = LONG;

// --- Requests ---
#define POWER_REQUEST_CONTEXT_VERSION 0
#define POWER_REQUEST_CONTEXT_SIMPLE_STRING 0x00000001u

struct REASON_CONTEXT
{
    ULONG Version;
    DWORD Flags;
    union
    {
        struct
        {
            HMODULE LocalizedReasonModule;
            ULONG LocalizedReasonId;
            ULONG ReasonStringCount;
            LPWSTR* ReasonStrings;
        } Detailed;
        LPWSTR SimpleReasonString;
    } Reason;
};
using PREASON_CONTEXT = REASON_CONTEXT*;

enum POWER_REQUEST_TYPE
{
    PowerRequestDisplayRequired = 0,
    PowerRequestSystemRequired = 1,
    PowerRequestAwayModeRequired = 2
};

extern "C" {

// Read or write one setting of a plan, for AC or DC. They return a Win32 error code
// (ERROR_FILE_NOT_FOUND for an unknown plan or setting, or another subgroup than the setting's) and
// leave the last error unchanged. Values written to the active plan take effect when it is next
// activated. Callers pass null for the root key. Any thread.
DWORD WINAPI PowerReadACValueIndex(HKEY root, const GUID* scheme, const GUID* subgroup,
                                   const GUID* setting, LPDWORD value);
DWORD WINAPI PowerReadDCValueIndex(HKEY root, const GUID* scheme, const GUID* subgroup,
                                   const GUID* setting, LPDWORD value);
DWORD WINAPI PowerWriteACValueIndex(HKEY root, const GUID* scheme, const GUID* subgroup,
                                    const GUID* setting, DWORD value);
DWORD WINAPI PowerWriteDCValueIndex(HKEY root, const GUID* scheme, const GUID* subgroup,
                                    const GUID* setting, DWORD value);

// The active plan, in memory that the caller frees with LocalFree.
DWORD WINAPI PowerGetActiveScheme(HKEY root, GUID** scheme);

// Activates a plan. Activating the active plan puts the values written to it into effect. 1260
// where a group policy names the active plan.
DWORD WINAPI PowerSetActiveScheme(HKEY root, const GUID* scheme);

// Returns null on success.
HANDLE WINAPI LocalFree(HANDLE memory);

BOOL WINAPI GetSystemPowerStatus(SYSTEM_POWER_STATUS* status);
BYTE WINAPI GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* capabilities);

// Queries one kind of power information into `output`; zero on success, a status otherwise.
NTSTATUS WINAPI CallNtPowerInformation(POWER_INFORMATION_LEVEL level, PVOID input, ULONG inputSize,
                                       PVOID output, ULONG outputSize);

// Puts the machine to sleep (`hibernate` FALSE). Returns when it has woken again, or has entered
// away mode instead. With `wakeEventsDisabled` no timer wakes it. FALSE with the last error set
// when it does not sleep.
BOOLEAN WINAPI SetSuspendState(BOOLEAN hibernate, BOOLEAN force, BOOLEAN wakeEventsDisabled);

// Creates a power request, not set. Returns a handle, or INVALID_HANDLE_VALUE with the last error
// set. CloseHandle also clears the request.
HANDLE WINAPI PowerCreateRequest(PREASON_CONTEXT context);

// Set and clear the request for one type. The system counts sets: the request holds while the count
// is above zero. FALSE with the last error set on failure, as when a clear finds the count at zero.
BOOL WINAPI PowerSetRequest(HANDLE request, POWER_REQUEST_TYPE type);
BOOL WINAPI PowerClearRequest(HANDLE request, POWER_REQUEST_TYPE type);
}

#endif

// The result of CallNtPowerInformation for SystemPowerInformation. The SDK does not declare it.
struct SYSTEM_POWER_INFORMATION
{
    ULONG MaxIdlenessAllowed;  // percent
    ULONG Idleness;            // percent
    // Seconds before the idle PC sleeps. Continues below zero while something keeps the PC awake.
    ULONG TimeRemaining;
    BYTE CoolingMode;
};
static_assert(sizeof(SYSTEM_POWER_INFORMATION) == 16);
