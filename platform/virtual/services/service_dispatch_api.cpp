// What a service asks of the service control manager: the dispatcher, the control handler, the
// status reports and the registrations for power settings.

#include "platform/com.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/services/service_manager.h"

using namespace virtual_pc;

namespace {

Function fn_start_dispatcher{"StartServiceCtrlDispatcherW"};
Function fn_register_handler{"RegisterServiceCtrlHandlerExW"};
Function fn_set_service_status{"SetServiceStatus"};
Function fn_register_power_setting{"RegisterPowerSettingNotification"};
Function fn_unregister_power_setting{"UnregisterPowerSettingNotification", Failing::last_error,
                                     Role::releases};

// Runs a service's main routine on a thread of its own.
void StartMain(Call& call, const Service& service, LPSERVICE_MAIN_FUNCTIONW main)
{
    Process& process = call.process();
    process.StartThread(call.machine, [&process, main, arguments = service.started]() -> DWORD {
        std::vector<std::wstring> texts = arguments;
        std::vector<LPWSTR> pointers;
        pointers.reserve(texts.size() + 1);
        for (std::wstring& text : texts) pointers.push_back(text.data());
        pointers.push_back(nullptr);
        process.Guard(*Thread::Self(),
                      [&] { main(static_cast<DWORD>(texts.size()), pointers.data()); });
        return 0;
    });
}

// The next control for a service; nothing when it has stopped, or is gone with its process. Blocks.
// A stopped service may be running again, in another process, before the first process has ended.
std::optional<ServiceControl> NextControl(Machine& machine, Thread& self, Service& service)
{
    const Hold hold(machine);
    while (service.process == self.process && (service.controls.empty() || !service.handler)) {
        if (service.stopped()) return std::nullopt;
        Waitable::WaitFor(machine, self, {service.called}, false, kNever);
    }
    if (service.process != self.process) return std::nullopt;
    ServiceControl next = std::move(service.controls.front());
    service.controls.pop_front();
    // Effect "service control": the service's `name`, the `control` and its `event`.
    machine.journal.Record("service control", {{"name", service.name},
                                               {"control", std::uint64_t{next.control}},
                                               {"event", std::uint64_t{next.event}}});
    return next;
}

}  // namespace

extern "C" {

BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table)
{
    const Boundary boundary;
    std::shared_ptr<Service> service;
    Machine& machine = Machine::Current();
    {
        Call call(fn_start_dispatcher);
        if (call.Fails()) return FALSE;
        if (!table || !table->lpServiceProc) return call.Fail(ERROR_INVALID_PARAMETER);
        service = machine.services.ServiceOf(call.process());
        if (!service) return call.Fail(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        if (std::exchange(service->connected, true)) {
            return call.Fail(ERROR_SERVICE_ALREADY_RUNNING);
        }
        StartMain(call, *service, table->lpServiceProc);
    }
    while (std::optional<ServiceControl> next = NextControl(machine, *Thread::Self(), *service)) {
        DWORD result = NO_ERROR;
        try {
            EnterProcess([&] {
                result = service->handler(next->control, next->event,
                                          next->data.empty() ? nullptr : next->data.data(),
                                          service->context);
            });
        } catch (...) {
            const Hold hold(machine);
            if (next->handled) next->handled(ERROR_PROCESS_ABORTED);
            throw;
        }
        const Hold hold(machine);
        if (next->handled) next->handled(result);
    }
    return TRUE;
}

// The name is ignored, as for a program with one service.
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR, LPHANDLER_FUNCTION_EX handler,
                                                           LPVOID context)
{
    Call call(fn_register_handler);
    if (call.Fails()) return nullptr;
    const std::shared_ptr<Service> service = call.machine.services.ServiceOf(call.process());
    if (!service || !handler) {
        call.Fail(service ? ERROR_INVALID_PARAMETER : ERROR_SERVICE_NOT_IN_EXE);
        return nullptr;
    }
    service->handler = handler;
    service->context = context;
    service->handle = call.machine.services.NewRunHandle();
    return service->handle;
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status)
{
    Call call(fn_set_service_status);
    if (call.Fails()) return FALSE;
    const std::shared_ptr<Service> service = call.machine.services.FindRun(handle);
    if (!service) return call.Fail(ERROR_INVALID_HANDLE);
    const bool known = status && !ServiceStateName(status->dwCurrentState).empty() &&
                       status->dwServiceType == SERVICE_WIN32_OWN_PROCESS;
    if (!known) return call.Fail(ERROR_INVALID_DATA);
    call.machine.services.Report(*service, *status);
    return TRUE;
}

HPOWERNOTIFY WINAPI RegisterPowerSettingNotification(HANDLE recipient, const GUID* setting,
                                                     DWORD flags)
{
    Call call(fn_register_power_setting);
    if (call.Fails()) return nullptr;
    const std::shared_ptr<Service> service =
        call.machine.services.FindRun(reinterpret_cast<SERVICE_STATUS_HANDLE>(recipient));
    if (!service || !setting || flags != DEVICE_NOTIFY_SERVICE_HANDLE) {
        call.Fail(service ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return call.Open(call.machine.services.Register(service, *setting));
}

BOOL WINAPI UnregisterPowerSettingNotification(HPOWERNOTIFY registration)
{
    return CloseHandleOf<PowerSettingRegistration>(fn_unregister_power_setting, registration);
}
}
