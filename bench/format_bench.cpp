// The log's hot path: a time-and-thread prefix followed by the message text,
// formatted by the library's printf dialect against the C library doing the
// same in the same run (snprintf for narrow text, swprintf for wchar_t), and
// a "%.6f" double against snprintf. Prints ours/baseline time ratios at the
// end (below 1: ours is faster).
#include "zelutils/text/zel_printf.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr size_t kCapacity = 512;

// Varies the numbers from one iteration to the next, as a log's clock does.
struct Clock {
    unsigned tick = 0;
    int Hours() const { return static_cast<int>(tick / 3600000 % 24); }
    int Minutes() const { return static_cast<int>(tick / 60000 % 60); }
    int Seconds() const { return static_cast<int>(tick / 1000 % 60); }
    int Millis() const { return static_cast<int>(tick % 1000); }
    unsigned Thread() const { return 0x1A2B0000u + (tick & 0xFF); }
};

const char kNarrowText[] = "Opened the survey project, 1234 records read from the field unit";
const WCHAR kWideText[] = ZW("Opened the survey project, 1234 records read from the field unit");
const wchar_t kWcharText[] = L"Opened the survey project, 1234 records read from the field unit";

// Runs print(buffer, clock) once per iteration with the clock moving on.
template <typename C, typename Print>
void LogLines(benchmark::State& state, Print print) {
    C buffer[kCapacity];
    Clock clock;
    for (auto _ : state) {
        int n = print(buffer, clock);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
        clock.tick += 7919;
    }
}

void PrefixNarrowOurs(benchmark::State& state) {
    LogLines<char>(state, [](char* buffer, const Clock& c) {
        return zel_text::FormatBuffer(buffer, kCapacity, "%02d:%02d:%02d.%03d ; %08x ; %s", c.Hours(), c.Minutes(),
                                      c.Seconds(), c.Millis(), c.Thread(), kNarrowText);
    });
}

void PrefixNarrowSnprintf(benchmark::State& state) {
    LogLines<char>(state, [](char* buffer, const Clock& c) {
        return std::snprintf(buffer, kCapacity, "%02d:%02d:%02d.%03d ; %08x ; %s", c.Hours(), c.Minutes(),
                             c.Seconds(), c.Millis(), c.Thread(), kNarrowText);
    });
}

void PrefixWideOurs(benchmark::State& state) {
    LogLines<WCHAR>(state, [](WCHAR* buffer, const Clock& c) {
        return zel_text::FormatBuffer(buffer, kCapacity, ZW("%02d:%02d:%02d.%03d ; %08x ; %ls"), c.Hours(),
                                      c.Minutes(), c.Seconds(), c.Millis(), c.Thread(), kWideText);
    });
}

void PrefixWideSwprintf(benchmark::State& state) {
    LogLines<wchar_t>(state, [](wchar_t* buffer, const Clock& c) {
        return std::swprintf(buffer, kCapacity, L"%02d:%02d:%02d.%03d ; %08x ; %ls", c.Hours(), c.Minutes(),
                             c.Seconds(), c.Millis(), c.Thread(), kWcharText);
    });
}

// The clock's tick makes a different double each time.
void DoubleOurs(benchmark::State& state) {
    LogLines<char>(state, [](char* buffer, const Clock& c) {
        return zel_text::FormatBuffer(buffer, kCapacity, "%.6f", 1234.56789 + c.tick * 1e-6);
    });
}

void DoubleSnprintf(benchmark::State& state) {
    LogLines<char>(state, [](char* buffer, const Clock& c) {
        return std::snprintf(buffer, kCapacity, "%.6f", 1234.56789 + c.tick * 1e-6);
    });
}

// The fastest repetition is the least disturbed by other work on a shared
// machine, so the ratios compare minima.
double Fastest(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

BENCHMARK(PrefixNarrowOurs)->ComputeStatistics("min", Fastest);
BENCHMARK(PrefixNarrowSnprintf)->ComputeStatistics("min", Fastest);
BENCHMARK(PrefixWideOurs)->ComputeStatistics("min", Fastest);
BENCHMARK(PrefixWideSwprintf)->ComputeStatistics("min", Fastest);
BENCHMARK(DoubleOurs)->ComputeStatistics("min", Fastest);
BENCHMARK(DoubleSnprintf)->ComputeStatistics("min", Fastest);

// Keeps the fastest CPU time per iteration of each benchmark (over its
// repetitions, or its "min" aggregate) so the ratios can be printed last.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            bool fastest = run.run_type == Run::RT_Aggregate && run.aggregate_name == "min";
            if (run.run_type != Run::RT_Iteration && !fastest) continue;
            double time = run.GetAdjustedCPUTime();
            auto found = fastest_.find(run.run_name.function_name);
            if (found == fastest_.end()) fastest_.emplace(run.run_name.function_name, time);
            else if (time < found->second) found->second = time;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void PrintRatio(const std::string& ours, const std::string& baseline) const {
        auto a = fastest_.find(ours);
        auto b = fastest_.find(baseline);
        if (a == fastest_.end() || b == fastest_.end() || b->second <= 0) return;
        std::printf("ratio %-16s / %-20s = %.2f\n", ours.c_str(), baseline.c_str(), a->second / b->second);
    }

private:
    std::map<std::string, double> fastest_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatio("PrefixNarrowOurs", "PrefixNarrowSnprintf");
    reporter.PrintRatio("PrefixWideOurs", "PrefixWideSwprintf");
    reporter.PrintRatio("DoubleOurs", "DoubleSnprintf");
    benchmark::Shutdown();
    return 0;
}
