// Signals events of the running service from outside, and lets its timers expire, as a debugger
// does: Wine sends none of the notifications at which the service signals its events itself, and
// the check does not wait for its timers. For the Wine check only. Usage: raise_event PROGRAM
// ADDRESS SLOT... with the address of g_hGlobalEvents in the program's image, in hexadecimal from
// its base. Waits for the program and its events, and for the program to act on each; exit code 0,
// or 1 after telling what it has waited for in vain.

#include <windows.h>

#include <tlhelp32.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

constexpr int kTries = 2000;
constexpr DWORD kPauseMs = 20;

// The process that runs a program; 0 for none.
DWORD FindProcess(const std::wstring& program)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    DWORD found = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more && !found;
         more = Process32NextW(snapshot, &entry)) {
        if (program == entry.szExeFile) found = entry.th32ProcessID;
    }
    CloseHandle(snapshot);
    return found;
}

// The address of the program's image in the process; 0 while its list of modules cannot be read.
std::uintptr_t BaseOf(DWORD process, const std::wstring& program)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    std::uintptr_t base = 0;
    for (BOOL more = Module32FirstW(snapshot, &entry); more && !base;
         more = Module32NextW(snapshot, &entry)) {
        if (program == entry.szModule) base = reinterpret_cast<std::uintptr_t>(entry.modBaseAddr);
    }
    CloseHandle(snapshot);
    return base;
}

enum class Raised
{
    no,
    yes,
    acted_on
};

Raised Raise(const std::wstring& program, std::uintptr_t address, int slot)
{
    const DWORD id = FindProcess(program);
    const std::uintptr_t base = id ? BaseOf(id, program) : 0;
    if (!base) return Raised::no;
    const HANDLE process = OpenProcess(PROCESS_VM_READ | PROCESS_DUP_HANDLE, FALSE, id);
    HANDLE theirs = nullptr;
    HANDLE ours = nullptr;
    const auto* place = reinterpret_cast<const void*>(base + address + sizeof(HANDLE) * slot);
    Raised raised = Raised::no;
    if (ReadProcessMemory(process, place, &theirs, sizeof(theirs), nullptr) && theirs &&
        DuplicateHandle(process, theirs, GetCurrentProcess(), &ours, 0, FALSE,
                        DUPLICATE_SAME_ACCESS) &&
        SetEvent(ours)) {
        raised = Raised::yes;
    } else if (const LARGE_INTEGER at_once{.QuadPart = -1};
               ours && SetWaitableTimer(ours, &at_once, 0, nullptr, nullptr, FALSE)) {
        // A timer is reset by the wait that it ends, so only the service may wait for it.
        raised = Raised::acted_on;
    }
    // The service takes the signal back once it has acted on it, and only then the next may come.
    for (int tries = 0; raised == Raised::yes && tries < kTries; ++tries) {
        Sleep(kPauseMs);
        if (WaitForSingleObject(ours, 0) == WAIT_TIMEOUT) raised = Raised::acted_on;
    }
    if (ours) CloseHandle(ours);
    if (process) CloseHandle(process);
    return raised;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 4) return 1;
    const auto address = static_cast<std::uintptr_t>(std::wcstoull(argv[2], nullptr, 16));
    for (int i = 3; i < argc; ++i) {
        const int slot = static_cast<int>(std::wcstol(argv[i], nullptr, 10));
        Raised raised = Raised::no;
        for (int tries = 0; tries < kTries && raised == Raised::no; ++tries) {
            raised = Raise(argv[1], address, slot);
            if (raised == Raised::no) Sleep(kPauseMs);
        }
        if (raised != Raised::acted_on) {
            std::fwprintf(stderr, L"waited %lu s for %ls to %ls event %d\n",
                          kTries * kPauseMs / 1000, argv[1],
                          raised == Raised::no ? L"have" : L"act on", slot);
            return 1;
        }
    }
    return 0;
}
