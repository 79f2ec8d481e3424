#include "process/user_process.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "log/log.h"
#include "platform/kernel.h"
#include "platform/module.h"
#include "platform/owned.h"

namespace {

constexpr DWORD kNoSession = 0xFFFFFFFF;

// A primary token of the session's user, as creating a process requires. Empty, with the last error
// set, when no user is logged on or the service may not query the token.
OwnedHandle PrimaryTokenOf(DWORD session)
{
    OwnedHandle user;
    OwnedHandle primary;
    if (WTSQueryUserToken(session, user.Receive())) {
        DuplicateTokenEx(user.Get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary,
                         primary.Receive());
    }
    return primary;
}

// The path is quoted: for an unquoted "C:\Program Files\..." the system tries C:\Program.exe first,
// and a program planted there would run in the user's session.
std::wstring CommandLineOf(const std::wstring& path, const std::wstring& arguments)
{
    const std::wstring program = L'"' + path + L'"';
    return arguments.empty() ? program : program + L' ' + arguments;
}

// Limits the product to the longest finite wait; a product that overflows would be a shorter one.
DWORD MillisecondsOf(DWORD seconds)
{
    return static_cast<DWORD>(std::min<std::uint64_t>(std::uint64_t{seconds} * 1000, INFINITE - 1));
}

}  // namespace

CUserProcess::~CUserProcess()
{
    const OwnedHandle process(m_processInformation.hProcess);
    const OwnedHandle thread(m_processInformation.hThread);
}

BOOL CUserProcess::ExecuteProcessAsUserByHandle(const std::wstring& path,
                                                const std::wstring& arguments, DWORD waitSeconds)
{
    constexpr const wchar_t* kFunction = L"CUserProcess::ExecuteProcessAsUserByHandle";
    const DWORD session = WTSGetActiveConsoleSessionId();
    if (session == kNoSession) {
        Log(3, kFunction, L"WTSGetActiveConsoleSessionId() failed with Error %d.\n",
            GetLastError());
        return FALSE;
    }
    BOOL created = FALSE;
    DWORD error = ERROR_SUCCESS;
    {
        const OwnedHandle token = PrimaryTokenOf(session);
        // Without a token the system would start the program in session 0 with the service's own
        // rights. So the launch fails, with the error of the token query.
        if (!token) return FALSE;

        wchar_t desktop[] = L"winsta0\\default";
        m_startupInformation = {};
        m_startupInformation.cb = sizeof(m_startupInformation);
        m_startupInformation.lpDesktop = desktop;
        m_startupInformation.dwFlags = STARTF_USESHOWWINDOW;
        m_startupInformation.wShowWindow = SW_HIDE;

        OwnedEnvironment environment;
        if (!CreateEnvironmentBlock(environment.Receive(), token.Get(), FALSE)) {
            Log(6, kFunction, L"CreateEnvironmentBlock failed, error=%d", GetLastError());
        }
        DWORD flags = CREATE_NEW_CONSOLE | NORMAL_PRIORITY_CLASS;
        if (environment) flags |= CREATE_UNICODE_ENVIRONMENT;

        m_processInformation = {};
        std::wstring command_line = CommandLineOf(path, arguments);
        created = CreateProcessAsUserW(token.Get(), nullptr, command_line.data(), nullptr, nullptr,
                                       FALSE, flags, environment.Get(), nullptr,
                                       &m_startupInformation, &m_processInformation);
        error = GetLastError();
        if (created) {
            WaitForSingleObject(m_processInformation.hProcess, MillisecondsOf(waitSeconds));
        }
    }
    // Sets the last error again, which releasing the token and the environment may have changed.
    if (!created) SetLastError(error);
    return created;
}

BOOL CUserProcess::QuitProcess()
{
    if (!IsLaunched()) return TRUE;
    if (QuitProcess(std::exchange(m_processInformation.hProcess, nullptr)) != 0) return FALSE;
    if (!CloseHandle(std::exchange(m_processInformation.hThread, nullptr))) {
        Log(6, L"CUserProcess::QuitProcess", L"Failed closed hThread for process error = %d",
            GetLastError());
    }
    return TRUE;
}

LONG CUserProcess::QuitProcess(HANDLE processHandle)
{
    constexpr const wchar_t* kFunction = L"CUserProcess::QuitProcess";
    OwnedHandle process(processHandle);
    OwnedHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY,
                          token.Receive())) {
        Log(3, kFunction, L"Unable to get current process token - %d\n", GetLastError());
        return -1;
    }
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!LookupPrivilegeValueW(nullptr, SE_DEBUG_NAME, &privileges.Privileges[0].Luid)) {
        Log(3, kFunction, L"Unable to lookup privilege value SE_DEBUG_NAME - %d\n", GetLastError());
        return -2;
    }
    // The call succeeds even if the account lacks the privilege, and the caller goes on: to end a
    // process that the service has started needs no privilege.
    if (!AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr)) {
        Log(3, kFunction, L"Unable to adjust token privileges for current process - %d\n",
            GetLastError());
        return -3;
    }
    if (!process) {
        Log(6, kFunction, L"The process handle passed in is NULL\n");
        return -4;
    }
    if (!TerminateProcess(process.Get(), 0)) {
        Log(6, kFunction, L"Could not terminate process ... error = %d\n", GetLastError());
        return -5;
    }
    token.Reset();
    if (!CloseHandle(process.Detach())) {
        Log(6, kFunction, L"failed to close processHandle with error = %d", GetLastError());
    }
    return 0;
}

LPWSTR GetModuleFilePath(LPWSTR buffer, DWORD size)
{
    if (!buffer) {
        Log(2, L"GetModuleFilePath", L"Invalid parameter");
        return nullptr;
    }
    const DWORD length = std::min(GetModuleFileNameW(nullptr, buffer, size), size);
    const std::wstring_view path(buffer, length);
    const std::size_t backslash = path.rfind(L'\\');
    if (backslash == path.npos) return nullptr;
    buffer[backslash] = L'\0';
    return buffer;
}
