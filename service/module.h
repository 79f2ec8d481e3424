// The service's process: how it runs, as a Windows service or as a server of component objects,
// what it owns meanwhile, and what the service control manager and its clients tell it.
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

    // Whether the construction failed: the process is then good for nothing.
    bool failed() const { return m_bFailed; }
    const wchar_t* service_name() const { return m_szServiceName; }
    // Of the thread that runs ServiceMain; 0 before there is one.
    DWORD service_thread_id() const { return m_dwServiceThreadID; }

    // Runs as a service where the registration says so, as a server of component objects otherwise,
    // until the end. Returns the process's exit code. On the process's first thread.
    int Start(int show);

    // Leaves the apartment that Start entered, if it entered one, where Start ran as a server.
    void UninitializeCom();

    // --- The service (service_main.cpp) ---

    // The service's main routine, on a thread of the service control dispatcher.
    void ServiceMain(DWORD argc, LPWSTR* argv);

    // --- What it is told (control_handler.cpp), on the dispatcher's thread ---

    // The control handler. NO_ERROR for every control, handled or not: a suspend is never vetoed.
    static DWORD WINAPI OnServiceCtrlHandler(DWORD control, DWORD eventType, LPVOID eventData,
                                             LPVOID context);
    // Ends the state machine, and with it the service.
    void OnStop();
    // Registers for the power settings that the state machine wants to hear of. One that cannot be
    // registered is done without.
    void RegisterPowerNotifications();

    // --- The lives of the clients' objects; any thread ---
    void Lock() override;
    // As a server the process ends when the last client has let go.
    void Unlock() override;

private:
    // --- The message loop (message_loop.cpp) ---
    HRESULT InitializeCom();
    // Gives the calling thread its queue, so that whoever ends the loop may do so before it begins.
    static void MakeMessageQueue();
    HRESULT RunMessageLoop(int show);
    HRESULT PreMessageLoop(int show);
    // Starts the thread that ends the message loop when the last client has let go; empty on
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

    // ServiceMain has made its last report; nobody would correct a later one.
    std::atomic<bool> m_bLastReportMade = false;
    HANDLE m_hServiceMainEnded = nullptr;  // Start's, while the dispatcher runs

    std::atomic<LONG> m_nLockCount = 0;
    CRITICAL_SECTION m_lock{};  // of the shutdown event, which its monitor closes
    OwnedHandle m_hEventShutdown;

    std::array<OwnedPowerNotification, kPowerNotifications> m_powerNotifications;
};

// The process's module: made on first use, which is the first thing that wWinMain does.
CNeverSleepModule& Module();
