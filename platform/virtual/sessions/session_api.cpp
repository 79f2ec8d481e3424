// Sessions, tokens and privileges, environment blocks, and processes.

#include "platform/session.h"

#include "platform/virtual/base/names.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/memory.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/processes/programs.h"
#include "platform/virtual/sessions/session.h"

using namespace virtual_pc;

namespace {

constexpr const wchar_t* kLocalSystem = L"SYSTEM";
constexpr DWORD kDebugPrivilege = 20;
constexpr DWORD kNoSession = 0xFFFFFFFF;

class Token final : public Object
{
public:
    Token(std::wstring whose, DWORD number, DWORD rights)
        : user(std::move(whose)), session(number), access(rights)
    {
    }
    std::string_view Kind() const override { return "token"; }
    std::wstring Name() const override { return user; }

    bool Allows(DWORD wanted) const
    {
        return access == MAXIMUM_ALLOWED || (access & wanted) == wanted;
    }

    const std::wstring user;
    const DWORD session;
    const DWORD access;
    TOKEN_TYPE type = TokenPrimary;
    Process* process = nullptr;  // the process whose token it is; null for a user's token
};

Function fn_wts_get_active_console_session{"WTSGetActiveConsoleSessionId"};
Function fn_wts_query_user_token{"WTSQueryUserToken"};
Function fn_duplicate_token{"DuplicateTokenEx"};
Function fn_create_environment_block{"CreateEnvironmentBlock"};
Function fn_destroy_environment_block{"DestroyEnvironmentBlock", Failing::last_error,
                                      Role::releases};
Function fn_create_process_as_user{"CreateProcessAsUserW"};
Function fn_terminate_process{"TerminateProcess"};
Function fn_open_process{"OpenProcess"};
Function fn_get_process_times{"GetProcessTimes"};
Function fn_open_process_token{"OpenProcessToken"};
Function fn_lookup_privilege_value{"LookupPrivilegeValueW"};
Function fn_adjust_token_privileges{"AdjustTokenPrivileges"};

std::vector<std::wstring> Texts(const wchar_t* block)
{
    std::vector<std::wstring> texts;
    for (; *block; block += texts.back().size() + 1) texts.emplace_back(block);
    return texts;
}

}  // namespace

extern "C" {

DWORD WINAPI WTSGetActiveConsoleSessionId()
{
    Call call(fn_wts_get_active_console_session);
    if (call.Fails()) return kNoSession;
    return call.machine.session.console().value_or(kNoSession);
}

BOOL WINAPI WTSQueryUserToken(ULONG session, PHANDLE token)
{
    Call call(fn_wts_query_user_token);
    if (call.Fails()) return FALSE;
    const Session& current = call.machine.session;
    if (!token) return call.Fail(ERROR_INVALID_PARAMETER);
    if (!current.service_is_local_system) return call.Fail(ERROR_PRIVILEGE_NOT_HELD);
    const std::optional<std::wstring> user = current.UserOf(session);
    if (!user) return call.Fail(ERROR_FILE_NOT_FOUND);
    if (user->empty()) return call.Fail(ERROR_NO_TOKEN);
    *token = call.Open(std::make_shared<Token>(*user, session, MAXIMUM_ALLOWED));
    return TRUE;
}

BOOL WINAPI DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES,
                             SECURITY_IMPERSONATION_LEVEL, TOKEN_TYPE type, PHANDLE copy)
{
    Call call(fn_duplicate_token);
    if (call.Fails()) return FALSE;
    const Token* original = call.Find<Token>(token);
    if (!original) return FALSE;
    if (!copy) return call.Fail(ERROR_INVALID_PARAMETER);
    if (!original->Allows(TOKEN_DUPLICATE)) return call.Fail(ERROR_ACCESS_DENIED);
    auto made = std::make_shared<Token>(original->user, original->session, access);
    made->type = type;
    *copy = call.Open(std::move(made));
    return TRUE;
}

BOOL WINAPI CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit)
{
    Call call(fn_create_environment_block);
    if (call.Fails()) return FALSE;
    const Token* whose = token ? call.Find<Token>(token) : nullptr;
    if (token && !whose) return FALSE;
    if (!environment) return call.Fail(ERROR_INVALID_PARAMETER);
    if (whose && !whose->Allows(TOKEN_DUPLICATE | TOKEN_QUERY)) {
        return call.Fail(ERROR_ACCESS_DENIED);
    }
    std::wstring block;
    const auto add = [&](const std::vector<std::wstring>& variables) {
        for (const std::wstring& variable : variables) block += variable + L'\0';
    };
    if (inherit) add(EnvironmentOf(kLocalSystem));
    add(EnvironmentOf(whose ? whose->user : L""));
    block += L'\0';
    *environment = Allocate(call, block.size() * sizeof(wchar_t), "environment block");
    std::copy(block.begin(), block.end(), static_cast<wchar_t*>(*environment));
    return TRUE;
}

BOOL WINAPI DestroyEnvironmentBlock(LPVOID environment)
{
    Call call(fn_destroy_environment_block);
    if (call.Fails()) return FALSE;
    return environment && Free(call, environment) ? TRUE : call.Fail(ERROR_INVALID_PARAMETER);
}

BOOL WINAPI CreateProcessAsUserW(HANDLE token, LPCWSTR application, LPWSTR commandLine,
                                 LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL inherit,
                                 DWORD flags, LPVOID environment, LPCWSTR, LPSTARTUPINFOW startup,
                                 LPPROCESS_INFORMATION information)
{
    Call call(fn_create_process_as_user);
    if (call.Fails()) return FALSE;
    if (!startup || !information || (!application && (!commandLine || !*commandLine))) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    Launch launch;
    if (token) {
        const Token* whose = call.Find<Token>(token);
        if (!whose) return FALSE;
        if (whose->type != TokenPrimary) return call.Fail(ERROR_BAD_TOKEN_TYPE);
        if (!whose->Allows(TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY)) {
            return call.Fail(ERROR_ACCESS_DENIED);
        }
        launch.session = whose->session;
        launch.user = whose->user;
    }
    // Without the flag the system reads the block as ANSI text, which a UTF-16 block is not.
    if (environment && !(flags & CREATE_UNICODE_ENVIRONMENT)) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    launch.environment =
        environment ? Texts(static_cast<const wchar_t*>(environment)) : EnvironmentOf(kLocalSystem);
    launch.desktop = startup->lpDesktop ? startup->lpDesktop : L"";
    launch.startup_flags = startup->dwFlags;
    launch.show = startup->wShowWindow;
    launch.flags = flags;
    launch.inherits_handles = inherit != FALSE;

    DWORD error = ERROR_FILE_NOT_FOUND;
    Process* process = application
                           ? call.machine.programs.StartInstalled(
                                 application, commandLine ? commandLine : application, launch)
                           : call.machine.programs.StartCommandLine(commandLine, launch, error);
    if (!process) return call.Fail(error);
    *information = {call.Open(process->object()), call.Open(process->first_thread()), process->id(),
                    process->first_thread_id()};
    return TRUE;
}

BOOL WINAPI TerminateProcess(HANDLE handle, UINT exitCode)
{
    Call call(fn_terminate_process);
    if (call.Fails()) return FALSE;
    const ProcessObject* object = call.Find<ProcessObject>(handle);
    if (!object) return FALSE;
    if (!object->process.Terminate(static_cast<int>(exitCode))) {
        return call.Fail(ERROR_ACCESS_DENIED);
    }
    return TRUE;
}

HANDLE WINAPI OpenProcess(DWORD, BOOL, DWORD id)
{
    Call call(fn_open_process);
    if (call.Fails()) return nullptr;
    for (const auto& process : call.machine.processes()) {
        if (process->id() == id && process->running()) return call.Open(process->object());
    }
    call.Fail(ERROR_INVALID_PARAMETER);
    return nullptr;
}

// Without the times of its threads, which no program here asks for.
BOOL WINAPI GetProcessTimes(HANDLE handle, FILETIME* started, FILETIME* ended, FILETIME* kernel,
                            FILETIME* user)
{
    Call call(fn_get_process_times);
    if (call.Fails()) return FALSE;
    const Process* process = nullptr;
    if (handle == GetCurrentProcess()) {
        process = &call.process();
    } else if (const ProcessObject* object = call.Find<ProcessObject>(handle)) {
        process = &object->process;
    }
    if (!process) return FALSE;
    if (!started || !ended || !kernel || !user) return call.Fail(ERROR_NOACCESS);
    *started = ToFileTime(process->started());
    *ended = *kernel = *user = {};
    return TRUE;
}

HANDLE WINAPI GetCurrentProcess() { return INVALID_HANDLE_VALUE; }

BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, PHANDLE token)
{
    Call call(fn_open_process_token);
    if (call.Fails()) return FALSE;
    Process* whose = nullptr;
    if (process == GetCurrentProcess()) {
        whose = &call.process();
    } else if (const ProcessObject* object = call.Find<ProcessObject>(process)) {
        whose = &object->process;
    }
    if (!whose) return FALSE;
    if (!token) return call.Fail(ERROR_INVALID_PARAMETER);
    const Launch launch = whose->launch.value_or(Launch{});
    auto made = std::make_shared<Token>(launch.user, launch.session, access);
    made->process = whose;
    *token = call.Open(std::move(made));
    return TRUE;
}

// Only SE_DEBUG_NAME is modelled.
BOOL WINAPI LookupPrivilegeValueW(LPCWSTR, LPCWSTR name, PLUID luid)
{
    Call call(fn_lookup_privilege_value);
    if (call.Fails()) return FALSE;
    if (!luid) return call.Fail(ERROR_INVALID_PARAMETER);
    if (!name || !SameName(name, SE_DEBUG_NAME)) return call.Fail(ERROR_NO_SUCH_PRIVILEGE);
    *luid = {kDebugPrivilege, 0};
    return TRUE;
}

BOOL WINAPI AdjustTokenPrivileges(HANDLE handle, BOOL disableAll, PTOKEN_PRIVILEGES state, DWORD,
                                  PTOKEN_PRIVILEGES, LPDWORD)
{
    Call call(fn_adjust_token_privileges);
    if (call.Fails()) return FALSE;
    const Token* token = call.Find<Token>(handle);
    if (!token) return FALSE;
    if (!token->Allows(TOKEN_ADJUST_PRIVILEGES)) return call.Fail(ERROR_ACCESS_DENIED);
    if (!disableAll && !state) return call.Fail(ERROR_NOACCESS);
    const bool has = token->process && !token->process->launch &&
                     call.machine.session.service_has_debug_privilege;
    call.thread.last_error = ERROR_SUCCESS;
    for (DWORD i = 0; !disableAll && i < state->PrivilegeCount; ++i) {
        const LUID_AND_ATTRIBUTES& wanted = state->Privileges[i];
        if (!has || wanted.Luid.LowPart != kDebugPrivilege) {
            call.thread.last_error = ERROR_NOT_ALL_ASSIGNED;
        } else {
            token->process->debug_privilege = (wanted.Attributes & SE_PRIVILEGE_ENABLED) != 0;
        }
    }
    if (disableAll && token->process) token->process->debug_privilege = false;
    return TRUE;
}
}
