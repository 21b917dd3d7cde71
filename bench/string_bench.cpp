// The string class's hot paths against the standard library in the same run:
// copying a 1 KB string (std::u16string), building text from 10,000 pieces
// of 16 characters by appending and through GetBuffer/ReleaseBuffer
// (std::u16string::append), and Format of a log line (swprintf into a fixed
// buffer). Prints the time ratios at the end.
#include "zelutils/text/zel_string.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

namespace {

using zel_text::CZelStringW;

constexpr int kPieces = 10000;
constexpr int kPieceLength = 16;
const WCHAR kPiece[kPieceLength + 1] = ZW("0123456789abcdef");

const WCHAR kWideText[] = ZW("Opened the survey project, 1234 records read from the field unit");
const wchar_t kWcharText[] = L"Opened the survey project, 1234 records read from the field unit";

// 1 KB of UTF-16.
const std::u16string& KilobyteText() {
    static const std::u16string text(512, u'k');
    return text;
}

void CopyZelString(benchmark::State& state) {
    const CZelStringW source(KilobyteText().c_str());
    for (auto _ : state) {
        CZelStringW copy(source);
        benchmark::DoNotOptimize(copy.GetString());
    }
}

void CopyU16String(benchmark::State& state) {
    const std::u16string source = KilobyteText();
    for (auto _ : state) {
        std::u16string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
}

void AppendZelString(benchmark::State& state) {
    for (auto _ : state) {
        CZelStringW text;
        for (int i = 0; i < kPieces; ++i) text.Append(kPiece, kPieceLength);
        benchmark::DoNotOptimize(text.GetString());
    }
}

// The caller grows the buffer geometrically and writes in place.
void BufferZelString(benchmark::State& state) {
    for (auto _ : state) {
        CZelStringW text;
        WCHAR* buffer = nullptr;
        int length = 0;
        int capacity = 0;
        for (int i = 0; i < kPieces; ++i) {
            if (length + kPieceLength > capacity) {
                text.ReleaseBuffer(length);
                capacity = std::max(2 * capacity, 64);
                buffer = text.GetBuffer(capacity);
            }
            std::memcpy(buffer + length, kPiece, kPieceLength * sizeof(WCHAR));
            length += kPieceLength;
        }
        text.ReleaseBuffer(length);
        benchmark::DoNotOptimize(text.GetString());
    }
}

void AppendU16String(benchmark::State& state) {
    for (auto _ : state) {
        std::u16string text;
        for (int i = 0; i < kPieces; ++i) text.append(kPiece, kPieceLength);
        benchmark::DoNotOptimize(text.data());
    }
}

// Without the reallocations: glibc serves blocks this large with mmap, and
// std::u16string's fresh block for each doubling costs page faults that the
// string class's realloc (mremap) avoids.
void AppendReservedU16String(benchmark::State& state) {
    for (auto _ : state) {
        std::u16string text;
        text.reserve(kPieces * kPieceLength);
        for (int i = 0; i < kPieces; ++i) text.append(kPiece, kPieceLength);
        benchmark::DoNotOptimize(text.data());
    }
}

// A log line's numbers move on each time, as the clock does.
struct Clock {
    unsigned tick = 0;
    int Hours() const { return static_cast<int>(tick / 3600000 % 24); }
    int Minutes() const { return static_cast<int>(tick / 60000 % 60); }
    int Seconds() const { return static_cast<int>(tick / 1000 % 60); }
    int Millis() const { return static_cast<int>(tick % 1000); }
};

void FormatZelString(benchmark::State& state) {
    CZelStringW line;
    Clock clock;
    for (auto _ : state) {
        line.Format(ZW("%02d:%02d:%02d.%03d ; %08x ; %s"), clock.Hours(), clock.Minutes(),
                    clock.Seconds(), clock.Millis(), clock.tick, kWideText);
        benchmark::DoNotOptimize(line.GetString());
        clock.tick += 7919;
    }
}

void FormatSwprintf(benchmark::State& state) {
    wchar_t line[512];
    Clock clock;
    for (auto _ : state) {
        int n = std::swprintf(line, 512, L"%02d:%02d:%02d.%03d ; %08x ; %ls", clock.Hours(),
                              clock.Minutes(), clock.Seconds(), clock.Millis(), clock.tick,
                              kWcharText);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
        clock.tick += 7919;
    }
}

// On a shared machine the least disturbed repetition is the fairest.
double Fastest(const std::vector<double>& times) {
    return *std::min_element(times.begin(), times.end());
}

BENCHMARK(CopyZelString)->ComputeStatistics("min", Fastest);
BENCHMARK(CopyU16String)->ComputeStatistics("min", Fastest);
BENCHMARK(AppendZelString)->ComputeStatistics("min", Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(BufferZelString)->ComputeStatistics("min", Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(AppendU16String)->ComputeStatistics("min", Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(AppendReservedU16String)
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(FormatZelString)->ComputeStatistics("min", Fastest);
BENCHMARK(FormatSwprintf)->ComputeStatistics("min", Fastest);

// Remembers each benchmark's fastest CPU time per iteration, then prints
// ours / baseline for each pair (below 1: ours is faster).
class StringRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            bool min = run.run_type == Run::RT_Aggregate && run.aggregate_name == "min";
            if (run.run_type != Run::RT_Iteration && !min) continue;
            double& best = best_.emplace(run.run_name.function_name, run.GetAdjustedCPUTime())
                               .first->second;
            best = std::min(best, run.GetAdjustedCPUTime());
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        const char* const pairs[][2] = {{"CopyZelString", "CopyU16String"},
                                        {"AppendZelString", "AppendU16String"},
                                        {"BufferZelString", "AppendU16String"},
                                        {"BufferZelString", "AppendReservedU16String"},
                                        {"FormatZelString", "FormatSwprintf"}};
        for (const auto& pair : pairs) {
            auto ours = best_.find(pair[0]);
            auto baseline = best_.find(pair[1]);
            if (ours == best_.end() || baseline == best_.end() || ours->second <= 0) continue;
            std::printf("ratio %-15s / %-23s = %6.3f (baseline takes %.1fx the time)\n", pair[0],
                        pair[1], ours->second / baseline->second,
                        baseline->second / ours->second);
        }
    }

private:
    std::map<std::string, double> best_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    StringRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
