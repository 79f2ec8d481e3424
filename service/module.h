// The process as a whole: runs as a Windows service or as a plain COM server, and receives the
// service control manager's controls.
#pragma once

#include <array>
#include <atomic>

#include "api/agent_module.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/service.h"

class CNeverSleepModule final : public AgentModule
{
public:
    CNeverSleepModule();
    ~CNeverSleepModule();
    CNeverSleepModule(const CNeverSleepModule&) = delete;
    CNeverSleepModule& operator=(const CNeverSleepModule&) = delete;

    // Whether the construction failed; the process must then end.
    bool failed() const { return m_bFailed; }
    const wchar_t* service_name() const { return m_szServiceName; }
    // The id of the thread that runs ServiceMain; 0 before there is one.
    DWORD service_thread_id() const { return m_dwServiceThreadID; }

    // Runs the process to its end: as a service if it is registered as one, as a plain COM server
    // otherwise. Returns the exit code. Call on the process's first thread.
    int Start(int show);

    // Leaves the COM apartment that Start entered for a plain server; does nothing otherwise.
    void UninitializeCom();

    // --- The service (service_main.cpp) ---

    // The service's main routine, on a thread of the service control dispatcher.
    void ServiceMain(DWORD argc, LPWSTR* argv);

    // Blocks until ServiceMain has set the security of calls. The system sets its own at the
    // first interface that is marshalled, and then refuses the clients of standard users: a thread
    // that is going to create objects waits here first. Ten seconds at most, so that a system call
    // that hangs does not keep the state machine from working.
    void AwaitCallSecurity() const;

    // --- Controls (control_handler.cpp), on the dispatcher's thread ---

    // The control handler. Returns NO_ERROR for every control, handled or not, so that it never
    // vetoes a suspend.
    static DWORD WINAPI OnServiceCtrlHandler(DWORD control, DWORD eventType, LPVOID eventData,
                                             LPVOID context);
    // Tells the state machine to stop; when its thread ends, the service ends.
    void OnStop();
    // Registers for changes of the power settings that the state machine follows. A registration
    // that fails is ignored: the service runs without its notifications. Called by ServiceMain.
    void RegisterPowerNotifications();

    // --- Locks of the clients' objects; any thread ---
    void Lock() override;
    // When the process runs as a COM server, and not as the service, releasing the last lock ends
    // it.
    void Unlock() override;

private:
    // --- The message loop (message_loop.cpp) ---
    HRESULT InitializeCom();
    HRESULT RunMessageLoop(int show);
    HRESULT PreMessageLoop(int show);
    // Lets clients of every user call the service, and opens the gate of AwaitCallSecurity.
    void SetCallSecurity();
    // Starts the thread that ends the message loop when the last lock is released; empty on
    // failure.
    OwnedHandle StartMonitor();
    static DWORD WINAPI MonitorProc(LPVOID module);
    void SignalShutdown();

    bool StartService();
    void RunService();
    void EndService(const OwnedHandle& stateMachine);

    static constexpr DWORD kTimeOutMs = 5000;
    static constexpr DWORD kPauseMs = 1000;
    static constexpr std::size_t kPowerNotifications = 7;

    wchar_t m_szServiceName[256];
    SERVICE_STATUS m_status{};
    SERVICE_STATUS_HANDLE m_hServiceStatus = nullptr;
    bool m_bFailed = false;
    std::atomic<bool> m_bService = true;
    bool m_bComInitialized = false;
    std::atomic<bool> m_bDelayShutdown = true;
    const DWORD m_dwMainThreadID;
    std::atomic<DWORD> m_dwServiceThreadID = 0;

    // ServiceMain makes its last report now or has made it. No later one would replace
    // STOP_PENDING.
    std::atomic<bool> m_bLastReportMade = false;
    HANDLE m_hServiceMainEnded = nullptr;  // owned by RunService
    OwnedHandle m_hCallSecuritySet;        // empty where it could not be created: none waits

    std::atomic<LONG> m_nLockCount = 0;
    CRITICAL_SECTION m_lock{};  // guards m_hEventShutdown
    OwnedHandle m_hEventShutdown;

    std::array<OwnedPowerNotification, kPowerNotifications> m_powerNotifications;
};

// The process's one module, created on first use, at the start of wWinMain.
CNeverSleepModule& Module();
