// Replacing whole files: what the replacement keeps of the old file, what it
// refuses to touch, and that no failing step leaves a torn target or a
// temporary file behind.
#include "zelutils/fs/atomic_file.h"

#include "tests/support/temp_folder.h"
#include "tests/support/wine.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

using zel_text::CZelStringW;

namespace {

class AtomicFile : public zel_test::TempFolderTest {
protected:
    void TearDown() override {
        zel_platform::ResetSystemCalls();
        zel_test::TempFolderTest::TearDown();
    }

    CZelStringW PathW(const std::string& name) const {
        return zel_text::CZelStringUtf8(PathOf(name).c_str()).ToWide();
    }

    static bool Replace(const CZelStringW& path, const std::string& content) {
        return zel_fs::ReplaceFileAtomically(path, [&](HANDLE file) {
            DWORD written = 0;
            return WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr) != FALSE;
        });
    }

    long Entries() const {
        return static_cast<long>(std::distance(std::filesystem::directory_iterator(Folder()), {}));
    }
};

}  // namespace

TEST_F(AtomicFile, CreatesAndReplacesThroughATemporaryNameOfItsOwn) {
    // The folder alone is longer than MAX_PATH: the temporary name is the
    // helper's own, so no MAX_PATH rule applies to it.
    if (!zel_platform::kEmulated && !zel_test::RunningUnderWine()) {
        GTEST_SKIP() << "Windows refuses paths past MAX_PATH without the \\\\?\\ prefix";
    }
    std::string deep = "d";
    for (int i = 0; i < 6; ++i) deep += "/" + std::string(50, static_cast<char>('a' + i));
    std::filesystem::create_directories(Folder() / deep);
    std::string name = deep + "/settings.ini";
    ASSERT_GT(PathOf(name).size(), static_cast<std::size_t>(MAX_PATH));

    ASSERT_TRUE(Replace(PathW(name), "first")) << GetLastError();
    ASSERT_TRUE(Replace(PathW(name), "second")) << GetLastError();
    EXPECT_EQ(Get(name), "second");
    // Listed and removed through the Win32 calls: MinGW's std::filesystem
    // stops at MAX_PATH.
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(PathW(deep + "/*").GetString(), &found);
    ASSERT_NE(search, INVALID_HANDLE_VALUE) << GetLastError();
    int entries = 0;
    do {
        if (found.cFileName[0] != '.') ++entries;  // neither "." nor ".."
    } while (FindNextFileW(search, &found));
    FindClose(search);
    EXPECT_EQ(entries, 1) << "no temporary file left";
    EXPECT_TRUE(DeleteFileW(PathW(name).GetString()));
    for (std::size_t cut = deep.size(); cut != std::string::npos; cut = deep.rfind('/', cut - 1)) {
        EXPECT_TRUE(RemoveDirectoryW(PathW(deep.substr(0, cut)).GetString())) << deep.substr(0, cut);
    }
}

TEST_F(AtomicFile, KeepsTheModeAndReplacesTheTargetOfALink) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "modes and links are POSIX facilities here";
    namespace fs = std::filesystem;
    fs::create_directory(Folder() / "real");
    Put("real/target.ini", "old");
    fs::permissions(Folder() / "real/target.ini", fs::perms::owner_read | fs::perms::owner_write |
                                                       fs::perms::group_read | fs::perms::others_read);
    fs::create_symlink("real/target.ini", Folder() / "link.ini");  // relative to the link's folder

    ASSERT_TRUE(Replace(PathW("link.ini"), "new")) << GetLastError();
    EXPECT_TRUE(fs::is_symlink(Folder() / "link.ini"));
    EXPECT_EQ(Get("real/target.ini"), "new");
    EXPECT_EQ(fs::status(Folder() / "real/target.ini").permissions(), fs::perms(0644));
    EXPECT_EQ(std::distance(fs::directory_iterator(Folder() / "real"), {}), 1);

    fs::create_symlink("loop.ini", Folder() / "loop.ini");
    EXPECT_FALSE(Replace(PathW("loop.ini"), "new"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CANT_RESOLVE_FILENAME));
    fs::remove_all(Folder() / "real");
    fs::remove(Folder() / "link.ini");
    fs::remove(Folder() / "loop.ini");
}

TEST_F(AtomicFile, WhatIsNoRegularFileOrAFailedWriterLeavesAllUntouched) {
    std::filesystem::create_directory(Folder() / "folder");
    EXPECT_FALSE(Replace(PathW("folder"), "x"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(std::filesystem::is_directory(Folder() / "folder"));
    std::filesystem::remove(Folder() / "folder");
    Put("read-only.ini", "old");
    ASSERT_TRUE(SetFileAttributesW(PathW("read-only.ini").GetString(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(Replace(PathW("read-only.ini"), "x"));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(Get("read-only.ini"), "old");
    EXPECT_EQ(Entries(), 1) << "no temporary file left";
    ASSERT_TRUE(SetFileAttributesW(PathW("read-only.ini").GetString(), FILE_ATTRIBUTE_NORMAL));
    std::filesystem::remove(Folder() / "read-only.ini");

    if (zel_platform::kEmulated) {
        EXPECT_FALSE(Replace(CZelStringW(ZW("/dev/null")), "x"));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    }

    Put("keep.ini", "old");
    EXPECT_FALSE(zel_fs::ReplaceFileAtomically(PathW("keep.ini"), [](HANDLE) { return false; }));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_WRITE_FAULT)) << "a writer without a reason";
    EXPECT_EQ(Get("keep.ini"), "old");
    EXPECT_EQ(Entries(), 1);
    std::filesystem::remove(Folder() / "keep.ini");
}

TEST_F(AtomicFile, EveryFailingCallKeepsTheFirstErrorAndNeverTearsTheTarget) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "fault injection is a facility of the POSIX layer";
    using zel_platform::SystemCall;
    std::filesystem::create_symlink("target.ini", Folder() / "link.ini");
    const SystemCall kinds[] = {SystemCall::Open,     SystemCall::Close,      SystemCall::Write,
                                SystemCall::Sync,     SystemCall::Stat,       SystemCall::Rename,
                                SystemCall::ReadLink, SystemCall::ChangeMode, SystemCall::ChangeOwner};
    for (SystemCall kind : kinds) {
        // Fail the 1st, 2nd, ... call of the kind until the replacement no
        // longer reaches the armed call.
        for (unsigned nth = 1;; ++nth) {
            std::string step = "call kind " + std::to_string(static_cast<int>(kind)) + " #" + std::to_string(nth);
            Put("target.ini", "old");
            zel_platform::ResetSystemCalls();
            ASSERT_TRUE(zel_platform::FailSystemCall(kind, nth, EIO));
            bool replaced = Replace(PathW("link.ini"), "new");
            DWORD error = GetLastError();
            bool reached = zel_platform::SystemCallCount(kind) >= nth;
            zel_platform::ResetSystemCalls();
            EXPECT_EQ(Entries(), 2) << "a temporary file was left after " << step;
            if (!reached) {
                EXPECT_TRUE(replaced) << step;
                break;
            }
            if (replaced) {
                EXPECT_EQ(Get("target.ini"), "new") << step;
                continue;
            }
            EXPECT_EQ(error, static_cast<DWORD>(ERROR_IO_DEVICE)) << step;
            // Only the folder's flush (its open, its sync) comes after the rename.
            bool renamed = (kind == SystemCall::Open || kind == SystemCall::Sync) && nth == 2;
            EXPECT_EQ(Get("target.ini"), renamed ? "new" : "old") << step;
        }
    }
    std::filesystem::remove(Folder() / "target.ini");
    std::filesystem::remove(Folder() / "link.ini");
}
