// zelutil ini and path, run as a script would run them.
#include "tests/tool/tool_test.h"

namespace {
class IniCommand : public zel_test::ToolTest {};
}  // namespace

TEST_F(IniCommand, SetGetAndDumpKeepTheFilesEncoding) {
    // A UTF-16 file with a byte-order mark stays UTF-16.
    Write(PathOf("s.ini"), std::string("\xFF\xFE[\0A\0]\0\r\0\n\0k\0=\0v\0\r\0\n\0", 22));
    EXPECT_EQ(Run("ini set " + Quoted("s.ini") + " B \" key\" v"), 2) << "a key the file could not load back";
    EXPECT_NE(Errors().find("cannot be stored"), std::string::npos) << Errors();
    EXPECT_EQ(Run("ini set " + Quoted("s.ini") + " \"\" key v"), 2) << "the empty section saves as []";
    ASSERT_EQ(Run("ini set " + Quoted("s.ini") + " B key \"caf\xC3\xA9\""), 0) << Errors();
    EXPECT_EQ(Read(PathOf("s.ini")).substr(0, 2), "\xFF\xFE");
    ASSERT_EQ(Run("ini get " + Quoted("s.ini") + " B key"), 0) << Errors();
    EXPECT_EQ(Output(), "caf\xC3\xA9\n");
    EXPECT_EQ(Run("ini get " + Quoted("s.ini") + " B missing"), 1);
    EXPECT_EQ(Run("ini get " + Quoted("s.ini") + " Nope key"), 1);
    ASSERT_EQ(Run("ini dump " + Quoted("s.ini")), 0) << Errors();
    EXPECT_EQ(Output(), "[A]\nk=v\n\n[B]\nkey=caf\xC3\xA9\n\n");

    ASSERT_EQ(Run("ini convert " + Quoted("s.ini") + " --to utf8"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("s.ini")).substr(0, 3), "\xEF\xBB\xBF");
    ASSERT_EQ(Run("ini get " + Quoted("s.ini") + " A k"), 0) << Errors();
    EXPECT_EQ(Output(), "v\n");
    std::filesystem::remove(PathOf("s.ini"));
}

TEST_F(IniCommand, ErrorsNameTheFileAndTheReason) {
    EXPECT_EQ(Run("ini dump " + Quoted("missing.ini")), 2);
    EXPECT_NE(Errors().find("cannot read '" + PathOf("missing.ini") + "': file not found"), std::string::npos)
        << Errors();
    Write(PathOf("bad.ini"), " indented=1\r\n");
    EXPECT_EQ(Run("ini dump " + Quoted("bad.ini")), 2);
    EXPECT_NE(Errors().find("'" + PathOf("bad.ini") + "' is not a valid INI file"), std::string::npos) << Errors();
    EXPECT_EQ(Run("ini convert " + Quoted("bad.ini") + " --to latin1"), 2);
    EXPECT_EQ(Run("ini frobnicate"), 2);
    std::filesystem::remove(PathOf("bad.ini"));
}

TEST_F(IniCommand, PathPrintsTheComputedFolders) {
    ASSERT_EQ(Run("path"), 0) << Errors();
    const std::string& out = Output();
    EXPECT_NE(out.find("program file  "), std::string::npos);
    // The program folder is the tool's own; sub-folders are appended with "/"
    // whatever separators the program's path has.
    const std::string label = "\nprogram       ";
    std::size_t start = out.find(label);
    ASSERT_NE(start, std::string::npos) << out;
    start += label.size();
    const std::string programFolder = out.substr(start, out.find('\n', start) - start);
    EXPECT_TRUE(std::filesystem::equivalent(programFolder, zel_test::ToolPath().parent_path())) << out;
    EXPECT_NE(out.find("\ngeoids        " + programFolder + "/geoids\n"), std::string::npos) << out;
}
