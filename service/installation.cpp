#include "service/installation.h"

#include <string>

#include "log/log.h"
#include "platform/message.h"
#include "platform/module.h"
#include "platform/owned.h"
#include "service/identity.h"
#include "service/module.h"

namespace {

constexpr const wchar_t* kFunction = L"CNeverSleepModule::InstallService";

// A message-box text. A text with this id in the executable's string table replaces it.
struct Shown
{
    UINT id;
    const wchar_t* text;
};
constexpr Shown kNoManager{55306, L"Could not open Service Manager"};
constexpr Shown kNotCreated{55307, L"Could not start service"};
constexpr Shown kNotOpened{55308, L"Could not open service"};
constexpr Shown kNotDeleted{55309, L"Could not delete service"};
constexpr Shown kNotStopped{55310, L"Could not stop service"};

void Show(const Shown& what)
{
    wchar_t text[256];
    const bool replaced =
        LoadStringW(nullptr, what.id, text, static_cast<int>(std::size(text))) > 0;
    MessageBoxW(nullptr, replaced ? text : what.text, Module().service_name(), MB_OK);
}

// The system's message for an error, followed by the error's number. Empty when the system has no
// message or the result is too long.
std::wstring ErrorText(DWORD error)
{
    wchar_t text[4096];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       0, text, static_cast<DWORD>(std::size(text)), nullptr);
    constexpr DWORD kLineEnd = 2;
    if (length < kLineEnd) return {};
    wchar_t number[16];
    FormatText(number, L" (0x%x)", error);
    const std::wstring whole = std::wstring(text, length - kLineEnd) + number;
    return whole.size() < std::size(text) ? whole : std::wstring();
}

OwnedServiceHandle OpenManager()
{
    return OwnedServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

// The executable's path in quotes, because its folder's name may contain blanks. Empty when the
// path cannot be read or does not fit MAX_PATH.
std::wstring QuotedExecutable()
{
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return {};
    return L'"' + std::wstring(path) + L'"';
}

OwnedServiceHandle Create(const OwnedServiceHandle& manager, const std::wstring& path)
{
    return OwnedServiceHandle(CreateServiceW(manager.Get(), Module().service_name(), kDisplayName,
                                             SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                             SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, path.c_str(),
                                             nullptr, nullptr, L"RPCSS\0", nullptr, nullptr));
}

// Sends the stop control. True also when the service has already stopped or is stopping.
bool SendStop(const OwnedServiceHandle& service)
{
    SERVICE_STATUS status{};
    if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) return true;
    const DWORD error = GetLastError();
    return error == ERROR_SERVICE_NOT_ACTIVE || (error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL &&
                                                 status.dwCurrentState == SERVICE_STOP_PENDING);
}

}  // namespace

BOOL IsInstalled()
{
    const OwnedServiceHandle manager = OpenManager();
    if (!manager) return FALSE;
    const OwnedServiceHandle service(
        OpenServiceW(manager.Get(), Module().service_name(), SERVICE_QUERY_CONFIG));
    return service ? TRUE : FALSE;
}

BOOL InstallService()
{
    const std::wstring path = QuotedExecutable();
    if (path.empty()) return FALSE;
    const OwnedServiceHandle manager = OpenManager();
    if (!manager) {
        Show(kNoManager);
        return FALSE;
    }
    const OwnedServiceHandle service = Create(manager, path);
    if (!service) {
        // CreateServiceW itself tells whether the service exists. Opening the service first would
        // not: one that is marked for deletion can be opened, but soon disappears.
        if (GetLastError() == ERROR_SERVICE_EXISTS) return TRUE;
        Log(2, kFunction, L"Failed to create service, GLE=%d\n", GetLastError());
        Show(kNotCreated);
        return FALSE;
    }
    std::wstring text = kDisplayName;
    SERVICE_DESCRIPTIONW description{text.data()};
    if (!ChangeServiceConfig2W(service.Get(), SERVICE_CONFIG_DESCRIPTION, &description)) {
        Log(3, kFunction, L"Failed to update service description - %s\n",
            ErrorText(GetLastError()).c_str());
    }
    return TRUE;
}

BOOL Uninstall()
{
    if (!IsInstalled()) return TRUE;
    const OwnedServiceHandle manager = OpenManager();
    if (!manager) {
        Show(kNoManager);
        return FALSE;
    }
    const OwnedServiceHandle service(
        OpenServiceW(manager.Get(), Module().service_name(), SERVICE_STOP | DELETE));
    if (!service) {
        Show(kNotOpened);
        return FALSE;
    }
    if (!SendStop(service)) Show(kNotStopped);
    if (DeleteService(service.Get())) return TRUE;
    Show(kNotDeleted);
    return FALSE;
}
