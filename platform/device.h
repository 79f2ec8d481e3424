// Devices: finding them and their interfaces, and sending a device a request.
#pragma once

#include <cstddef>

#include "platform/base.h"

#ifdef _WIN32

#include <cfgmgr32.h>
#include <setupapi.h>
#include <winioctl.h>

#else

#define DIGCF_PRESENT 0x00000002u
#define DIGCF_ALLCLASSES 0x00000004u
#define DIGCF_DEVICEINTERFACE 0x00000010u
#define SPINT_ACTIVE 0x00000001u

#define CR_SUCCESS 0x00000000u
#define MAX_DEVICE_ID_LEN 200

#define METHOD_BUFFERED 0u
#define FILE_ANY_ACCESS 0u
#define CTL_CODE(type, function, method, access) \
    (((type) << 16) | ((access) << 14) | ((function) << 2) | (method))

using HDEVINFO = PVOID;
using DEVINST = DWORD;
using CONFIGRET = DWORD;

struct SP_DEVINFO_DATA
{
    DWORD cbSize;
    GUID ClassGuid;
    DEVINST DevInst;  // for CM_Get_Device_IDW
    ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;

struct SP_DEVICE_INTERFACE_DATA
{
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};
using PSP_DEVICE_INTERFACE_DATA = SP_DEVICE_INTERFACE_DATA*;

struct SP_DEVICE_INTERFACE_DETAIL_DATA_W
{
    DWORD cbSize;         // sizeof this structure, without the rest of the path
    WCHAR DevicePath[1];  // continues up to a terminator
};
using PSP_DEVICE_INTERFACE_DETAIL_DATA_W = SP_DEVICE_INTERFACE_DETAIL_DATA_W*;

struct OVERLAPPED;

extern "C" {

// Creates a set of the devices as they are now: all devices (DIGCF_ALLCLASSES, a null class), or
// those with an interface of a class (DIGCF_DEVICEINTERFACE); with DIGCF_PRESENT only present ones.
// The set may be empty. The caller releases it with SetupDiDestroyDeviceInfoList;
// INVALID_HANDLE_VALUE with the last error set on failure. `enumerator` is null.
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* interfaceClass, PCWSTR enumerator, HWND parent,
                                     DWORD flags);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);

// The set's device, or device interface of a class, at an index from 0, in a record whose cbSize
// the caller has set. FALSE with ERROR_NO_MORE_ITEMS (259) past the end. A null `device` means the
// interfaces of all devices in the set.
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA device,
                                        const GUID* interfaceClass, DWORD index,
                                        PSP_DEVICE_INTERFACE_DATA deviceInterface);

// Writes an interface's path, for CreateFileW, into `size` bytes whose cbSize the caller has set.
// When they are too few (also for a null `detail` and `size` 0), FALSE with
// ERROR_INSUFFICIENT_BUFFER and the bytes needed in *required. `device` is null.
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set,
                                             PSP_DEVICE_INTERFACE_DATA deviceInterface,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             DWORD* required, PSP_DEVINFO_DATA device);

// A device's instance id, at most MAX_DEVICE_ID_LEN characters and a terminator. CR_SUCCESS, or
// another code on failure; the last error is unchanged. `flags` is 0.
CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST device, PWSTR id, ULONG idCount, ULONG flags);

// Sends an open device a request and waits for its answer. *returned receives the number of bytes
// answered and must not be null, even without output. FALSE with the last error set when the device
// refuses; ERROR_INVALID_FUNCTION for a handle of something else. Synchronous: `overlapped` is
// null.
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID input, DWORD inputSize, LPVOID output,
                            DWORD outputSize, LPDWORD returned, OVERLAPPED* overlapped);
}

#endif

// The system requires these sizes of 64-bit programs in cbSize.
static_assert(sizeof(SP_DEVINFO_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == 8);
static_assert(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) == 4);
