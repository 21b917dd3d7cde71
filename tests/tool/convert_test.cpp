// zelutil convert, run as a script would run it.
#include "tests/support/environment.h"
#include "tests/tool/tool_test.h"
#include "zelutils/platform/windef.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {
class ConvertCommand : public zel_test::ToolTest {};
}  // namespace

TEST_F(ConvertCommand, ConvertsBetweenCodePagesAndRoundTrips) {
    const std::string cp1252("caf\xE9 \x80 \x9C\r\n", 10);
    Write(PathOf("in.txt"), cp1252);
    ASSERT_EQ(Run("convert --from 1252 --to utf8 " + Quoted("in.txt") + " " + Quoted("utf8.txt")), 0) << Errors();
    EXPECT_EQ(Read(PathOf("utf8.txt")), "caf\xC3\xA9 \xE2\x82\xAC \xC5\x93\r\n");
    ASSERT_EQ(Run("convert --from utf8 --to utf16 " + Quoted("utf8.txt") + " " + Quoted("utf16.txt")), 0) << Errors();
    EXPECT_EQ(Read(PathOf("utf16.txt")).size(), 2 * cp1252.size());
    ASSERT_EQ(Run("convert --from=utf16 --to=1252 " + Quoted("utf16.txt") + " " + Quoted("back.txt")), 0) << Errors();
    EXPECT_EQ(Read(PathOf("back.txt")), cp1252);
    for (const char* name : {"in.txt", "utf8.txt", "utf16.txt", "back.txt"}) std::filesystem::remove(PathOf(name));
}

TEST_F(ConvertCommand, BadCodePagesAndFilesExitWithUsageErrors) {
    EXPECT_EQ(Run("convert --from 4242424 --to utf8 " + Quoted("none.txt")), 2);
    EXPECT_NE(Errors().find("zelutil convert: unknown code page '4242424'"), std::string::npos) << Errors();
    EXPECT_EQ(Run("convert --from latin9 --to utf8 " + Quoted("none.txt")), 2);
    EXPECT_NE(Errors().find("unknown code page 'latin9'"), std::string::npos) << Errors();
    EXPECT_EQ(Run("convert --from 1252 --to utf8 " + Quoted("none.txt")), 2);
    EXPECT_NE(Errors().find("cannot read '" + PathOf("none.txt") + "': "), std::string::npos) << Errors();
    EXPECT_EQ(Run("convert --to utf8"), 2);
}

TEST_F(ConvertCommand, NamesAsPeopleWriteThemAndCharactersAcrossBlockEdges) {
    // Each multi-unit character straddles the converter's 1 MiB block edge once.
    std::string text(1 << 20, 'a');
    text.replace(text.size() - 1, 1, "\xC3\xA9");                // é cut after its first byte
    text += std::string(1 << 20, 'b') + "\xF0\x9F\x98\x80\n";  // U+1F600: a surrogate pair in UTF-16
    Write(PathOf("in.txt"), text);
    for (const char* name : {"UTF-16BE", "utf-16le", "UTF16", "UTF-32LE", "utf-32be"}) {
        ASSERT_EQ(Run(std::string("convert --from UTF-8 --to ") + name + " " + Quoted("in.txt") + " " + Quoted("x")),
                  0)
            << name << Errors();
        ASSERT_EQ(Run(std::string("convert --from ") + name + " --to utf8 --strict " + Quoted("x") + " " +
                      Quoted("back.txt")),
                  0)
            << name << Errors();
        EXPECT_TRUE(Read(PathOf("back.txt")) == text) << name;
    }
    EXPECT_EQ(Read(PathOf("x")).substr(0, 4), std::string("\0\0\0a", 4)) << "UTF-32BE";
    for (const char* name : {"cp1252", "Windows-1252", "LATIN1", "1252"}) {
        Write(PathOf("x"), "caf\xE9");
        ASSERT_EQ(Run(std::string("convert --from ") + name + " --to utf-8 " + Quoted("x")), 0) << name << Errors();
        EXPECT_EQ(Output(), "caf\xC3\xA9") << name;
    }
    for (const char* name : {"in.txt", "x", "back.txt"}) std::filesystem::remove(PathOf(name));
}

TEST_F(ConvertCommand, StrictStopsAtTheFirstLossAndLeavesTheOutputAlone) {
    Write(PathOf("in.txt"), "ok \xE2\x82\xAC \xF0\x9F\x98\x80");
    Write(PathOf("out.txt"), "previous");
    EXPECT_EQ(Run("convert --from utf8 --to latin1 --strict " + Quoted("in.txt") + " " + Quoted("out.txt")), 1);
    EXPECT_NE(Errors().find("character 4 (U+20AC) has no form in code page 28591"), std::string::npos) << Errors();
    EXPECT_EQ(Read(PathOf("out.txt")), "previous");
    // Without --strict the code page's default character stands in.
    ASSERT_EQ(Run("convert --from utf8 --to latin1 " + Quoted("in.txt")), 0) << Errors();
    EXPECT_EQ(Output(), "ok ? ??");

    Write(PathOf("in.txt"), "caf\xE9!");
    EXPECT_EQ(Run("convert --from utf8 --to utf16 --strict " + Quoted("in.txt")), 1);
    EXPECT_NE(Errors().find("the byte at offset 3 of the input does not decode in code page 65001"),
              std::string::npos)
        << Errors();
    if (zel_platform::kEmulated) {  // Windows' table maps 0xAA to a private-use character
        Write(PathOf("in.txt"), "a\xAA");
        EXPECT_EQ(Run("convert --from 1253 --to utf8 --strict " + Quoted("in.txt")), 1) << "0xAA is unassigned";
        EXPECT_NE(Errors().find("offset 1"), std::string::npos) << Errors();
    }
    Write(PathOf("in.txt"), "abc");
    EXPECT_EQ(Run("convert --from utf-16le --to utf8 " + Quoted("in.txt")), 1);
    EXPECT_NE(Errors().find("ends inside a character"), std::string::npos) << Errors();
    for (const char* name : {"in.txt", "out.txt"}) std::filesystem::remove(PathOf(name));
}

TEST_F(ConvertCommand, MemoryDoesNotGrowWithTheFile) {
#ifndef _WIN32
    if (std::system("command -v python3 >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3 missing";
    constexpr std::uintmax_t kInput = 128u << 20;
    std::ofstream(PathOf("zeros.txt"));
    std::filesystem::resize_file(PathOf("zeros.txt"), kInput);  // sparse: no disk written for the input
    // Python runs the tool and reports the child's peak resident memory (KiB).
    std::string command = "python3 -c \"import resource,subprocess,sys\nr=subprocess.run(sys.argv[1:]).returncode\n"
                          "print(r, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\" \"" +
                          zel_test::ToolPath().string() + "\" convert --from 1252 --to utf8 " + Quoted("zeros.txt") +
                          " " + Quoted("out.txt") + " >" + Quoted("rss.txt");
    ASSERT_EQ(std::system(command.c_str()), 0);
    long long status = -1, peakKiB = -1;
    std::ifstream(PathOf("rss.txt")) >> status >> peakKiB;
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::filesystem::file_size(PathOf("out.txt")), kInput);
    EXPECT_GT(peakKiB, 0);
    if (!zel_test::kAddressSanitized) {
        EXPECT_LT(peakKiB * 1024, static_cast<long long>(kInput / 2)) << "the whole file was held in memory";
    }
    for (const char* name : {"zeros.txt", "out.txt", "rss.txt"}) std::filesystem::remove(PathOf(name));
#endif
}
