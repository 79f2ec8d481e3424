#include "service/state_machine_thread.h"

#include "platform/message.h"
#include "power/driver_api.h"
#include "restore/restoring.h"
#include "restore/turn.h"
#include "service/module.h"
#include "service/service_status.h"
#include "state/never_sleep_state.h"

namespace {

// Where another process restores and does not end, the service does not wait for it: a thing that
// is restored twice is as good as one that is restored once.
void Restore()
{
    constexpr DWORD kPatienceMs = 500;
    const RestoreTurn turn(kPatienceMs);
    RestoreWhatIsTheUsers(SendDeviceMode);
}

}  // namespace

DWORD WINAPI StateMachineThreadProc(LPVOID)
{
    Module().AwaitCallSecurity();
    // A process before this one may have been killed amid never-sleep mode.
    Restore();
    CNeverSleepState::Run();
    // Run ends without leaving the current state, so what that state changed is still in place.
    Restore();
    ReportServiceState(SERVICE_STOPPED);
    PostThreadMessageW(Module().service_thread_id(), WM_QUIT, 0, 0);
    return 0;
}
