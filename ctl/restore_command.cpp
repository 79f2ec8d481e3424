#include "ctl/restore_command.h"

#include "ctl/service_process.h"
#include "log/console.h"
#include "power/driver_api.h"
#include "restore/restoring.h"
#include "restore/turn.h"

namespace {

int Refuse(FormatFor<> why)
{
    PrintToConsole(why);
    return kRefused;
}

}  // namespace

int RunRestore(const CommandArguments& arguments)
{
    if (!arguments.empty()) return kUsage;
    constexpr DWORD kPatienceMs = 2000;
    const RestoreTurn turn(kPatienceMs);
    if (!turn.mine()) return Refuse(L"Another process is restoring.\n");
    // Asked while this process has the turn: a service that starts now waits for it, half a second.
    const ServiceRuns runs = AskServiceManager();
    if (runs == ServiceRuns::yes || runs == ServiceRuns::unknown) {
        return Refuse(L"The service runs, and restores everything when it stops. Stop it first.\n");
    }
    const RestoreCounts counts = RestoreWhatIsTheUsers(SendDeviceMode);
    PrintToConsole(L"%d restored, %d changed since by the user, %d left.\n", counts.restored,
                   counts.changed_since, counts.kept);
    return counts.kept == 0 ? kDone : kLeft;
}
