// Runs the benchmarks, each several times, and prints the ratio of each pair's medians.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <vector>

#include "bench/ratios.h"

namespace {

std::vector<Pair>& Pairs()
{
    static std::vector<Pair> pairs;
    return pairs;
}

// Prints each measurement when it is made, and keeps the times: the processor's where a benchmark
// measures that, which other programs of the host disturb less.
class Collector : public benchmark::ConsoleReporter
{
public:
    Collector() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const bool of_processor = run.run_name.time_type.starts_with("process_time");
            m_times[run.run_name.function_name].push_back(of_processor ? run.GetAdjustedCPUTime()
                                                                       : run.GetAdjustedRealTime());
        }
    }

    // The median time of a benchmark; 0 when it did not run.
    double Median(const std::string& name)
    {
        std::vector<double>& times = m_times[name];
        if (times.empty()) return 0;
        std::ranges::sort(times);
        return times[times.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> m_times;
};

}  // namespace

bool Compare(Pair pair)
{
    Pairs().push_back(std::move(pair));
    return true;
}

// The PCs' disks are made in memory where the host offers it: a year of the history is 366 files,
// and on a disk what is measured is the host's making of them.
int main(int argc, char** argv)
{
    constexpr const char* kMemory = "/dev/shm";
    if (std::filesystem::is_directory(kMemory)) setenv("TMPDIR", kMemory, 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    std::printf("\n%-72s %8s %8s\n", "measure against baseline (medians of this run)", "ratio",
                "aim");
    for (const Pair& pair : Pairs()) {
        const double measure = collector.Median(pair.measure);
        const double baseline = collector.Median(pair.baseline);
        if (measure == 0 || baseline == 0) continue;
        std::printf("%-72s %8.2f ", pair.what.c_str(), measure / baseline);
        if (pair.aim > 0) {
            std::printf("%8.2f\n", pair.aim);
        } else {
            std::printf("%8s\n", "-");
        }
    }
    return 0;
}
