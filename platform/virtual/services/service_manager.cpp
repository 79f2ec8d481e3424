#include "platform/virtual/services/service_manager.h"

#include <algorithm>
#include <cstring>

#include "platform/com.h"
#include "platform/session.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/processes/programs.h"
#include "platform/virtual/registry/registry.h"

namespace virtual_pc {
namespace {

constexpr std::wstring_view kStateNames[] = {L"",        L"stopped",    L"starting", L"stopping",
                                             L"running", L"continuing", L"pausing",  L"paused"};

constexpr DWORD kFirstOwnControl = 128;  // up to 255, user-defined

// The flag with which a service accepts a control.
struct Acceptance
{
    DWORD control;
    DWORD accepted;
    bool may_be_sent;  // by ControlService; only the system sends the others
};
constexpr Acceptance kAcceptances[] = {
    {SERVICE_CONTROL_STOP, SERVICE_ACCEPT_STOP, true},
    {SERVICE_CONTROL_PAUSE, SERVICE_ACCEPT_PAUSE_CONTINUE, true},
    {SERVICE_CONTROL_CONTINUE, SERVICE_ACCEPT_PAUSE_CONTINUE, true},
    {SERVICE_CONTROL_INTERROGATE, 0, true},
    {SERVICE_CONTROL_SHUTDOWN, SERVICE_ACCEPT_SHUTDOWN, false},
    {SERVICE_CONTROL_PARAMCHANGE, SERVICE_ACCEPT_PARAMCHANGE, true},
    {SERVICE_CONTROL_NETBINDADD, SERVICE_ACCEPT_NETBINDCHANGE, true},
    {SERVICE_CONTROL_NETBINDADD + 1, SERVICE_ACCEPT_NETBINDCHANGE, true},
    {SERVICE_CONTROL_NETBINDADD + 2, SERVICE_ACCEPT_NETBINDCHANGE, true},
    {SERVICE_CONTROL_NETBINDDISABLE, SERVICE_ACCEPT_NETBINDCHANGE, true},
    {SERVICE_CONTROL_HARDWAREPROFILECHANGE, SERVICE_ACCEPT_HARDWAREPROFILECHANGE, false},
    {SERVICE_CONTROL_POWEREVENT, SERVICE_ACCEPT_POWEREVENT, false},
    {SERVICE_CONTROL_SESSIONCHANGE, SERVICE_ACCEPT_SESSIONCHANGE, false},
    {SERVICE_CONTROL_PRESHUTDOWN, SERVICE_ACCEPT_PRESHUTDOWN, false},
    {SERVICE_CONTROL_TIMECHANGE, SERVICE_ACCEPT_TIMECHANGE, false},
};

const Acceptance* FindAcceptance(DWORD control)
{
    const auto* found = std::ranges::find(kAcceptances, control, &Acceptance::control);
    return found == std::end(kAcceptances) ? nullptr : found;
}

// A change of a power setting, as the handler gets it.
std::vector<BYTE> SettingRecord(const GUID& setting, const std::vector<BYTE>& value)
{
    constexpr std::size_t kHead = offsetof(POWERBROADCAST_SETTING, Data);
    std::vector<BYTE> record(std::max(sizeof(POWERBROADCAST_SETTING), kHead + value.size()));
    const auto length = static_cast<DWORD>(value.size());
    std::memcpy(record.data(), &setting, sizeof(setting));
    std::memcpy(record.data() + offsetof(POWERBROADCAST_SETTING, DataLength), &length,
                sizeof(length));
    std::ranges::copy(value, record.begin() + kHead);
    return record;
}

std::vector<BYTE> SessionRecord(const std::vector<BYTE>& session)
{
    WTSSESSION_NOTIFICATION notification{sizeof(notification), 0};
    std::memcpy(&notification.dwSessionId, session.data(),
                std::min(session.size(), sizeof(notification.dwSessionId)));
    std::vector<BYTE> record(sizeof(notification));
    std::memcpy(record.data(), &notification, sizeof(notification));
    return record;
}

}  // namespace

std::wstring_view ServiceStateName(DWORD state)
{
    return state < std::size(kStateNames) ? kStateNames[state] : L"";
}

// A control that is still on its way to the service.
class ServiceManager::LateControl final : public Alarm
{
public:
    LateControl(ServiceManager& manager, std::shared_ptr<Service> service, ServiceControl control)
        : m_manager(manager),
          m_service(std::move(service)),
          m_run(m_service->handle),
          m_control(std::move(control))
    {
    }

private:
    void Due() override
    {
        if (m_service->handler && m_service->handle == m_run) {
            m_manager.QueueMerged(*m_service, std::move(m_control));
        } else if (m_control.handled) {
            m_control.handled(ERROR_PROCESS_ABORTED);
        }
        // Destroys this alarm.
        std::erase_if(m_manager.m_late, [this](const auto& late) { return late.get() == this; });
    }

    ServiceManager& m_manager;
    const std::shared_ptr<Service> m_service;
    const SERVICE_STATUS_HANDLE m_run;
    ServiceControl m_control;
};

ServiceManager::ServiceManager(Machine& machine, Announcer& announcer) : m_machine(machine)
{
    announcer.Add(*this);
}

ServiceManager::~ServiceManager() { m_machine.announcer.Remove(*this); }

// --- Starting ---

void ServiceManager::Boot()
{
    const Hold hold(m_machine);
    // The registry may have changed while the PC was off.
    const std::vector<std::wstring> all = names();
    std::erase_if(m_services,
                  [&](const auto& known) { return known.second->stopped() && !Read(known.first); });
    for (const std::wstring& name : all) {
        std::shared_ptr<Service>& service = m_services[name];
        if (!service) service = std::make_shared<Service>(name);
        service->marked = m_machine.registry.GetDword(KeyOf(name), L"DeleteFlag").value_or(0) != 0;
        const std::shared_ptr<Service> kept = service;
        RemoveIfMarked(*kept);
    }
    for (const std::wstring& name : all) {
        const std::shared_ptr<Service> service = Find(name);
        if (service && service->stopped() && Read(name)->start == SERVICE_AUTO_START) Start(name);
    }
}

DWORD ServiceManager::Start(std::wstring_view name, const std::vector<std::wstring>& arguments)
{
    const Hold hold(m_machine);
    constexpr DWORD kDisabled = 4;
    constexpr DWORD kErrorServiceDisabled = 1058;
    const std::shared_ptr<Service> service = Find(name);
    const std::optional<ServiceConfig> config = Read(name);
    if (!service || !config) return ERROR_SERVICE_DOES_NOT_EXIST;
    if (service->marked) return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (!service->stopped()) return ERROR_SERVICE_ALREADY_RUNNING;
    if (config->start == kDisabled) return kErrorServiceDisabled;
    service->started = {service->name};
    service->started.insert(service->started.end(), arguments.begin(), arguments.end());
    service->reports.clear();
    // Set before the dependencies start, so that a dependency cycle does not start it again.
    SetState(*service, SERVICE_START_PENDING, NO_ERROR);
    if (const DWORD error = StartDependencies(*config)) {
        SetState(*service, SERVICE_STOPPED, error);
        return error;
    }
    service->waits = true;
    StartWaiting();
    return service->stopped() ? service->status.dwWin32ExitCode : ERROR_SUCCESS;
}

DWORD ServiceManager::StartDependencies(const ServiceConfig& config)
{
    for (const std::wstring& name : config.dependencies) {
        const std::shared_ptr<Service> needed = Find(name);
        if (!needed) return ERROR_SERVICE_DEPENDENCY_DELETED;
        if (needed->stopped() && Start(name) != ERROR_SUCCESS) return ERROR_SERVICE_DEPENDENCY_FAIL;
    }
    return ERROR_SUCCESS;
}

// Starts the services whose dependencies all run, and fails those with a dependency that has
// stopped.
void ServiceManager::StartWaiting()
{
    for (const std::wstring& name : names()) {
        const std::shared_ptr<Service> service = Find(name);
        if (!service || !service->waits) continue;
        const ServiceConfig config = *Read(name);
        const auto runs = [&](const std::wstring& needed) {
            const std::shared_ptr<Service> found = Find(needed);
            return found && found->running();
        };
        const auto failed = [&](const std::wstring& needed) {
            const std::shared_ptr<Service> found = Find(needed);
            return !found || found->stopped();
        };
        if (std::ranges::any_of(config.dependencies, failed)) {
            service->waits = false;
            SetState(*service, SERVICE_STOPPED, ERROR_SERVICE_DEPENDENCY_FAIL);
        } else if (std::ranges::all_of(config.dependencies, runs)) {
            service->waits = false;
            const DWORD error = Launch(*service, config);
            if (error) SetState(*service, SERVICE_STOPPED, error);
        }
    }
}

DWORD ServiceManager::Launch(Service& service, const ServiceConfig& config)
{
    class Caller final : public Waitable
    {
    public:
        Caller() : Waitable(Reset::automatic) {}
        std::string_view Kind() const override { return "control dispatcher"; }
    };
    service.connected = false;
    service.handler = nullptr;
    service.called = std::make_shared<Caller>();
    DWORD error = ERROR_SUCCESS;
    service.process = m_machine.programs.StartCommandLine(config.path, {}, error);
    return error;
}

// --- Status reports ---

SERVICE_STATUS_HANDLE ServiceManager::NewRunHandle()
{
    Hold::Require();
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(++m_last_run);
}

std::shared_ptr<Service> ServiceManager::FindRun(SERVICE_STATUS_HANDLE handle) const
{
    Hold::Require();
    for (const auto& [name, service] : m_services) {
        if (handle && service->handle == handle) return service;
    }
    return nullptr;
}

// The journal's "service status": the service's `name`, its `state`, the controls `accepted` and
// its `exit_code`; what the state `was` before.
void ServiceManager::Record(const Service& service, DWORD before) const
{
    m_machine.journal.Record(
        "service status", {{"name", service.name},
                           {"state", std::wstring(ServiceStateName(service.status.dwCurrentState))},
                           {"accepted", std::uint64_t{service.status.dwControlsAccepted}},
                           {"exit_code", std::uint64_t{service.status.dwWin32ExitCode}},
                           {"was", std::wstring(ServiceStateName(before))}});
}

void ServiceManager::SetState(Service& service, DWORD state, DWORD exit_code)
{
    const DWORD before = std::exchange(service.status.dwCurrentState, state);
    service.status.dwControlsAccepted = 0;
    service.status.dwWin32ExitCode = exit_code;
    Record(service, before);
    if (state == SERVICE_STOPPED) {
        StartWaiting();
        RemoveIfMarked(service);
    }
}

void ServiceManager::Report(Service& service, const SERVICE_STATUS& status)
{
    Hold::Require();
    const DWORD before = service.status.dwCurrentState;
    service.status = status;
    service.reports.push_back(status);
    Record(service, before);
    if (service.stopped() && service.called) service.called->Signal();
    if (service.stopped() || service.running()) StartWaiting();
}

void ServiceManager::ProcessEnded(const Process& process)
{
    const std::shared_ptr<Service> service = ServiceOf(process);
    if (!service) return;
    service->process = nullptr;
    service->handler = nullptr;
    service->handle = nullptr;
    for (const ServiceControl& control : std::exchange(service->controls, {})) {
        if (control.handled) control.handled(ERROR_PROCESS_ABORTED);
    }
    if (!m_machine.on()) {
        // The manager is gone as well.
        service->waits = false;
        service->status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
    } else if (service->stopped()) {
        RemoveIfMarked(*service);
    } else {
        SetState(*service, SERVICE_STOPPED,
                 service->connected ? ERROR_PROCESS_ABORTED : ERROR_SERVICE_REQUEST_TIMEOUT);
    }
}

// --- Controls ---

DWORD ServiceManager::MaySend(const Service& service, DWORD control) const
{
    Hold::Require();
    const Acceptance* row = FindAcceptance(control);
    const bool own = control >= kFirstOwnControl && control < 2 * kFirstOwnControl;
    if (!own && (!row || !row->may_be_sent)) return ERROR_INVALID_PARAMETER;
    if (service.stopped()) return ERROR_SERVICE_NOT_ACTIVE;
    const bool pending = service.status.dwCurrentState == SERVICE_START_PENDING ||
                         service.status.dwCurrentState == SERVICE_STOP_PENDING;
    if (!service.handler || (pending && control != SERVICE_CONTROL_INTERROGATE)) {
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    }
    if (row && (service.status.dwControlsAccepted & row->accepted) != row->accepted) {
        return ERROR_INVALID_SERVICE_CONTROL;
    }
    if (control != SERVICE_CONTROL_STOP) return ERROR_SUCCESS;
    for (const auto& [name, other] : m_services) {
        if (!other->stopped() && DependsOn(name, service.name)) {
            return ERROR_DEPENDENT_SERVICES_RUNNING;
        }
    }
    return ERROR_SUCCESS;
}

DWORD ServiceManager::Control(std::wstring_view name, DWORD control,
                              std::function<void(DWORD)> handled)
{
    const Hold hold(m_machine);
    const std::shared_ptr<Service> service = Find(name);
    if (!service) return ERROR_SERVICE_DOES_NOT_EXIST;
    if (const DWORD error = MaySend(*service, control)) return error;
    Queue(*service, {.control = control, .handled = std::move(handled)});
    return ERROR_SUCCESS;
}

void ServiceManager::Queue(Service& service, ServiceControl control)
{
    Hold::Require();
    service.controls.push_back(std::move(control));
    service.called->Signal();
}

void ServiceManager::Shutdown()
{
    const Hold hold(m_machine);
    for (const auto& [name, service] : m_services) {
        if (service->handler && service->status.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN) {
            Queue(*service, {.control = SERVICE_CONTROL_SHUTDOWN});
        }
    }
}

bool ServiceManager::AllEnded() const
{
    const Hold hold(m_machine);
    return std::ranges::none_of(m_services,
                                [](const auto& known) { return known.second->process; });
}

std::shared_ptr<PowerSettingRegistration> ServiceManager::Register(
    const std::shared_ptr<Service>& service, const GUID& setting)
{
    Hold::Require();
    auto registration = std::make_shared<PowerSettingRegistration>(service, setting);
    std::erase_if(m_registrations, [](const auto& known) { return known.expired(); });
    m_registrations.push_back(registration);
    if (const auto present = m_machine.announcer.Present(setting)) {
        Queue(*service, {.control = SERVICE_CONTROL_POWEREVENT,
                         .event = PBT_POWERSETTINGCHANGE,
                         .data = SettingRecord(setting, *present)});
    }
    return registration;
}

// --- Announcements that come late, doubled or merged ---

void ServiceManager::Deliver(const std::shared_ptr<Service>& service, const ServiceControl& control)
{
    const NoticeDelivery& how = m_machine.announcer.delivery;
    ServiceControl second = control;
    second.handled = {};
    for (const ServiceControl& sent : {control, second}) {
        if (how.late > Duration{0}) {
            m_late.push_back(std::make_unique<LateControl>(*this, service, sent));
            m_machine.scheduler.Set(*m_late.back(), m_machine.now() + how.late);
        } else {
            QueueMerged(*service, sent);
        }
        if (!how.doubled) return;
    }
}

void ServiceManager::QueueMerged(Service& service, ServiceControl control)
{
    const auto same = [&](const ServiceControl& known) {
        return control.event == PBT_POWERSETTINGCHANGE && known.control == control.control &&
               known.event == control.event && !known.data.empty() &&
               std::memcmp(known.data.data(), control.data.data(), sizeof(GUID)) == 0;
    };
    const auto waiting = std::ranges::find_if(service.controls, same);
    if (!m_machine.announcer.delivery.merged || waiting == service.controls.end()) {
        return Queue(service, std::move(control));
    }
    waiting->data = control.data;
    if (control.handled) control.handled(NO_ERROR);
}

bool ServiceManager::Hear(const Announcement& said, const std::function<void()>& handled)
{
    const Acceptance* row = FindAcceptance(said.control);
    std::vector<std::shared_ptr<Service>> recipients;
    if (said.setting) {
        // A service that has registered gets the change, whatever controls it accepts.
        for (const auto& known : m_registrations) {
            const auto registration = known.lock();
            if (!registration || !IsEqualGUID(registration->setting, *said.setting)) continue;
            const std::shared_ptr<Service>& service = registration->service;
            if (service->handler && service->handle == registration->run) {
                recipients.push_back(service);
            }
        }
    } else {
        for (const auto& [name, service] : m_services) {
            const bool accepts = row && service->status.dwControlsAccepted & row->accepted;
            if (accepts && service->handler && !service->stopped()) recipients.push_back(service);
        }
    }
    std::vector<BYTE> data = said.data;
    if (said.setting) data = SettingRecord(*said.setting, said.data);
    if (said.control == SERVICE_CONTROL_SESSIONCHANGE) data = SessionRecord(said.data);
    const auto left = std::make_shared<std::size_t>(recipients.size());
    for (const std::shared_ptr<Service>& service : recipients) {
        Deliver(service, {said.control, said.event, data, [left, handled](DWORD) {
                              if (--*left == 0) handled();
                          }});
    }
    return !recipients.empty();
}

}  // namespace virtual_pc
