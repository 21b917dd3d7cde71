// UTF-8 <-> UTF-16 through MultiByteToWideChar/WideCharToMultiByte (code
// page 65001) against glibc iconv ("UTF-8" <-> "UTF-16LE"), on 50 MB of
// mostly-ASCII text and 50 MB of mixed text (Latin accents, Cyrillic, CJK,
// emoji). Ends with the ratio ours/iconv for each case; measuring calls are
// compared with a full iconv conversion, what a caller without them would do.
#include "zelutils/platform/win32.h"

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kTextBytes = 50u << 20;

/// About 50 MB of UTF-8 made by repeating words picked by a fixed sequence.
std::string MakeText(const std::vector<std::string>& words) {
    std::string text;
    text.reserve(kTextBytes + 64);
    std::uint32_t state = 1;
    while (text.size() < kTextBytes) {
        state = state * 1103515245u + 12345u;
        text += words[(state >> 16) % words.size()];
    }
    return text;
}

const std::string& AsciiText() {
    // One accented word in about sixty: text in a Western language.
    static const std::string text = [] {
        std::vector<std::string> words = {"the ", "quick ", "brown ", "fox ", "jumps ", "over ", "lazy ", "dog ",
                                          "Station ", "42, ", "sample\r\n", "value=", "1234.5 ", "survey "};
        std::vector<std::string> pool;
        for (int i = 0; i < 60; ++i) pool.push_back(words[i % words.size()]);
        pool.push_back("caf\xC3\xA9 ");
        return MakeText(pool);
    }();
    return text;
}

const std::string& MixedText() {
    static const std::string text = MakeText({
        "r\xC3\xA9sum\xC3\xA9 ",                            // Latin accents
        "na\xC3\xAFve ", "Stra\xC3\x9F" "e ",
        "\xD0\x9C\xD0\xBE\xD1\x81\xD0\xBA\xD0\xB2\xD0\xB0 ",  // Cyrillic
        "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E ",            // CJK
        "\xE4\xB8\xAD\xE6\x96\x87",
        "\xF0\x9F\x98\x80 ", "\xF0\x9F\x91\x8D",            // emoji
        "data ", "field ", "2024-05-01 ",
    });
    return text;
}

std::u16string ToUtf16(const std::string& text) {
    std::u16string wide(text.size(), u'\0');
    wide.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                            static_cast<int>(wide.size()))));
    return wide;
}

const std::string& TextOf(bool mixed) { return mixed ? MixedText() : AsciiText(); }

const std::u16string& WideTextOf(bool mixed) {
    static const std::u16string ascii = ToUtf16(AsciiText());
    static const std::u16string mixedText = ToUtf16(MixedText());
    return mixed ? mixedText : ascii;
}

void OursToUtf16(benchmark::State& state, bool mixed) {
    const std::string& text = TextOf(mixed);
    std::u16string wide(text.size(), u'\0');
    for (auto _ : state) {
        int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                    static_cast<int>(wide.size()));
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void OursMeasureUtf16(benchmark::State& state, bool mixed) {
    const std::string& text = TextOf(mixed);
    for (auto _ : state) {
        int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void OursToUtf8(benchmark::State& state, bool mixed) {
    const std::u16string& wide = WideTextOf(mixed);
    std::string text(wide.size() * 3, '\0');
    for (auto _ : state) {
        int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                                    static_cast<int>(text.size()), nullptr, nullptr);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * TextOf(mixed).size()));
}

void OursMeasureUtf8(benchmark::State& state, bool mixed) {
    const std::u16string& wide = WideTextOf(mixed);
    for (auto _ : state) {
        int n = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr,
                                    nullptr);
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * TextOf(mixed).size()));
}

std::size_t IconvAll(iconv_t descriptor, const void* source, std::size_t bytes, void* target, std::size_t room) {
    char* in = const_cast<char*>(static_cast<const char*>(source));
    char* out = static_cast<char*>(target);
    iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
    iconv(descriptor, &in, &bytes, &out, &room);
    return bytes;
}

void IconvToUtf16(benchmark::State& state, bool mixed) {
    const std::string& text = TextOf(mixed);
    std::u16string wide(text.size(), u'\0');
    iconv_t descriptor = iconv_open("UTF-16LE", "UTF-8");
    for (auto _ : state) {
        benchmark::DoNotOptimize(IconvAll(descriptor, text.data(), text.size(), wide.data(), wide.size() * 2));
    }
    iconv_close(descriptor);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void IconvToUtf8(benchmark::State& state, bool mixed) {
    const std::u16string& wide = WideTextOf(mixed);
    std::string text(wide.size() * 3, '\0');
    iconv_t descriptor = iconv_open("UTF-8", "UTF-16LE");
    for (auto _ : state) {
        benchmark::DoNotOptimize(IconvAll(descriptor, wide.data(), wide.size() * 2, text.data(), text.size()));
    }
    iconv_close(descriptor);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * TextOf(mixed).size()));
}

/// Keeps every run's bytes per second for the closing ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            auto found = run.counters.find("bytes_per_second");
            if (found != run.counters.end()) rates_[run.benchmark_name()] = found->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void PrintRatios() const {
        std::printf("\nthroughput in MB of UTF-8 per second, ours/iconv:\n");
        const char* const cases[][2] = {
            {"Utf8ToUtf16", "Utf8ToUtf16"},  {"Utf8ToUtf16Measure", "Utf8ToUtf16"},
            {"Utf16ToUtf8", "Utf16ToUtf8"},  {"Utf16ToUtf8Measure", "Utf16ToUtf8"},
        };
        for (const char* text : {"ascii", "mixed"}) {
            for (const auto& pair : cases) {
                auto ours = rates_.find(std::string(pair[0]) + "/" + text + "/zelutils");
                auto theirs = rates_.find(std::string(pair[1]) + "/" + text + "/iconv");
                if (ours == rates_.end() || theirs == rates_.end()) continue;
                std::printf("  %-19s %-5s  %8.0f MB/s vs %6.0f MB/s  ratio %5.1f\n", pair[0], text,
                            ours->second / 1e6, theirs->second / 1e6, ours->second / theirs->second);
            }
        }
    }

private:
    std::map<std::string, double> rates_;
};

}  // namespace

int main(int argc, char** argv) {
    for (bool mixed : {false, true}) {
        const std::string text = mixed ? "mixed" : "ascii";
        benchmark::RegisterBenchmark(("Utf8ToUtf16/" + text + "/zelutils").c_str(), OursToUtf16, mixed);
        benchmark::RegisterBenchmark(("Utf8ToUtf16/" + text + "/iconv").c_str(), IconvToUtf16, mixed);
        benchmark::RegisterBenchmark(("Utf8ToUtf16Measure/" + text + "/zelutils").c_str(), OursMeasureUtf16, mixed);
        benchmark::RegisterBenchmark(("Utf16ToUtf8/" + text + "/zelutils").c_str(), OursToUtf8, mixed);
        benchmark::RegisterBenchmark(("Utf16ToUtf8/" + text + "/iconv").c_str(), IconvToUtf8, mixed);
        benchmark::RegisterBenchmark(("Utf16ToUtf8Measure/" + text + "/zelutils").c_str(), OursMeasureUtf8, mixed);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
