// Running a benchmark program, then printing each measured path against its
// baseline from the same run: the ratio of their fastest times, the speed-up
// it means, and the throughput of both where the benchmarks count the bytes
// or items they process. On a shared machine the fastest repetition is the
// least disturbed one, so run with --benchmark_repetitions=3 or more.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace zel_bench {

/// For ComputeStatistics("min", Fastest): the "min" aggregate of a
/// benchmark's repetitions, which the ratios also read.
inline double Fastest(const std::vector<double>& values) {
    return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
}

/// (measured, baseline) benchmark names; a benchmark's name is the name it
/// was registered under, without the "/iterations:N" and similar suffixes.
using RatioPairs = std::vector<std::pair<std::string, std::string>>;

/// Passes every report on to the display reporter chosen by the command line
/// (--benchmark_format, --benchmark_color, --benchmark_counters_tabular) and
/// keeps, per benchmark, the best figures of all its runs for PrintRatios.
class RatioReporter : public benchmark::BenchmarkReporter {
public:
    /// `display` is not owned and must outlive this reporter.
    explicit RatioReporter(benchmark::BenchmarkReporter* display) : display_(display) {}

    bool ReportContext(const Context& context) override { return display_->ReportContext(context); }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) Keep(run);
        display_->ReportRuns(runs);
    }

    void Finalize() override { display_->Finalize(); }

    /// Prints one line per pair whose two benchmarks both ran: CPU time
    /// ratio (the wall-clock ratio where both run processes and measure real
    /// time, as their work is in the children), speed-up, wall-clock ratio
    /// and, where both set bytes or items processed, both rates (MB are 10^6
    /// bytes). Pairs left out by --benchmark_filter are skipped.
    void PrintRatios(const RatioPairs& pairs) const {
        std::size_t measuredWidth = 0;
        std::size_t baselineWidth = 0;
        for (const auto& pair : pairs) {
            if (!Has(pair)) continue;
            measuredWidth = std::max(measuredWidth, pair.first.size());
            baselineWidth = std::max(baselineWidth, pair.second.size());
        }
        if (measuredWidth == 0) return;
        // After a JSON or CSV report the ratios go to the error stream, so
        // the output stays parseable.
        bool console = dynamic_cast<benchmark::ConsoleReporter*>(display_) != nullptr;
        std::ostream& out = console ? display_->GetOutputStream() : display_->GetErrorStream();
        out << "\nmeasured / baseline, fastest run of each: CPU time ratio (wall clock for real-time"
               " benchmarks), speed-up, wall-clock ratio, rates\n";
        for (const auto& pair : pairs) {
            if (Has(pair)) out << RatioLine(pair, measuredWidth, baselineWidth) << '\n';
        }
        out.flush();
    }

private:
    /// Best figures over a benchmark's runs: times in seconds per iteration,
    /// rates per second (0 when the benchmark does not count them).
    struct Best {
        double cpu = 0;
        double wall = 0;
        double bytesPerSecond = 0;
        double itemsPerSecond = 0;
        bool realTime = false;  // measured with UseRealTime()
        double Time() const { return realTime ? wall : cpu; }
    };

    void Keep(const Run& run) {
        if (run.error_occurred) return;
        bool iteration = run.run_type == Run::RT_Iteration;
        if (!iteration && run.aggregate_name != "min") return;
        double toSeconds = 1.0 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        double cpu = run.GetAdjustedCPUTime() * toSeconds;
        double wall = run.GetAdjustedRealTime() * toSeconds;
        auto inserted =
            best_.emplace(run.run_name.function_name, Best{cpu, wall, 0, 0, run.run_name.time_type == "real_time"});
        Best& best = inserted.first->second;
        best.cpu = std::min(best.cpu, cpu);
        best.wall = std::min(best.wall, wall);
        // The "min" aggregate of a rate is the slowest run's rate, so rates
        // come from the individual runs only.
        if (!iteration) return;
        best.bytesPerSecond = std::max(best.bytesPerSecond, Counter(run, "bytes_per_second"));
        best.itemsPerSecond = std::max(best.itemsPerSecond, Counter(run, "items_per_second"));
    }

    static double Counter(const Run& run, const char* name) {
        auto found = run.counters.find(name);
        return found == run.counters.end() ? 0.0 : found->second.value;
    }

    bool Has(const std::pair<std::string, std::string>& pair) const {
        auto measured = best_.find(pair.first);
        auto baseline = best_.find(pair.second);
        return measured != best_.end() && baseline != best_.end() && measured->second.Time() > 0 &&
               baseline->second.Time() > 0;
    }

    std::string RatioLine(const std::pair<std::string, std::string>& pair, std::size_t measuredWidth,
                          std::size_t baselineWidth) const {
        const Best& measured = best_.at(pair.first);
        const Best& baseline = best_.at(pair.second);
        double ratio = measured.realTime && baseline.realTime ? measured.wall / baseline.wall
                                                              : measured.cpu / baseline.cpu;
        bool faster = ratio <= 1;
        char line[512];
        int length = std::snprintf(line, sizeof line, "ratio %-*s / %-*s = %6.3f  %5.2fx %-6s  wall %6.3f",
                                   static_cast<int>(measuredWidth), pair.first.c_str(),
                                   static_cast<int>(baselineWidth), pair.second.c_str(), ratio,
                                   faster ? 1 / ratio : ratio, faster ? "faster" : "slower",
                                   baseline.wall > 0 ? measured.wall / baseline.wall : 0.0);
        std::string text(line, static_cast<std::size_t>(std::max(length, 0)));
        if (measured.bytesPerSecond > 0 && baseline.bytesPerSecond > 0) {
            text += "  " + Rate(measured.bytesPerSecond) + " vs " + Rate(baseline.bytesPerSecond) + " MB/s";
        } else if (measured.itemsPerSecond > 0 && baseline.itemsPerSecond > 0) {
            text += "  " + Rate(measured.itemsPerSecond) + " vs " + Rate(baseline.itemsPerSecond) + " M items/s";
        }
        return text;
    }

    /// A rate in millions per second with three significant digits or more.
    static std::string Rate(double perSecond) {
        double millions = perSecond / 1e6;
        char text[32];
        std::snprintf(text, sizeof text, "%.*f", millions >= 100 ? 0 : millions >= 10 ? 1 : 2, millions);
        return text;
    }

    benchmark::BenchmarkReporter* display_;
    std::map<std::string, Best> best_;
};

/// main() of a benchmark program: runs the benchmarks the command line
/// selects, reporting them as usual, then prints the ratio of each
/// (measured, baseline) pair. Returns 1 on an unrecognised argument.
inline int RunWithRatios(int argc, char** argv, const RatioPairs& pairs) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter(benchmark::CreateDefaultDisplayReporter());
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios(pairs);
    benchmark::Shutdown();
    return 0;
}

}  // namespace zel_bench
