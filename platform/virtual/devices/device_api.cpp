// Device-info sets, instance ids, and requests to devices.

#include <cstddef>
#include <cstring>

#include "platform/com.h"
#include "platform/device.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/devices/device.h"

using namespace virtual_pc;

namespace {

// Codes that only this file returns.
constexpr DWORD kErrorNoMoreItems = 259;
constexpr CONFIGRET kInvalidPointer = 0x03;
constexpr CONFIGRET kInvalidFlag = 0x04;
constexpr CONFIGRET kInvalidDevice = 0x05;
constexpr CONFIGRET kBufferSmall = 0x1A;

Function fn_get_class_devs{"SetupDiGetClassDevsW"};
Function fn_destroy_device_info_list{"SetupDiDestroyDeviceInfoList", Failing::last_error,
                                     Role::releases};
Function fn_enum_device_info{"SetupDiEnumDeviceInfo"};
Function fn_enum_device_interfaces{"SetupDiEnumDeviceInterfaces"};
Function fn_get_device_interface_detail{"SetupDiGetDeviceInterfaceDetailW"};
Function fn_get_device_id{"CM_Get_Device_IDW", Failing::status};
Function fn_device_io_control{"DeviceIoControl"};

class DeviceInfoSet final : public Object
{
public:
    std::string_view Kind() const override { return "device info set"; }

    std::vector<DEVINST> devices;  // the index of each among all known devices, from 1
    std::vector<DeviceInterface> interfaces;
};

// A snapshot: the set does not change when devices are plugged in or removed later.
std::shared_ptr<DeviceInfoSet> TakeSet(const Devices& all, const GUID* interface_class, DWORD flags)
{
    auto set = std::make_shared<DeviceInfoSet>();
    DEVINST number = 0;
    for (const std::shared_ptr<Device>& device : all.All()) {
        ++number;
        if ((flags & DIGCF_PRESENT) && !device->Present()) continue;
        std::size_t fitting = 0;
        for (DeviceInterface& offered : device->Interfaces()) {
            if (!interface_class || !IsEqualGUID(offered.interface_class, *interface_class))
                continue;
            set->interfaces.push_back(std::move(offered));
            ++fitting;
        }
        if (!interface_class || fitting > 0) set->devices.push_back(number);
    }
    return set;
}

// The set's interface that a record stands for; null, with the last error set, for a record that no
// enumeration of this set filled in.
const DeviceInterface* InterfaceOf(Call& call, const DeviceInfoSet& set,
                                   const SP_DEVICE_INTERFACE_DATA* record)
{
    if (!record || record->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA) || record->Reserved == 0 ||
        record->Reserved > set.interfaces.size()) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return &set.interfaces[record->Reserved - 1];
}

}  // namespace

extern "C" {

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* interfaceClass, PCWSTR enumerator, HWND,
                                     DWORD flags)
{
    Call call(fn_get_class_devs);
    if (call.Fails()) return INVALID_HANDLE_VALUE;
    // Only classes of interfaces are modelled, no setup classes.
    const DWORD kind = flags & ~DIGCF_PRESENT;
    const bool understood =
        interfaceClass ? kind == DIGCF_DEVICEINTERFACE : kind == DIGCF_ALLCLASSES;
    if (enumerator || !understood) {
        call.Fail(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    return call.Open(TakeSet(call.machine.devices, interfaceClass, flags));
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set)
{
    return CloseHandleOf<DeviceInfoSet>(fn_destroy_device_info_list, set);
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA device)
{
    Call call(fn_enum_device_info);
    if (call.Fails()) return FALSE;
    const auto* set = call.Find<DeviceInfoSet>(handle);
    if (!set) return FALSE;
    if (!device) return call.Fail(ERROR_INVALID_PARAMETER);
    if (device->cbSize != sizeof(*device)) return call.Fail(ERROR_INVALID_USER_BUFFER);
    if (index >= set->devices.size()) return call.Fail(kErrorNoMoreItems);
    *device = {
        .cbSize = sizeof(*device), .ClassGuid = {}, .DevInst = set->devices[index], .Reserved = 0};
    return TRUE;
}

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO handle, PSP_DEVINFO_DATA device,
                                        const GUID* interfaceClass, DWORD index,
                                        PSP_DEVICE_INTERFACE_DATA deviceInterface)
{
    Call call(fn_enum_device_interfaces);
    if (call.Fails()) return FALSE;
    const auto* set = call.Find<DeviceInfoSet>(handle);
    if (!set) return FALSE;
    if (device || !interfaceClass || !deviceInterface ||
        deviceInterface->cbSize != sizeof(*deviceInterface)) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    // All of a set's interfaces are of one class.
    const bool held = !set->interfaces.empty() &&
                      IsEqualGUID(set->interfaces.front().interface_class, *interfaceClass);
    if (!held || index >= set->interfaces.size()) return call.Fail(kErrorNoMoreItems);
    *deviceInterface = {.cbSize = sizeof(*deviceInterface),
                        .InterfaceClassGuid = *interfaceClass,
                        .Flags = SPINT_ACTIVE,
                        .Reserved = ULONG_PTR{index} + 1};
    return TRUE;
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO handle,
                                             PSP_DEVICE_INTERFACE_DATA deviceInterface,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             DWORD* required, PSP_DEVINFO_DATA device)
{
    Call call(fn_get_device_interface_detail);
    if (call.Fails()) return FALSE;
    const auto* set = call.Find<DeviceInfoSet>(handle);
    if (!set) return FALSE;
    const DeviceInterface* found = InterfaceOf(call, *set, deviceInterface);
    if (!found) return FALSE;
    if (device) return call.Fail(ERROR_INVALID_PARAMETER);
    if (detail ? detail->cbSize != sizeof(*detail) : size != 0) {
        return call.Fail(ERROR_INVALID_USER_BUFFER);
    }
    const std::size_t path_size = (found->path.size() + 1) * sizeof(wchar_t);
    const std::size_t needed = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + path_size;
    if (required) *required = static_cast<DWORD>(needed);
    if (!detail && call.machine.devices.size_query_succeeds) return TRUE;
    if (!detail || size < needed) return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(&detail->DevicePath, found->path.c_str(), path_size);
    return TRUE;
}

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST device, PWSTR id, ULONG idCount, ULONG flags)
{
    Call call(fn_get_device_id);
    if (call.Fails()) return call.error();
    if (!id) return kInvalidPointer;
    if (flags != 0) return kInvalidFlag;
    const auto all = call.machine.devices.All();
    if (device == 0 || device > all.size()) return kInvalidDevice;
    const std::wstring& instance_id = all[device - 1]->instance_id();
    if (idCount <= instance_id.size()) return kBufferSmall;
    id[instance_id.copy(id, instance_id.size())] = L'\0';
    return CR_SUCCESS;
}

BOOL WINAPI DeviceIoControl(HANDLE handle, DWORD code, LPVOID input, DWORD inputSize, LPVOID output,
                            DWORD outputSize, LPDWORD returned, OVERLAPPED* overlapped)
{
    Call call(fn_device_io_control);
    if (!returned) {
        // Windows always writes the count, so a null pointer would end the program.
        call.machine.NoteMisuse("DeviceIoControl without a place for the count of bytes returned");
        return call.Fail(ERROR_NOACCESS);
    }
    *returned = 0;
    if (call.Fails()) return FALSE;
    if (overlapped) return call.Fail(ERROR_INVALID_PARAMETER);
    if (!output && outputSize > 0) return call.Fail(ERROR_NOACCESS);
    const auto* object = call.Find<Object>(handle);
    if (!object) return FALSE;
    const auto* open = dynamic_cast<const DeviceHandle*>(object);
    if (!open) return call.Fail(ERROR_INVALID_FUNCTION);
    const DWORD error =
        open->device().Request(code, {static_cast<const BYTE*>(input), input ? inputSize : 0});
    return error == NO_ERROR ? TRUE : call.Fail(error);
}
}
