#include "service/module.h"

#include <cwchar>

#include "log/event_source.h"
#include "platform/module.h"
#include "service/identity.h"
#include "service/service_status.h"

namespace {

// Whether the AppID key has a LocalService value: a string that may be empty but must be
// terminated.
bool IsRegisteredAsService()
{
    OwnedKey key;
    const std::wstring path = LR"(AppID\)" + std::wstring(kAppId);
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.Receive())) return false;
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExW(key.Get(), kLocalService, nullptr, &type, nullptr, &size)) return false;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return false;
    std::wstring text(size / sizeof(wchar_t), L'x');
    size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegQueryValueExW(key.Get(), kLocalService, nullptr, &type,
                         reinterpret_cast<BYTE*>(text.data()), &size)) {
        return false;
    }
    return text.empty() || text.back() == L'\0';
}

void WINAPI RunServiceMain(DWORD argc, LPWSTR* argv) { Module().ServiceMain(argc, argv); }

}  // namespace

CNeverSleepModule& Module()
{
    static CNeverSleepModule module;
    return module;
}

CNeverSleepModule::CNeverSleepModule() : m_dwMainThreadID(GetCurrentThreadId())
{
    if (!LoadStringW(nullptr, kServiceNameId, m_szServiceName,
                     static_cast<int>(std::size(m_szServiceName)))) {
        std::wcscpy(m_szServiceName, kServiceName);
    }
    m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    m_status.dwCurrentState = SERVICE_STOPPED;
    m_status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
    m_bFailed = !InitializeCriticalSectionAndSpinCount(&m_lock, 0);
}

CNeverSleepModule::~CNeverSleepModule()
{
    if (!m_bFailed) DeleteCriticalSection(&m_lock);
}

int CNeverSleepModule::Start(int show)
{
    m_bService = IsRegisteredAsService();
    SetRunsAsService(m_bService);
    if (m_bService) {
        RunService();
    } else if (SUCCEEDED(InitializeCom())) {
        SetExitCode(m_status, static_cast<DWORD>(RunMessageLoop(show)));
    }
    return static_cast<int>(ExitCodeOf(m_status));
}

void CNeverSleepModule::RunService()
{
    const OwnedHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_hServiceMainEnded = ended.Get();
    const SERVICE_TABLE_ENTRYW table[] = {{m_szServiceName, RunServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) {
        SetExitCode(m_status, GetLastError());
        return;
    }
    // The dispatcher returns as soon as the state machine's thread has reported the service
    // stopped. ServiceMain may still be releasing what it holds; wait for it.
    if (ended) WaitForSingleObject(ended.Get(), 2 * kTimeOutMs);
}
