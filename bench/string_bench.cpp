// The string class's hot paths against the standard library in the same run:
// copying a string of 16 B, 1 KB and 64 KB (std::u16string), in a process
// that has only ever had one thread and again after a second one, building text from 10,000 pieces
// of 16 characters by appending and through GetBuffer/ReleaseBuffer
// (std::u16string::append), and Format of a log line (swprintf into a fixed
// buffer). Prints the time ratios at the end.
#include "bench/ratio_reporter.h"
#include "zelutils/text/zel_string.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>
#include <thread>

namespace {

using zel_text::CZelStringW;

constexpr int kPieces = 10000;
constexpr int kPieceLength = 16;
const WCHAR kPiece[kPieceLength + 1] = ZW("0123456789abcdef");

const WCHAR kWideText[] = ZW("Opened the survey project, 1234 records read from the field unit");
const wchar_t kWcharText[] = L"Opened the survey project, 1234 records read from the field unit";

void CopyZelString(benchmark::State& state, std::size_t bytes) {
    const CZelStringW source(std::u16string(bytes / sizeof(WCHAR), u'k').c_str());
    for (auto _ : state) {
        CZelStringW copy(source);
        benchmark::DoNotOptimize(copy.GetString());
    }
}

void CopyU16String(benchmark::State& state, std::size_t bytes) {
    const std::u16string source(bytes / sizeof(WCHAR), u'k');
    for (auto _ : state) {
        std::u16string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
}

// Once a process has had a second thread, glibc says so for good and the
// reference counts take the interlocked path. The copies measured after it
// are registered last, since benchmarks run in the order of registration.
void StartASecondThread() {
    static const bool started = [] {
        std::thread([] {}).join();
        return true;
    }();
    static_cast<void>(started);
}

void CopyZelStringWithThreads(benchmark::State& state, std::size_t bytes) {
    StartASecondThread();
    CopyZelString(state, bytes);
}

void CopyU16StringWithThreads(benchmark::State& state, std::size_t bytes) {
    StartASecondThread();
    CopyU16String(state, bytes);
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

BENCHMARK_CAPTURE(CopyZelString, 16B, 16)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16String, 16B, 16)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyZelString, 1KB, 1024)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16String, 1KB, 1024)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyZelString, 64KB, 65536)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16String, 64KB, 65536)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(AppendZelString)->ComputeStatistics("min", zel_bench::Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(BufferZelString)->ComputeStatistics("min", zel_bench::Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(AppendU16String)->ComputeStatistics("min", zel_bench::Fastest)->Unit(benchmark::kMicrosecond);
BENCHMARK(AppendReservedU16String)
    ->ComputeStatistics("min", zel_bench::Fastest)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(FormatZelString)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK(FormatSwprintf)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyZelStringWithThreads, 16B, 16)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16StringWithThreads, 16B, 16)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyZelStringWithThreads, 1KB, 1024)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16StringWithThreads, 1KB, 1024)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyZelStringWithThreads, 64KB, 65536)->ComputeStatistics("min", zel_bench::Fastest);
BENCHMARK_CAPTURE(CopyU16StringWithThreads, 64KB, 65536)->ComputeStatistics("min", zel_bench::Fastest);

}  // namespace

int main(int argc, char** argv) {
    return zel_bench::RunWithRatios(argc, argv,
                                    {{"CopyZelString/16B", "CopyU16String/16B"},
                                     {"CopyZelString/1KB", "CopyU16String/1KB"},
                                     {"CopyZelString/64KB", "CopyU16String/64KB"},
                                     {"CopyZelStringWithThreads/16B", "CopyU16StringWithThreads/16B"},
                                     {"CopyZelStringWithThreads/1KB", "CopyU16StringWithThreads/1KB"},
                                     {"CopyZelStringWithThreads/64KB", "CopyU16StringWithThreads/64KB"},
                                     {"AppendZelString", "AppendU16String"},
                                     {"BufferZelString", "AppendU16String"},
                                     {"BufferZelString", "AppendReservedU16String"},
                                     {"FormatZelString", "FormatSwprintf"}});
}
