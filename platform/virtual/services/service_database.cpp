// The service control manager's database, which the registry keeps.

#include <algorithm>
#include <cstring>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"

namespace virtual_pc {
namespace {

constexpr const wchar_t* kServices = LR"(HKLM\SYSTEM\CurrentControlSet\Services)";

// A service of the system that others depend on. It runs as long as the PC is on.
constexpr const wchar_t* kSystemService = L"RpcSs";

RegistryValue List(const std::vector<std::wstring>& names)
{
    std::wstring text;
    for (const std::wstring& name : names) text += name + L'\0';
    return RegistryValue::String(text, REG_MULTI_SZ);
}

std::vector<std::wstring> NamesIn(const RegistryValue& list)
{
    std::wstring text(list.data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), list.data.data(), text.size() * sizeof(wchar_t));
    return PartsOf(text, L'\0');
}

bool IsName(std::wstring_view name)
{
    constexpr std::size_t kLongest = 256;
    return !name.empty() && name.size() <= kLongest && name.find_first_of(L"/\\") == name.npos;
}

// A program has a process of its own or shares one, and only drivers start before the manager.
bool CanStart(DWORD type, DWORD start)
{
    constexpr DWORD kOwn = SERVICE_WIN32_OWN_PROCESS, kShared = 0x20;
    const bool program = (type & (kOwn | kShared)) != 0;
    return (type & (kOwn | kShared)) != (kOwn | kShared) &&
           !(program && start < SERVICE_AUTO_START);
}

}  // namespace

std::wstring ServiceManager::KeyOf(std::wstring_view name)
{
    return std::wstring(kServices) + L"\\" + std::wstring(name);
}

void ServiceManager::AddSystemService()
{
    ServiceConfig system{.name = kSystemService,
                         .display_name = L"Remote Procedure Call (RPC)",
                         .type = 0x20,
                         .start = SERVICE_AUTO_START,
                         .path = LR"(C:\Windows\system32\svchost.exe -k rpcss)"};
    Create(system);
    m_services[kSystemService]->status.dwCurrentState = SERVICE_RUNNING;
}

DWORD ServiceManager::Create(const ServiceConfig& config)
{
    const Hold hold(m_machine);
    if (!IsName(config.name)) return ERROR_INVALID_NAME;
    if (const auto known = Find(config.name)) {
        return known->marked ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS;
    }
    if (config.path.empty() || config.start > 4 || config.error_control > 3 ||
        !CanStart(config.type, config.start)) {
        return ERROR_INVALID_PARAMETER;
    }
    for (const std::wstring& name : names()) {
        const bool same = SameName(Read(name)->display_name, config.display_name);
        if (same || SameName(name, config.display_name)) return ERROR_DUPLICATE_SERVICE_NAME;
    }
    for (const std::wstring& other : config.dependencies) {
        if (SameName(other, config.name) || DependsOn(other, config.name)) {
            return ERROR_CIRCULAR_DEPENDENCY;
        }
    }
    const std::wstring key = KeyOf(config.name);
    Registry& registry = m_machine.registry;
    registry.SetDword(key, L"Type", config.type);
    registry.SetDword(key, L"Start", config.start);
    registry.SetDword(key, L"ErrorControl", config.error_control);
    registry.Set(key, L"ImagePath", RegistryValue::String(config.path, REG_EXPAND_SZ));
    registry.SetString(key, L"DisplayName", config.display_name);
    if (!config.dependencies.empty()) {
        registry.Set(key, L"DependOnService", List(config.dependencies));
    }
    registry.SetString(key, L"ObjectName", config.account);
    if (!config.description.empty()) Describe(config.name, config.description);
    m_services[config.name] = std::make_shared<Service>(config.name);
    m_machine.journal.Record("service", {{"what", L"created"}, {"name", config.name}});
    return ERROR_SUCCESS;
}

std::optional<ServiceConfig> ServiceManager::Read(std::wstring_view name) const
{
    const Hold hold(m_machine);
    const Registry& registry = m_machine.registry;
    const std::wstring key = KeyOf(name);
    const std::optional<DWORD> type = registry.GetDword(key, L"Type");
    const std::optional<std::wstring> path = registry.GetString(key, L"ImagePath");
    // Not every key below Services is that of a service.
    if (!IsName(name) || !type || !path) return std::nullopt;
    ServiceConfig config;
    config.name = name;
    config.type = *type;
    config.path = *path;
    config.display_name = registry.GetString(key, L"DisplayName").value_or(config.name);
    config.start = registry.GetDword(key, L"Start").value_or(SERVICE_DEMAND_START);
    config.error_control = registry.GetDword(key, L"ErrorControl").value_or(SERVICE_ERROR_NORMAL);
    config.account = registry.GetString(key, L"ObjectName").value_or(config.account);
    config.description = registry.GetString(key, L"Description").value_or(L"");
    if (const auto list = registry.Get(key, L"DependOnService")) {
        config.dependencies = NamesIn(*list);
    }
    return config;
}

DWORD ServiceManager::Describe(std::wstring_view name, std::wstring_view description)
{
    const Hold hold(m_machine);
    m_machine.registry.SetString(KeyOf(name), L"Description", description);
    return ERROR_SUCCESS;
}

DWORD ServiceManager::Delete(std::wstring_view name)
{
    const Hold hold(m_machine);
    const std::shared_ptr<Service> service = Find(name);
    if (!service) return ERROR_SERVICE_DOES_NOT_EXIST;
    if (service->marked) return ERROR_SERVICE_MARKED_FOR_DELETE;
    service->marked = true;
    m_machine.registry.SetDword(KeyOf(name), L"DeleteFlag", 1);
    m_machine.journal.Record("service", {{"what", L"marked"}, {"name", service->name}});
    RemoveIfMarked(*service);
    return ERROR_SUCCESS;
}

void ServiceManager::RemoveIfMarked(Service& service)
{
    if (!service.marked || !service.stopped() || service.open_handles > 0) return;
    m_machine.registry.DeleteKey(KeyOf(service.name));
    m_machine.journal.Record("service", {{"what", L"deleted"}, {"name", service.name}});
    m_services.erase(std::wstring(service.name));
}

void ServiceManager::ServiceClosed(Service& service)
{
    --service.open_handles;
    RemoveIfMarked(service);
}

std::vector<std::wstring> ServiceManager::names() const
{
    const Hold hold(m_machine);
    std::vector<std::wstring> names;
    const auto key = m_machine.registry.FindKey(Registry::Parse(kServices));
    if (!key) return names;
    for (const auto& [name, below] : key->keys) {
        if (Read(name)) names.push_back(name);
    }
    return names;
}

std::shared_ptr<Service> ServiceManager::Find(std::wstring_view name) const
{
    const Hold hold(m_machine);
    const auto found = m_services.find(std::wstring(name));
    return found == m_services.end() ? nullptr : found->second;
}

std::shared_ptr<Service> ServiceManager::ServiceOf(const Process& process) const
{
    const Hold hold(m_machine);
    for (const auto& [name, service] : m_services) {
        if (service->process == &process) return service;
    }
    return nullptr;
}

// Depth-limited, so that a dependency cycle in a hand-edited registry ends.
bool ServiceManager::DependsOn(std::wstring_view name, std::wstring_view other, int depth) const
{
    const std::optional<ServiceConfig> config = depth > 0 ? Read(name) : std::nullopt;
    return config && std::ranges::any_of(config->dependencies, [&](const std::wstring& direct) {
               return SameName(direct, other) || DependsOn(direct, other, depth - 1);
           });
}

}  // namespace virtual_pc
