// The plain file tier against raw POSIX read/write on the same files, in the
// same run: 64 KB blocks written and read (the streams' block size), and
// 1-byte reads, where the handle-table lookup is the whole overhead.
#include "zelutils/fs/platform_file.h"

#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr std::int32_t kBlock = 64 * 1024;
constexpr std::int64_t kFileSize = 64LL << 20;  // cached by the system after the first pass

std::string FolderPath() {
    static const std::string folder = [] {
        std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("zel-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path.string();
    }();
    return folder;
}

zel_text::CZelStringW Wide(const std::string& ascii) {
    zel_text::CZelStringW out;
    for (char c : ascii) out += static_cast<WCHAR>(c);
    return out;
}

// A file of kFileSize bytes to read from, made once.
const std::string& ReadSource() {
    static const std::string path = [] {
        std::string name = FolderPath() + "/source";
        std::vector<char> block(kBlock, 'x');
        int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        for (std::int64_t done = 0; done < kFileSize; done += kBlock) {
            if (write(fd, block.data(), block.size()) != kBlock) break;
        }
        close(fd);
        return name;
    }();
    return path;
}

void BM_RawWrite64K(benchmark::State& state) {
    std::string name = FolderPath() + "/raw-write";
    int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::vector<char> block(kBlock, 'w');
    std::int64_t position = 0;
    for (auto _ : state) {
        if (position == kFileSize) position = lseek(fd, 0, SEEK_SET);
        position += write(fd, block.data(), kBlock);
    }
    close(fd);
    unlink(name.c_str());
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void BM_ZelWrite64K(benchmark::State& state) {
    zel_text::CZelStringW name = Wide(FolderPath() + "/zel-write");
    HANDLE file = INVALID_HANDLE_VALUE;
    zel_fs::file_open_into(file, name, zel_fs::FO_CREATE_WRITE | zel_fs::FO_DELETE_ON_CLOSE);
    std::vector<char> block(kBlock, 'w');
    std::int64_t position = 0;
    for (auto _ : state) {
        if (position == kFileSize)
            position = static_cast<std::int64_t>(zel_fs::file_seek(file, 0, 0));
        position += zel_fs::file_write(file, block.data(), kBlock);
    }
    zel_fs::file_close_reset(file);
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void BM_RawRead64K(benchmark::State& state) {
    int fd = open(ReadSource().c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<char> block(kBlock);
    for (auto _ : state) {
        if (read(fd, block.data(), kBlock) == 0) lseek(fd, 0, SEEK_SET);
    }
    close(fd);
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void BM_ZelRead64K(benchmark::State& state) {
    HANDLE file = INVALID_HANDLE_VALUE;
    zel_fs::file_open_read(file, Wide(ReadSource()));
    std::vector<char> block(kBlock);
    for (auto _ : state) {
        if (zel_fs::file_read(file, block.data(), kBlock) == 0) zel_fs::file_seek(file, 0, 0);
    }
    zel_fs::file_close_reset(file);
    state.SetBytesProcessed(state.iterations() * kBlock);
}

void BM_RawRead1Byte(benchmark::State& state) {
    int fd = open(ReadSource().c_str(), O_RDONLY | O_CLOEXEC);
    char byte;
    for (auto _ : state) {
        if (read(fd, &byte, 1) == 0) lseek(fd, 0, SEEK_SET);
    }
    close(fd);
    state.SetBytesProcessed(state.iterations());
}

void BM_ZelRead1Byte(benchmark::State& state) {
    HANDLE file = INVALID_HANDLE_VALUE;
    zel_fs::file_open_read(file, Wide(ReadSource()));
    char byte;
    for (auto _ : state) {
        if (zel_fs::file_read(file, &byte, 1) == 0) zel_fs::file_seek(file, 0, 0);
    }
    zel_fs::file_close_reset(file);
    state.SetBytesProcessed(state.iterations());
}

BENCHMARK(BM_RawWrite64K);
BENCHMARK(BM_ZelWrite64K);
BENCHMARK(BM_RawRead64K);
BENCHMARK(BM_ZelRead64K);
BENCHMARK(BM_RawRead1Byte);
BENCHMARK(BM_ZelRead1Byte);

}  // namespace

int main(int argc, char** argv) {
    int status = zel_bench::RunWithRatios(argc, argv,
                                          {{"BM_ZelWrite64K", "BM_RawWrite64K"},
                                           {"BM_ZelRead64K", "BM_RawRead64K"},
                                           {"BM_ZelRead1Byte", "BM_RawRead1Byte"}});
    std::filesystem::remove_all(FolderPath());
    return status;
}
