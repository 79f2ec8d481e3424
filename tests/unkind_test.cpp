// The unkind PC: processes that are killed, wherever they are.

#include <functional>
#include <iterator>

#include "platform/file.h"
#include "platform/owned.h"
#include "platform/power.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/registry/registry.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;
using namespace std::chrono_literals;

namespace {

constexpr const wchar_t* kProgram = LR"(C:\Probe.exe)";
constexpr const wchar_t* kKey = LR"(HKLM\Software\Probe)";
constexpr const wchar_t* kFile = LR"(C:\ProgramData\probe.txt)";

void SetValue(const wchar_t* name, DWORD value)
{
    OwnedKey key;
    RegCreateKeyW(HKEY_LOCAL_MACHINE, LR"(Software\Probe)", key.Receive());
    RegSetValueExW(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                   sizeof(value));
}

void LeaveTrace()
{
    SetValue(L"Trace", 1);
    const OwnedFile file(CreateFileW(kFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    DWORD written = 0;
    WriteFile(file.Get(), "x", 1, &written, nullptr);
}

struct TraceAtEnd
{
    ~TraceAtEnd() { LeaveTrace(); }
};

// Each is killed while it runs, and tries everything to leave a trace then.
DWORD WINAPI Waits(LPVOID)
{
    const TraceAtEnd trace;
    try {
        Sleep(INFINITE);
    } catch (...) {
        LeaveTrace();
    }
    LeaveTrace();
    return 0;
}

DWORD WINAPI WaitsInAHandler(LPVOID)
{
    const TraceAtEnd trace;
    try {
        throw 1;
    } catch (...) {
        Waits(nullptr);
    }
    return 0;
}

DWORD WINAPI WaitsWhileUnwinding(LPVOID)
{
    struct Waiting
    {
        ~Waiting() { Waits(nullptr); }
    };
    try {
        const Waiting waiting;
        throw 1;
    } catch (...) {
        LeaveTrace();
    }
    return 0;
}

CRITICAL_SECTION g_lock;

DWORD WINAPI WaitsForALock(LPVOID)
{
    const TraceAtEnd trace;
    EnterCriticalSection(&g_lock);
    const DWORD result = Waits(nullptr);
    LeaveCriticalSection(&g_lock);
    return result;
}

DWORD WINAPI WaitsInACallback(LPVOID)
{
    const TraceAtEnd trace;
    INIT_ONCE once{};
    return InitOnceExecuteOnce(
        &once, [](INIT_ONCE*, void*, void**) -> BOOL { return Waits(nullptr) == 0; }, nullptr,
        nullptr);
}

DWORD WINAPI IsAboutToStart(LPVOID)
{
    LeaveTrace();
    return 0;
}

HANDLE NewRequest()
{
    wchar_t why[] = L"probe";
    REASON_CONTEXT reason{};
    reason.Version = POWER_REQUEST_CONTEXT_VERSION;
    reason.Flags = POWER_REQUEST_CONTEXT_SIMPLE_STRING;
    reason.Reason.SimpleReasonString = why;
    const HANDLE request = PowerCreateRequest(&reason);
    PowerSetRequest(request, PowerRequestSystemRequired);
    return request;
}

class KillTest : public VirtualPcTest
{
protected:
    KillTest() { left_open_is_expected = true; }

    void Kill(Process& process)
    {
        {
            const Hold hold(pc);
            EXPECT_TRUE(process.Terminate(7));
        }
        pc.RunUntilEnd(process);
        EXPECT_EQ(process.exit_code(), 7);
    }

    void ExpectNoTrace()
    {
        EXPECT_FALSE(pc.registry.HasKey(kKey));
        EXPECT_FALSE(pc.disk.Read(kFile));
        EXPECT_TRUE(pc.handles.List().empty());
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
    }
};

TEST_F(KillTest, NothingOfAKilledProcessReachesThePc)
{
    const LPTHREAD_START_ROUTINE threads[] = {Waits,         WaitsInAHandler, WaitsWhileUnwinding,
                                              WaitsForALock, WaitsForALock,   WaitsInACallback};
    for (const LPTHREAD_START_ROUTINE first : threads) {
        InitializeCriticalSection(&g_lock);
        Process& process = pc.Start([&] {
            const OwnedHandle request(NewRequest());
            for (const auto thread : threads) CreateThread(nullptr, 0, thread, nullptr, 0, nullptr);
            return static_cast<int>(first(nullptr));
        });
        pc.RunFor(1s);
        EXPECT_TRUE(pc.power.Held(PowerRequestSystemRequired));
        {
            const Hold hold(pc);
            process.StartThread(pc, [&process]() -> DWORD {
                process.Guard(*Thread::Self(), [] { IsAboutToStart(nullptr); });
                return 0;
            });
        }
        Kill(process);
        ExpectNoTrace();
    }
}

// Writes how far it has come after each step, in a destructor that no exception may leave.
int CountSteps()
{
    struct Step
    {
        DWORD number;
        ~Step() { SetValue(L"Step", number); }
    };
    const OwnedHandle request(NewRequest());
    for (DWORD i = 1; i <= 3; ++i) {
        const Step step{i};
        const auto other = [](LPVOID) -> DWORD { return GetCurrentProcessId(); };
        const OwnedHandle thread(CreateThread(nullptr, 0, other, nullptr, 0, nullptr));
        WaitForSingleObject(thread.Get(), INFINITE);
    }
    return 0;
}

TEST_F(KillTest, AProcessCanBeKilledAtEachOfItsCalls)
{
    DWORD steps_before = 0;
    std::uint64_t n = 1;
    for (;; ++n) {
        pc.registry.DeleteKey(kKey);
        pc.Install(kProgram, CountSteps);
        pc.KillAtCall(kProgram, n);
        Process& process = *pc.StartInstalled(kProgram, kProgram);
        pc.RunUntilEnd(process);
        EXPECT_TRUE(pc.handles.List().empty()) << "killed at call " << n;
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired)) << "killed at call " << n;
        const DWORD steps = pc.registry.GetDword(kKey, L"Step").value_or(0);
        if (!kRunFree) {
            EXPECT_GE(steps, steps_before) << "killed at call " << n;
            steps_before = steps;
        }
        if (!process.killed()) break;
        EXPECT_GE(process.calls(), n);
        EXPECT_EQ(process.exit_code(), 1);
    }
    EXPECT_EQ(steps_before, 3u);
    EXPECT_GT(n, 20u);
}

}  // namespace
