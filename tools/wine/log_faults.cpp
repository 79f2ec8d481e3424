// The service's log, amid faults of the processor, for the Wine check. Prints what the log prints,
// and what came of each fault; ends with 0.

#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "log/log.h"
#include "platform/fault.h"
#include "platform/lock.h"

namespace {

template <class Character>
const Character* BadText()
{
    // The first 64 KiB are never mapped.
    return reinterpret_cast<const Character*>(std::uintptr_t{0x1234});
}

void LogAmidFaults(const wchar_t* who)
{
    for (int i = 0; i < 100; ++i) {
        SetLastError(42);
        Log(1, who, L"a wide text: %s", BadText<wchar_t>());
        Log(1, who, L"a narrow text: %S", BadText<char>());
        if (GetLastError() != 42) std::printf("the last error is lost\n");
    }
}

DWORD WINAPI LogAmidFaultsProc(LPVOID who)
{
    LogAmidFaults(static_cast<const wchar_t*>(who));
    return 0;
}

// What is thrown where the fault is, with a lock held on the way.
template <class Body>
void Report(const char* what, CriticalSection& section, const Body& body)
{
    try {
        ThrowFaultsOf([&] {
            const ScopedLock lock(section);
            body();
        });
        std::printf("%s: nothing\n", what);
    } catch (const Fault&) {
        std::printf("%s: Fault\n", what);
    } catch (int number) {
        std::printf("%s: %d\n", what, number);
    }
}

DWORD WINAPI EnterProc(LPVOID section)
{
    const ScopedLock lock(*static_cast<CriticalSection*>(section));
    return 0;
}

volatile int g_zero = 0;
volatile int* volatile g_nowhere = nullptr;

void ReportFaults()
{
    CriticalSection section;
    Report("a write to null", section, [] { *g_nowhere = 1; });
    Report("a division by zero", section, [] { g_zero = 1 / g_zero; });
    Report("a raised error", section, [] { RaiseException(1722, 0, 0, nullptr); });
    Report("a fault that a system library handles", section, [] {
        if (lstrlenW(BadText<wchar_t>()) != 0) std::printf("a length of nothing\n");
    });
    Report("a C++ exception", section, [] { throw 7; });
    const HANDLE other = CreateThread(nullptr, 0, EnterProc, &section, 0, nullptr);
    const bool entered = WaitForSingleObject(other, 5000) == WAIT_OBJECT_0;
    std::printf("the lock: %s\n", entered ? "released" : "held");
    CloseHandle(other);
}

}  // namespace

int wmain()
{
    // The reader of the trace knows the service's programs by this.
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(Software\Orbeq\Holv\User)", 0, KEY_QUERY_VALUE, &key);
    RegCloseKey(key);
    g_dwLoggingEnabled = kLogToConsole | kLogToDebugger;
    g_dwLoggingLevel = 6;
    Log(6, L"Test", L"before the faults");
    const HANDLE other =
        CreateThread(nullptr, 0, LogAmidFaultsProc, const_cast<wchar_t*>(L"Other"), 0, nullptr);
    LogAmidFaults(L"Test");
    WaitForSingleObject(other, INFINITE);
    CloseHandle(other);
    Log(6, L"Test", L"after the faults");
    std::fflush(stdout);
    ReportFaults();
    return 0;
}
