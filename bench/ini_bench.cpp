// INI files of 1000 sections x 1000 keys (about 20 MB): LoadIniFile against
// inih feeding the same sorted map of UTF-16 strings, for UTF-8 and UTF-16LE
// files; SaveIniFile against fwrite of the same bytes, and a plain loop that
// only reads every key and value of the table, which any save must do.
#include "bench/ratio_reporter.h"
#include "zelutils/settings/ini_file.h"
#include "zelutils/text/zel_utf.h"

#include <ini.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using zel_settings::IniSections;

std::filesystem::path Folder() {
    static std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / "zel-ini-bench";
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

zel_text::CZelStringW Wide(const std::filesystem::path& path) {
    return zel_text::CZelStringUtf8(path.string().c_str()).ToWide();
}

// The generated table, saved once in each encoding.
const IniSections& Table() {
    static IniSections table = [] {
        IniSections generated;
        for (int s = 0; s < 1000; ++s) {
            zel_text::CZelStringW section;
            section.Format(ZW("Section%04d"), s);
            auto& keys = generated[section];
            for (int k = 0; k < 1000; ++k) {
                zel_text::CZelStringW key;
                zel_text::CZelStringW value;
                key.Format(ZW("key%04d"), k);
                value.Format(ZW("value %d of %d"), k, s);
                keys[key] = value;
            }
        }
        zel_settings::SaveIniFile(Wide(Folder() / "utf8.ini"), generated, zel_settings::kIniUtf8);
        zel_settings::SaveIniFile(Wide(Folder() / "utf16.ini"), generated, zel_settings::kIniUtf16LE);
        return generated;
    }();
    return table;
}

std::uint64_t FileBytes(const char* name) { return std::filesystem::file_size(Folder() / name); }

void LoadOurs(benchmark::State& state, const char* name) {
    Table();
    zel_text::CZelStringW path = Wide(Folder() / name);
    for (auto _ : state) {
        IniSections loaded;
        if (!zel_settings::LoadIniFile(path, loaded)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(loaded.size());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * FileBytes(name)));
}

void BM_LoadIniUtf8(benchmark::State& state) { LoadOurs(state, "utf8.ini"); }
BENCHMARK(BM_LoadIniUtf8)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_LoadIniUtf16(benchmark::State& state) { LoadOurs(state, "utf16.ini"); }
BENCHMARK(BM_LoadIniUtf16)->Unit(benchmark::kMillisecond)->Iterations(3);

int InihHandler(void* user, const char* section, const char* name, const char* value) {
    auto& table = *static_cast<IniSections*>(user);
    table[zel_text::CZelStringUtf8(section).ToWide()][zel_text::CZelStringUtf8(name).ToWide()] =
        zel_text::CZelStringUtf8(value).ToWide();
    return 1;
}

void BM_InihUtf8(benchmark::State& state) {
    Table();
    std::string path = (Folder() / "utf8.ini").string();
    for (auto _ : state) {
        IniSections loaded;
        if (ini_parse(path.c_str(), InihHandler, &loaded) != 0) state.SkipWithError("inih failed");
        benchmark::DoNotOptimize(loaded.size());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * FileBytes("utf8.ini")));
}
BENCHMARK(BM_InihUtf8)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SaveIniUtf8(benchmark::State& state) {
    const IniSections& table = Table();  // built outside the timing
    zel_text::CZelStringW path = Wide(Folder() / "saved.ini");
    for (auto _ : state) {
        if (!zel_settings::SaveIniFile(path, table, zel_settings::kIniUtf8)) state.SkipWithError("save failed");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * FileBytes("utf8.ini")));
}
BENCHMARK(BM_SaveIniUtf8)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_WalkIniTable(benchmark::State& state) {
    const IniSections& table = Table();
    for (auto _ : state) {
        std::size_t units = 0;
        for (const auto& [name, keys] : table) {
            for (const auto& [key, value] : keys) units += key.GetLength() + value.GetLength();
        }
        benchmark::DoNotOptimize(units);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * FileBytes("utf8.ini")));
}
BENCHMARK(BM_WalkIniTable)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FwriteSameBytes(benchmark::State& state) {
    Table();
    std::ifstream in(Folder() / "utf8.ini", std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    std::string path = (Folder() / "fwrite.ini").string();
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_FwriteSameBytes)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    int result = zel_bench::RunWithRatios(
        argc, argv, {{"BM_LoadIniUtf8", "BM_InihUtf8"}, {"BM_LoadIniUtf16", "BM_InihUtf8"},
                     {"BM_SaveIniUtf8", "BM_FwriteSameBytes"}, {"BM_WalkIniTable", "BM_FwriteSameBytes"}});
    std::error_code error;
    std::filesystem::remove_all(Folder(), error);
    return result;
}
