// The log's hot paths: a message that is filtered out, and a line to the file.

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "bench/on_the_pc.h"
#include "bench/ratios.h"
#include "log/log.h"
#include "platform/kernel.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/registry/registry.h"

using namespace virtual_pc;

namespace {

// --- A message that is filtered out ---

std::atomic<DWORD> g_probe{0};

void TestOneGlobal(benchmark::State& state)
{
    std::uint64_t passed = 0;
    for (auto _ : state) {
        if (g_probe.load(std::memory_order_relaxed) != 0) benchmark::DoNotOptimize(++passed);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(TestOneGlobal)->Apply(InPairs);

void LogFilteredOut(benchmark::State& state)
{
    DWORD slot = 7;
    for (auto _ : state) {
        Log(6, L"Bench", L"slot %u of %s", slot, L"thirteen");
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LogFilteredOut)->Apply(InPairs);

const bool kFiltered = Compare({"LogFilteredOut", "TestOneGlobal", 2,
                                "a message above the logging level; testing one global"});

// --- A line to the file ---

constexpr DWORD kOnlyToFile = 2;
constexpr DWORD kEventLevel = 2;  // a level that the event log does not get

constexpr const wchar_t* kMessage = L"Entering HOLV Registry Do Not Disturb time interval";
constexpr const wchar_t* kLogPath = LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)";
constexpr off_t kWrapAt = 5 << 20;

// The baseline: a bare seek and write of a line's bytes, to a file on the same disk.
void SeekAndWrite(benchmark::State& state)
{
    const Machine pc;
    const std::string line(110, 'x');
    const std::string path = pc.disk.HostPath(LR"(C:\ProgramData\bare.txt)");
    const int file = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
    off_t position = 0;
    for (auto _ : state) {
        lseek(file, position, SEEK_SET);
        if (write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            state.SkipWithError("the host's disk does not take it");
            break;
        }
        position += static_cast<off_t>(line.size());
        if (position > kWrapAt) position = 0;
    }
    close(file);
}
BENCHMARK(SeekAndWrite)->Apply(InPairs);

// A process keeps its one log writer to its end, so all repetitions run in one process, whose
// thread runs each measuring loop in turn. Only one PC can exist at a time, so the last repetition
// destroys it.
void LogLineToFile(benchmark::State& state)
{
    static auto pc = std::make_unique<Machine>();
    static int left = kRepetitions;
    static benchmark::State* current = nullptr;
    static Process& process = pc->Start([] {
        g_dwLoggingEnabled = kOnlyToFile;
        g_dwLoggingLevel = 4;
        for (;; Sleep(1)) {
            benchmark::State* const given = current;
            if (!given) continue;
            for (auto _ : *given) Log(kEventLevel, L"Bench", L"%s, slot %u", kMessage, 8u);
            current = nullptr;
        }
        return 0;
    });
    current = &state;
    pc->RunUntil([] { return !current; });
    if (pc->disk.Read(kLogPath).value_or("").empty() || !process.running()) {
        state.SkipWithError("nothing was logged");
    }
    if (--left == 0) pc.reset();
}
BENCHMARK(LogLineToFile)->Apply(InPairs)->Iterations(500'000);

const bool kLine = Compare({"LogLineToFile", "SeekAndWrite", 1.5,
                            "a line to the log file; a bare seek and write of as many bytes"});

}  // namespace
