// Serves COM clients: registers the class objects and runs the message loop. A process that runs
// without the service ends when its last client has released its objects.

#include "api/class_objects.h"
#include "log/log.h"
#include "platform/lock.h"
#include "platform/message.h"
#include "platform/module.h"
#include "service/module.h"
#include "service/service_status.h"

// S_OK also when the .NET runtime has already put the thread into the multithreaded apartment.
// There the thread has no window, and WM_QUIT can be posted before the message loop starts only to
// a thread that has asked for a message.
HRESULT CNeverSleepModule::InitializeCom()
{
    MSG message;
    PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    const HRESULT hr = CoInitialize(nullptr);
    if (SUCCEEDED(hr)) {
        m_bComInitialized = true;
        return S_OK;
    }
    return hr == RPC_E_CHANGED_MODE && GetModuleHandleW(L"Mscoree.dll") ? S_OK : hr;
}

void CNeverSleepModule::UninitializeCom()
{
    if (!m_bService && m_bComInitialized) CoUninitialize();
}

HRESULT CNeverSleepModule::RunMessageLoop(int show)
{
    MSG message;
    const HRESULT ready = PreMessageLoop(show);
    if (FAILED(ready)) return ready;
    while (ready == S_OK && GetMessageW(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    const HRESULT revoked = RevokeAgentClassObjects();
    // Lets clients that are just releasing their objects finish before COM is uninitialized.
    if (!m_bService && m_bDelayShutdown) Sleep(kPauseMs);
    return revoked;
}

HRESULT CNeverSleepModule::PreMessageLoop(int)
{
    if (m_bService) SetCallSecurity();
    SetAgentModule(this);
    HRESULT hr =
        RegisterAgentClassObjects(CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) {
        m_bDelayShutdown = false;
        return hr;
    }
    OwnedHandle monitor;
    if (m_bDelayShutdown) {
        monitor = StartMonitor();
        if (!monitor) {
            RevokeAgentClassObjects();
            return E_FAIL;
        }
    }
    if (m_bService && AdvanceServiceState(SERVICE_START_PENDING, SERVICE_RUNNING)) {
        Log(1, L"CNeverSleepModule::PreMessageLoop", L"Service is starting ...");
        ReportServiceStatus();
    }
    hr = CoResumeClassObjects();
    if (FAILED(hr) && monitor) {
        SignalShutdown();
        WaitForSingleObject(monitor.Get(), 2 * kTimeOutMs);
    }
    if (FAILED(hr)) RevokeAgentClassObjects();
    return hr;
}

// --- The security of calls ---

void CNeverSleepModule::SetCallSecurity()
{
    constexpr LONG kSystemChoosesServices = -1;
    const HRESULT hr = CoInitializeSecurity(nullptr, kSystemChoosesServices, nullptr, nullptr,
                                            RPC_C_AUTHN_LEVEL_NONE, RPC_C_IMP_LEVEL_IDENTIFY,
                                            nullptr, EOAC_NONE, nullptr);
    if (FAILED(hr)) {
        Log(3, L"CNeverSleepModule::PreMessageLoop", L"CoInitializeSecurity failed, hr=0x%x", hr);
    }
    if (m_hCallSecuritySet) SetEvent(m_hCallSecuritySet.Get());
}

void CNeverSleepModule::AwaitCallSecurity() const
{
    if (m_hCallSecuritySet) WaitForSingleObject(m_hCallSecuritySet.Get(), 2 * kTimeOutMs);
}

// --- Ending a server that runs without the service ---

OwnedHandle CNeverSleepModule::StartMonitor()
{
    m_hEventShutdown.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!m_hEventShutdown) return {};
    OwnedHandle thread(CreateThread(nullptr, 0, MonitorProc, this, 0, nullptr));
    if (!thread) m_hEventShutdown.Reset();
    return thread;
}

DWORD WINAPI CNeverSleepModule::MonitorProc(LPVOID module)
{
    auto& self = *static_cast<CNeverSleepModule*>(module);
    WaitForSingleObject(self.m_hEventShutdown.Get(), INFINITE);
    EnterCriticalSection(&self.m_lock);
    self.m_hEventShutdown.Reset();
    LeaveCriticalSection(&self.m_lock);
    PostThreadMessageW(self.m_dwMainThreadID, WM_QUIT, 0, 0);
    return 0;
}

void CNeverSleepModule::SignalShutdown()
{
    EnterCriticalSection(&m_lock);
    if (m_hEventShutdown) SetEvent(m_hEventShutdown.Get());
    LeaveCriticalSection(&m_lock);
}

void CNeverSleepModule::Lock()
{
    if (m_bService) {
        ++m_nLockCount;
    } else {
        CoAddRefServerProcess();
    }
}

void CNeverSleepModule::Unlock()
{
    if (m_bService) {
        --m_nLockCount;
    } else if (CoReleaseServerProcess() == 0) {
        if (m_bDelayShutdown) {
            SignalShutdown();
        } else {
            PostThreadMessageW(m_dwMainThreadID, WM_QUIT, 0, 0);
        }
    }
}
