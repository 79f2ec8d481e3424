#include "service/state_machine_thread.h"

#include "platform/message.h"
#include "service/module.h"
#include "service/service_status.h"
#include "state/never_sleep_state.h"

DWORD WINAPI StateMachineThreadProc(LPVOID)
{
    CNeverSleepState::Run();
    ReportServiceState(SERVICE_STOPPED);
    PostThreadMessageW(Module().service_thread_id(), WM_QUIT, 0, 0);
    return 0;
}
