// ZIP64: an entry over 4 GB (stored, from a sparse source) and an archive of
// more than 65,535 entries, written and read back. Run by `make test-large`
// (ZEL_TEST_LARGE=1); skipped otherwise.
#include "zelutils/fs/platform_file.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/unzip_archive.h"
#include "zelutils/zip/zip_archive.h"

#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

zel_zip::WString W(const std::string& utf8) {
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8(utf8.c_str()).ToWide();
    return zel_zip::WString(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
}

class ZipLarge : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        zel_test::TempFolderTest::SetUp();
        if (std::getenv("ZEL_TEST_LARGE") == nullptr) GTEST_SKIP() << "set ZEL_TEST_LARGE=1 (make test-large)";
    }
    void TearDown() override {
        std::filesystem::remove_all(Folder() / "out");
        for (const char* name : {"big", "a.zip", "small"}) std::filesystem::remove(Folder() / name);
        zel_test::TempFolderTest::TearDown();
    }
};

TEST_F(ZipLarge, AnEntryOverFourGigabytesRoundTrips) {
    const std::uint64_t size = (std::uint64_t{9} << 29) + 12345;  // 4.5 GB and a bit
    {
        HANDLE file = zel_fs::file_open(W(PathOf("big")).c_str(), zel_fs::FO_CREATE_WRITE);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        ASSERT_EQ(zel_fs::file_seek(file, 0, static_cast<std::int64_t>(size - 4)), size - 4);
        ASSERT_EQ(zel_fs::file_write(file, "tail", 4), 4);
        zel_fs::file_close(file);
    }
    zel_zip::CZipArchive zip;
    ASSERT_TRUE(zip.Open(W(PathOf("a.zip")).c_str(), 0));
    ASSERT_TRUE(zip.AddFile(W(PathOf("big")).c_str(), W("big").c_str(), 0, nullptr, false)) << zip.GetErrorCode();
    ASSERT_TRUE(zip.Close());
    std::filesystem::remove(Folder() / "big");

    zel_zip::CUnZipArchive unzip;
    ASSERT_TRUE(unzip.Open(W(PathOf("a.zip")).c_str()));
    ASSERT_TRUE(unzip.ReadContent());
    ASSERT_EQ(unzip.GetEntryCount(), 1u);
    EXPECT_EQ(unzip.GetEntries()[0].info.uncompressedSize, size);
    unzip.SetDestinationFolder(W(PathOf("out")));
    ASSERT_TRUE(unzip.ExtractAll(false, true, nullptr));
    EXPECT_EQ(std::filesystem::file_size(Folder() / "out/big"), size);
    std::ifstream in(Folder() / "out/big", std::ios::binary);
    in.seekg(static_cast<std::streamoff>(size - 4));
    char tail[4] = {};
    in.read(tail, 4);
    EXPECT_EQ(std::string(tail, 4), "tail");
}

TEST_F(ZipLarge, MoreThan65535EntriesRoundTrip) {
    constexpr int kEntries = 70000;
    std::ofstream(Folder() / "small") << "s";
    zel_zip::CZipArchive zip;
    ASSERT_TRUE(zip.Open(W(PathOf("a.zip")).c_str(), 0));
    for (int i = 0; i < kEntries; ++i) {
        ASSERT_TRUE(zip.AddFile(W(PathOf("small")).c_str(), W("e" + std::to_string(i)).c_str(), 0, nullptr, false));
    }
    ASSERT_TRUE(zip.Close());
    zel_zip::CUnZipArchive unzip;
    ASSERT_TRUE(unzip.Open(W(PathOf("a.zip")).c_str()));
    ASSERT_TRUE(unzip.ReadContent()) << zel_text::CZelStringUtf8(unzip.GetErrorText().c_str()).GetString();
    ASSERT_EQ(unzip.GetEntryCount(), static_cast<std::size_t>(kEntries));
    EXPECT_TRUE(unzip.Extract(W("e69999"), W(PathOf("out/last")).c_str(), false, true, nullptr));
    EXPECT_EQ(std::filesystem::file_size(Folder() / "out/last"), 1u);
}

}  // namespace
