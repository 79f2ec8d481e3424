// What programs ask of the service control manager.

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/services/service_manager.h"

using namespace virtual_pc;

namespace {

class ManagerHandle final : public Object
{
public:
    explicit ManagerHandle(DWORD rights) : access(rights) {}
    std::string_view Kind() const override { return "service manager"; }

    const DWORD access;
};

class ServiceHandle final : public Object
{
public:
    ServiceHandle(std::shared_ptr<Service> what, DWORD rights)
        : service(std::move(what)), access(rights)
    {
        ++service->open_handles;
    }
    std::string_view Kind() const override { return "service"; }
    std::wstring Name() const override { return service->name; }
    void Closed() override { Machine::Current().services.ServiceClosed(*service); }

    const std::shared_ptr<Service> service;
    const DWORD access;
};

// Codes that only this file returns.
constexpr DWORD kErrorInvalidAddress = 487;
constexpr DWORD kErrorNoSuchServer = 1722;  // only this PC's manager can be opened

Function fn_open_manager{"OpenSCManagerW"};
Function fn_open_service{"OpenServiceW"};
Function fn_create_service{"CreateServiceW"};
Function fn_change_service_config{"ChangeServiceConfig2W"};
Function fn_delete_service{"DeleteService"};
Function fn_control_service{"ControlService"};
Function fn_close_service_handle{"CloseServiceHandle", Failing::last_error, Role::releases};

SC_HANDLE OpenFor(Call& call, std::shared_ptr<Object> object)
{
    return reinterpret_cast<SC_HANDLE>(call.Open(std::move(object)));
}

// The service of a handle that has a right; null, with the last error set, otherwise.
ServiceHandle* Allowed(Call& call, SC_HANDLE handle, DWORD right)
{
    auto* service = call.Find<ServiceHandle>(reinterpret_cast<HANDLE>(handle));
    if (service && (service->access & right) != right) {
        call.Fail(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return service;
}

// The result of a control, which its sender waits for.
class Answer final : public Waitable
{
public:
    std::string_view Kind() const override { return "a service's answer"; }
    DWORD result = NO_ERROR;
    SERVICE_STATUS status{};  // of the service, as the handler left it
};

std::vector<std::wstring> NamesInBlock(const wchar_t* list)
{
    std::vector<std::wstring> names;
    for (; list && *list; list += names.back().size() + 1) names.emplace_back(list);
    return names;
}

}  // namespace

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access)
{
    Call call(fn_open_manager);
    if (call.Fails()) return nullptr;
    DWORD error = NO_ERROR;
    if (machine && *machine) error = kErrorNoSuchServer;
    if (database && !SameName(database, L"ServicesActive")) error = ERROR_INVALID_NAME;
    call.thread.last_error = error;
    if (error) return nullptr;
    return OpenFor(call, std::make_shared<ManagerHandle>(access));
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access)
{
    Call call(fn_open_service);
    if (call.Fails()) return nullptr;
    if (!call.Find<ManagerHandle>(reinterpret_cast<HANDLE>(manager))) return nullptr;
    if (!name || !*name) {
        call.Fail(name ? ERROR_INVALID_NAME : kErrorInvalidAddress);
        return nullptr;
    }
    std::shared_ptr<Service> service = call.machine.services.Find(name);
    if (!service) {
        call.Fail(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    return OpenFor(call, std::make_shared<ServiceHandle>(std::move(service), access));
}

SC_HANDLE WINAPI CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR displayName, DWORD access,
                                DWORD type, DWORD start, DWORD errorControl, LPCWSTR path, LPCWSTR,
                                LPDWORD, LPCWSTR dependencies, LPCWSTR account, LPCWSTR)
{
    Call call(fn_create_service);
    if (call.Fails()) return nullptr;
    const auto* handle = call.Find<ManagerHandle>(reinterpret_cast<HANDLE>(manager));
    if (!handle) return nullptr;
    DWORD error = ERROR_ACCESS_DENIED;
    if (!name || !path) {
        error = kErrorInvalidAddress;
    } else if (handle->access & SC_MANAGER_CREATE_SERVICE) {
        error = call.machine.services.Create({.name = name,
                                              .display_name = displayName ? displayName : name,
                                              .type = type,
                                              .start = start,
                                              .error_control = errorControl,
                                              .path = path,
                                              .dependencies = NamesInBlock(dependencies),
                                              .account = account ? account : L"LocalSystem"});
    }
    if (error) {
        call.Fail(error);
        return nullptr;
    }
    return OpenFor(call, std::make_shared<ServiceHandle>(call.machine.services.Find(name), access));
}

BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE handle, DWORD level, LPVOID info)
{
    Call call(fn_change_service_config);
    if (call.Fails()) return FALSE;
    const ServiceHandle* service = Allowed(call, handle, SERVICE_CHANGE_CONFIG);
    if (!service) return FALSE;
    if (level != SERVICE_CONFIG_DESCRIPTION || !info) return call.Fail(ERROR_INVALID_PARAMETER);
    if (service->service->marked) return call.Fail(ERROR_SERVICE_MARKED_FOR_DELETE);
    const wchar_t* description = static_cast<const SERVICE_DESCRIPTIONW*>(info)->lpDescription;
    if (description) call.machine.services.Describe(service->service->name, description);
    return TRUE;
}

BOOL WINAPI DeleteService(SC_HANDLE handle)
{
    Call call(fn_delete_service);
    if (call.Fails()) return FALSE;
    const ServiceHandle* service = Allowed(call, handle, DELETE);
    if (!service) return FALSE;
    const DWORD error = call.machine.services.Delete(service->service->name);
    return error ? call.Fail(error) : TRUE;
}

BOOL WINAPI ControlService(SC_HANDLE handle, DWORD control, LPSERVICE_STATUS status)
{
    Call call(fn_control_service);
    if (call.Fails()) return FALSE;
    const DWORD right = control == SERVICE_CONTROL_STOP          ? SERVICE_STOP
                        : control == SERVICE_CONTROL_INTERROGATE ? SERVICE_INTERROGATE
                                                                 : 0;
    const ServiceHandle* sent_by = Allowed(call, handle, right);
    if (!sent_by) return FALSE;
    if (!status) return call.Fail(ERROR_INVALID_PARAMETER);
    const std::shared_ptr<Service> service = sent_by->service;
    *status = service->status;
    const auto answer = std::make_shared<Answer>();
    const DWORD error =
        call.machine.services.Control(service->name, control, [answer, service](DWORD result) {
            answer->result = result;
            answer->status = service->status;
            answer->Signal();
        });
    if (error) return call.Fail(error);
    const Instant deadline = call.machine.now() + std::chrono::seconds{30};
    const DWORD waited = Waitable::WaitFor(call.machine, call.thread, {answer}, false, deadline);
    if (waited == WAIT_TIMEOUT) return call.Fail(ERROR_SERVICE_REQUEST_TIMEOUT);
    *status = answer->status;
    return answer->result ? call.Fail(answer->result) : TRUE;
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE handle)
{
    Call call(fn_close_service_handle);
    if (call.Fails()) return FALSE;
    const HANDLE closed = reinterpret_cast<HANDLE>(handle);
    const Object* object = call.Find<Object>(closed);
    if (!object) return FALSE;
    if (!dynamic_cast<const ManagerHandle*>(object) &&
        !dynamic_cast<const ServiceHandle*>(object)) {
        return call.Fail(ERROR_INVALID_HANDLE);
    }
    call.machine.handles.Close(closed);
    return TRUE;
}
}
