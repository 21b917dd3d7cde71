// zelutil ini and path, run as a script would run them.
#include "tests/tool/tool_test.h"
#include "zelutils/platform/windef.h"

#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {
class IniCommand : public zel_test::ToolTest {};

namespace fs = std::filesystem;
}  // namespace

TEST_F(IniCommand, SetEditsOneLineAndKeepsEveryOtherByte) {
    // A configparser-style file: LF line ends, comments, a blank line between
    // sections, keys before any header, no line end at the very end.
    const std::string original =
        "top=1\n# unit file\n[Unit]\nDescription=Foo\n\n[Service]\nExecStart=/bin/foo\n; why\n"
        "Restart=always\n\n[Empty]\n[Install]\nWantedBy=multi-user.target";
    Write(PathOf("a.ini"), original);
    const std::string file = Quoted("a.ini");
    ASSERT_EQ(Run("ini set " + file + " Service Restart \"no = never \""), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " Service User bob"), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " Empty k v"), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " Install Also x"), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " New k v"), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " \"\" top 2"), 0) << Errors();
    ASSERT_EQ(Run("ini set " + file + " \"\" first 0"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("a.ini")),
              "top=2\nfirst=0\n# unit file\n[Unit]\nDescription=Foo\n\n[Service]\nExecStart=/bin/foo\n; why\n"
              "Restart=no = never \nUser=bob\n\n[Empty]\nk=v\n[Install]\nWantedBy=multi-user.target\nAlso=x\n"
              "\n[New]\nk=v\n");
    ASSERT_EQ(Run("ini get " + file + " Service Restart"), 0) << Errors();
    EXPECT_EQ(Output(), "no = never \n");

    // UTF-16LE with a mark and CR LF stays so; a duplicate key is changed
    // where the loader takes it from (the last one).
    Write(PathOf("w.ini"), std::string("\xFF\xFE[\0A\0]\0\r\0\n\0k\0=\0a\0\r\0\n\0k\0=\0b\0\r\0\n\0", 32));
    ASSERT_EQ(Run("ini set " + Quoted("w.ini") + " A k \"caf\xC3\xA9\""), 0) << Errors();
    ASSERT_EQ(Run("ini set " + Quoted("w.ini") + " B j 1"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("w.ini")),
              std::string("\xFF\xFE[\0A\0]\0\r\0\n\0k\0=\0a\0\r\0\n\0k\0=\0c\0a\0f\0\xE9\0\r\0\n\0"
                          "\r\0\n\0[\0B\0]\0\r\0\n\0j\0=\x00" "1\0\r\0\n\0",
                          62));

    // A new file is UTF-8 with a mark, CR LF.
    ASSERT_EQ(Run("ini set " + Quoted("new.ini") + " S k v"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("new.ini")), "\xEF\xBB\xBF[S]\r\nk=v\r\n");
    EXPECT_EQ(Run("ini set " + Quoted("new.ini") + " B \" key\" v"), 2) << "a key the file could not load back";
    EXPECT_NE(Errors().find("cannot be stored"), std::string::npos) << Errors();
    EXPECT_EQ(Run("ini get " + Quoted("new.ini") + " S missing"), 1);
    EXPECT_EQ(Run("ini get " + Quoted("new.ini") + " Nope k"), 1);
    ASSERT_EQ(Run("ini dump " + Quoted("new.ini")), 0) << Errors();
    EXPECT_EQ(Output(), "[S]\nk=v\n\n");
    for (const char* name : {"a.ini", "w.ini", "new.ini"}) fs::remove(PathOf(name));
}

TEST_F(IniCommand, RefusesWhatItCannotReadBackAndLeavesTheFileAlone) {
    struct Case {
        const char* name;
        std::string bytes;
        const char* reason;
    };
    const Case cases[] = {
        {"be.ini", std::string("\xFE\xFF\0[\0A\0]", 8), "UTF-16BE text"},
        {"u32.ini", std::string("\xFF\xFE\0\0[\0\0\0", 8), "UTF-32LE text"},
        {"zero.ini", std::string("[A]\na=1\0b=2\n", 12), "a NUL character at byte 7"},
        {"latin1.ini", "[A]\na=caf\xE9\n", "line 2: bytes that are not valid"},
        {"grammar.ini", "[A]\r\na=1\r\n\r\n  b=2\r\n", "not a valid INI file: line 4: an indented line"},
        {"odd.ini", std::string("\xFF\xFE[\0A\0]", 7), "odd number of bytes"},
    };
    for (const Case& c : cases) {
        // The narrow code page is UTF-8 on POSIX; Windows' 1252 decodes every byte.
        if (!zel_platform::kEmulated && std::string(c.name) == "latin1.ini") continue;
        Write(PathOf(c.name), c.bytes);
        EXPECT_EQ(Run(std::string("ini set ") + Quoted(c.name) + " A k v"), 2) << c.name;
        EXPECT_NE(Errors().find("'" + PathOf(c.name) + "': "), std::string::npos) << Errors();
        EXPECT_NE(Errors().find(c.reason), std::string::npos) << Errors();
        EXPECT_EQ(Read(PathOf(c.name)), c.bytes) << c.name;
        EXPECT_EQ(Run(std::string("ini get ") + Quoted(c.name) + " A a"), 2) << c.name;
        fs::remove(PathOf(c.name));
    }

    // "." rather than a trailing separator, which Windows' quoting would take as an escape.
    EXPECT_EQ(Run("ini set " + Quoted(".") + " A k v"), 2);
    EXPECT_NE(Errors().find("is a directory"), std::string::npos) << Errors();
    EXPECT_EQ(Run("ini get " + Quoted(".") + " A k"), 2);
    EXPECT_NE(Errors().find("is a directory"), std::string::npos) << Errors();
    EXPECT_EQ(Run("ini dump " + Quoted("missing.ini")), 2);
    EXPECT_NE(Errors().find("cannot read '" + PathOf("missing.ini") + "': file not found"), std::string::npos)
        << Errors();
    EXPECT_EQ(Run("ini set " + Quoted("no/such/folder.ini") + " A k v"), 2);
    EXPECT_FALSE(fs::exists(PathOf("no"))) << "no folders are made for a mistyped path";
#ifndef _WIN32
    ASSERT_EQ(mkfifo(PathOf("fifo").c_str(), 0600), 0);
    EXPECT_EQ(Run("ini set " + Quoted("fifo") + " A k v"), 2);
    EXPECT_NE(Errors().find("not a regular file"), std::string::npos) << Errors();
    EXPECT_TRUE(fs::is_fifo(PathOf("fifo")));
    fs::remove(PathOf("fifo"));
    // A file the user cannot read is not taken for a missing one (root reads
    // it anyway: then there is nothing to see).
    Write(PathOf("locked.ini"), "[A]\na=1\n");
    fs::permissions(PathOf("locked.ini"), fs::perms::none);
    if (!std::ifstream(PathOf("locked.ini")).good()) {
        EXPECT_EQ(Run("ini set " + Quoted("locked.ini") + " A k v"), 2);
        EXPECT_NE(Errors().find("access denied"), std::string::npos) << Errors();
    }
    fs::permissions(PathOf("locked.ini"), fs::perms::owner_all);
    EXPECT_EQ(Read(PathOf("locked.ini")), "[A]\na=1\n");
    fs::remove(PathOf("locked.ini"));
#endif
}

#ifndef _WIN32
TEST_F(IniCommand, SetKeepsTheModeFollowsLinksAndClearsStaleTemporaries) {
    Write(PathOf("s.ini"), "[A]\na=1\n");
    fs::permissions(PathOf("s.ini"), fs::perms(0644));
    fs::create_symlink("s.ini", PathOf("link.ini"));
    // What a killed edit leaves: the tool's temporary name for s.ini.
    Write(PathOf("s.ini.~zel0BADF00D.tmp"), std::string(1 << 20, 'x'));
    Write(PathOf("other.ini.~zel0BADF00D.tmp"), "another file's");
    ASSERT_EQ(Run("ini set " + Quoted("link.ini") + " A b 2"), 0) << Errors();
    EXPECT_TRUE(fs::is_symlink(PathOf("link.ini")));
    EXPECT_EQ(Read(PathOf("s.ini")), "[A]\na=1\nb=2\n");
    EXPECT_EQ(fs::status(PathOf("s.ini")).permissions(), fs::perms(0644));
    EXPECT_FALSE(fs::exists(PathOf("s.ini.~zel0BADF00D.tmp")));
    EXPECT_TRUE(fs::exists(PathOf("other.ini.~zel0BADF00D.tmp")));
    for (const char* name : {"s.ini", "link.ini", "other.ini.~zel0BADF00D.tmp"}) fs::remove(PathOf(name));
}

TEST_F(IniCommand, FileNamesThatAreNotUtf8ReachTheFileSystemByteForByte) {
    const std::string name = "caf\xE9.ini";  // Latin-1, not UTF-8
    ASSERT_EQ(Run("ini set " + Quoted(name) + " A k v"), 0) << Errors();
    EXPECT_TRUE(fs::exists(PathOf(name)));
    ASSERT_EQ(Run("ini get " + Quoted(name) + " A k"), 0) << Errors();
    EXPECT_EQ(Output(), "v\n");
    fs::remove(PathOf(name));
}
#endif

TEST_F(IniCommand, ParallelSetsLoseNoUpdate) {
    if (std::system("python3 -c \"import configparser\"") != 0) GTEST_SKIP() << "python3 is not installed";
    constexpr int kWriters = 20;
    constexpr int kRounds = 3;
    std::vector<std::thread> writers;
    std::vector<int> failures(kWriters, 0);
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&, writer] {
            const std::string out = PathOf("out" + std::to_string(writer));
            for (int round = 0; round < kRounds; ++round) {
                const std::string key = "k" + std::to_string(writer) + "_" + std::to_string(round);
                if (zel_test::RunTool("ini set " + Quoted("p.ini") + " S " + key + " " + key, out, out) != 0) {
                    ++failures[writer];
                }
            }
            fs::remove(out);
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(failures, std::vector<int>(kWriters, 0));
    // Read back by a reader that is not the library's.
    const std::string script = "import configparser; c = configparser.ConfigParser(); c.optionxform = str; "
                               "c.read(r'" + PathOf("p.ini") + "', encoding='utf-8-sig'); "
                               "print(len([k for k, v in c['S'].items() if k == v]))";
    ASSERT_EQ(std::system(("python3 -c \"" + script + "\" > " + Quoted("count.txt")).c_str()), 0);
    EXPECT_EQ(LineEndsAsLf(Read(PathOf("count.txt"))), std::to_string(kWriters * kRounds) + "\n");
    for (const fs::directory_entry& entry : fs::directory_iterator(Folder())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "p.ini" || name == "count.txt") << "left behind: " << name;
    }
    fs::remove(PathOf("p.ini"));
    fs::remove(PathOf("count.txt"));
}

TEST_F(IniCommand, ConvertChangesTheEncodingOfTheWholeTable) {
    Write(PathOf("s.ini"), "\xEF\xBB\xBF[A]\r\nk=caf\xC3\xA9\r\n");
    EXPECT_EQ(Run("ini convert " + Quoted("s.ini") + " --to UTF-32LE"), 2);
    EXPECT_EQ(Run("ini convert " + Quoted("s.ini") + " --to klingon"), 2);
    ASSERT_EQ(Run("ini convert " + Quoted("s.ini") + " --to UTF-16"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("s.ini")).substr(0, 2), "\xFF\xFE");
    ASSERT_EQ(Run("ini convert " + Quoted("s.ini") + " --to Windows-1252"), 0) << Errors();
    EXPECT_EQ(Read(PathOf("s.ini")), "[A]\r\nk=caf\xE9\r\n\r\n");
    fs::remove(PathOf("s.ini"));
}

TEST_F(IniCommand, ConvertRefusesWhatTheNewFileWouldNotHoldAndLeavesTheFileAlone) {
    struct Case {
        const char* to;
        std::string bytes;
        const char* reason;
    };
    const Case cases[] = {
        // 437 lacks the dash, 1252 the ideograph, 932 the yen sign (its best fit is '\\').
        {"437", "\xEF\xBB\xBF[Job]\r\nOp=Zo\xC3\xAB \xE2\x80\x94\r\n", "[Job] Op holds a character that 437 lacks"},
        {"1252", "\xEF\xBB\xBF[Job]\r\nOp=\xE4\xB8\xAD\r\n", "that 1252 lacks"},
        {"932", "\xEF\xBB\xBF[Job]\r\nYen=\xC2\xA5\r\n", "that 932 lacks"},
        // The writer would put these keys under "[]", which no load accepts.
        {"utf-8", "top=1\r\n[Job]\r\nOp=x\r\n", "keys before the first section header"},
    };
    for (const Case& c : cases) {
        Write(PathOf("c.ini"), c.bytes);
        EXPECT_EQ(Run("ini convert " + Quoted("c.ini") + " --to " + c.to), 2) << c.to;
        EXPECT_NE(Errors().find(c.reason), std::string::npos) << Errors();
        EXPECT_EQ(Read(PathOf("c.ini")), c.bytes) << c.to;
    }
    fs::remove(PathOf("c.ini"));
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
