// Sessions, tokens and privileges, environment blocks, and starting and ending processes.
#pragma once

#include "platform/base.h"

#ifdef _WIN32

// Each needs the ones before it.
#include <userenv.h>
#include <wtsapi32.h>

#else

using PHANDLE = HANDLE*;

struct LUID
{
    DWORD LowPart;
    LONG HighPart;
};
using PLUID = LUID*;

struct LUID_AND_ATTRIBUTES
{
    LUID Luid;
    DWORD Attributes;
};

struct TOKEN_PRIVILEGES
{
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1];
};
using PTOKEN_PRIVILEGES = TOKEN_PRIVILEGES*;

enum SECURITY_IMPERSONATION_LEVEL
{
    SecurityAnonymous,
    SecurityIdentification,
    SecurityImpersonation,
    SecurityDelegation,
};

enum TOKEN_TYPE
{
    TokenPrimary = 1,
    TokenImpersonation,
};

struct STARTUPINFOW
{
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput, hStdOutput, hStdError;
};
using LPSTARTUPINFOW = STARTUPINFOW*;

struct PROCESS_INFORMATION
{
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
using LPPROCESS_INFORMATION = PROCESS_INFORMATION*;

// The event data of SERVICE_CONTROL_SESSIONCHANGE.
struct tagWTSSESSION_NOTIFICATION
{
    DWORD cbSize;
    DWORD dwSessionId;
};
using WTSSESSION_NOTIFICATION = tagWTSSESSION_NOTIFICATION;

static_assert(sizeof(void*) != 8 ||
              (sizeof(STARTUPINFOW) == 104 && sizeof(PROCESS_INFORMATION) == 24 &&
               sizeof(TOKEN_PRIVILEGES) == 16));

#define WTS_CONSOLE_CONNECT 0x1
#define WTS_CONSOLE_DISCONNECT 0x2
#define WTS_SESSION_LOGON 0x5
#define WTS_SESSION_LOGOFF 0x6
#define WTS_SESSION_LOCK 0x7
#define WTS_SESSION_UNLOCK 0x8

#define TOKEN_ASSIGN_PRIMARY 0x0001u
#define TOKEN_DUPLICATE 0x0002u
#define TOKEN_ADJUST_PRIVILEGES 0x0020u
#define TOKEN_QUERY 0x0008u
#define MAXIMUM_ALLOWED 0x02000000u
#define SE_DEBUG_NAME L"SeDebugPrivilege"
#define SE_PRIVILEGE_ENABLED 0x00000002u

#define STARTF_USESHOWWINDOW 0x00000001u
#define SW_HIDE 0
#define CREATE_NEW_CONSOLE 0x00000010u
#define NORMAL_PRIORITY_CLASS 0x00000020u
#define CREATE_UNICODE_ENVIRONMENT 0x00000400u

#define ERROR_BAD_EXE_FORMAT 193
#define ERROR_NO_TOKEN 1008
#define SYNCHRONIZE 0x00100000u
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000u
#define ERROR_NOT_ALL_ASSIGNED 1300
#define ERROR_NO_SUCH_PRIVILEGE 1313
#define ERROR_PRIVILEGE_NOT_HELD 1314
#define ERROR_BAD_TOKEN_TYPE 1349

extern "C" {

// The session at the physical console; 0xFFFFFFFF while there is none, for instance between two
// users.
DWORD WINAPI WTSGetActiveConsoleSessionId();

// The primary token of the user logged on to a session; the caller closes it. FALSE with the last
// error set: ERROR_NO_TOKEN when no user is logged on, ERROR_PRIVILEGE_NOT_HELD when the caller
// does not run as the local system account.
BOOL WINAPI WTSQueryUserToken(ULONG session, PHANDLE token);

// Creates a copy of a token, which the caller closes. FALSE with the last error set on failure.
BOOL WINAPI DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES attributes,
                             SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, PHANDLE copy);

// The environment of a token's user, or of the system without a token: "NAME=value" texts, each
// terminated, then an empty text. `inherit` adds the calling process's own variables. The caller
// frees it with DestroyEnvironmentBlock. FALSE with the last error set on failure.
BOOL WINAPI CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit);
BOOL WINAPI DestroyEnvironmentBlock(LPVOID environment);

// Starts a program as a token's user in the token's session; without a token, with the caller's own
// rights. Without `application` the program is the first word of `commandLine`, which may be
// quoted. If it is not quoted and contains blanks, each prefix that ends at a blank is tried, the
// shortest first. A null environment is the caller's own. The caller closes both handles in
// `information`, which does not end the program. FALSE with the last error set on failure,
// ERROR_FILE_NOT_FOUND when there is no such program.
BOOL WINAPI CreateProcessAsUserW(HANDLE token, LPCWSTR application, LPWSTR commandLine,
                                 LPSECURITY_ATTRIBUTES processAttributes,
                                 LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles,
                                 DWORD flags, LPVOID environment, LPCWSTR directory,
                                 LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information);

// Starts to terminate a process and returns; the process's handle is signalled when it has ended.
// FALSE with the last error set on failure, ERROR_ACCESS_DENIED when it has already ended.
BOOL WINAPI TerminateProcess(HANDLE process, UINT exitCode);

// The calling process, as a handle that need not be closed.
HANDLE WINAPI GetCurrentProcess();

// Opens a process by its id; the caller closes the handle. Null with the last error set:
// ERROR_INVALID_PARAMETER where none has the id, ERROR_ACCESS_DENIED where the caller may not.
HANDLE WINAPI OpenProcess(DWORD access, BOOL inherit, DWORD id);

// When a process started and ended, in UTC, and the time of its threads. FALSE with the last error
// set on failure. The handle needs PROCESS_QUERY_LIMITED_INFORMATION.
BOOL WINAPI GetProcessTimes(HANDLE process, FILETIME* started, FILETIME* ended, FILETIME* kernel,
                            FILETIME* user);

// The token of a process, opened with `access`; the caller closes it. FALSE with the last error set
// on failure.
BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);

// The number of a privilege on this machine (null `system`). FALSE with ERROR_NO_SUCH_PRIVILEGE for
// an unknown name.
BOOL WINAPI LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, PLUID luid);

// Enables or disables privileges that the token holds; it cannot add any. TRUE also when the token
// lacks some of them: the last error is then ERROR_NOT_ALL_ASSIGNED, otherwise ERROR_SUCCESS.
BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES state,
                                  DWORD length, PTOKEN_PRIVILEGES previous, LPDWORD needed);
}

#endif
