// A year of a person's days with the service, at its usual logging level, and how often its state
// machine is woken in each state; against the same days on a PC without it.

#include <array>

#include "bench/on_the_pc.h"
#include "bench/ratios.h"
#include "pc/person.h"
#include "pc/service_view.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/battery.h"

using namespace virtual_pc;

namespace {

constexpr int kDays = 365;
constexpr std::uint64_t kSeed = 7;
constexpr std::size_t kStates = 6;

void OnceEach(benchmark::internal::Benchmark* bench)
{
    bench->Iterations(1)->Repetitions(3)->UseRealTime()->Unit(benchmark::kSecond);
}

// Counts the passes of the state machine's loop, by the state in which it waited.
class WakeUps
{
public:
    WakeUps(Machine& pc, const ServiceView& view) : m_pc(pc), m_state(view.state())
    {
        const auto wanted = [](std::string_view kind) {
            return kind == "state" || kind == "power source";
        };
        const auto hear = [this](const Effect& effect) {
            Count();
            if (effect.kind == "state") m_state = StateOf(ToUtf8(effect.Text("to")));
            m_on_battery = m_pc.power.source() == PowerSource::dc;
        };
        pc.journal.Listen(hear, wanted);
    }

    // Reports how often an hour the service wakes in each state: "HOLV_IDLE/h" on mains, "HOLV_IDLE
    // battery/h" on battery, where it watches the charge too.
    void Report(benchmark::State& state)
    {
        Count();
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            const double hours = std::chrono::duration<double, std::ratio<3600>>(m_time[i]).count();
            const std::string name = ToUtf8(StateNameOf(static_cast<std::int32_t>(i % kStates))) +
                                     (i < kStates ? "" : " battery");
            if (hours > 0) state.counters[name + "/h"] = m_counts[i] / hours;
        }
    }

private:
    void Count()
    {
        const Instant now = m_pc.now();
        const std::uint64_t calls = m_pc.faults.CallsOf("WaitForMultipleObjects");
        if (m_state) {
            const std::size_t index =
                static_cast<std::size_t>(*m_state) + (m_on_battery ? kStates : 0);
            m_counts[index] += static_cast<double>(calls - m_calls);
            m_time[index] += now - m_since;
        }
        m_since = now;
        m_calls = calls;
    }

    Machine& m_pc;
    std::optional<std::int32_t> m_state;
    bool m_on_battery = false;
    Instant m_since{0};
    std::uint64_t m_calls = 0;
    std::array<double, 2 * kStates> m_counts{};
    std::array<Duration, 2 * kStates> m_time{};
};

// Platform calls since the PC was switched on: they tell whether a slower year is the service's,
// with more calls, or the PC's, with slower ones.
double CallsOfAll(const Machine& pc)
{
    std::uint64_t calls = 0;
    for (const Function* function : Function::All()) calls += pc.faults.CallsOf(function->name());
    return static_cast<double>(calls);
}

void LiveAYear(benchmark::State& state, bool with_service)
{
    for (auto _ : state) {
        Machine pc;
        ServiceView view(pc);
        pc.devices.AddHolvDevice(LR"(ACPI\QRX5071\1)");
        pc.SetClock(*ParseCalendar("2026-01-01 00:00"));
        pc.battery.DrainAt(12);
        pc.battery.ChargeAt(60);
        if (with_service)
            StartAsService(pc,
                           {.host_path = HOLV_IMAGE, .resources = HOLV_SOURCE_DIR "/resources"});
        pc.RunFor(1s);
        WakeUps wake_ups(pc, view);
        Person person(pc, kSeed);
        person.Live(kDays);
        if (with_service) wake_ups.Report(state);
        state.counters["calls/day"] = CallsOfAll(pc) / kDays;
    }
    state.counters["days/s"] = benchmark::Counter(kDays, benchmark::Counter::kIsRate);
}

void YearWithoutTheService(benchmark::State& state) { LiveAYear(state, false); }
BENCHMARK(YearWithoutTheService)->Apply(OnceEach);

void YearWithTheService(benchmark::State& state) { LiveAYear(state, true); }
BENCHMARK(YearWithTheService)->Apply(OnceEach);

const bool kYear = Compare({"YearWithTheService", "YearWithoutTheService", 0,
                            "a year of a person's days with the service; without it"});

}  // namespace
