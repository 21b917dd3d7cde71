// Reading a 100 MB text file line by line into UTF-16 strings with
// CTextFile, against what a caller would write without it: for UTF-8,
// std::getline into std::string, then each line converted with the
// library's UTF-8 codec; for UTF-16LE, a 64 KB buffer cut into
// std::u16string lines by hand. Rates are in MB of file per second.
#include "bench/ratio_reporter.h"
#include "zelutils/fs/text_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

constexpr std::size_t kFileBytes = 100u << 20;
constexpr int kBufferSize = 64 * 1024;

std::filesystem::path Folder() {
    static const std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / "zel-text-file-bench";
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

// About 100 MB of survey-like lines (CR LF, 20 to 120 bytes, a few accents).
const std::string& Utf8Text() {
    static const std::string text = [] {
        const char* words[] = {"station ", "42.125 ", "caf\xC3\xA9 ", "north=", "1234.5 ", "\xE2\x82\xAC ",
                               "survey ", "point ", "height ", "Stra\xC3\x9F" "e "};
        std::string bytes;
        bytes.reserve(kFileBytes + 256);
        std::uint32_t state = 1;
        while (bytes.size() < kFileBytes) {
            state = state * 1103515245u + 12345u;
            const int count = 2 + static_cast<int>((state >> 16) % 14);
            for (int i = 0; i < count; ++i) {
                state = state * 1103515245u + 12345u;
                bytes += words[(state >> 16) % (sizeof words / sizeof *words)];
            }
            bytes += "\r\n";
        }
        return bytes;
    }();
    return text;
}

// The file of the text in UTF-8 (no mark) or UTF-16LE (with its mark).
const std::filesystem::path& FileOf(bool utf16) {
    static const std::filesystem::path utf8Path = [] {
        auto path = Folder() / "utf8.txt";
        std::ofstream(path, std::ios::binary) << Utf8Text();
        return path;
    }();
    static const std::filesystem::path utf16Path = [] {
        const zel_text::CZelStringW wide(Utf8Text().data(), static_cast<int>(Utf8Text().size()), CP_UTF8);
        auto path = Folder() / "utf16.txt";
        std::ofstream out(path, std::ios::binary);
        out.write("\xFF\xFE", 2);
        out.write(reinterpret_cast<const char*>(wide.GetString()), 2 * std::streamsize{wide.GetLength()});
        return path;
    }();
    return utf16 ? utf16Path : utf8Path;
}

void CountBytes(benchmark::State& state, bool utf16) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * std::filesystem::file_size(FileOf(utf16))));
}

void TextFileLines(benchmark::State& state, bool utf16) {
    const zel_text::CZelStringW path = zel_text::CZelStringUtf8(FileOf(utf16).string().c_str()).ToWide();
    for (auto _ : state) {
        zel_fs::CTextFile file(kBufferSize);
        file.SetNarrowCodePage(CP_UTF8);
        if (!file.Open(path)) state.SkipWithError("open failed");
        zel_text::CZelStringW line;
        std::int64_t units = 0;
        while (file.ReadLine(line)) units += line.GetLength();
        benchmark::DoNotOptimize(units);
    }
    CountBytes(state, utf16);
}

void GetlineThenConvert(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in(FileOf(false), std::ios::binary);
        std::string line;
        std::int64_t units = 0;
        while (std::getline(in, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            const zel_text::CZelStringW wide(line.data(), static_cast<int>(line.size()), CP_UTF8);
            units += wide.GetLength();
        }
        benchmark::DoNotOptimize(units);
    }
    CountBytes(state, false);
}

// UTF-16LE lines by hand: CR LF, LF or CR ends a line.
void HandCutUtf16(benchmark::State& state) {
    for (auto _ : state) {
        std::FILE* file = std::fopen(FileOf(true).string().c_str(), "rb");
        std::fseek(file, 2, SEEK_SET);
        std::u16string buffer(kBufferSize / 2, u'\0');
        std::u16string line;
        std::int64_t units = 0;
        bool afterCarriageReturn = false;
        std::size_t got;
        while ((got = std::fread(&buffer[0], 2, buffer.size(), file)) > 0) {
            for (std::size_t i = 0; i < got; ++i) {
                const char16_t unit = buffer[i];
                if (unit == u'\n' && afterCarriageReturn) {
                    afterCarriageReturn = false;
                    continue;
                }
                afterCarriageReturn = unit == u'\r';
                if (unit == u'\n' || unit == u'\r') {
                    units += static_cast<std::int64_t>(line.size());
                    line.clear();
                } else {
                    line += unit;
                }
            }
        }
        units += static_cast<std::int64_t>(line.size());
        std::fclose(file);
        benchmark::DoNotOptimize(units);
    }
    CountBytes(state, true);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("ReadLinesUtf8/CTextFile", TextFileLines, false)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ReadLinesUtf8/getline+codec", GetlineThenConvert)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ReadLinesUtf16/CTextFile", TextFileLines, true)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("ReadLinesUtf16/by-hand", HandCutUtf16)->Unit(benchmark::kMillisecond);
    const int result = zel_bench::RunWithRatios(argc, argv,
                                                {{"ReadLinesUtf8/CTextFile", "ReadLinesUtf8/getline+codec"},
                                                 {"ReadLinesUtf16/CTextFile", "ReadLinesUtf16/by-hand"}});
    std::error_code error;
    std::filesystem::remove_all(Folder(), error);
    return result;
}
