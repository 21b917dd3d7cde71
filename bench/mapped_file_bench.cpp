// Summing the bytes of a 1 GB file through a mapped view (OpenMappedFile)
// against read() in 64 KB blocks into one buffer, in the same run. The file
// is in the system's cache after the first pass, so both measure memory
// traffic plus their own overhead: page faults for the view, copies and
// system calls for read.
#include "zelutils/fs/mapped_file.h"

#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kBlock = 64 * 1024;
constexpr std::int64_t kFileSize = 1LL << 30;

// A 1 GB file of varied bytes, made once and removed at exit.
const std::string& Source() {
    static const std::string path = [] {
        std::filesystem::path folder =
            std::filesystem::temp_directory_path() / ("zel-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        std::string name = (folder / "source").string();
        std::vector<unsigned char> block(kBlock);
        for (std::size_t i = 0; i < kBlock; ++i) block[i] = static_cast<unsigned char>(i * 131 + 7);
        int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        for (std::int64_t done = 0; done < kFileSize; done += kBlock) {
            if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(kBlock)) break;
        }
        close(fd);
        std::atexit([] { std::filesystem::remove_all(std::filesystem::path(Source()).parent_path()); });
        return name;
    }();
    return path;
}

// The same summing loop for both, so only the way to the bytes differs.
std::uint64_t Sum(const unsigned char* bytes, std::size_t count, std::uint64_t total) {
    for (std::size_t i = 0; i < count; ++i) total += bytes[i];
    return total;
}

zel_text::CZelStringW Wide(const std::string& ascii) {
    zel_text::CZelStringW out;
    for (char c : ascii) out += static_cast<WCHAR>(c);
    return out;
}

void BM_ReadBlocksSum(benchmark::State& state) {
    std::vector<unsigned char> buffer(kBlock);
    for (auto _ : state) {
        int fd = open(Source().c_str(), O_RDONLY | O_CLOEXEC);
        std::uint64_t total = 0;
        ssize_t count;
        while ((count = read(fd, buffer.data(), kBlock)) > 0) {
            total = Sum(buffer.data(), static_cast<std::size_t>(count), total);
        }
        close(fd);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}

void BM_MappedViewSum(benchmark::State& state) {
    zel_fs::MappedFileRequest request;
    request.path = Wide(Source());
    request.desiredAccess = GENERIC_READ;
    request.creationDisposition = OPEN_EXISTING;
    for (auto _ : state) {
        zel_fs::MappedFileResult result = zel_fs::OpenMappedFile(request);
        if (result.view == nullptr) {
            state.SkipWithError("the file could not be mapped");
            break;
        }
        std::uint64_t total = Sum(static_cast<const unsigned char*>(result.view), kFileSize, 0);
        zel_fs::MappedFile(result).Close();
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}

BENCHMARK(BM_ReadBlocksSum)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(BM_MappedViewSum)->Unit(benchmark::kMillisecond)->MinTime(1);

}  // namespace

int main(int argc, char** argv) {
    Source();  // made before any timing starts
    return zel_bench::RunWithRatios(argc, argv, {{"BM_MappedViewSum", "BM_ReadBlocksSum"}});
}
