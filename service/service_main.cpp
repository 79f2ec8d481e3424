// ServiceMain: starts the service, runs the message loop, and undoes the steps of the start.

#include "log/log.h"
#include "platform/message.h"
#include "power/machine_power.h"
#include "publish/publisher.h"
#include "reconciler/reconciler.h"
#include "service/identity.h"
#include "service/logging_library.h"
#include "service/module.h"
#include "service/program_rights.h"
#include "service/service_status.h"
#include "service/state_machine_thread.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"
#include "state/on_ac_power.h"

namespace {

constexpr const wchar_t* kServiceMain = L"CNeverSleepModule::ServiceMain";
constexpr BYTE kOnline = 1;

constexpr DWORD kControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN |
                                    SERVICE_ACCEPT_POWEREVENT | SERVICE_ACCEPT_SESSIONCHANGE |
                                    SERVICE_ACCEPT_TIMECHANGE;
static_assert(kControlsAccepted == 0x2C5);

}  // namespace

void CNeverSleepModule::ServiceMain(DWORD, LPWSTR*)
{
    if (StartService()) {
        createGlobalEvents();
        Log(6, kServiceMain, L"HOLV service global events are created");
        StartPublishing();
        m_hCallSecuritySet.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const OwnedHandle state_machine(
            CreateThread(nullptr, 0, StateMachineThreadProc, nullptr, 0, nullptr));
        Sleep(0);
        ReportServiceState(SERVICE_RUNNING);
        Log(6, kServiceMain, L"HOLV service state machine starts");
        WarnOfWritableProgram();
        // The state machine's thread is what ends the message loop. Without it, end the loop here.
        if (!state_machine) PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
        if (state_machine) StartReconciler();
        SetExitCode(m_status, static_cast<DWORD>(RunMessageLoop(0)));
        EndService(state_machine);
    }
    if (m_hServiceMainEnded) SetEvent(m_hServiceMainEnded);
}

// Prepares what the events and the state machine need. False when the service cannot run.
bool CNeverSleepModule::StartService()
{
    g_pServiceStatus = &m_status;
    StartLoggingLibrary();
    AdvanceServiceState(SERVICE_STOPPED, SERVICE_START_PENDING);
    SYSTEM_POWER_STATUS power;
    if (ReadPowerStatus(&power)) g_bOnAcPower = power.ACLineStatus == kOnline;
    m_dwServiceThreadID = GetCurrentThreadId();

    m_hServiceStatus = RegisterServiceCtrlHandlerExW(kServiceName, OnServiceCtrlHandler, nullptr);
    if (!m_hServiceStatus) {
        Log(6, kServiceMain, L"Handler not installed");
        AdvanceServiceState(SERVICE_START_PENDING, SERVICE_STOPPED);
        return false;
    }
    m_status.dwControlsAccepted |= kControlsAccepted;
    SetExitCode(m_status, NO_ERROR);
    m_status.dwCheckPoint = 0;
    m_status.dwWaitHint = 0;
    g_hServiceStatus = m_hServiceStatus;

    const HRESULT hr = InitializeCom();
    if (FAILED(hr)) {
        Log(6, kServiceMain, L"InitializeCom failed, hr=0x%x", hr);
        return false;
    }
    m_bDelayShutdown = false;
    RegisterPowerNotifications();
    return true;
}

void CNeverSleepModule::EndService(const OwnedHandle& stateMachine)
{
    for (OwnedPowerNotification& registration : m_powerNotifications) registration.Reset();
    EndReconciler();
    // When no class object could be registered, the message loop ends early and the state machine
    // still runs. Stop it first: its events must not be closed while it waits for them.
    SignalGlobalEvent(EVENT_SERVICE_STOP);
    if (stateMachine) WaitForSingleObject(stateMachine.Get(), kTimeOutMs);
    EndPublishing();
    closeGlobalEvents();
    if (m_bService && m_bComInitialized) CoUninitialize();
    m_bLastReportMade = true;
    ReportServiceState(SERVICE_STOPPED);
    Log(6, kServiceMain, L"Service stopped");
    StopLoggingLibrary();
}
