// Zip archives through CZipArchive / CUnZipArchive against minizip's own
// calls with its default (stdio) file functions, on the same 50 MB of mixed
// data (text and random bytes) at level 6, in the same run; and
// `zelutil zip create`/`extract` against Info-ZIP's zip/unzip programs on the
// same tree of files, as whole processes (wall-clock time).
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/unzip_archive.h"
#include "zelutils/zip/zip_archive.h"

#include "bench/ratio_reporter.h"

#include <benchmark/benchmark.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kDataSize = 50u << 20;
constexpr unsigned kBlock = 16384;

std::string FolderPath() {
    static const std::string folder = [] {
        std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("zel-zip-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path.string();
    }();
    return folder;
}

zel_zip::WString Wide(const std::string& utf8) {
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8(utf8.c_str()).ToWide();
    return zel_zip::WString(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
}

// 50 MB alternating 1 MB of log-like text and 1 MB of random bytes.
const std::string& SourcePath() {
    static const std::string path = [] {
        std::string name = FolderPath() + "/mixed.dat";
        std::ofstream out(name, std::ios::binary);
        std::mt19937 random(42);
        std::string block(1u << 20, '\0');
        for (std::size_t done = 0, n = 0; done < kDataSize; done += block.size(), ++n) {
            if (n % 2 == 0) {
                for (std::size_t i = 0; i < block.size(); ++i) {
                    block[i] = "12:00:00.000 ; 0000abcd ; measured value 42 ok\r\n"[i % 50];
                }
            } else {
                for (char& c : block) c = static_cast<char>(random());
            }
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
        return name;
    }();
    return path;
}

void MinizipWrite(const std::string& archive) {
    zipFile zip = zipOpen64(archive.c_str(), APPEND_STATUS_CREATE);
    zip_fileinfo info{};
    zipOpenNewFileInZip3_64(zip, "mixed.dat", &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, 6, 0, -MAX_WBITS,
                            8, Z_DEFAULT_STRATEGY, nullptr, 0, 1);
    std::FILE* in = std::fopen(SourcePath().c_str(), "rb");
    std::vector<char> buffer(kBlock);
    for (std::size_t got; (got = std::fread(buffer.data(), 1, kBlock, in)) > 0;) {
        zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned>(got));
    }
    std::fclose(in);
    zipCloseFileInZip(zip);
    zipClose(zip, nullptr);
}

void BM_MinizipWrite(benchmark::State& state) {
    for (auto _ : state) MinizipWrite(FolderPath() + "/minizip.zip");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDataSize));
}

void BM_ZelWrite(benchmark::State& state) {
    zel_zip::WString source = Wide(SourcePath());
    zel_zip::WString archive = Wide(FolderPath() + "/zel.zip");
    for (auto _ : state) {
        zel_zip::CZipArchive zip;
        zip.Open(archive.c_str(), 0);
        zip.AddFile(source.c_str(), ZW("mixed.dat"), 6, nullptr, false);
        zip.Close(nullptr);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDataSize));
}

void BM_MinizipRead(benchmark::State& state) {
    std::string archive = FolderPath() + "/read.zip";
    if (!std::filesystem::exists(archive)) MinizipWrite(archive);
    std::vector<char> buffer(kBlock);
    for (auto _ : state) {
        unzFile unzip = unzOpen64(archive.c_str());
        unzGoToFirstFile(unzip);
        unzOpenCurrentFile(unzip);
        std::FILE* out = std::fopen((FolderPath() + "/minizip.out").c_str(), "wb");
        for (int got; (got = unzReadCurrentFile(unzip, buffer.data(), kBlock)) > 0;) {
            std::fwrite(buffer.data(), 1, static_cast<std::size_t>(got), out);
        }
        std::fclose(out);
        unzCloseCurrentFile(unzip);
        unzClose(unzip);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDataSize));
}

void BM_ZelRead(benchmark::State& state) {
    std::string archive = FolderPath() + "/read.zip";
    if (!std::filesystem::exists(archive)) MinizipWrite(archive);
    zel_zip::WString path = Wide(archive);
    zel_zip::WString destination = Wide(FolderPath() + "/zel.out");
    for (auto _ : state) {
        zel_zip::CUnZipArchive unzip;
        unzip.Open(path.c_str());
        unzip.ReadContent();
        unzip.Extract(ZW("mixed.dat"), destination.c_str(), true, true, nullptr);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDataSize));
}

// The 50 MB cut into a tree of 10 folders of 20 files each, as a data
// folder of a field application looks: "tree" under the bench folder.
void MakeTree() {
    std::ifstream in(SourcePath(), std::ios::binary);
    std::string piece(kDataSize / 200, '\0');
    for (int folder = 0; folder < 10; ++folder) {
        std::string path = FolderPath() + "/tree/d" + std::to_string(folder);
        std::filesystem::create_directories(path);
        for (int file = 0; file < 20; ++file) {
            in.read(&piece[0], static_cast<std::streamsize>(piece.size()));
            std::ofstream(path + "/f" + std::to_string(file) + ".dat", std::ios::binary) << piece;
        }
    }
}

// Runs a shell command in the bench folder once per iteration.
void RunInFolder(benchmark::State& state, const std::string& command) {
    if (!std::filesystem::exists(FolderPath() + "/tree")) MakeTree();
    const std::string line = "cd \"" + FolderPath() + "\" && " + command + " >/dev/null";
    for (auto _ : state) {
        if (std::system(line.c_str()) != 0) {
            state.SkipWithError(("failed: " + line).c_str());
            return;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kDataSize));
}

const std::string kTool = std::string("\"") + ZEL_TOOL_PATH + "\"";

// Each extraction starts from an empty folder, from the archive zip made.
const std::string kFreshOut = "rm -rf out && (test -f i.zip || zip -q -r -6 i.zip tree) && ";

void BM_ToolCreate(benchmark::State& state) {
    RunInFolder(state, "rm -f t.zip && " + kTool + " zip create t.zip tree --level 6");
}
void BM_InfoZipCreate(benchmark::State& state) { RunInFolder(state, "rm -f i.zip && zip -q -r -6 i.zip tree"); }
void BM_ToolExtract(benchmark::State& state) { RunInFolder(state, kFreshOut + kTool + " zip extract i.zip -d out"); }
void BM_UnzipExtract(benchmark::State& state) { RunInFolder(state, kFreshOut + "unzip -q i.zip -d out"); }

BENCHMARK(BM_MinizipWrite)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_ZelWrite)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_MinizipRead)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_ZelRead)->Unit(benchmark::kMillisecond)->Iterations(4);
BENCHMARK(BM_ToolCreate)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_InfoZipCreate)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ToolExtract)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_UnzipExtract)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
    int status = zel_bench::RunWithRatios(argc, argv, {{"BM_ZelWrite", "BM_MinizipWrite"},
                                                     {"BM_ZelRead", "BM_MinizipRead"},
                                                     {"BM_ToolCreate", "BM_InfoZipCreate"},
                                                     {"BM_ToolExtract", "BM_UnzipExtract"}});
    std::filesystem::remove_all(FolderPath());
    return status;
}
