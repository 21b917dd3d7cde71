// Fuzz target: a text file of any bytes, behind any of the byte-order marks,
// reads as lines without line-end characters, and the lines do not depend on
// the size of the reader's buffer (characters cut by a buffer stay whole).
//
// Input: one control byte (mark, narrow code page, buffer size, skip-empty),
// then the file's bytes.
#include "zelutils/fs/text_file.h"
#include "zelutils/text/zel_utf.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

const std::filesystem::path& FilePath() {
    static const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("zel-text-file-fuzz-" + std::to_string(std::random_device()()));
    return path;
}

std::vector<zel_text::CZelStringW> ReadAll(int bufferSize, unsigned codePage, bool skipEmpty) {
    zel_fs::CTextFile file(bufferSize);
    file.SetNarrowCodePage(codePage);
    if (!file.Open(zel_text::CZelStringUtf8(FilePath().string().c_str()).ToWide())) std::abort();
    std::vector<zel_text::CZelStringW> lines;
    zel_text::CZelStringW line;
    while (file.ReadLine(line, skipEmpty)) {
        for (int i = 0; i < line.GetLength(); ++i) {
            if (line[i] == '\n' || line[i] == '\r') std::abort();
        }
        if (skipEmpty && line.IsEmpty()) std::abort();
        lines.push_back(line);
    }
    if (!file.IsEnd() || !line.IsEmpty()) std::abort();
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static const std::string marks[] = {"", "\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF",
                                        std::string("\xFF\xFE\0\0", 4), std::string("\0\0\xFE\xFF", 4)};
    static const unsigned codePages[] = {65001, 1252, 0, 437};
    const std::uint8_t control = data[0];
    const std::string& mark = marks[control % 6];
    const unsigned codePage = codePages[(control / 6) % 4];
    const bool skipEmpty = (control & 0x80) != 0;
    {
        std::ofstream out(FilePath(), std::ios::binary | std::ios::trunc);
        out << mark;
        out.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    const int smallBuffer = 4 + 4 * ((control / 24) % 4);
    if (ReadAll(smallBuffer, codePage, skipEmpty) != ReadAll(4096, codePage, skipEmpty)) std::abort();
    return 0;
}
