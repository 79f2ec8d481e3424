// Benchmarks that run on a thread of the virtual PC.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"

inline constexpr int kRepetitions = 5;

// Repetitions, interleaved by the library, so that a drift of the host's speed affects both of a
// pair.
inline void InPairs(benchmark::internal::Benchmark* bench)
{
    bench->UseRealTime()->Repetitions(kRepetitions)->ReportAggregatesOnly(false);
}

// Runs the measuring loop as a process of the PC.
inline void OnThePc(virtual_pc::Machine& pc, const std::function<void()>& body)
{
    virtual_pc::Process& process = pc.Start([&] {
        body();
        return 0;
    });
    pc.RunUntilEnd(process);
}
