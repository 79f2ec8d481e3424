#include "power/driver_api.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cwchar>
#include <string_view>
#include <vector>

#include "log/log.h"
#include "platform/device.h"
#include "platform/file.h"
#include "restore/changes.h"

namespace {

constexpr const wchar_t* kHardwareId = LR"(ACPI\QRX5071)";

constexpr GUID kDriverInterface{
    0xD6E2A4C1, 0x5B7F, 0x4E39, {0x9C, 0x0D, 0x3F, 0x81, 0xB2, 0xA7, 0xE6, 0x45}};

constexpr DWORD kSetNeverSleepMode = CTL_CODE(0x9C41u, 0x800u, METHOD_BUFFERED, FILE_ANY_ACCESS);
static_assert(kSetNeverSleepMode == 0x9C412000);

struct SnsmRequest
{
    char signature[4];
    DWORD mode;
};
static_assert(sizeof(SnsmRequest) == 8 && offsetof(SnsmRequest, mode) == 4);
static_assert(std::endian::native == std::endian::little);

BOOL NoAlias(FormatFor<DWORD> message, DWORD error = GetLastError())
{
    Log(2, L"CDriverApi::GetInterfaceAlias", message, error);
    return FALSE;
}

}  // namespace

BOOL IsHolvDevicePresent()
{
    const OwnedDeviceInfoSet devices(
        SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES));
    if (!devices) return FALSE;
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD index = 0; SetupDiEnumDeviceInfo(devices.Get(), index, &device); ++index) {
        WCHAR id[MAX_DEVICE_ID_LEN + 1];
        // A device whose id cannot be read is not the platform device.
        if (CM_Get_Device_IDW(device.DevInst, id, MAX_DEVICE_ID_LEN + 1, 0) != CR_SUCCESS) continue;
        if (std::wcsstr(id, kHardwareId)) return TRUE;
    }
    return FALSE;
}

CDriverApi::~CDriverApi() { CDriverApi::CloseDriver(); }

BOOL CDriverApi::OpenDriver(LPCWSTR path)
{
    m_hDriver.Reset(CreateFileW(path, GENERIC_READ | GENERIC_WRITE,
                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (m_hDriver) return TRUE;
    Log(2, L"CDriverApi::OpenDriver", L"*****Failed to open the driver, error=0x%x\n",
        GetLastError());
    return FALSE;
}

BOOL CDriverApi::Initialize()
{
    WCHAR path[kDevicePathSize];
    return GetInterfaceAlias(kDriverInterface, path) && OpenDriver(path);
}

void CDriverApi::CloseDriver() { m_hDriver.Reset(); }

BOOL CDriverApi::GetInterfaceAlias(const GUID& interfaceClass, WCHAR (&path)[kDevicePathSize])
{
    const OwnedDeviceInfoSet devices(SetupDiGetClassDevsW(&interfaceClass, nullptr, nullptr,
                                                          DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    if (!devices) return NoAlias(L"*****Unable to get device information, error=0x%x\n");

    SP_DEVICE_INTERFACE_DATA first{};
    first.cbSize = sizeof(first);
    if (!SetupDiEnumDeviceInterfaces(devices.Get(), nullptr, &interfaceClass, 0, &first)) {
        return NoAlias(L"*****Unable to enumerate device interfaces, error=0x%x\n");
    }
    DWORD size = 0;
    if (!SetupDiGetDeviceInterfaceDetailW(devices.Get(), &first, nullptr, 0, &size, nullptr) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return NoAlias(L"*****Unable to get device interfaces detail data size, error=0x%x\n");
    }
    // cbSize is written below even if no size was returned, so the buffer always has room for the
    // header.
    std::vector<BYTE> buffer(
        std::max<std::size_t>(size, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)));
    const auto detail = reinterpret_cast<PSP_DEVICE_INTERFACE_DETAIL_DATA_W>(buffer.data());
    detail->cbSize = sizeof(*detail);
    if (!SetupDiGetDeviceInterfaceDetailW(devices.Get(), &first, detail,
                                          static_cast<DWORD>(buffer.size()), nullptr, nullptr)) {
        return NoAlias(L"*****Unable to get device interfaces detail, error=0x%x\n");
    }
    // A truncated path would name another device or none.
    const std::wstring_view found(detail->DevicePath);
    if (found.size() >= kDevicePathSize) {
        return NoAlias(L"*****Unable to get device interfaces detail, error=0x%x\n",
                       ERROR_INSUFFICIENT_BUFFER);
    }
    path[found.copy(path, found.size())] = L'\0';
    return TRUE;
}

BOOL CDriverApi::SetNeverSleepMode(DWORD mode)
{
    SnsmRequest request{{'S', 'N', 'S', 'M'}, mode};
    DWORD returned = 0;  // required although there is no output
    const JournaledChange change = ChangeOfDeviceMode(mode);
    if (change.Made(DeviceIoControl(m_hDriver.Get(), kSetNeverSleepMode, &request, sizeof(request),
                                    nullptr, 0, &returned, nullptr))) {
        return TRUE;
    }
    Log(2, L"CDriverApi::SetNeverSleepMode", L"*****SNSM operation Failed, Error=0x%x\n",
        GetLastError());
    return FALSE;
}

bool SendDeviceMode(DWORD mode)
{
    CDriverApi device;
    return IsHolvDevicePresent() && device.Initialize() && device.SetNeverSleepMode(mode);
}
