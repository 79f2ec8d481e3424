// The running module, its entry, the debugger, and the last-chance exception filter.
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

extern "C" {

// The process entry, which the service defines; the result is the exit code.
int WINAPI wWinMain(HINSTANCE instance, HINSTANCE previous, LPWSTR commandLine, int show);

// The full path of the executable (null module), at most `size` characters with the terminator: a
// result of `size` means it was cut off (the last error is then ERROR_INSUFFICIENT_BUFFER), 0
// means failure with the last error set.
DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD size);

// The whole command line, executable included; it lives as long as the process.
LPWSTR WINAPI GetCommandLineW();

// Gives text to an attached debugger, if any.
void WINAPI OutputDebugStringW(LPCWSTR text);
void WINAPI OutputDebugStringA(LPCSTR text);

// Sets the function that runs when an exception is handled by nobody, before the process ends.
// Returns the previous one.
LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);
}

#endif
