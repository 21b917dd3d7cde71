// zelutil zip, run as a script would run it.
#include "tests/tool/tool_test.h"

#include <cstdlib>

namespace {
class ZipCommand : public zel_test::ToolTest {};
}  // namespace

TEST_F(ZipCommand, CreateListAddAndExtractRoundTrip) {
    std::filesystem::create_directories(PathOf("tree/sub"));
    Write(PathOf("tree/a.txt"), "A");
    Write(PathOf("tree/sub/b.txt"), "B");
    ASSERT_EQ(Run("zip create " + Quoted("a.zip") + " " + Quoted("tree") + " --level 9 --password secret"), 0)
        << Errors();
    Write(PathOf("c.txt"), "C");
    ASSERT_EQ(Run("zip add " + Quoted("a.zip") + " " + Quoted("c.txt")), 0) << Errors();
    ASSERT_EQ(Run("zip list " + Quoted("a.zip")), 0) << Errors();
    EXPECT_NE(Output().find("tree/a.txt (encrypted)\n"), std::string::npos) << Output();
    EXPECT_NE(Output().find("tree/sub/b.txt (encrypted)\n"), std::string::npos) << Output();
    EXPECT_NE(Output().find(" c.txt\n"), std::string::npos) << Output();
    // One wrong password in 256 passes the encryption header's check and
    // fails on the data instead; either way the extraction fails.
    EXPECT_EQ(Run("zip extract " + Quoted("a.zip") + " -d " + Quoted("out") + " --password wrong"), 1);
    EXPECT_TRUE(Errors().find("error opening password protected file") != std::string::npos ||
                Errors().find("error on unzipping source file") != std::string::npos ||
                Errors().find("error on closing compressed file in archive") != std::string::npos)
        << Errors();
    ASSERT_EQ(Run("zip extract " + Quoted("a.zip") + " -d " + Quoted("out") + " --password secret --overwrite"), 0)
        << Errors();
    EXPECT_EQ(Read(PathOf("out/tree/sub/b.txt")), "B");
    EXPECT_EQ(Read(PathOf("out/c.txt")), "C");
    EXPECT_EQ(Run("zip create " + Quoted("a.zip") + " " + Quoted("missing")), 1);
    EXPECT_EQ(Run("zip list " + Quoted("a.zip")), 0) << "a failed create leaves the old archive";
    EXPECT_EQ(Run("zip frobnicate " + Quoted("a.zip")), 2);
    EXPECT_EQ(Run("zip list " + Quoted("tree")), 1);
    EXPECT_NE(Errors().find("error opening archive (is a directory)"), std::string::npos) << Errors();
    EXPECT_EQ(Run("zip extract " + Quoted("none.zip")), 1);
    EXPECT_NE(Errors().find("error opening archive (file not found)"), std::string::npos) << Errors();
    for (const char* name : {"tree", "out", "a.zip", "c.txt"}) std::filesystem::remove_all(PathOf(name));
}

TEST_F(ZipCommand, PasswordFromStandardInput) {
    Write(PathOf("a.txt"), "A");
    Write(PathOf("password.txt"), "from stdin\n");
    ASSERT_EQ(Run("zip create " + Quoted("a.zip") + " " + Quoted("a.txt") + " --password - <" + Quoted("password.txt")), 0)
        << Errors();
    ASSERT_EQ(Run("zip extract " + Quoted("a.zip") + " -d " + Quoted("out") + " --password \"from stdin\""), 0)
        << Errors();
    EXPECT_EQ(Read(PathOf("out/a.txt")), "A");
    Write(PathOf("empty.txt"), "");
    EXPECT_EQ(Run("zip extract " + Quoted("a.zip") + " -d " + Quoted("out2") + " --password - <" + Quoted("empty.txt")), 2);
    EXPECT_NE(Errors().find("no password on standard input"), std::string::npos) << Errors();
    for (const char* name : {"a.txt", "password.txt", "empty.txt", "a.zip", "out", "out2"}) {
        std::filesystem::remove_all(PathOf(name));
    }
}

TEST_F(ZipCommand, RefusedArchivesExitTwoNamingTheEntry) {
#ifndef _WIN32
    if (std::system("command -v python3 >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3 missing";
    std::string make = "python3 -c \"import zipfile\nwith zipfile.ZipFile('" + PathOf("slip.zip") +
                       "','w') as z: z.writestr('../evil.txt','x')\"";
    ASSERT_EQ(std::system(make.c_str()), 0);
    EXPECT_EQ(Run("zip extract " + Quoted("slip.zip") + " -d " + Quoted("out")), 2);
    EXPECT_NE(Errors().find("entry name leaves the destination folder: ../evil.txt"), std::string::npos) << Errors();
    EXPECT_FALSE(std::filesystem::exists(Folder() / "evil.txt"));
    std::filesystem::remove(PathOf("slip.zip"));
#endif
}

TEST_F(ZipCommand, EntriesInOtherMethodsAreNamedBeforeAnythingIsExtracted) {
#ifndef _WIN32
    if (std::system("command -v python3 >/dev/null 2>&1") != 0) GTEST_SKIP() << "python3 missing";
    std::string make = "python3 -c \"import zipfile\nwith zipfile.ZipFile('" + PathOf("b.zip") +
                       "','w') as z:\n z.writestr('a.txt','a')\n z.writestr('b.txt','b'*900,zipfile.ZIP_BZIP2)\"";
    ASSERT_EQ(std::system(make.c_str()), 0);
    ASSERT_EQ(Run("zip list " + Quoted("b.zip")), 0) << Errors();
    EXPECT_NE(Output().find(" bzip2 "), std::string::npos) << Output();
    EXPECT_EQ(Run("zip extract " + Quoted("b.zip") + " -d " + Quoted("out")), 1);
    EXPECT_NE(Errors().find("b.txt is compressed with bzip2 (method 12)"), std::string::npos) << Errors();
    EXPECT_FALSE(std::filesystem::exists(Folder() / "out/a.txt"));
    std::filesystem::remove_all(PathOf("out"));
    std::filesystem::remove(PathOf("b.zip"));
#endif
}

TEST_F(ZipCommand, AnArchiveInsideItsFolderIsLeftOutAndNoNameIsAddedTwice) {
    std::filesystem::create_directories(PathOf("tree"));
    Write(PathOf("tree/a.txt"), "A");
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(Run("zip create " + Quoted("tree/t.zip") + " " + Quoted("tree")), 0) << Errors();
    }
    ASSERT_EQ(Run("zip list " + Quoted("tree/t.zip")), 0) << Errors();
    EXPECT_EQ(Output().find("t.zip"), std::string::npos) << Output();
    std::string before = Read(PathOf("tree/t.zip"));
    EXPECT_EQ(Run("zip add " + Quoted("tree/t.zip") + " " + Quoted("tree")), 2);
    EXPECT_NE(Errors().find("two entries named tree/a.txt"), std::string::npos) << Errors();
    EXPECT_EQ(Read(PathOf("tree/t.zip")), before);
    EXPECT_EQ(Run("zip add " + Quoted("tree/t.zip") + " " + Quoted("missing")), 1);
    EXPECT_NE(Errors().find("tree/t.zip archive error: error in opening source file"), std::string::npos)
        << "the archive as the user named it, not its temporary name: " << Errors();
    std::filesystem::remove_all(PathOf("tree"));
}

TEST_F(ZipCommand, AFileInTheWayIsNamedAndNothingIsExtracted) {
    std::filesystem::create_directories(PathOf("tree"));
    Write(PathOf("tree/a.txt"), "A");
    Write(PathOf("tree/b.txt"), "B");
    ASSERT_EQ(Run("zip create " + Quoted("t.zip") + " " + Quoted("tree")), 0) << Errors();
    ASSERT_EQ(Run("zip extract " + Quoted("t.zip") + " -d " + Quoted("out")), 0) << Errors();
    std::filesystem::remove(PathOf("out/tree/a.txt"));
    EXPECT_EQ(Run("zip extract " + Quoted("t.zip") + " -d " + Quoted("out")), 1);
    EXPECT_NE(Errors().find("tree/b.txt is in the way"), std::string::npos) << Errors();
    EXPECT_FALSE(std::filesystem::exists(PathOf("out/tree/a.txt")));
    for (const char* name : {"tree", "out", "t.zip"}) std::filesystem::remove_all(PathOf(name));
}
