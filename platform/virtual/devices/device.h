// Devices, the interfaces that their drivers offer, and the requests they are sent.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/core/handles.h"

namespace virtual_pc {

class Machine;

// A request, and the answer of the device: NO_ERROR, or the error with which it refused.
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

    // --- For scripts and tests ---

    // Adds a device interface of a class; an empty `path` stands for the one that the system would
    // make. A path that the device has already is left as it is.
    void AddInterface(const GUID& interface_class, std::wstring_view path = {});

    // An absent device stays known. Only enumerations without DIGCF_PRESENT list it, it cannot be
    // opened, and requests through open handles fail.
    void SetPresent(bool present);
    bool Present() const;

    // Makes opening it, or every request to it, fail with an error; NO_ERROR ends that.
    void FailOpening(DWORD error);
    void FailRequests(DWORD error);

    // The requests since it was first plugged in, the refused ones too: the last kRequestsKept.
    static constexpr std::size_t kRequestsKept = 1'000;
    std::deque<DeviceRequest> Requests() const;
    // The last never-sleep mode that it accepted; nothing when there was none.
    std::optional<DWORD> Mode() const;

    // --- For the platform functions ---

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
    std::deque<DeviceRequest> m_requests;
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

    // Plugs a device in. A known one becomes present again, with its interfaces.
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

    // Makes a query for the size of an interface's path succeed. Windows fails it with
    // ERROR_INSUFFICIENT_BUFFER; callers must cope with both.
    bool size_query_succeeds = false;

private:
    Machine& m_machine;
    std::vector<std::shared_ptr<Device>> m_devices;
};

}  // namespace virtual_pc
