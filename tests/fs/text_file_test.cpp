// The text file reader: encodings, line ends and the edges of its buffers.
#include "zelutils/fs/text_file.h"

#include "tests/support/temp_folder.h"
#include "tests/support/wine.h"
#include "zelutils/platform/fault_injection.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace std::string_literals;
using zel_fs::CTextFile;
using zel_text::CZelStringW;

namespace {
using Lines = std::vector<std::string>;

std::string Utf8(const CZelStringW& text) {
    const zel_text::CZelStringUtf8 utf8(text);
    return std::string(utf8.GetString(), static_cast<std::size_t>(utf8.GetLength()));
}
CZelStringW Wide(const std::string& utf8) { return zel_text::CZelStringUtf8(utf8.c_str()).ToWide(); }

class TextFile : public zel_test::TempFolderTest {
protected:
    void TearDown() override {
        for (const std::string& name : written_) std::filesystem::remove(PathOf(name));
        TempFolderTest::TearDown();
    }

    // Writes bytes as the file name and returns its path for Open.
    CZelStringW Make(const std::string& name, const std::string& bytes) {
        Put(name, bytes);
        written_.push_back(name);
        return Wide(PathOf(name));
    }

    // Every line ReadLine returns, as UTF-8.
    static std::vector<std::string> ReadAll(CTextFile& file, bool skipEmpty = false) {
        std::vector<std::string> lines;
        CZelStringW line;
        while (file.ReadLine(line, skipEmpty)) lines.push_back(Utf8(line));
        EXPECT_TRUE(line.IsEmpty());
        EXPECT_TRUE(file.IsEnd());
        return lines;
    }

    std::vector<std::string> LinesOf(const std::string& bytes, int bufferSize = 512, bool skipEmpty = false) {
        CTextFile file(bufferSize);
        file.SetNarrowCodePage(CP_UTF8);
        EXPECT_TRUE(file.Open(Make("lines.txt", bytes)));
        return ReadAll(file, skipEmpty);
    }

    std::vector<std::string> written_;
};



std::string Utf16Le(const std::u16string& text) {
    std::string bytes;
    for (char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

std::string Utf32Le(const std::u32string& text) {
    std::string bytes;
    for (char32_t unit : text) {
        for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((unit >> shift) & 0xFF);
    }
    return bytes;
}

}  // namespace

TEST_F(TextFile, EveryEncodingWrittenByIconvReadsAsTheSameLines) {
    if (!zel_platform::kEmulated || std::system("iconv --version > /dev/null 2>&1") != 0) {
        GTEST_SKIP() << "needs the iconv program";
    }
    // Mixed line ends, an empty line, a character outside the BMP and a last
    // line without a line end; the 1252 text keeps to that code page.
    const std::string unicode = "caf\xC3\xA9 \xE2\x82\xAC\r\n\r\n\xF0\x9D\x84\x9E clef\rend \xE4\xB8\xAD\n last";
    const std::string western = "caf\xC3\xA9 \xE2\x82\xAC\r\n\r\n\xC5\x93uvre\rend\n last";
    struct Case {
        const char* iconvName;
        std::string mark;
        bool western;
    };
    const Case cases[] = {
        {"UTF-8", "", false},           {"UTF-8", "\xEF\xBB\xBF", false},
        {"UTF-16LE", "\xFF\xFE", false}, {"UTF-16BE", "\xFE\xFF", false},
        {"UTF-32LE", "\xFF\xFE\0\0"s, false}, {"UTF-32BE", "\0\0\xFE\xFF"s, false},
        {"CP1252", "", true},
    };
    for (const Case& c : cases) {
        const std::string& text = c.western ? western : unicode;
        Put("source.txt", text);
        const std::string command = std::string("iconv -f UTF-8 -t ") + c.iconvName + " '" + PathOf("source.txt") +
                                    "' > '" + PathOf("converted.txt") + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        for (int bufferSize : {4, 6, 512}) {
            CTextFile file(bufferSize);
            file.SetNarrowCodePage(c.western ? 1252 : CP_UTF8);
            ASSERT_TRUE(file.Open(Make("text.txt", c.mark + Get("converted.txt"))));
            EXPECT_EQ(file.HasByteOrderMark(), !c.mark.empty());
            const Lines expected = c.western ? Lines{"caf\xC3\xA9 \xE2\x82\xAC", "", "\xC5\x93uvre", "end", " last"}
                                             : Lines{"caf\xC3\xA9 \xE2\x82\xAC", "", "\xF0\x9D\x84\x9E clef",
                                                     "end \xE4\xB8\xAD", " last"};
            EXPECT_EQ(ReadAll(file), expected) << c.iconvName << " with a mark of " << c.mark.size() << " bytes, buffer " << bufferSize;
        }
    }
    std::filesystem::remove(PathOf("source.txt"));
    std::filesystem::remove(PathOf("converted.txt"));
}

TEST_F(TextFile, LineEndsAndEmptyLines) {
    EXPECT_EQ(LinesOf("a\r\r\nb"), (Lines{"a", "", "b"})) << "CR ends a line, then CR LF ends an empty one";
    EXPECT_EQ(LinesOf("a\n\nb\r\n\r\n", 512, true), (Lines{"a", "b"}));
    EXPECT_EQ(LinesOf("a\r"), (Lines{"a"}));
    EXPECT_EQ(LinesOf("\n"), (Lines{""}));
    EXPECT_EQ(LinesOf(""), Lines{});
    EXPECT_EQ(LinesOf("\xEF\xBB\xBF"), Lines{});
    // CR at the end of one buffer, LF at the start of the next.
    EXPECT_EQ(LinesOf("abc\r\nd\r\re", 4), (Lines{"abc", "d", "", "e"}));

    CTextFile file;
    ASSERT_TRUE(file.Open(Make("trimmed.txt", " \t x y \r\n   \r\n")));
    CZelStringW line;
    ASSERT_TRUE(file.ReadLineTrimmed(line, true));
    EXPECT_EQ(Utf8(line), "x y");
    ASSERT_TRUE(file.ReadLineTrimmed(line, true)) << "a line of blanks is not an empty line";
    EXPECT_TRUE(line.IsEmpty());
    EXPECT_FALSE(file.ReadLineTrimmed(line, true));
    ASSERT_TRUE(file.Rewind());
    ASSERT_TRUE(file.ReadLine(line));
    EXPECT_EQ(Utf8(line), " \t x y ");
}

TEST_F(TextFile, LinesAroundTheBufferLengthComeBackWhole) {
    constexpr int kBuffer = 8;
    for (int length : {kBuffer - 1, kBuffer, kBuffer + 1, 3 * kBuffer + 2}) {
        std::string text;
        for (int i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
        std::u16string wide(text.begin(), text.end());
        EXPECT_EQ(LinesOf(text + "\n" + text, kBuffer), (Lines{text, text})) << length << " bytes";
        EXPECT_EQ(LinesOf("\xFF\xFE" + Utf16Le(wide + u"\r\n" + wide), kBuffer), (Lines{text, text})) << length;
        EXPECT_EQ(LinesOf("\xFF\xFE\0\0"s + Utf32Le(std::u32string(text.begin(), text.end()) + U"\n"), kBuffer),
                  (Lines{text}))
            << length;
    }
}

TEST_F(TextFile, CharactersCutByTheBuffersStayWhole) {
    // Buffer of 8 bytes: the BOM is skipped, so the first block holds "abc" and
    // the high surrogate, the second the low surrogate.
    EXPECT_EQ(LinesOf("\xFF\xFE" + Utf16Le(u"abc\U0001D11Exy"), 8), (Lines{"abc\xF0\x9D\x84\x9Exy"}));
    // The euro sign's first byte fills the 8-byte line-assembly buffer; its
    // other two bytes come with the next piece.
    const std::string euro = "abcdefg\xE2\x82\xAC" "0123456789\xE2\x82\xAC";
    EXPECT_EQ(LinesOf(euro, 8), (Lines{euro}));
    EXPECT_EQ(LinesOf("\xEF\xBB\xBF" + euro + "\n", 8), (Lines{euro}));
    // An invalid sequence is still one replacement per byte, not swallowed
    // (Wine 8's UTF-8 decoder swallows the bytes after a lone 4-byte lead).
    if (!zel_test::RunningUnderWine()) {
        EXPECT_EQ(LinesOf("abcdefg\xF0" "A", 8), (Lines{"abcdefg\xEF\xBF\xBD" "A"}));
    }
    // A NUL that ends a piece of a long line stays in the line.
    EXPECT_EQ(LinesOf("abcdefg\0xyz"s, 8), (Lines{"abcdefg\0xyz"s}));
}

TEST_F(TextFile, MultiByteCharactersCutByTheBuffersStayWhole) {
    // Shift-JIS kanji and a one-byte katakana shift the characters against the
    // buffer's edges (the trail byte 9A of U+5B57 is also a lead byte), as do
    // GB18030's four-byte U+1D11E and two-byte U+4E2D.
    const struct {
        UINT codePage;
        const char* piece;
    } cases[] = {{932, "\x8E\x9A\x93\xFA\x96\x7B\xB1"}, {54936, "\x94\x32\xBE\x34\xD6\xD0z"}};
    for (const auto& c : cases) {
        CPINFO info;
        if (!GetCPInfo(c.codePage, &info)) continue;
        std::string text = "a";
        for (int i = 0; i < 12; ++i) text += c.piece;
        const std::string whole = Utf8(CZelStringW(text.c_str(), c.codePage));
        for (int size : {4, 8, 12}) {
            CTextFile file(size);
            file.SetNarrowCodePage(c.codePage);
            ASSERT_TRUE(file.Open(Make("multi.txt", text + "\r\n" + text)));
            EXPECT_EQ(ReadAll(file), (Lines{whole, whole})) << c.codePage << ", " << size << "-byte buffer";
        }
    }
}

TEST_F(TextFile, IncompleteAndInvalidUnits) {
    EXPECT_EQ(LinesOf("\xFF\xFE" "a\0b\0c"s, 512), (Lines{"ab"})) << "an odd trailing byte is ignored";
    EXPECT_EQ(LinesOf("\xFE\xFF\0a\0b\0"s, 4), (Lines{"ab"}));
    EXPECT_EQ(LinesOf("\0\0\xFE\xFF\0\0\0a\0\0"s), (Lines{"a"}));
    EXPECT_EQ(LinesOf("\xFF\xFE\0\0"s + Utf32Le(U"a") + Utf32Le(std::u32string{0x110000, 0xD800, 'b'})),
              (Lines{"a\xEF\xBF\xBD\xEF\xBF\xBD" "b"}));
}

TEST_F(TextFile, NarrowTextUsesTheOwnersCodePageAndOtherMarksAreText) {
    CTextFile file(4);
    file.SetNarrowCodePage(1252);
    ASSERT_TRUE(file.Open(Make("western.txt", "\x80\xE9\x9C\xFF\xFE\n")));
    EXPECT_EQ(file.GetCodePage(), 1252u);
    EXPECT_EQ(ReadAll(file), (Lines{"\xE2\x82\xAC\xC3\xA9\xC5\x93\xC3\xBF\xC3\xBE"}));
    // The UTF-7 mark is not decoded: the file is narrow text from its first byte.
    EXPECT_EQ(LinesOf("+/v8-x"), (Lines{"+/v8-x"}));
}

TEST_F(TextFile, OpenAndReadFailures) {
    CTextFile file;
    EXPECT_FALSE(file.Open(Wide(PathOf("missing.txt"))));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    CZelStringW line = Wide("left over");
    EXPECT_FALSE(file.ReadLine(line));
    EXPECT_TRUE(line.IsEmpty());
    EXPECT_TRUE(file.IsEnd());
    EXPECT_FALSE(file.Rewind());

    if (!zel_platform::FailSystemCall(zel_platform::SystemCall::Read, 3, EIO)) {
        GTEST_SKIP() << "system calls can be intercepted only in the emulation";
    }
    // Read 1 takes the mark, read 2 the first block; the third fails and ends the file.
    CTextFile small(4);
    small.SetNarrowCodePage(CP_UTF8);
    ASSERT_TRUE(small.Open(Make("three.txt", "ab\ncd\nef\n")));
    EXPECT_EQ(ReadAll(small), (Lines{"ab", "c"}));
    zel_platform::ResetSystemCalls();
    ASSERT_TRUE(small.Rewind());
    EXPECT_EQ(ReadAll(small), (Lines{"ab", "cd", "ef"}));

    zel_platform::FailSystemCall(zel_platform::SystemCall::Seek, 1, EIO);
    EXPECT_FALSE(small.Open(Make("three.txt", "ab\n"))) << "a file that cannot be positioned is not opened";
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_IO_DEVICE));
    zel_platform::ResetSystemCalls();
}

#ifndef _WIN32
TEST_F(TextFile, APipeIsReadOnFromTheBytesAfterItsMark) {
    // A FIFO cannot be positioned back after the mark. Its writer hands the
    // mark and the big-endian units over cut in the middle, so reads come
    // back short and odd.
    const std::string path = PathOf("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::vector<std::string> pieces = {"\xFE"s, "\xFF\0a\0"s, "\r\0\n\0b\xD8"s, "\x34\xDD\x1E\0"s, "\r"s};
    std::thread writer([&] {
        const int fd = open(path.c_str(), O_WRONLY);
        for (const std::string& piece : pieces) {
            if (write(fd, piece.data(), piece.size()) != static_cast<ssize_t>(piece.size())) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        close(fd);
    });
    CTextFile file(4);
    ASSERT_TRUE(file.Open(Wide(path)));
    EXPECT_EQ(ReadAll(file), (Lines{"a", "b\xF0\x9D\x84\x9E"}));
    EXPECT_FALSE(file.Rewind());
    writer.join();
    std::filesystem::remove(path);
}
#endif
