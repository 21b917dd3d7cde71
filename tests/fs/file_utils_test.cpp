// File-name rules, MIME types, the whole-file write under injected faults,
// folder probes, and the folder copy and emptying helpers.
#include "zelutils/fs/file_utils.h"

#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;
using zel_platform::SystemCall;

CZelStringW W(const char* utf8) { return CZelStringUtf8(utf8).ToWide(); }
std::string U(const CZelStringW& text) { return CZelStringUtf8(text).GetString(); }

class FileUtils : public zel_test::TempFolderTest {
protected:
    void TearDown() override {
        zel_platform::ResetSystemCalls();
        zel_test::TempFolderTest::TearDown();
    }
    CZelStringW PathW(const std::string& name) const { return W(PathOf(name).c_str()); }
    std::size_t Entries() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(Folder()), {}));
    }
};

TEST(FileNameRules, ValidityReplacementAndExportNames) {
    struct Valid {
        const char* name;
        bool valid;
    } valid[] = {{"a b.txt", true}, {"", false}, {"a:b", false}, {"a\\b", false}, {"x|", false}, {"it's", true}};
    for (const Valid& c : valid) EXPECT_EQ(zel_fs::IsValidFileName(W(c.name)), c.valid) << c.name;

    EXPECT_EQ(U(zel_fs::MakeValidFileName(W("a?b"), ZW('-'))), "a-b");
    EXPECT_EQ(U(zel_fs::MakeValidFileName(W("a?b<>"), ZW('/'))), "a_b__") << "a forbidden replacement becomes _";
    EXPECT_EQ(U(zel_fs::MakeValidFileName(W(""), ZW('x'))), "x");
    EXPECT_EQ(U(zel_fs::MakeExportName(W("it's `q`: a/b"))), "it_s _q__ a_b");
}

TEST(FileNameRules, MimeTypesByExtension) {
    struct Case {
        const char* path;
        const char* type;
    } cases[] = {
        {"JOB.ZIP", "application/zip"},       {"c:\\jobs\\a.vqf.zip", "application/zip"},
        {"a.VQFZIP", "application/zip"},      {"notes.TXT", "text/plain"},
        {"x.csv", "application/octet-stream"}, {"folder.txt\\noext", "application/octet-stream"},
        {"txt", "application/octet-stream"},
    };
    for (const Case& c : cases) EXPECT_EQ(U(zel_fs::GetMimeType(W(c.path))), c.type) << c.path;
}

TEST_F(FileUtils, FolderWritableProbeLeavesNothing) {
    EXPECT_TRUE(zel_fs::IsFolderWritable(W(Folder().string().c_str())));
    EXPECT_EQ(Entries(), 0u);
    EXPECT_FALSE(zel_fs::IsFolderWritable(PathW("missing")));
    EXPECT_FALSE(zel_fs::IsFolderWritable(CZelStringW()));
}

TEST_F(FileUtils, WholeFileWriteReplacesAndRefusesBadArguments) {
    Put("f", "a much longer old content");
    ASSERT_TRUE(zel_fs::WriteFile(PathW("f"), "new", 3, false));
    EXPECT_EQ(Get("f"), "new");
    EXPECT_FALSE(zel_fs::WriteFile(PathW("f"), "x", -1, false));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Get("f"), "new") << "a negative size touches nothing";
    std::filesystem::remove(Folder() / "f");
}

// Every failure on the way (open, write, close, a disk that fills, the size
// limit) reports its own error and leaves no file behind.
TEST_F(FileUtils, WholeFileWriteLeavesNoPartialFileOnAnyFault) {
    if (!zel_platform::FailSystemCall(SystemCall::Write, 1, EIO)) GTEST_SKIP() << "no fault injection here";
    zel_platform::ResetSystemCalls();
    const std::string content(100000, 'z');
    struct Kind {
        SystemCall call;
        int errnoValue;
        DWORD error;
    } kinds[] = {{SystemCall::Open, ENOSPC, 112}, {SystemCall::Write, EIO, 1117}, {SystemCall::Close, EIO, 1117}};
    for (const Kind& kind : kinds) {
        for (unsigned nth = 1;; ++nth) {
            ASSERT_LT(nth, 20u);
            zel_platform::ResetSystemCalls();
            zel_platform::FailSystemCall(kind.call, nth, kind.errnoValue);
            bool written = zel_fs::WriteFile(PathW("f"), content.data(), static_cast<int>(content.size()), false);
            zel_platform::ResetSystemCalls();
            if (written) break;
            EXPECT_EQ(GetLastError(), kind.error) << static_cast<int>(kind.call) << " #" << nth;
            EXPECT_EQ(Entries(), 0u) << static_cast<int>(kind.call) << " #" << nth;
        }
        EXPECT_EQ(Get("f"), content);
        std::filesystem::remove(Folder() / "f");
    }
    ASSERT_TRUE(zel_platform::ShortenWrite(1, 10, ENOSPC));
    EXPECT_FALSE(zel_fs::WriteFile(PathW("f"), content.data(), static_cast<int>(content.size()), false));
    EXPECT_EQ(GetLastError(), 112u);
    zel_platform::ResetSystemCalls();
    ASSERT_TRUE(zel_platform::SetFileSizeLimit(1000));
    bool written = zel_fs::WriteFile(PathW("f"), content.data(), static_cast<int>(content.size()), false);
    zel_platform::RestoreFileSizeLimit();
    EXPECT_FALSE(written);
    EXPECT_EQ(GetLastError(), 223u);
    EXPECT_EQ(Entries(), 0u);
}

[[noreturn]] void Finish(bool ok, const std::string& reason) {
    if (!ok) std::fprintf(stderr, "check failed: %s\n", reason.c_str());
    std::exit(ok ? 0 : 1);
}

// The log is process-wide, so its lines are checked in a child process.
TEST_F(FileUtils, FailuresAreLoggedWithTheirTexts) {
    EXPECT_EXIT(
        {
            std::vector<std::string> lines;
            zel_platform::SetDebugOutputSink([&](LPCWSTR text) { lines.push_back(U(CZelStringW(text))); });
            zel::folders::GetApplicationFileNameBuilder().SetDataFolder(W(Folder().string().c_str()), 0);
            CZelStringW missing = PathW("no/such/f");
            zel_fs::WriteFile(nullptr, "x", 1, false);
            zel_fs::WriteFile(missing, nullptr, 1, false);
            zel_fs::WriteFile(missing, "x", 1, true);
            zel_fs::WriteFile(missing, "x", 1, false);
            // Short writes can only be injected where the emulation is in force.
            bool shortened = zel_platform::ShortenWrite(1, 1, ENOSPC);
            if (shortened) zel_fs::WriteFile(PathW("short"), "xyz", 3, true);
            zel_platform::ResetSystemCalls();
            bool enough = zel_fs::HasFreeMemory(0) && !zel_fs::HasFreeMemory(UINT64_MAX);
            std::string all;
            for (const std::string& line : lines) all += line;
            std::string m = U(missing);
            bool ok = all.find("WriteFile: empty fileName\r\n") != std::string::npos &&
                      all.find("WriteFile \"" + m + "\": empty buffer\r\n") != std::string::npos &&
                      all.find("WriteFile \"" + m + "\": open error 3\r\n") != std::string::npos &&
                      all.find("open error", all.find("open error 3") + 1) == std::string::npos &&
                      (!shortened || all.find("\": written 1, expected 3 bytes\r\n") != std::string::npos) &&
                      all.find(", needed: 18446744073709551615\r\n") != std::string::npos && enough;
            Finish(ok, all);
        },
        ::testing::ExitedWithCode(0), "");
    std::filesystem::remove_all(Folder());
    std::filesystem::create_directory(Folder());
}

TEST_F(FileUtils, CopyAndEmptyFoldersNeverLeaveTheFolder) {
    std::filesystem::create_directories(Folder() / "src/sub");
    std::filesystem::create_directory(Folder() / "outside");
    Put("outside/keep", "k");
    Put("src/a", "A");
    Put("src/b", "B");
    Put("src/sub/c", "C");
    ASSERT_TRUE(SetFileAttributesW(PathW("src/sub/c").GetString(), FILE_ATTRIBUTE_READONLY));
    ASSERT_TRUE(zel_fs::CopyFolderFiles(PathW("src"), PathW("dst/deep")));
    EXPECT_EQ(Get("dst/deep/a"), "A");
    EXPECT_EQ(Get("dst/deep/b"), "B");
    EXPECT_FALSE(std::filesystem::exists(Folder() / "dst/deep/sub")) << "files only";
    EXPECT_FALSE(zel_fs::CopyFolderFiles(PathW("missing"), PathW("dst")));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));

    std::error_code linkError;
    std::filesystem::create_directory_symlink(Folder() / "outside", Folder() / "src/sub/link", linkError);
    ASSERT_TRUE(zel_fs::EmptyFolder(PathW("src")));
    EXPECT_TRUE(std::filesystem::is_empty(Folder() / "src")) << "read-only files included";
    EXPECT_EQ(Get("outside/keep"), "k") << "a link inside is removed, not followed";
    EXPECT_FALSE(zel_fs::EmptyFolder(PathW("missing")));
    ASSERT_TRUE(zel_fs::EmptyFolder(W(Folder().string().c_str())));
    EXPECT_EQ(Entries(), 0u);
}

}  // namespace
