#include "ctl/service_process.h"

#include "platform/owned.h"
#include "platform/service.h"
#include "platform/session.h"
#include "service/identity.h"

ServiceRuns AskServiceManager()
{
    const OwnedServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return ServiceRuns::unknown;
    const OwnedServiceHandle service(
        OpenServiceW(manager.Get(), kServiceName, SERVICE_INTERROGATE));
    if (!service) {
        return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST ? ServiceRuns::not_installed
                                                              : ServiceRuns::unknown;
    }
    SERVICE_STATUS status{};
    if (ControlService(service.Get(), SERVICE_CONTROL_INTERROGATE, &status)) {
        return ServiceRuns::yes;
    }
    return GetLastError() == ERROR_SERVICE_NOT_ACTIVE ? ServiceRuns::no : ServiceRuns::yes;
}

bool IsProcessAlive(DWORD id, UtcTime started)
{
    const OwnedHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    if (!process) {
        return GetLastError() == ERROR_ACCESS_DENIED && AskServiceManager() == ServiceRuns::yes;
    }
    // The id may be that of a later process by now.
    FILETIME begun{}, unused{};
    constexpr UtcTime kRounding = kUnitsPerMs;  // of the published time
    if (!GetProcessTimes(process.Get(), &begun, &unused, &unused, &unused)) return true;
    return ToUtc(begun) - started < kRounding;
}
