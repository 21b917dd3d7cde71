// 100 MB written in 100-byte records: TBufferedStream over TFileStream with
// a 64 KB buffer against fwrite with a 64 KB stdio buffer.
#include "bench/ratio_reporter.h"
#include "zelutils/fs/streams.h"
#include "zelutils/text/zel_utf.h"

#include <cstdio>
#include <filesystem>

namespace {

constexpr std::uint32_t kRecord = 100;
constexpr std::uint64_t kTotal = 100ull * 1000 * 1000;
constexpr std::uint32_t kBuffer = 64 * 1024;

std::filesystem::path Target() { return std::filesystem::temp_directory_path() / "zel-stream-bench.bin"; }

void BM_BufferedFileStream(benchmark::State& state) {
    char record[kRecord] = {'r'};
    zel_text::CZelStringW path = zel_text::CZelStringUtf8(Target().string().c_str()).ToWide();
    for (auto _ : state) {
        zel_fs::TBufferedStream stream(new zel_fs::TFileStream(path.GetString(), 0x48), true, kBuffer);
        for (std::uint64_t written = 0; written < kTotal; written += kRecord) stream.Write(record, kRecord, false);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_BufferedFileStream)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Fwrite64K(benchmark::State& state) {
    char record[kRecord] = {'r'};
    static char buffer[kBuffer];
    for (auto _ : state) {
        std::FILE* file = std::fopen(Target().string().c_str(), "wb");
        std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
        for (std::uint64_t written = 0; written < kTotal; written += kRecord) std::fwrite(record, 1, kRecord, file);
        std::fclose(file);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_Fwrite64K)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    int result = zel_bench::RunWithRatios(argc, argv, {{"BM_BufferedFileStream", "BM_Fwrite64K"}});
    std::error_code error;
    std::filesystem::remove(Target(), error);
    return result;
}
