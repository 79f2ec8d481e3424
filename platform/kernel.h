// Kernel objects, time, threads and locks.
#pragma once

#include "platform/base.h"

#ifndef _WIN32

struct CRITICAL_SECTION
{
    void* DebugInfo;
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;  // the owner's thread id
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
};

union INIT_ONCE
{
    PVOID Ptr;
};
using PINIT_ONCE = INIT_ONCE*;
#define INIT_ONCE_STATIC_INIT \
    {                         \
        nullptr               \
    }

struct OSVERSIONINFOW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

using LPTHREAD_START_ROUTINE = DWORD(WINAPI*)(LPVOID parameter);
using PTIMERAPCROUTINE = void(APIENTRY*)(LPVOID argument, DWORD timerLow, DWORD timerHigh);
using PINIT_ONCE_FN = BOOL(CALLBACK*)(PINIT_ONCE once, PVOID parameter, PVOID* context);

#define WAIT_OBJECT_0 0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64
#define TLS_OUT_OF_INDEXES 0xFFFFFFFFu

extern "C" {

// Creates an event, or opens the one that has the name: the last error is then
// ERROR_ALREADY_EXISTS, otherwise 0. A name that begins with "Global\" is that of the whole PC, any
// other that of the caller's session. Returns its handle, which the caller closes with CloseHandle,
// or null with the last error set.
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState,
                           LPCWSTR name);

// Signals an event. A manual-reset event releases all waiting threads and stays signalled; an
// auto-reset event releases one, or stays signalled until the next wait. FALSE with the last error
// set for a handle of something else. Any thread.
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);

// Creates a mutex, or opens the one of that name: the last error is then ERROR_ALREADY_EXISTS, and
// otherwise ERROR_SUCCESS. The name exists until its last handle is closed, at the latest by the
// end of the processes that have it open. Returns a handle (CloseHandle), or null with the last
// error set.
HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES attributes, BOOL initialOwner, LPCWSTR name);

// Creates a waitable timer, idle and unsignalled. With manualReset FALSE a satisfied wait resets
// it. Returns its handle (CloseHandle) or null with the last error set.
HANDLE WINAPI CreateWaitableTimerW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset,
                                   LPCWSTR name);

// Arms a timer, replacing its earlier due time and resetting its signal. `due` is in 100-ns units:
// negative is relative to now, positive an absolute UTC time. On Windows 7 a relative time counts
// the time asleep; from 8 on it does not. `period` is in milliseconds, 0 for a single expiry. With
// `resume` TRUE the timer wakes the machine from sleep where wake timers are allowed. FALSE with
// the last error set on failure.
BOOL WINAPI SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due, LONG period,
                             PTIMERAPCROUTINE completion, LPVOID argument, BOOL resume);

// Disarms a timer. It stays signalled if it has already expired and no wait has taken the expiry
// yet. FALSE with the last error set on failure.
BOOL WINAPI CancelWaitableTimer(HANDLE timer);

// Blocks until the object is signalled (WAIT_OBJECT_0) or `milliseconds` have passed
// (WAIT_TIMEOUT; INFINITE never does). WAIT_FAILED with the last error set for a bad handle. On
// Windows 7 the time asleep counts; from 8 on it does not.
DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds);

// The same for 1 to 64 objects. The result is WAIT_OBJECT_0 plus the index of the signalled object,
// the lowest one if several are signalled when the wait begins. With waitAll TRUE it waits until
// all are, and no object may be named twice. A null or closed handle makes the whole wait fail.
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL waitAll,
                                    DWORD milliseconds);

void WINAPI Sleep(DWORD milliseconds);

// Starts a thread. Returns a handle that is signalled when the thread ends and that the caller
// closes (which does not end the thread); null with the last error set on failure.
HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize,
                           LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                           LPDWORD threadId);

// Closes an event, timer, thread, process, file, pipe, device or power-request handle. FALSE with
// ERROR_INVALID_HANDLE when it is not open.
BOOL WINAPI CloseHandle(HANDLE object);

DWORD WINAPI GetCurrentThreadId();
DWORD WINAPI GetCurrentProcessId();

// Milliseconds since the machine started, time asleep included.
ULONGLONG WINAPI GetTickCount64();
// 100-ns units since the machine started, without the time asleep. False where `time` is null.
BOOL WINAPI QueryUnbiasedInterruptTime(ULONGLONG* time);
void WINAPI GetLocalTime(SYSTEMTIME* time);
// The UTC time, in 100-ns units since 1601.
void WINAPI GetSystemTimeAsFileTime(FILETIME* time);

// How long the processors have been idle, in the kernel and in programs since the machine started,
// in 100-ns units. The kernel's time includes the idle time. FALSE with the last error set on
// failure.
BOOL WINAPI GetSystemTimes(FILETIME* idle, FILETIME* kernel, FILETIME* user);

// A recursive lock. Entering waits without limit; only the owner may leave it. The virtual PC knows
// the owner and the waiting threads of each lock, and reports a deadlock.
void WINAPI InitializeCriticalSection(CRITICAL_SECTION* section);
// The same; FALSE with the last error set when the lock cannot be created.
BOOL WINAPI InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spinCount);
void WINAPI DeleteCriticalSection(CRITICAL_SECTION* section);
void WINAPI EnterCriticalSection(CRITICAL_SECTION* section);
void WINAPI LeaveCriticalSection(CRITICAL_SECTION* section);

// Runs `function` exactly once for a statically initialised `once`; other threads that arrive
// meanwhile wait. TRUE once `function` has returned TRUE. If it returns FALSE, so does this call,
// and the next caller tries again.
BOOL WINAPI InitOnceExecuteOnce(PINIT_ONCE once, PINIT_ONCE_FN function, PVOID parameter,
                                PVOID* context);

// A slot that holds one pointer for each thread, initially null. TLS_OUT_OF_INDEXES when none is
// left; slots last until the process ends. Reading one clears the last error.
DWORD WINAPI TlsAlloc();
LPVOID WINAPI TlsGetValue(DWORD index);
BOOL WINAPI TlsSetValue(DWORD index, LPVOID value);

// The operating system's version: major in the low byte, minor in the next.
DWORD WINAPI GetVersion();

// The same in full. The caller sets dwOSVersionInfoSize. FALSE with the last error set on failure.
BOOL WINAPI GetVersionExW(OSVERSIONINFOW* version);
}

#endif
