// Benchmarks that run on a thread of the virtual PC.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"

inline constexpr int kRepetitions = 5;

// Repeats a benchmark, so that one disturbed repetition does not decide its median.
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
