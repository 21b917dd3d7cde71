// Base64 encoding of 64 MB: the library's encoder against a plain
// table-driven loop (one alphabet lookup per character) in the same run;
// ends with the time ratio and both rates in MB/s.
#include "bench/ratio_reporter.h"
#include "zelutils/text/zel_encoding.h"

#include <string>
#include <vector>

namespace {

constexpr std::size_t kSize = 64u << 20;

const std::vector<unsigned char>& Source() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> bytes(kSize);
        unsigned state = 12345;
        for (unsigned char& b : bytes) {
            state = state * 1103515245u + 12345u;
            b = static_cast<unsigned char>(state >> 16);
        }
        return bytes;
    }();
    return data;
}

// The baseline: the textbook encoder.
void PlainBase64(const unsigned char* source, std::size_t count, char* target) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t i = 0;
    for (; i + 3 <= count; i += 3) {
        unsigned v = unsigned{source[i]} << 16 | unsigned{source[i + 1]} << 8 | source[i + 2];
        *target++ = alphabet[v >> 18];
        *target++ = alphabet[(v >> 12) & 63];
        *target++ = alphabet[(v >> 6) & 63];
        *target++ = alphabet[v & 63];
    }
    if (i < count) {
        unsigned v = unsigned{source[i]} << 16;
        if (i + 1 < count) v |= unsigned{source[i + 1]} << 8;
        *target++ = alphabet[v >> 18];
        *target++ = alphabet[(v >> 12) & 63];
        *target++ = i + 1 < count ? alphabet[(v >> 6) & 63] : '=';
        *target++ = '=';
    }
    *target = '\0';
}

void BM_PlainTableLoop(benchmark::State& state) {
    const auto& source = Source();
    std::string target(zel_text::Base64EncodedSize(source.size()), '\0');
    for (auto _ : state) {
        PlainBase64(source.data(), source.size(), target.data());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * source.size()));
}

void BM_ZelBase64Encode(benchmark::State& state) {
    const auto& source = Source();
    std::string target(zel_text::Base64EncodedSize(source.size()), '\0');
    for (auto _ : state) {
        bool ok =
            zel_text::Base64Encode(source.data(), source.size(), target.data(), target.size());
        benchmark::DoNotOptimize(ok);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * source.size()));
}

BENCHMARK(BM_PlainTableLoop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZelBase64Encode)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return zel_bench::RunWithRatios(argc, argv, {{"BM_ZelBase64Encode", "BM_PlainTableLoop"}});
}
