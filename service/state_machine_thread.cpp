#include "service/state_machine_thread.h"

#include "service/service_status.h"
#include "state/never_sleep_state.h"

DWORD WINAPI StateMachineThreadProc(LPVOID)
{
    CNeverSleepState::Run();
    ReportServiceState(SERVICE_STOPPED);
    return 0;
}
