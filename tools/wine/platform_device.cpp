// The driver of a platform device, for the Wine check: takes the requests that the service's device
// takes, appends the bytes of each to C:\platform_device.requests, and refuses any other.

#include <ntddk.h>

namespace {

constexpr ULONG kSetNeverSleepMode = 0x9C412000;
constexpr char kSignature[] = {'S', 'N', 'S', 'M'};
constexpr ULONG kRequestSize = 8;
constexpr const WCHAR* kLink = LR"(\??\ACPI#QRX5071#0#{d6e2a4c1-5b7f-4e39-9c0d-3f81b2a7e645})";

UNICODE_STRING NameOf(const WCHAR* text)
{
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, text);
    return name;
}

NTSTATUS Complete(IRP* request, NTSTATUS status)
{
    request->IoStatus.Status = status;
    request->IoStatus.Information = 0;
    IoCompleteRequest(request, IO_NO_INCREMENT);
    return status;
}

NTSTATUS Record(void* bytes, ULONG size)
{
    UNICODE_STRING name = NameOf(LR"(\??\C:\platform_device.requests)");
    OBJECT_ATTRIBUTES place;
    InitializeObjectAttributes(&place, &name, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
    IO_STATUS_BLOCK done;
    HANDLE file = nullptr;
    NTSTATUS status = ZwCreateFile(&file, FILE_APPEND_DATA | SYNCHRONIZE, &place, &done, nullptr,
                                   FILE_ATTRIBUTE_NORMAL, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   FILE_OPEN_IF, FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    if (status < 0) return status;
    status = ZwWriteFile(file, nullptr, nullptr, nullptr, &done, bytes, size, nullptr, nullptr);
    ZwClose(file);
    return status;
}

NTSTATUS NTAPI OnOpenOrClose(DEVICE_OBJECT*, IRP* request) { return Complete(request, 0); }

NTSTATUS NTAPI OnControl(DEVICE_OBJECT*, IRP* request)
{
    const auto& control = IoGetCurrentIrpStackLocation(request)->Parameters.DeviceIoControl;
    auto* const bytes = static_cast<char*>(request->AssociatedIrp.SystemBuffer);
    bool taken = control.IoControlCode == kSetNeverSleepMode &&
                 control.InputBufferLength == kRequestSize && control.OutputBufferLength == 0;
    for (ULONG i = 0; taken && i < sizeof(kSignature); ++i) taken = bytes[i] == kSignature[i];
    return Complete(request, taken ? Record(bytes, kRequestSize) : STATUS_INVALID_DEVICE_REQUEST);
}

void NTAPI Unload(DRIVER_OBJECT* driver)
{
    UNICODE_STRING link = NameOf(kLink);
    IoDeleteSymbolicLink(&link);
    IoDeleteDevice(driver->DeviceObject);
}

}  // namespace

extern "C" NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING*)
{
    constexpr DEVICE_TYPE kType = 0x9C41;
    UNICODE_STRING name = NameOf(LR"(\Device\HolvPlatform)");
    DEVICE_OBJECT* device = nullptr;
    const NTSTATUS status = IoCreateDevice(driver, 0, &name, kType, 0, FALSE, &device);
    if (status < 0) return status;
    driver->MajorFunction[IRP_MJ_CREATE] = OnOpenOrClose;
    driver->MajorFunction[IRP_MJ_CLOSE] = OnOpenOrClose;
    driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
    driver->DriverUnload = Unload;
    UNICODE_STRING link = NameOf(kLink);
    return IoCreateSymbolicLink(&link, &name);
}
