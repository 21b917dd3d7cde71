// The log's hot path: a time-and-thread prefix followed by the message text,
// formatted by the library's printf dialect against the C library doing the
// same in the same run (snprintf for narrow text, swprintf for wchar_t), and
// a "%.6f" double against snprintf. Prints ours/baseline time ratios at the
// end (below 1: ours is faster).
#include "bench/ratio_reporter.h"
#include "zelutils/text/zel_printf.h"

#include <cstdio>
#include <cwchar>

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

BENCHMARK(PrefixNarrowOurs)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(PrefixNarrowSnprintf)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(PrefixWideOurs)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(PrefixWideSwprintf)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(DoubleOurs)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(DoubleSnprintf)->ComputeStatistics("min", zel_bench::Fastest);

}  // namespace

int main(int argc, char** argv) {
    return zel_bench::RunWithRatios(argc, argv,
                                    {{"PrefixNarrowOurs", "PrefixNarrowSnprintf"},
                                     {"PrefixWideOurs", "PrefixWideSwprintf"},
                                     {"DoubleOurs", "DoubleSnprintf"}});
}
