// Log lines per second, single thread, for a line with an int and a short
// text: the library's log against spdlog's synchronous file sink, and a plain
// fwrite of pre-formatted lines as the floor of the I/O.
#include "bench/ratio_reporter.h"
#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/text/zel_utf.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <filesystem>

namespace {

std::filesystem::path Folder() {
    static std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / "zel-log-bench";
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

void BM_LogPrintf(benchmark::State& state) {
    zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
        zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide(), 0);
    int i = 0;
    for (auto _ : state) zel_core::logPrintf("value %d text %s", ++i, "short text");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogPrintf);

void BM_Spdlog(benchmark::State& state) {
    auto logger = spdlog::basic_logger_mt("bench", (Folder() / "spdlog.txt").string(), true);
    logger->set_pattern("%H:%M:%S.%e ; %t ; %v");
    int i = 0;
    for (auto _ : state) logger->info("value {} text {}", ++i, "short text");
    logger->flush();
    spdlog::drop("bench");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Spdlog);

void BM_FwriteFloor(benchmark::State& state) {
    std::FILE* file = std::fopen((Folder() / "fwrite.txt").string().c_str(), "wb");
    static const char kLine[] = "12:34:56.789 ; 00001234 ; value 123456 text short text\r\n";
    for (auto _ : state) std::fwrite(kLine, 1, sizeof kLine - 1, file);
    std::fclose(file);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FwriteFloor);

}  // namespace

int main(int argc, char** argv) {
    int result = zel_bench::RunWithRatios(argc, argv,
                                          {{"BM_LogPrintf", "BM_Spdlog"}, {"BM_LogPrintf", "BM_FwriteFloor"}});
    std::error_code error;
    std::filesystem::remove_all(Folder(), error);
    return result;
}
