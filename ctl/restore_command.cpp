#include "ctl/restore_command.h"

#include "log/console.h"
#include "platform/owned.h"
#include "platform/service.h"
#include "power/driver_api.h"
#include "restore/restoring.h"
#include "restore/turn.h"
#include "service/identity.h"

namespace {

constexpr int kDone = 0;
constexpr int kLeft = 1;
constexpr int kRefused = 3;

// Whether the service manager says that the service has stopped, or that there is none.
bool IsServiceStopped()
{
    const OwnedServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return false;
    const OwnedServiceHandle service(
        OpenServiceW(manager.Get(), kServiceName, SERVICE_INTERROGATE));
    if (!service) return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST;
    SERVICE_STATUS status{};
    return !ControlService(service.Get(), SERVICE_CONTROL_INTERROGATE, &status) &&
           GetLastError() == ERROR_SERVICE_NOT_ACTIVE;
}

int Refuse(FormatFor<> why)
{
    PrintToConsole(why);
    return kRefused;
}

}  // namespace

int RunRestore()
{
    constexpr DWORD kPatienceMs = 2000;
    const RestoreTurn turn(kPatienceMs);
    if (!turn.mine()) return Refuse(L"Another process is restoring.\n");
    // Asked while this process has the turn: a service that starts now waits for it, half a second.
    if (!IsServiceStopped()) {
        return Refuse(L"The service runs, and restores everything when it stops. Stop it first.\n");
    }
    const RestoreCounts counts = RestoreWhatIsTheUsers(SendDeviceMode);
    PrintToConsole(L"%d restored, %d changed since by the user, %d left.\n", counts.restored,
                   counts.changed_since, counts.kept);
    return counts.kept == 0 ? kDone : kLeft;
}
