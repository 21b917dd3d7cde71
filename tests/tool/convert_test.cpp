// zelutil convert, run as a script would run it.
#include "tests/support/temp_folder.h"
#include "tests/support/tool.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

class ConvertCommand : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        if (zel_test::ToolPath().empty()) GTEST_SKIP() << "the zelutil tool is not built next to the tests";
    }

    /// Runs zelutil with arguments; returns its exit code and keeps what it
    /// wrote to stderr in Errors().
    int Run(const std::string& arguments) {
        const std::string output = PathOf("stdout.txt");
        const std::string errors = PathOf("stderr.txt");
        const int status = zel_test::RunTool(arguments, output, errors);
        errors_ = Read(errors);
        std::filesystem::remove(output);
        std::filesystem::remove(errors);
        return status;
    }

    const std::string& Errors() const { return errors_; }

    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    void Write(const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    std::string Quoted(const std::string& name) const { return "\"" + PathOf(name) + "\""; }

private:
    std::string errors_;
};

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

}  // namespace
