// `zelutil convert` against the iconv program, both run as whole processes
// on the same 100 MB inputs with output to /dev/null: UTF-8 <-> UTF-16 and,
// for single-byte code pages, each to and from UTF-8. The ratios compare
// wall-clock times (the work is in the child processes).
#include "ratio_reporter.h"

#include "zelutils/platform/win32.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kInputBytes = 100u * 1000u * 1000u;

struct CodePage {
    UINT number;
    const char* iconvName;
};
// Western, Cyrillic, Greek and DOS: the single-byte tables people meet most.
const CodePage kSingleByte[] = {{1252, "CP1252"}, {1251, "CP1251"}, {1253, "CP1253"}, {437, "CP437"}};

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = std::filesystem::temp_directory_path() / "zel-convert-bench";
    return folder;
}

void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string ToUtf8(const std::u16string& wide) {
    const auto* units = reinterpret_cast<const WCHAR*>(wide.data());
    const int length = static_cast<int>(wide.size());
    std::string out(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, units, length, nullptr, 0, nullptr, nullptr)),
                    '\0');
    WideCharToMultiByte(CP_UTF8, 0, units, length, &out[0], static_cast<int>(out.size()), nullptr, nullptr);
    return out;
}

// Text of every byte the code page maps both ways, in lines: the input in the
// code page ("<cp>.txt") and the same text in UTF-8 ("<cp>.utf8").
void MakeInputs(const CodePage& codePage) {
    std::vector<char> alphabet;
    std::vector<char16_t> wideOf(256);
    for (int byte = 0x20; byte < 256; ++byte) {
        const char narrow = static_cast<char>(byte);
        WCHAR wide = 0;
        char back = 0;
        BOOL lossy = FALSE;
        if (MultiByteToWideChar(codePage.number, 0, &narrow, 1, &wide, 1) == 1 &&
            WideCharToMultiByte(codePage.number, 0, &wide, 1, &back, 1, nullptr, &lossy) == 1 && !lossy &&
            back == narrow && wide != 0x7F && (wide < 0x80 || wide > 0x9F)) {
            alphabet.push_back(narrow);
            wideOf[static_cast<unsigned char>(byte)] = wide;
        }
    }
    std::mt19937 random(codePage.number);
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    std::string text(kInputBytes, '\n');
    std::u16string wide(kInputBytes, u'\n');
    for (std::size_t i = 0; i < kInputBytes; ++i) {
        if (i % 80 == 79) continue;
        text[i] = alphabet[pick(random)];
        wide[i] = wideOf[static_cast<unsigned char>(text[i])];
    }
    const std::string name = std::to_string(codePage.number);
    WriteFile(Folder() / (name + ".txt"), text);
    WriteFile(Folder() / (name + ".utf8"), ToUtf8(wide));
    if (codePage.number == 1252) {
        WriteFile(Folder() / "utf16.txt",
                  std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(char16_t)));
    }
}

void RunCommand(benchmark::State& state, const std::string& command, const std::string& input) {
    const std::string line = command + " \"" + (Folder() / input).string() + "\" > /dev/null";
    for (auto _ : state) {
        if (std::system(line.c_str()) != 0) {
            state.SkipWithError(("failed: " + line).c_str());
            return;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * std::filesystem::file_size(Folder() / input)));
}

void Register(const std::string& name, const std::string& zelutil, const std::string& iconv, const std::string& input,
              zel_bench::RatioPairs& pairs) {
    benchmark::RegisterBenchmark(("Convert/" + name + "/zelutil").c_str(), RunCommand,
                                 std::string(ZEL_TOOL_PATH) + " convert " + zelutil, input)
        ->UseRealTime()->Iterations(2)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("Convert/" + name + "/iconv").c_str(), RunCommand, "iconv " + iconv, input)
        ->UseRealTime()->Iterations(2)->Unit(benchmark::kMillisecond);
    pairs.push_back({"Convert/" + name + "/zelutil", "Convert/" + name + "/iconv"});
}

}  // namespace

int main(int argc, char** argv) {
    if (std::system("iconv --version > /dev/null 2>&1") != 0) {
        std::fprintf(stderr, "convert_bench: the iconv program is not installed\n");
        return 1;
    }
    std::filesystem::create_directories(Folder());
    zel_bench::RatioPairs pairs;
    Register("utf8-utf16", "--from utf-8 --to utf-16le", "-f UTF-8 -t UTF-16LE", "1252.utf8", pairs);
    Register("utf16-utf8", "--from utf-16le --to utf-8", "-f UTF-16LE -t UTF-8", "utf16.txt", pairs);
    for (const CodePage& codePage : kSingleByte) {
        MakeInputs(codePage);
        const std::string number = std::to_string(codePage.number);
        Register(number + "-utf8", "--from " + number + " --to utf-8", std::string("-f ") + codePage.iconvName + " -t UTF-8",
                 number + ".txt", pairs);
        Register("utf8-" + number, "--from utf-8 --to " + number, std::string("-f UTF-8 -t ") + codePage.iconvName,
                 number + ".utf8", pairs);
    }
    const int result = zel_bench::RunWithRatios(argc, argv, pairs);
    std::error_code error;
    std::filesystem::remove_all(Folder(), error);
    return result;
}
