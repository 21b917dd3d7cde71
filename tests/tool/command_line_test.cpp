// What every zelutil command shares: help, version, exit codes, standard
// output that fails, and the encoding and base64 commands.
#include "tests/tool/tool_test.h"

#include <algorithm>

namespace {
class CommandLine : public zel_test::ToolTest {};
}  // namespace

TEST_F(CommandLine, HelpShowsExamplesAndExitCodesForEveryCommand) {
    for (const char* command : {"version", "demo", "convert", "encoding", "base64", "path", "ini", "zip", "xml",
                                "text"}) {
        ASSERT_EQ(Run(std::string(command) + " --help"), 0) << command;
        EXPECT_NE(Output().find("exit codes"), std::string::npos) << command;
        if (std::string(command) != "version") {
            EXPECT_NE(Output().find("example"), std::string::npos) << command;
        }
    }
    ASSERT_EQ(Run("ini get --help"), 0);
    EXPECT_NE(Output().find("usage: zelutil ini"), std::string::npos);
    ASSERT_EQ(Run("--version"), 0);
    EXPECT_EQ(Output().rfind("zelutil ", 0), 0u) << Output();
    EXPECT_EQ(Run(""), 2);
    EXPECT_EQ(Run("frobnicate"), 2);
}

#ifndef _WIN32
TEST_F(CommandLine, AFailedWriteToStandardOutputIsAnError) {
    Write(PathOf("s.ini"), "[A]\nk=v\n");
    for (const std::string& command : {"ini get " + Quoted("s.ini") + " A k", "base64 " + Quoted("s.ini"),
                                       "convert --from utf8 --to utf16 " + Quoted("s.ini"), std::string("path")}) {
        EXPECT_EQ(zel_test::RunTool(command, "/dev/full", PathOf("errors")), 2) << command;
        EXPECT_NE(Read(PathOf("errors")).find("cannot write standard output: "), std::string::npos) << command;
    }
    std::filesystem::remove(PathOf("s.ini"));
    std::filesystem::remove(PathOf("errors"));
}

TEST_F(CommandLine, AWriteThatFailsWhileTheCommandRunsIsReportedOnce) {
    // More than standard output buffers: the command itself meets the error.
    Write(PathOf("big.txt"), std::string(1 << 20, 'x') + "\n");
    const std::string file = Quoted("big.txt");
    for (const std::string& command : {"text " + file, "convert --from utf8 --to utf16 " + file}) {
        EXPECT_EQ(zel_test::RunTool(command, "/dev/full", PathOf("errors")), 2) << command;
        const std::string errors = Read(PathOf("errors"));
        EXPECT_EQ(errors.find("cannot write standard output: "), errors.rfind("cannot write standard output: "))
            << errors;
    }
    std::filesystem::remove(PathOf("big.txt"));
    std::filesystem::remove(PathOf("errors"));
}
#endif

TEST_F(CommandLine, EncodingSaysHowTheLibraryReadsTheFile) {
    const struct {
        std::string bytes;
        const char* says;
    } cases[] = {
        {"", "empty (read as narrow text in code page "},
        {"\xEF\xBB\xBFk=v", "UTF-8 with byte-order mark\n"},
        {std::string("\xFF\xFEk\0", 4), "UTF-16LE with byte-order mark\n"},
        {std::string("\xFE\xFF\0k", 4), "UTF-16BE with byte-order mark (the library does not read it)"},
        {std::string("k\0=\0v\0\r\0\n\0", 10), "UTF-16LE without byte-order mark (guessed"},
        {std::string("\0\0\0k\0\0\0=\0\0\0v", 12), "narrow text in code page"},
        {"plain text", "narrow text in code page"},
    };
    for (const auto& c : cases) {
        Write(PathOf("f"), c.bytes);
        ASSERT_EQ(Run("encoding " + Quoted("f")), 0) << Errors();
        EXPECT_EQ(Output().find(c.says), 0u) << Output();
        EXPECT_EQ(std::count(Output().begin(), Output().end(), '\n'), 1) << Output();
    }
    std::filesystem::remove(PathOf("f"));
    EXPECT_EQ(Run("encoding " + Quoted(".")), 2);
    EXPECT_NE(Errors().find("directory"), std::string::npos) << Errors();
}

TEST_F(CommandLine, Base64DecodesWhatItEncodes) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) bytes += static_cast<char>(i * 7);
    Write(PathOf("bin"), bytes);
    ASSERT_EQ(Run("base64 " + Quoted("bin")), 0) << Errors();
    Write(PathOf("text"), Output());
    ASSERT_EQ(Run("base64 --decode " + Quoted("text")), 0) << Errors();
    EXPECT_TRUE(Output() == bytes);
    Write(PathOf("text"), "QUJD\nRA==\n");
    ASSERT_EQ(Run("base64 -d " + Quoted("text")), 0) << Errors();
    EXPECT_EQ(Output(), "ABCD");
    for (const char* bad : {"QU*D", "QUJDR", "QQ==QQ=="}) {
        Write(PathOf("text"), bad);
        EXPECT_EQ(Run("base64 -d " + Quoted("text")), 1) << bad;
        EXPECT_NE(Errors().find("is not Base64"), std::string::npos) << Errors();
    }
    std::filesystem::remove(PathOf("bin"));
    std::filesystem::remove(PathOf("text"));
}
