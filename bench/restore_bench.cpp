// What the restore journal adds to an entry into never-sleep mode and the leave of it: with the
// journal, and with its key refused, so that it writes nothing.

#include "bench/on_the_pc.h"
#include "bench/ratios.h"
#include "pc/service_view.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/sound/audio.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

void EnterAndLeave(benchmark::State& state, bool with_journal)
{
    Machine pc;
    ServiceView view(pc);
    pc.devices.AddHolvDevice();
    pc.audio.Add(L"Speakers", eRender);
    StartAsService(pc, {.host_path = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"});
    pc.RunFor(1s);
    if (!with_journal) pc.faults.Set("RegCreateKeyW", {.count = Faults::kAlways});
    const std::uint64_t before = pc.faults.CallsOf("RegFlushKey");
    for (auto _ : state) {
        for (const char* event : {"EVENT_ENTER_ACTIVE", "EVENT_ENTER_S0"}) {
            view.Raise(*SlotOf(event));
            pc.RunFor(1s);
        }
    }
    const auto flushes = static_cast<double>(pc.faults.CallsOf("RegFlushKey") - before);
    state.counters["flushes"] = flushes / static_cast<double>(state.iterations());
}

void EnterAndLeaveWithoutTheJournal(benchmark::State& state) { EnterAndLeave(state, false); }
BENCHMARK(EnterAndLeaveWithoutTheJournal)->Apply(InPairs);

void EnterAndLeaveWithTheJournal(benchmark::State& state) { EnterAndLeave(state, true); }
BENCHMARK(EnterAndLeaveWithTheJournal)->Apply(InPairs);

const bool kJournal =
    Compare({"EnterAndLeaveWithTheJournal", "EnterAndLeaveWithoutTheJournal", 0,
             "into never-sleep mode and back with the restore journal; its writes refused"});

}  // namespace
