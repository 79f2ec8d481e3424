#include "platform/virtual/devices/device.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <utility>

#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/core/machine.h"

namespace virtual_pc {
namespace {

constexpr DWORD kErrorDeviceNotConnected = 1167;

// What the never-sleep driver offers and understands.
constexpr GUID kHolvInterface{
    0xD6E2A4C1, 0x5B7F, 0x4E39, {0x9C, 0x0D, 0x3F, 0x81, 0xB2, 0xA7, 0xE6, 0x45}};
constexpr DWORD kSetModeCode = 0x9C412000;
constexpr std::string_view kSetModeSignature = "SNSM";
constexpr std::size_t kSetModeSize = 8;

// "\\?\ACPI#QRX5071#2&0#{d6e2a4c1-5b7f-4e39-9c0d-3f81b2a7e645}"
std::wstring DefaultPath(std::wstring id, const GUID& interface_class)
{
    std::ranges::replace(id, L'\\', L'#');
    std::wstring guid = FormatGuid(interface_class);
    std::ranges::transform(guid, guid.begin(), [](wchar_t c) { return std::towlower(c); });
    return LR"(\\?\)" + id + L"#{" + guid + L"}";
}

// "53 4E 53 4D 03 00 00 00"
std::wstring HexBytes(std::span<const BYTE> bytes)
{
    constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
    std::wstring text;
    for (const BYTE byte : bytes) {
        if (!text.empty()) text += L' ';
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

// The mode that a request sets; nothing for any other request.
std::optional<DWORD> ModeOf(DWORD code, std::span<const BYTE> bytes)
{
    if (code != kSetModeCode || bytes.size() != kSetModeSize ||
        std::memcmp(bytes.data(), kSetModeSignature.data(), kSetModeSignature.size()) != 0) {
        return std::nullopt;
    }
    return bytes[4] | bytes[5] << 8 | bytes[6] << 16 | static_cast<DWORD>(bytes[7]) << 24;
}

}  // namespace

// --- A device ---

Device::Device(Machine& machine, std::wstring instance_id)
    : m_machine(machine), m_instance_id(std::move(instance_id))
{
}

void Device::AddInterface(const GUID& interface_class, std::wstring_view path)
{
    const Hold hold(m_machine);
    std::wstring its_path(path);
    if (its_path.empty()) its_path = DefaultPath(m_instance_id, interface_class);
    if (std::ranges::any_of(m_interfaces, [&](const DeviceInterface& offered) {
            return SameName(offered.path, its_path);
        })) {
        return;
    }
    m_interfaces.push_back({interface_class, std::move(its_path)});
}

void Device::SetPresent(bool present)
{
    const Hold hold(m_machine);
    m_present = present;
}

bool Device::Present() const
{
    const Hold hold(m_machine);
    return m_present;
}

void Device::FailOpening(DWORD error)
{
    const Hold hold(m_machine);
    m_open_error = error;
}

void Device::FailRequests(DWORD error)
{
    const Hold hold(m_machine);
    m_request_error = error;
}

std::deque<DeviceRequest> Device::Requests() const
{
    const Hold hold(m_machine);
    return m_requests;
}

std::optional<DWORD> Device::Mode() const
{
    const Hold hold(m_machine);
    return m_mode;
}

std::vector<DeviceInterface> Device::Interfaces() const
{
    const Hold hold(m_machine);
    return m_interfaces;
}

DWORD Device::Open() const
{
    const Hold hold(m_machine);
    return m_present ? m_open_error : ERROR_FILE_NOT_FOUND;
}

DWORD Device::Request(DWORD code, std::span<const BYTE> bytes)
{
    const Hold hold(m_machine);
    if (!m_present) return kErrorDeviceNotConnected;
    const DWORD error = m_request_error;
    m_requests.push_back({code, {bytes.begin(), bytes.end()}, m_machine.now(), error});
    if (m_requests.size() > kRequestsKept) m_requests.pop_front();
    const std::optional<DWORD> mode = ModeOf(code, bytes);
    if (mode && error == NO_ERROR) m_mode = mode;
    if (!m_machine.journal.Listened("device request")) return error;
    std::vector<std::pair<std::string_view, Value>> fields{
        {"device", m_instance_id}, {"code", std::uint64_t{code}}, {"bytes", HexBytes(bytes)}};
    if (mode) fields.emplace_back("mode", std::uint64_t{*mode});
    if (error != NO_ERROR) fields.emplace_back("error", std::uint64_t{error});
    m_machine.journal.Record("device request", std::move(fields));
    return error;
}

// --- All devices ---

Device& Devices::Add(std::wstring_view instance_id)
{
    const Hold hold(m_machine);
    Device* device = Find(instance_id);
    if (!device) {
        device =
            m_devices.emplace_back(std::make_shared<Device>(m_machine, std::wstring(instance_id)))
                .get();
    }
    device->SetPresent(true);
    return *device;
}

Device& Devices::AddHolvDevice(std::wstring_view instance_id)
{
    Device& device = Add(instance_id);
    device.AddInterface(kHolvInterface);
    return device;
}

Device* Devices::Find(std::wstring_view instance_id) const
{
    const Hold hold(m_machine);
    const auto found = std::ranges::find_if(m_devices, [&](const std::shared_ptr<Device>& device) {
        return SameName(device->instance_id(), std::wstring(instance_id));
    });
    return found == m_devices.end() ? nullptr : found->get();
}

std::vector<std::shared_ptr<Device>> Devices::All() const
{
    const Hold hold(m_machine);
    return m_devices;
}

std::shared_ptr<Object> Devices::OpenPath(std::wstring_view path, DWORD& error)
{
    Hold::Require();
    const std::wstring asked(path);
    error = ERROR_FILE_NOT_FOUND;
    for (const std::shared_ptr<Device>& device : m_devices) {
        for (const DeviceInterface& offered : device->Interfaces()) {
            if (!SameName(offered.path, asked)) continue;
            error = device->Open();
            if (error != NO_ERROR) return nullptr;
            return std::make_shared<DeviceHandle>(offered.path, device);
        }
    }
    return nullptr;
}

}  // namespace virtual_pc
