// The service control manager: its database, the services that run, and the controls that they get.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/core/waitable.h"

namespace virtual_pc {

class Machine;
class Process;

// A service as the database has it.
struct ServiceConfig
{
    std::wstring name = {};
    std::wstring display_name = {};
    DWORD type = SERVICE_WIN32_OWN_PROCESS;
    DWORD start = SERVICE_DEMAND_START;
    DWORD error_control = SERVICE_ERROR_NORMAL;
    std::wstring path = {};  // the command line of its program
    std::vector<std::wstring> dependencies = {};
    std::wstring account = L"LocalSystem";
    std::wstring description = {};
};

// A control for the handler of a service.
struct ServiceControl
{
    DWORD control;
    DWORD event = 0;
    std::vector<BYTE> data = {};  // empty: none
    // Called with the machine held: with the result of the handler when it has returned, or with an
    // error when the process has ended before.
    std::function<void(DWORD)> handled = {};
};

// A service of the database while the PC is on. With the machine held.
class Service
{
public:
    explicit Service(std::wstring service_name) : name(std::move(service_name)) {}

    bool stopped() const { return status.dwCurrentState == SERVICE_STOPPED; }
    bool running() const { return status.dwCurrentState == SERVICE_RUNNING; }

    const std::wstring name;
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
    std::vector<SERVICE_STATUS> reports;  // since it was started, in order

    // Null while the service does not run, and always for a service of the system itself.
    Process* process = nullptr;
    bool waits = false;                 // for the services it depends on
    std::vector<std::wstring> started;  // the arguments of its main routine
    bool connected = false;             // its program runs the dispatcher
    std::deque<ServiceControl> controls;
    // Signalled when there is a control, or the service has stopped.
    std::shared_ptr<Waitable> called;
    LPHANDLER_FUNCTION_EX handler = nullptr;
    LPVOID context = nullptr;
    SERVICE_STATUS_HANDLE handle = nullptr;  // of this run

    int open_handles = 0;
    bool marked = false;  // deleted, but still running or open
};

// A registration for a power setting.
class PowerSettingRegistration final : public Object
{
public:
    PowerSettingRegistration(std::shared_ptr<Service> recipient, const GUID& guid)
        : service(std::move(recipient)), run(service->handle), setting(guid)
    {
    }
    std::string_view Kind() const override { return "power setting registration"; }
    std::wstring Name() const override { return FormatGuid(setting); }

    const std::shared_ptr<Service> service;
    const SERVICE_STATUS_HANDLE run;  // the run of the service that registered
    const GUID setting;
};

// Results are Win32 errors: what the real one refuses with, or ERROR_SUCCESS.
class ServiceManager final : public Announcer::Listener
{
public:
    ServiceManager(Machine& machine, Announcer& announcer);
    ~ServiceManager() override;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // Creates the service that every PC runs from the start.
    void AddSystemService();

    // --- The database ---
    DWORD Create(const ServiceConfig& config);
    std::optional<ServiceConfig> Read(std::wstring_view name) const;
    DWORD Describe(std::wstring_view name, std::wstring_view description);
    DWORD Delete(std::wstring_view name);
    std::vector<std::wstring> names() const;

    // --- What runs ---
    // Starts a service, after those it depends on. Returns at once; the service may still wait for
    // them.
    DWORD Start(std::wstring_view name, const std::vector<std::wstring>& arguments = {});
    // Sends a control, with every access right. `handled` as in ServiceControl; it is not called
    // when the control is refused.
    DWORD Control(std::wstring_view name, DWORD control, std::function<void(DWORD)> handled = {});
    // Null when there is no such service.
    std::shared_ptr<Service> Find(std::wstring_view name) const;
    // The service that a process was started as; null for none.
    std::shared_ptr<Service> ServiceOf(const Process& process) const;

    // --- The PC's power switch ---
    // Removes the services that are marked for deletion, and starts the automatic ones.
    void Boot();
    // Sends the shutdown control to the services that accept it.
    void Shutdown();
    // Whether no service's process is left.
    bool AllEnded() const;

    // Called by the announcer.
    bool Hear(const Announcement& announcement, const std::function<void()>& handled) override;

    // --- For the platform functions, with the machine held ---
    std::shared_ptr<Service> FindRun(SERVICE_STATUS_HANDLE handle) const;
    SERVICE_STATUS_HANDLE NewRunHandle();
    void Report(Service& service, const SERVICE_STATUS& status);
    DWORD MaySend(const Service& service, DWORD control) const;
    void Queue(Service& service, ServiceControl control);
    std::shared_ptr<PowerSettingRegistration> Register(const std::shared_ptr<Service>& service,
                                                       const GUID& setting);
    void ServiceClosed(Service& service);
    // Called when a process has ended.
    void ProcessEnded(const Process& process);

private:
    static std::wstring KeyOf(std::wstring_view name);
    void Deliver(const std::shared_ptr<Service>& service, const ServiceControl& control);
    void QueueMerged(Service& service, ServiceControl control);
    void RemoveIfMarked(Service& service);
    bool DependsOn(std::wstring_view name, std::wstring_view other, int depth = 8) const;
    DWORD StartDependencies(const ServiceConfig& config);
    void StartWaiting();
    DWORD Launch(Service& service, const ServiceConfig& config);
    void SetState(Service& service, DWORD state, DWORD exit_code);
    void Record(const Service& service, DWORD before) const;

    class LateControl;

    Machine& m_machine;
    std::list<std::unique_ptr<LateControl>> m_late;
    std::map<std::wstring, std::shared_ptr<Service>, NoCase> m_services;
    std::vector<std::weak_ptr<PowerSettingRegistration>> m_registrations;
    std::uintptr_t m_last_run = 0;
};

// "running" and so on; "" for a number that is no state.
std::wstring_view ServiceStateName(DWORD state);

}  // namespace virtual_pc
