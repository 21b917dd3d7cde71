// zelutil text, run as a script would run it.
#include "tests/tool/tool_test.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace std::string_literals;

namespace {
class TextCommand : public zel_test::ToolTest {};
}  // namespace

TEST_F(TextCommand, PrintsAnyEncodingAsUtf8WithLfLineEnds) {
    Write(PathOf("be.txt"), "\xFE\xFF\0 \0a\0\r\0\n\0\t\0\n\0\n\x20\xAC"s);
    ASSERT_EQ(Run("text " + Quoted("be.txt")), 0) << Errors();
    EXPECT_EQ(Output(), " a\n\t\n\n\xE2\x82\xAC\n");
    ASSERT_EQ(Run("text --trim --skip-empty " + Quoted("be.txt")), 0) << Errors();
    EXPECT_EQ(Output(), "a\n\n\xE2\x82\xAC\n") << "a line of blanks is not skipped, only emptied";

    Write(PathOf("western.txt"), "caf\xE9\r\n\x80");
    ASSERT_EQ(Run("text --codepage 1252 " + Quoted("western.txt")), 0) << Errors();
    EXPECT_EQ(Output(), "caf\xC3\xA9\n\xE2\x82\xAC\n");
    EXPECT_EQ(Run("text --codepage latin9 " + Quoted("western.txt")), 2);
    EXPECT_NE(Errors().find("unknown code page 'latin9'"), std::string::npos) << Errors();
    std::filesystem::remove(PathOf("be.txt"));
    std::filesystem::remove(PathOf("western.txt"));

    EXPECT_EQ(Run("text " + Quoted("none.txt")), 2);
    EXPECT_NE(Errors().find("zelutil text: cannot read '" + PathOf("none.txt") + "': file not found"), std::string::npos)
        << Errors();
    EXPECT_EQ(Run("text"), 2);
    std::filesystem::create_directory(PathOf("folder"));
    EXPECT_EQ(Run("text " + Quoted("folder")), 2);
    EXPECT_NE(Errors().find("': is a directory"), std::string::npos) << Errors();
    std::filesystem::remove(PathOf("folder"));
}
