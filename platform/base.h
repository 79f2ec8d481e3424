// The base types, error codes and last error that every facet of the platform shares.
//
// On Windows this is the SDK. Elsewhere it declares, with the same names, sizes and values, what
// the service uses of it, and the virtual PC implements it. Text is wchar_t on both machines; its
// size differs, so lengths in bytes are always computed with sizeof(wchar_t).
#pragma once

#ifdef _WIN32

#include <windows.h>

#else

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define APIENTRY

using BOOL = std::int32_t;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
// Eight bytes spelled as on Windows, where "long long" is the only such type.
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using CHAR = char;
using WCHAR = wchar_t;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;
using LPVOID = void*;
using PVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;
using LPBYTE = BYTE*;
using PSID = void*;
using HANDLE = void*;
using HRESULT = std::int32_t;
using LSTATUS = LONG;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;

struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;
struct HWND__;
using HWND = HWND__*;
struct HKEY__;
using HKEY = HKEY__*;

struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

union LARGE_INTEGER
{
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME
{
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#define ERROR_SUCCESS 0
#define NO_ERROR 0
#define ERROR_INVALID_FUNCTION 1
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_INVALID_DATA 13
#define ERROR_GEN_FAILURE 31
#define ERROR_NOT_SUPPORTED 50
#define ERROR_INVALID_PARAMETER 87
#define ERROR_BROKEN_PIPE 109
#define ERROR_DISK_FULL 112
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_INVALID_NAME 123
#define ERROR_ALREADY_EXISTS 183
#define ERROR_NO_DATA 232
#define ERROR_MORE_DATA 234
#define ERROR_NOACCESS 998
#define ERROR_INVALID_THREAD_ID 1444
#define ERROR_UNSUPPORTED_TYPE 1630
#define ERROR_INVALID_USER_BUFFER 1784

#define S_OK (static_cast<HRESULT>(0))
#define S_FALSE (static_cast<HRESULT>(1))
#define E_FAIL (static_cast<HRESULT>(0x80004005u))
#define E_INVALIDARG (static_cast<HRESULT>(0x80070057u))
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

// The HRESULT of a Win32 error; S_OK for ERROR_SUCCESS.
inline HRESULT HRESULT_FROM_WIN32(DWORD error)
{
    if (static_cast<HRESULT>(error) <= 0) return static_cast<HRESULT>(error);
    return static_cast<HRESULT>((error & 0xFFFFu) | 0x80070000u);
}

extern "C" {

// The calling thread's error code, set by the last platform function that failed on this thread.
// Functions that succeed leave it alone unless their declaration says otherwise.
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);
}

#endif
