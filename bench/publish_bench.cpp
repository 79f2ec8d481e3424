// What the published state and the history add to an entry into never-sleep mode and the leave of
// it: with them, and with nothing called after an Activity.

#include "bench/on_the_pc.h"
#include "bench/ratios.h"
#include "pc/service_view.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/sound/audio.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

void ChangeStates(benchmark::State& state, bool publishes)
{
    Machine pc;
    ServiceView view(pc);
    pc.devices.AddHolvDevice();
    pc.audio.Add(L"Speakers", eRender);
    StartAsService(pc, {.host_path = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"});
    pc.RunFor(1s);
    if (!publishes) {
        const auto call_after = reinterpret_cast<void (*)(void (*)(int))>(
            view.Symbol("_Z19CallAfterActivitiesPFvN8Activity4KindEE"));
        if (!call_after) return state.SkipWithError("the service does not publish");
        call_after(nullptr);
    }
    for (auto _ : state) {
        for (const char* event : {"EVENT_ENTER_ACTIVE", "EVENT_ENTER_S0"}) {
            view.Raise(*SlotOf(event));
            pc.RunFor(1s);
        }
    }
}

void StateChangesUnpublished(benchmark::State& state) { ChangeStates(state, false); }
BENCHMARK(StateChangesUnpublished)->Apply(InPairs)->MeasureProcessCPUTime();

void StateChangesPublished(benchmark::State& state) { ChangeStates(state, true); }
BENCHMARK(StateChangesPublished)->Apply(InPairs)->MeasureProcessCPUTime();

const bool kPublished = Compare({"StateChangesPublished", "StateChangesUnpublished", 1.05,
                                 "two changes of state, published and written to the history"});

}  // namespace
