// Formatting a double to 6 decimals: the library's rounding and Format
// against snprintf("%.6f").
#include "bench/ratio_reporter.h"
#include "zelutils/text/zel_number_format.h"

#include <cstdio>

namespace {

const double kValues[] = {47.376887123, -8.5416945, 408.25, 0.0000125, 123456.7890125, -0.5};

void BM_FormatWithPrecision(benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
        zel_text::CZelStringW text = zel_text::FormatWithPrecision(kValues[i++ % 6], 6);
        benchmark::DoNotOptimize(text.GetString());
    }
}
BENCHMARK(BM_FormatWithPrecision);

void BM_Snprintf(benchmark::State& state) {
    char buffer[64];
    std::size_t i = 0;
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "%.6f", kValues[i++ % 6]);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_Snprintf);

}  // namespace

int main(int argc, char** argv) {
    return zel_bench::RunWithRatios(argc, argv, {{"BM_FormatWithPrecision", "BM_Snprintf"}});
}
