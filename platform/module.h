// The running module, its entry and resources, libraries, the system's error messages, the
// debugger, and the filter for unhandled exceptions.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

#define EXCEPTION_MAXIMUM_PARAMETERS 15
#define EXCEPTION_CONTINUE_SEARCH 0

struct EXCEPTION_RECORD
{
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    EXCEPTION_RECORD* ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};

struct CONTEXT;

struct EXCEPTION_POINTERS
{
    EXCEPTION_RECORD* ExceptionRecord;
    CONTEXT* ContextRecord;
};

using LPTOP_LEVEL_EXCEPTION_FILTER = LONG(WINAPI*)(EXCEPTION_POINTERS* pointers);

using FARPROC = LONG_PTR(WINAPI*)();

#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000u

#define ERROR_MOD_NOT_FOUND 126
#define ERROR_PROC_NOT_FOUND 127
#define ERROR_MR_MID_NOT_FOUND 317
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814

extern "C" {

// The process entry, which the service defines; the result is the exit code.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR commandLine, int show);

// The full path of the executable (null module), at most `size` characters with the terminator. A
// result of `size` means that the path was truncated (the last error is then
// ERROR_INSUFFICIENT_BUFFER), 0 that the call failed, with the last error set.
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size);

// Copies a text of the executable's string table (null module), at most `size` characters with the
// terminator. Returns the characters copied; 0 with the last error set when there is no such text.
int WINAPI LoadStringW(HINSTANCE module, UINT id, LPWSTR text, int size);

// A loaded library, by its name; null with the last error set when it is not loaded.
HMODULE WINAPI GetModuleHandleW(LPCWSTR name);
// Loads a library by its full path; the caller releases it with FreeLibrary. Null with the last
// error set on failure.
HMODULE WINAPI LoadLibraryW(LPCWSTR path);
BOOL WINAPI FreeLibrary(HMODULE library);
// A function of a library; null with the last error set when there is no function of that name.
FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name);

// The system's message for an error (FORMAT_MESSAGE_FROM_SYSTEM), closed by a line end. Returns its
// length; 0 with the last error set when there is no message or it does not fit.
DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPWSTR text,
                            DWORD size, void* arguments);

// The whole command line, executable included; it lives as long as the process.
LPWSTR WINAPI GetCommandLineW();

// Sends text to an attached debugger, if any.
void WINAPI OutputDebugStringW(LPCWSTR text);
void WINAPI OutputDebugStringA(LPCSTR text);

// Sets the function that runs when no code handles an exception, before the process ends. Returns
// the previous one.
LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);
}

#endif
