// The seeds of tests. A test that passes under one schedule proves that schedule only, so each
// machine draws its own from the test's name.
//
//   HOLV_SEED=N    the day's seed, mixed into the seed of every test.
//   HOLV_SEEDS=    how many seeds a storm tries: "500" as many, "x10" so many times its own number,
//                  "17-17" those from the first to the last alone.
//   HOLV_SWEEP=    which lives a sweep lives: "all", or "K/N" for the K-th and each N-th after it.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "platform/virtual/core/machine.h"

// The thread sanitizer sees the service only where its threads really run at once.
#ifdef HOLV_TESTS_RUN_FREE
inline constexpr bool kRunFree = true;
#else
inline constexpr bool kRunFree = false;
#endif

// A machine whose schedule is drawn from the running test's full name and the day's seed.
virtual_pc::Machine::Options DrawnSchedule();

// The command that repeats the running test.
std::string RepeatCommand();

// --- Storms: many lives, each from its own seed ---

// How many lives a storm tries unless HOLV_SEEDS says otherwise: first those that run one thread at
// a time and draw it from a seed, then those whose threads run free. Where kRunFree, all run free.
struct StormSize
{
    std::uint64_t seeds;
    std::uint64_t free = 0;
};

// The lives of a storm. The seed of a free one is for the test's own draws.
std::vector<virtual_pc::Machine::Options> LivesOf(const StormSize& size);

// What a failure in this life says: the seed, and the command that repeats it.
std::string LifeTrace(const virtual_pc::Machine::Options& life);

// Lets GoogleTest name a life by its seed, and not by the bytes of its options.
namespace virtual_pc {
void PrintTo(const Machine::Options& life, std::ostream* out);
}

// Calls `live` for each life, with the service's data fresh, until one fails.
void Storm(const StormSize& size, const std::function<void(virtual_pc::Machine::Options)>& live);

// The same, each life on a machine of its own. When `live` returns, no process may run any more,
// have crashed or have left anything open, and no call may have been misused.
void StormOnPc(
    const StormSize& size,
    const std::function<void(virtual_pc::Machine&, const virtual_pc::Machine::Options&)>& live);

// --- Sweeps: one life after the other, each struck at another place ---

// Calls `live` with 1, 2, 3 and so on until it returns false, because it had no such place. Unless
// HOLV_SWEEP says otherwise it leaves out all but every `stride`-th, from one that the day's seed
// chooses; all are tried in some weeks. A sweep has at least `least` places.
void Sweep(std::uint64_t stride, std::uint64_t least,
           const std::function<bool(std::uint64_t place)>& live);
