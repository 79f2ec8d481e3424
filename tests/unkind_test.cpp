// The unkind PC: processes that are killed, wherever they are; what a power cut leaves; functions
// that take time.

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <vector>

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
constexpr const wchar_t* kProbeKey = LR"(HKLM\Software\Probe)";
constexpr const wchar_t* kTraceFile = LR"(C:\ProgramData\probe.txt)";

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
    const OwnedFile file(
        CreateFileW(kTraceFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
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
        EXPECT_FALSE(pc.registry.HasKey(kProbeKey));
        EXPECT_FALSE(pc.disk.Read(kTraceFile));
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
        // A thread that is about to start. Where threads run free, it would run before the kill.
        if (!kRunFree) {
            const Hold hold(pc);
            process.StartThread(pc, [&process]() -> DWORD {
                process.Guard(*Thread::Self(), LeaveTrace);
                return 0;
            });
        }
        Kill(process);
        ExpectNoTrace();
    }
}

// --- Power cuts ---

void Append(HANDLE file, char digit)
{
    DWORD written = 0;
    WriteFile(file, &digit, 1, &written, nullptr);
}

// Flushes after the third of six writes, and waits for the power cut.
int WritesAndWaits()
{
    SetValue(L"Old", 1);
    Sleep(61'000);
    const OwnedFile file(
        CreateFileW(kTraceFile, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    for (DWORD i = 1; i <= 6; ++i) {
        SetValue(L"Step", i);
        Append(file.Get(), static_cast<char>('0' + i));
        if (i != 3) continue;
        RegFlushKey(HKEY_LOCAL_MACHINE);
        FlushFileBuffers(file.Get());
    }
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, LR"(Software\Deleted)");
    PowerWriteACValueIndex(nullptr, &GUID_TYPICAL_POWER_SAVINGS, &GUID_VIDEO_SUBGROUP,
                           &GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, 10);
    Sleep(INFINITE);
    return 0;
}

TEST(PowerCutTest, AFirstPartOfWhatWasWrittenStaysAndAllThatWasFlushed)
{
    std::set<DWORD> steps;
    std::set<std::string> files;
    bool plan_outlived_registry = false;
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        Machine pc({.free = kRunFree, .seed = seed});
        pc.user.Works();
        pc.registry.SetDword(LR"(HKLM\Software\Deleted\Below)", L"Value", 5);
        pc.Start(WritesAndWaits);
        pc.RunFor(62s);
        pc.CutPower();
        pc.Settle();
        EXPECT_EQ(pc.registry.GetDword(kProbeKey, L"Old"), 1u) << "older than a minute";
        const DWORD step = pc.registry.GetDword(kProbeKey, L"Step").value_or(0);
        const std::string file = pc.disk.Read(kTraceFile).value_or("");
        EXPECT_GE(step, 3u) << "seed " << seed;
        EXPECT_GE(file.size(), 3u) << "seed " << seed;
        EXPECT_TRUE(std::string("123456").starts_with(file)) << file;
        const bool deleted = !pc.registry.HasKey(LR"(HKLM\Software\Deleted)");
        EXPECT_TRUE(!deleted || step == 6) << "writes stay in their order";
        EXPECT_TRUE(deleted || pc.registry.GetDword(LR"(HKLM\Software\Deleted\Below)", L"Value"));
        const auto brightness = pc.power.Read(
            GUID_TYPICAL_POWER_SAVINGS, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, PowerSource::ac);
        EXPECT_TRUE(brightness == 10u || brightness == 100u);
        if (brightness == 10u && step < 6) plan_outlived_registry = true;
        steps.insert(step);
        files.insert(file);
    }
    EXPECT_EQ(steps, (std::set<DWORD>{3, 4, 5, 6}));
    EXPECT_EQ(files.size(), 4u);
    EXPECT_TRUE(plan_outlived_registry) << "the hives are written apart from each other";
}

// --- Slow functions ---

using PcSetUp = std::function<void(Machine&)>;

// What `see` returns `times` times in a program and, if wanted, in another one beside it, by their
// numbers, on a PC that is set up.
template <class Seen>
std::map<int, std::vector<Seen>> SeenSideBySide(const PcSetUp& set_up, bool with_other, int times,
                                                Seen (*see)(Machine&))
{
    Machine pc({.free = kRunFree, .seed = 7});
    pc.user.Works();
    {
        const Hold hold(pc);
        set_up(pc);
    }
    std::map<int, std::vector<Seen>> seen;
    const auto body = [&](int number) {
        for (int i = 0; i < times; ++i) {
            const Seen one = see(pc);
            const Hold hold(pc);
            seen[number].push_back(one);
        }
        return 0;
    };
    const Process& first = pc.Start([&] { return body(1); });
    pc.Install(kProgram, [&] { return body(2); });
    if (with_other) pc.StartInstalled(kProgram, kProgram);
    pc.RunUntilEnd(first);
    pc.RunFor(1h);
    return seen;
}

// When each of two threads has got the tick count five times.
std::map<int, std::vector<Instant>> TimesOfCalls(const PcSetUp& set_up, bool with_other)
{
    return SeenSideBySide<Instant>(set_up, with_other, 5, [](Machine& pc) {
        GetTickCount64();
        const Hold hold(pc);
        return pc.now();
    });
}

TEST(SlowTest, EachCallTakesASpanOfItsOwnWhateverElseIsSlow)
{
    const auto none = TimesOfCalls([](Machine&) {}, true);
    EXPECT_EQ(none.at(1).back(), Instant{0}) << "off unless asked for";

    const auto slow = [](Machine& pc) { pc.slowness.Set("GetTickCount64", {2s}); };
    const auto both = TimesOfCalls(slow, true);
    EXPECT_GT(both.at(1).back(), Instant{5s});
    EXPECT_LT(both.at(1).back(), Instant{15s});
    EXPECT_NE(both.at(1), both.at(2));
    EXPECT_EQ(TimesOfCalls(slow, false).at(1), both.at(1)) << "without the other program";
    const auto more = [&](Machine& pc) {
        slow(pc);
        pc.slowness.Set("Sleep", {1s});
        pc.slowness.SetAll();
    };
    EXPECT_EQ(TimesOfCalls(more, true), both) << "with other slow functions";

    const auto hangs = [](Machine& pc) { pc.slowness.Set("GetTickCount64", {10min, 0.4}); };
    std::set<Duration> spans;
    const auto times = TimesOfCalls(hangs, true);
    for (std::size_t i = 1; i < 5; ++i) spans.insert(times.at(1)[i] - times.at(1)[i - 1]);
    EXPECT_TRUE(spans.contains(Duration{0}));
    EXPECT_GE(*spans.rbegin(), 5min);
    EXPECT_TRUE(Machine().slowness.Set("CloseHandle", {1s})) << "its callers may be destructors";
}

// --- Faults ---

// For each of two threads, which of its calls are struck.
std::map<int, std::vector<bool>> StruckCalls(const PcSetUp& set_up, bool with_other)
{
    return SeenSideBySide<bool>(set_up, with_other, 30, [](Machine&) {
        return !OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    });
}

TEST(FaultDrawTest, EachThreadDrawsOnItsOwnWhateverElseFails)
{
    const auto some = [](Machine& pc) {
        pc.faults.Set("CreateEventW", {.count = Faults::kAlways, .rate = 0.5});
    };
    const auto both = StruckCalls(some, true);
    EXPECT_NE(both.at(1), both.at(2));
    EXPECT_TRUE(std::ranges::count(both.at(1), true) && std::ranges::count(both.at(1), false));
    EXPECT_EQ(StruckCalls(some, false).at(1), both.at(1)) << "without the other program";
    const auto more = [&](Machine& pc) {
        some(pc);
        pc.faults.Set("CloseHandle", {.count = Faults::kAlways, .rate = 1e-9});
        pc.slowness.SetAll();
    };
    EXPECT_EQ(StruckCalls(more, true), both) << "with another fault, and slow functions";
}

class UnkindFaultTest : public VirtualPcTest
{
protected:
    void Set(const char* function, const Faults::Fault& fault)
    {
        const Hold hold(pc);
        EXPECT_EQ(pc.faults.Set(function, fault), std::nullopt);
    }

    static DWORD WriteBrightness(const GUID& plan, DWORD value)
    {
        return PowerWriteACValueIndex(nullptr, &plan, &GUID_VIDEO_SUBGROUP,
                                      &GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, value);
    }

    DWORD Brightness(const GUID& plan)
    {
        return pc.power.Read(plan, GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS, PowerSource::ac)
            .value_or(0);
    }
};

TEST_F(UnkindFaultTest, AFaultEndsWithItsTimeAndStrikesOnlyItsObject)
{
    RunAsProcess([&] {
        Set("CreateEventW", {.error = 5, .count = Faults::kAlways, .until = pc.now() + 10s});
        EXPECT_EQ(OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)).Get(), nullptr);
        Sleep(10'000);
        EXPECT_NE(OwnedHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)).Get(), nullptr);

        Set("PowerWriteACValueIndex",
            {.error = 5, .count = Faults::kAlways, .object = L"power saver"});
        EXPECT_EQ(WriteBrightness(GUID_TYPICAL_POWER_SAVINGS, 1), DWORD{ERROR_SUCCESS});
        EXPECT_EQ(WriteBrightness(GUID_MAX_POWER_SAVINGS, 1), 5u);
        EXPECT_EQ(Brightness(GUID_MAX_POWER_SAVINGS), 60u);

        Set("PowerSetRequest", {.error = 5, .count = 1, .object = L"probe"});
        const OwnedHandle request(NewRequest());
        EXPECT_EQ(GetLastError(), 5u);
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
        EXPECT_TRUE(PowerSetRequest(request.Get(), PowerRequestSystemRequired));

        Set("RegSetValueExW", {.error = 5, .count = 1, .object = L"HKLM\\Software\\Probe"});
        SetValue(L"Lost", 1);
        SetValue(L"There", 1);
    });
    EXPECT_FALSE(pc.registry.GetDword(kProbeKey, L"Lost"));
    EXPECT_TRUE(pc.registry.GetDword(kProbeKey, L"There"));
}

TEST_F(UnkindFaultTest, AFunctionThatActsCanLieEitherWay)
{
    RunAsProcess([&] {
        Set("PowerWriteACValueIndex", {.lie = Lie::pretends});
        EXPECT_EQ(WriteBrightness(GUID_MAX_POWER_SAVINGS, 1), DWORD{ERROR_SUCCESS});
        EXPECT_EQ(Brightness(GUID_MAX_POWER_SAVINGS), 60u);
        Set("PowerWriteACValueIndex", {.error = 5, .lie = Lie::denies});
        EXPECT_EQ(WriteBrightness(GUID_MAX_POWER_SAVINGS, 1), 5u);
        EXPECT_EQ(Brightness(GUID_MAX_POWER_SAVINGS), 1u);

        Set("PowerSetRequest", {.lie = Lie::pretends});
        const OwnedHandle request(NewRequest());
        EXPECT_FALSE(pc.power.Held(PowerRequestSystemRequired));
        Set("PowerSetRequest", {.error = 5, .lie = Lie::denies});
        EXPECT_FALSE(PowerSetRequest(request.Get(), PowerRequestSystemRequired));
        EXPECT_EQ(GetLastError(), 5u);
        EXPECT_TRUE(pc.power.Held(PowerRequestSystemRequired));
    });
}

}  // namespace
