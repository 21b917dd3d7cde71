// Running a benchmark program and printing each measured path's time as a
// multiple of its baseline's, measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zel_bench {

/// The console table, plus the CPU time per iteration of each benchmark
/// (the fastest when it ran several times) for the ratios printed last.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            double time = run.GetAdjustedCPUTime();
            auto found = times_.emplace(run.run_name.function_name, time).first;
            if (time < found->second) found->second = time;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    /// Prints "ratio <measured> / <baseline> = x.xx" (time over time).
    void PrintRatio(const std::string& measured, const std::string& baseline) const {
        auto a = times_.find(measured);
        auto b = times_.find(baseline);
        if (a == times_.end() || b == times_.end() || b->second <= 0) return;
        std::printf("ratio %-18s / %-18s = %.3f\n", measured.c_str(), baseline.c_str(),
                    a->second / b->second);
    }

private:
    std::map<std::string, double> times_;
};

/// main() of a benchmark program: runs the benchmarks, then prints the ratio
/// of each (measured, baseline) pair.
inline int RunWithRatios(int argc, char** argv,
                         const std::vector<std::pair<std::string, std::string>>& pairs) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const auto& pair : pairs) reporter.PrintRatio(pair.first, pair.second);
    benchmark::Shutdown();
    return 0;
}

}  // namespace zel_bench
