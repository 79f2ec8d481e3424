// The scheduler's hot paths: handing over between threads, and the clock's jumps.

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <queue>
#include <thread>

#include "bench/on_the_pc.h"
#include "bench/ratios.h"
#include "platform/owned.h"
#include "platform/virtual/base/one_core.h"

using namespace virtual_pc;

namespace {

// --- A signal and the hand-over it causes ---

class Futex
{
public:
    void Wake()
    {
        m_word.store(1, std::memory_order_release);
        syscall(SYS_futex, &m_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void Wait()
    {
        while (m_word.load(std::memory_order_acquire) == 0) {
            syscall(SYS_futex, &m_word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        }
        m_word.store(0, std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint32_t> m_word{0};
};

// The baseline: two threads of the host wake each other, on one core, as the virtual PC keeps its
// threads on one.
void FutexPingPong(benchmark::State& state)
{
    const OneCore one_core;
    Futex there;
    Futex back;
    std::atomic<bool> done = false;
    std::thread other([&] {
        for (there.Wait(); !done; there.Wait()) back.Wake();
    });
    for (auto _ : state) {
        there.Wake();
        back.Wait();
    }
    done = true;
    there.Wake();
    other.join();
}
BENCHMARK(FutexPingPong)->Apply(InPairs);

struct PingPong
{
    OwnedHandle there{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    OwnedHandle back{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    bool done = false;
};

DWORD WINAPI Answer(LPVOID parameter)
{
    auto& game = *static_cast<PingPong*>(parameter);
    for (;;) {
        WaitForSingleObject(game.there.Get(), INFINITE);
        if (game.done) return 0;
        SetEvent(game.back.Get());
    }
}

void SignalAndHandOver(benchmark::State& state)
{
    Machine pc;
    OnThePc(pc, [&] {
        PingPong game;
        const OwnedHandle other(CreateThread(nullptr, 0, Answer, &game, 0, nullptr));
        for (auto _ : state) {
            SetEvent(game.there.Get());
            WaitForSingleObject(game.back.Get(), INFINITE);
        }
        game.done = true;
        SetEvent(game.there.Get());
        WaitForSingleObject(other.Get(), INFINITE);
    });
}
BENCHMARK(SignalAndHandOver)->Apply(InPairs);

const bool kHandOver =
    Compare({"SignalAndHandOver", "FutexPingPong", 2,
             "an event signalled, the waiter has it and the baton; a bare futex ping-pong"});

// --- A million expiries ---

constexpr int kMillion = 1'000'000;

// The baseline: the least work that a virtual clock must do for a million expiries, a priority
// queue in which a few other entries are pending.
void MillionFromAQueue(benchmark::State& state)
{
    for (auto _ : state) {
        std::priority_queue<std::int64_t, std::vector<std::int64_t>, std::greater<>> due;
        for (std::int64_t i = 0; i < 10; ++i) due.push((i + 1) * kMillion * 10);
        std::int64_t now = 0;
        due.push(1);
        for (int i = 0; i < kMillion; ++i) {
            now = due.top();
            due.pop();
            due.push(now + 1);
        }
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(MillionFromAQueue)->Apply(InPairs)->Unit(benchmark::kMillisecond);

void MillionTimerExpiries(benchmark::State& state)
{
    Machine pc;
    OnThePc(pc, [&] {
        const OwnedHandle timer(CreateWaitableTimerW(nullptr, FALSE, nullptr));
        for (auto _ : state) {
            LARGE_INTEGER due;
            due.QuadPart = -10'000;
            SetWaitableTimer(timer.Get(), &due, 1, nullptr, nullptr, FALSE);
            for (int i = 0; i < kMillion; ++i) WaitForSingleObject(timer.Get(), INFINITE);
            CancelWaitableTimer(timer.Get());
        }
    });
}
BENCHMARK(MillionTimerExpiries)->Apply(InPairs)->Unit(benchmark::kMillisecond);

const bool kExpiries =
    Compare({"MillionTimerExpiries", "MillionFromAQueue", 0,
             "a million timer expiries, each awaited, in virtual time; a bare priority queue"});

}  // namespace
