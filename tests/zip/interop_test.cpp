// Archives exchanged with Info-ZIP zip/unzip and Python's zipfile: theirs
// extract byte for byte, ours pass their tests (encrypted ones included) and
// keep UTF-8 names and Unix modes; scripts stay executable both ways.
// Skipped where the tools are missing.
#include "zelutils/zip/unzip_archive.h"
#include "zelutils/zip/zip_archive.h"

#include "zelutils/text/zel_utf.h"

#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

namespace {

using zel_zip::WString;

WString W(const std::string& utf8) {
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8(utf8.c_str()).ToWide();
    return WString(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
}

bool HaveTools() {
#ifdef _WIN32
    return false;
#else
    return std::system("command -v zip && command -v unzip && command -v zipinfo && command -v python3 >/dev/null 2>&1") == 0;
#endif
}

class ZipInterop : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        zel_test::TempFolderTest::SetUp();
        if (!HaveTools()) GTEST_SKIP() << "zip, unzip or python3 missing";
        std::mt19937 random(7);
        for (char& c : binary_) c = static_cast<char>(random());
        std::filesystem::create_directories(Folder() / "src/empty");
        std::filesystem::create_directories(Folder() / "src/sub");
        Put("src/text.txt", std::string(50000, 't') + "end\n");
        Put("src/sub/binary.bin", binary_);
        Put("src/sub/n\xC3\xA4me \xE2\x82\xAC.txt", "utf-8 named\n");
        Put("src/run.sh", "#!/bin/sh\n");
        std::filesystem::permissions(Folder() / "src/run.sh", std::filesystem::perms::owner_exec,
                                     std::filesystem::perm_options::add);
    }
    void TearDown() override {
        std::filesystem::remove_all(Folder() / "src");
        std::filesystem::remove_all(Folder() / "out");
        std::filesystem::remove_all(Folder() / "their");
        for (const char* name : {"a.zip", "a12.zip", "a14.zip", "listing"}) std::filesystem::remove(Folder() / name);
        zel_test::TempFolderTest::TearDown();
    }
    // Runs a shell command in Folder(); its output goes to the file "listing".
    int Shell(const std::string& command) const {
        return std::system(("cd '" + Folder().string() + "' && " + command + " > listing 2>&1").c_str());
    }
    void ExpectSameTree(const std::string& extracted) const {
        EXPECT_TRUE(Get(extracted + "/src/text.txt") == Get("src/text.txt"));
        EXPECT_TRUE(Get(extracted + "/src/sub/binary.bin") == binary_);
        EXPECT_EQ(Get(extracted + "/src/sub/n\xC3\xA4me \xE2\x82\xAC.txt"), "utf-8 named\n");
        auto executable = [&](const char* name) {
            auto permissions = std::filesystem::status(Folder() / extracted / name).permissions();
            return (permissions & std::filesystem::perms::owner_exec) != std::filesystem::perms::none;
        };
        EXPECT_TRUE(executable("src/run.sh")) << "a script stays executable";
        EXPECT_FALSE(executable("src/text.txt"));
    }

    std::string binary_ = std::string(70000, '\0');
};

TEST_F(ZipInterop, TheirArchivesExtractByteForByte) {
    const char* makers[] = {
        "zip -q -r -0 a.zip src", "zip -q -r -9 a.zip src", "zip -q -r -P 'pass word' a.zip src",
        "python3 -c \"import zipfile,os\nwith zipfile.ZipFile('a.zip','w',zipfile.ZIP_DEFLATED) as z:\n"
        " [z.write(os.path.join(d,f)) for d,_,fs in os.walk('src') for f in fs]\"",
    };
    for (const char* maker : makers) {
        SCOPED_TRACE(maker);
        std::filesystem::remove(Folder() / "a.zip");
        ASSERT_EQ(Shell(maker), 0) << Get("listing");
        zel_zip::CUnZipArchive unzip;
        ASSERT_TRUE(unzip.Open(W(PathOf("a.zip")).c_str()));
        unzip.SetDestinationFolder(W(PathOf("out")));
        ASSERT_TRUE(unzip.ExtractAll(true, true, "pass word")) << zel_text::CZelStringUtf8(unzip.GetErrorText().c_str()).GetString();
        ExpectSameTree("out");
        if (std::string(maker).find("-r -0") != std::string::npos) {
            EXPECT_TRUE(std::filesystem::is_directory(Folder() / "out/src/empty")) << "empty folders come along";
        }
        unzip.Close();
        std::filesystem::remove_all(Folder() / "out");
    }
}

// A link stored by zip -y comes out as a file holding the link's target, so
// later entries or writes cannot follow it out of the folder.
TEST_F(ZipInterop, StoredLinksExtractAsFilesHoldingTheirTarget) {
    std::filesystem::create_directory_symlink("/etc", Folder() / "src/link");
    ASSERT_EQ(Shell("zip -q -r -y a.zip src"), 0) << Get("listing");
    zel_zip::CUnZipArchive unzip;
    ASSERT_TRUE(unzip.Open(W(PathOf("a.zip")).c_str()));
    unzip.SetDestinationFolder(W(PathOf("out")));
    ASSERT_TRUE(unzip.ExtractAll(true, true, nullptr));
    EXPECT_FALSE(std::filesystem::is_symlink(Folder() / "out/src/link"));
    EXPECT_EQ(Get("out/src/link"), "/etc");
    unzip.Close();
}

TEST_F(ZipInterop, OurArchivesPassTheirTestsAndKeepNamesAndModes) {
    for (const char* password : {static_cast<const char*>(nullptr), "pass word"}) {
        SCOPED_TRACE(password ? "encrypted" : "plain");
        {
            zel_zip::CZipArchive zip;
            ASSERT_TRUE(zip.Open(W(PathOf("a.zip")).c_str(), 0));
            ASSERT_TRUE(zip.AddFolder(W(PathOf("src")).c_str(), W("src").c_str(), 6, password));
            ASSERT_TRUE(zip.Close("made by the tests"));
        }
        std::string pass = password ? " -P 'pass word'" : "";
        EXPECT_EQ(Shell("unzip -t" + pass + " a.zip"), 0) << Get("listing");
        if (!password) {
            EXPECT_EQ(Shell("python3 -m zipfile -t a.zip"), 0) << Get("listing");
        }
        ASSERT_EQ(Shell("unzip -q" + pass + " a.zip -d their"), 0) << Get("listing");
        ExpectSameTree("their");
        ASSERT_EQ(Shell("zipinfo a.zip"), 0);
        EXPECT_NE(Get("listing").find("-rw-r--r--  3.0 unx"), std::string::npos) << Get("listing");
        EXPECT_NE(Get("listing").find("-rwxr-xr-x  3.0 unx"), std::string::npos) << Get("listing");
        std::filesystem::remove_all(Folder() / "their");
    }
}

// minizip hands out bzip2 data undecoded: such entries, and LZMA ones, fail
// to open as a damaged entry does, and leave no file.
TEST_F(ZipInterop, EntriesInOtherMethodsFailToOpenAndLeaveNoFile) {
    ASSERT_EQ(Shell("python3 -c \"import zipfile\nfor m in (zipfile.ZIP_BZIP2, zipfile.ZIP_LZMA):\n"
                    " with zipfile.ZipFile('a%d.zip' % m, 'w', m) as z: z.writestr('x.txt', 'x' * 5000)\""),
              0)
        << Get("listing");
    for (const char* name : {"a12.zip", "a14.zip"}) {
        SCOPED_TRACE(name);
        zel_zip::CUnZipArchive unzip;
        ASSERT_TRUE(unzip.Open(W(PathOf(name)).c_str()));
        unzip.SetDestinationFolder(W(PathOf("out")));
        EXPECT_FALSE(unzip.ExtractAll(false, true, nullptr));
        EXPECT_NE(unzip.GetErrorText().find(W("error opening password protected file")), WString::npos);
        EXPECT_FALSE(unzip.WasRefused());
        EXPECT_FALSE(std::filesystem::exists(Folder() / "out/x.txt"));
    }
}

}  // namespace
