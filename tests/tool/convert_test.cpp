// zelutil convert, run as a script would run it.
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
