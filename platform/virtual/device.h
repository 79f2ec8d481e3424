// Devices, the interfaces that their drivers offer, and the requests they are sent.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device.h"
#include "platform/virtual/handles.h"
#include "platform/virtual/time.h"

namespace virtual_pc {

class Machine;

// A request as it came in, and what the device answered: NO_ERROR or why it refused.
struct DeviceRequest
{
    DWORD code;
    std::vector<BYTE> bytes;
    Instant at;
    DWORD error;
};

struct DeviceInterface
{
    GUID interface_class;
    std::wstring path;
};

class Device
{
public:
    Device(Machine& machine, std::wstring instance_id);

    const std::wstring& instance_id() const { return m_instance_id; }

    // --- The side that a person or a test drives ---

    // Lets the driver offer an interface of a class, by the path that the system gives it unless
    // one is named. One that is offered already stays as it is.
    void AddInterface(const GUID& interface_class, std::wstring_view path = {});

    // A device that is not present stays known. It is found only by who asks for absent ones too,
    // cannot be opened, and answers nobody who has it open.
    void SetPresent(bool present);
    bool Present() const;

    // Makes opening it, or every request to it, fail with an error; NO_ERROR ends that.
    void FailOpening(DWORD error);
    void FailRequests(DWORD error);

    // All requests since it was first plugged in, the refused ones too.
    std::vector<DeviceRequest> Requests() const;
    // The last never-sleep mode that it took; nothing when there was none.
    std::optional<DWORD> Mode() const;

    // --- The machine's side ---

    std::vector<DeviceInterface> Interfaces() const;
    DWORD Open() const;
    // Effect "device request": `device`, `code`, the `bytes` in hexadecimal, the `mode` when it is
    // a well-formed request to set one, and the `error` when it is refused.
    DWORD Request(DWORD code, std::span<const BYTE> bytes);

private:
    Machine& m_machine;
    const std::wstring m_instance_id;
    std::vector<DeviceInterface> m_interfaces;
    bool m_present = true;
    DWORD m_open_error = NO_ERROR;
    DWORD m_request_error = NO_ERROR;
    std::vector<DeviceRequest> m_requests;
    std::optional<DWORD> m_mode;
};

// What a handle to a device stands for.
class DeviceHandle final : public Object
{
public:
    DeviceHandle(std::wstring path, std::shared_ptr<Device> device)
        : m_path(std::move(path)), m_device(std::move(device))
    {
    }
    std::string_view Kind() const override { return "device"; }
    std::wstring Name() const override { return m_path; }
    Device& device() const { return *m_device; }

private:
    std::wstring m_path;
    std::shared_ptr<Device> m_device;
};

class Devices
{
public:
    explicit Devices(Machine& machine) : m_machine(machine) {}

    // Plugs a device in. One that was there before is the same again, with its interfaces.
    Device& Add(std::wstring_view instance_id);
    // The same for a device with the never-sleep driver, which offers its interface.
    Device& AddHolvDevice(std::wstring_view instance_id = LR"(ACPI\QRX5071\2&0)");
    // By instance id, in any letter case; null when it was never there.
    Device* Find(std::wstring_view instance_id) const;
    // In the order in which they were first plugged in; the absent ones too.
    std::vector<std::shared_ptr<Device>> All() const;

    // Opens an interface by its path, in any letter case; null and an error code when there is
    // none or it cannot be opened. With the machine held.
    std::shared_ptr<Object> OpenPath(std::wstring_view path, DWORD& error);

    // Makes asking for the size of an interface's path succeed, where the system's own way is to
    // fail for want of a buffer. Callers must take both.
    bool size_query_succeeds = false;

private:
    Machine& m_machine;
    std::vector<std::shared_ptr<Device>> m_devices;
};

}  // namespace virtual_pc
