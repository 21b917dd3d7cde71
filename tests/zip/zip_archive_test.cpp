// Zip archives written and read back, their error texts, hostile archives
// (zip slip, links, lying sizes, overlapping entries, bombs), faults on the
// way, and the archives of other tools.
#include "zelutils/zip/unzip_archive.h"
#include "zelutils/zip/zip_archive.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

using zel_text::CZelStringUtf8;
using zel_zip::CUnZipArchive;
using zel_zip::CZipArchive;
using zel_zip::WString;

WString W(const std::string& utf8) {
    zel_text::CZelStringW wide = CZelStringUtf8(utf8.c_str()).ToWide();
    return WString(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
}
std::string U(const WString& text) { return CZelStringUtf8(text.c_str()).GetString(); }

std::string RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

// A hand-made archive of stored entries, for what no honest tool writes.
struct RawEntry {
    std::string name;
    std::string data;
    long long declaredSize = -1;  // the size the central record claims; -1: the true one
    bool wrongCrc = false;
    int sharesDataOf = -1;  // points the central record at an earlier entry's local header
};

unsigned long Crc32(const std::string& data) {
    unsigned long crc = 0xFFFFFFFFul;
    for (unsigned char byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320ul & (0ul - (crc & 1)));
    }
    return crc ^ 0xFFFFFFFFul;
}

void Put16(std::string& out, unsigned value) {
    out += static_cast<char>(value & 0xFF);
    out += static_cast<char>((value >> 8) & 0xFF);
}
void Put32(std::string& out, unsigned long value) {
    Put16(out, value & 0xFFFF);
    Put16(out, (value >> 16) & 0xFFFF);
}

std::string RawArchive(const std::vector<RawEntry>& entries) {
    std::string archive, central;
    std::vector<unsigned long> offsets;
    for (const RawEntry& e : entries) {
        unsigned long crc = Crc32(e.data);
        if (e.wrongCrc) crc ^= 1;
        unsigned long size = e.declaredSize < 0 ? e.data.size() : static_cast<unsigned long>(e.declaredSize);
        offsets.push_back(archive.size());
        archive += "PK\3\4";
        Put16(archive, 10), Put16(archive, 0), Put16(archive, 0), Put32(archive, 0x21000000);
        Put32(archive, crc), Put32(archive, e.data.size()), Put32(archive, size);
        Put16(archive, static_cast<unsigned>(e.name.size())), Put16(archive, 0);
        archive += e.name + e.data;
        central += "PK\1\2";
        Put16(central, 0x031E), Put16(central, 10), Put16(central, 0), Put16(central, 0), Put32(central, 0x21000000);
        Put32(central, crc), Put32(central, e.data.size()), Put32(central, size);
        Put16(central, static_cast<unsigned>(e.name.size())), Put16(central, 0), Put16(central, 0);
        Put16(central, 0), Put16(central, 0), Put32(central, 0100644ul << 16);
        Put32(central, e.sharesDataOf < 0 ? offsets.back() : offsets[static_cast<std::size_t>(e.sharesDataOf)]);
        central += e.name;
    }
    std::string end = "PK\5\6";
    Put16(end, 0), Put16(end, 0), Put16(end, static_cast<unsigned>(entries.size()));
    Put16(end, static_cast<unsigned>(entries.size())), Put32(end, central.size()), Put32(end, archive.size());
    Put16(end, 0);
    return archive + central + end;
}

class ZipArchiveTest : public zel_test::TempFolderTest {
protected:
    void TearDown() override {
        zel_platform::ResetSystemCalls();
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        }
        std::filesystem::remove_all(Folder() / "out", ignored);
        zel_test::TempFolderTest::TearDown();
    }
    WString P(const std::string& name) const { return W(PathOf(name)); }
    // Writes an archive of (name in archive, source file) pairs.
    void Write(const std::string& archive, const std::vector<std::pair<std::string, std::string>>& files,
               int level = 6, const char* password = nullptr) const {
        CZipArchive zip;
        ASSERT_TRUE(zip.Open(P(archive).c_str(), 0));
        for (const auto& [name, source] : files) {
            ASSERT_TRUE(zip.AddFile(P(source).c_str(), W(name).c_str(), level, password, false))
                << U(zip.GetErrorText());
        }
        ASSERT_TRUE(zip.Close("comment"));
    }
    // Opens archive for extraction into Folder()/out.
    void OpenForExtraction(CUnZipArchive& unzip, const std::string& archive) const {
        ASSERT_TRUE(unzip.Open(P(archive).c_str())) << U(unzip.GetErrorText());
        unzip.SetDestinationFolder(P("out"));
    }
    bool ExistsUnderOut(const std::string& name) const { return std::filesystem::exists(Folder() / "out" / name); }
    std::string Error(const CUnZipArchive& unzip, const std::string& archive) const {
        std::string prefix = PathOf(archive) + " archive error: ";
        std::string text = U(unzip.GetErrorText());
        return text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : "(unframed) " + text;
    }
};

TEST_F(ZipArchiveTest, WrittenEntriesReadBackByteForByte) {
    const std::string text(200000, 'x'), random = RandomBytes(100000, 1);
    Put("text.txt", text);
    Put("random.bin", random);
    Put("empty", "");
    std::filesystem::last_write_time(Folder() / "text.txt",
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 400));
    for (const char* password : {static_cast<const char*>(nullptr), "sécret"}) {
        for (int level : {0, 6}) {
            SCOPED_TRACE(std::to_string(level) + (password ? " encrypted" : ""));
            Write("a.zip", {{"\\data\\text.txt", "text.txt"}, {"bin/ümlaut.bin", "random.bin"}, {"empty", "empty"}},
                  level, password);
            CUnZipArchive unzip;
            OpenForExtraction(unzip, "a.zip");
            ASSERT_TRUE(unzip.ReadContent());
            ASSERT_EQ(unzip.GetEntryCount(), 3u);
            const zel_zip::ZipEntry& first = unzip.GetEntries()[0];
            EXPECT_EQ(U(first.name), "data/text.txt");
            EXPECT_EQ(first.info.compressionMethod, level == 0 ? 0u : 8u);
            EXPECT_EQ(first.info.flags & 1u, password ? 1u : 0u);
            EXPECT_EQ(unzip.GetEntries()[1].info.flags & 0x800u, 0x800u) << "UTF-8 name flagged";
            EXPECT_EQ(unzip.GetEntries()[1].info.versionMadeBy >> 8, 3u) << "Unix host";
            ASSERT_TRUE(unzip.ExtractAll(true, true, password)) << U(unzip.GetErrorText());
            EXPECT_TRUE(Get("out/data/text.txt") == text);
            EXPECT_TRUE(Get("out/bin/ümlaut.bin") == random);
            EXPECT_EQ(Get("out/empty"), "");
            auto age = std::filesystem::last_write_time(Folder() / "text.txt") -
                       std::filesystem::last_write_time(Folder() / "out/data/text.txt");
            EXPECT_LE(std::chrono::abs(age), std::chrono::seconds(2)) << "DOS time restored";
            // One entry by name: found case-insensitively in the archive when
            // not in the list as given.
            CUnZipArchive single;
            OpenForExtraction(single, "a.zip");
            EXPECT_FALSE(single.Extract(W("data/text.txt"), P("one.txt").c_str(), false, true, password));
            EXPECT_EQ(Error(single, "a.zip"), "attempt to unpack an empty archive") << "the list was never read";
            ASSERT_TRUE(single.ReadContent());
            EXPECT_TRUE(single.Extract(W("DATA/TEXT.TXT"), P("one.txt").c_str(), false, true, password))
                << U(single.GetErrorText());
            EXPECT_TRUE(Get("one.txt") == text);
            std::filesystem::remove(Folder() / "one.txt");
            std::filesystem::remove_all(Folder() / "out");
        }
    }
    for (const char* name : {"text.txt", "random.bin", "empty", "a.zip"}) std::filesystem::remove(Folder() / name);
}

TEST_F(ZipArchiveTest, NamesFoldersAndAddingToAnArchive) {
    std::filesystem::create_directories(Folder() / "tree/sub/deeper");
    Put("tree/a.txt", "A");
    Put("tree/sub/b.txt", "B");
    Put("tree/sub/deeper/c.txt", "C");
    CZipArchive zip;
    ASSERT_TRUE(zip.Open(P("tree/self.zip").c_str(), 0));
    ASSERT_TRUE(zip.AddFolder(P("tree").c_str(), W("top").c_str(), 6));
    ASSERT_TRUE(zip.AddFile(P("tree/a.txt").c_str(), W("x/y/junked.txt").c_str(), 6, nullptr, true));
    ASSERT_TRUE(zip.AddFolder(P("tree/a.txt").c_str(), nullptr, 6)) << "a plain file is one entry";
    EXPECT_FALSE(zip.AddFile(P("missing").c_str(), W("m").c_str(), 6, nullptr, false));
    EXPECT_EQ(U(zip.GetErrorText()), PathOf("tree/self.zip") + " archive error: error in opening source file for reading.");
    EXPECT_EQ(zip.GetErrorCode(), -1);
    ASSERT_TRUE(zip.Close());

    ASSERT_TRUE(zip.Open(P("tree/self.zip").c_str(), CZipArchive::kAddToArchive));
    ASSERT_TRUE(zip.AddFile(P("tree/a.txt").c_str(), W("added").c_str(), 0, nullptr, false));
    ASSERT_TRUE(zip.Close());
    CUnZipArchive unzip;
    ASSERT_TRUE(unzip.Open(P("tree/self.zip").c_str()));
    ASSERT_TRUE(unzip.ReadContent());
    std::vector<std::string> names;
    for (const auto& entry : unzip.GetEntries()) names.push_back(U(entry.name));
    EXPECT_EQ(names, (std::vector<std::string>{"top/a.txt", "top/sub/b.txt", "top/sub/deeper/c.txt", "junked.txt",
                                               "a.txt", "added"}))
        << "the archive itself is skipped";
    unzip.Close();

    ASSERT_TRUE(zip.Open(P("tree/self.zip").c_str(), 0));
    ASSERT_TRUE(zip.Close());
    ASSERT_TRUE(unzip.Open(P("tree/self.zip").c_str())) << "an archive without entries opens";
    EXPECT_TRUE(unzip.ReadContent());
    EXPECT_EQ(unzip.GetEntryCount(), 0u);
    EXPECT_TRUE(unzip.ExtractAll(false, true, nullptr));
    EXPECT_FALSE(unzip.Extract(W("a"), nullptr, false, true, nullptr));
    EXPECT_EQ(Error(unzip, "tree/self.zip"), "attempt to unpack an empty archive");
    EXPECT_EQ(unzip.GetErrorCode(), 0);
    ASSERT_TRUE(zip.Open(P("tree/self.zip").c_str(), CZipArchive::kAddToArchive)) << "adding to an empty one";
    ASSERT_TRUE(zip.AddFile(P("tree/a.txt").c_str(), W("a").c_str(), 6, nullptr, false));
    ASSERT_TRUE(zip.Close());
    std::filesystem::remove_all(Folder() / "tree");
}

TEST_F(ZipArchiveTest, ExtractionFailuresKeepTheirWordingAndTheOldFile) {
    Put("a.txt", "new content");
    Write("a.zip", {{"a.txt", "a.txt"}, {"dir/", "a.txt"}}, 6, "right");
    std::filesystem::create_directory(Folder() / "out");
    Put("out/a.txt", "old");
    CUnZipArchive unzip;
    OpenForExtraction(unzip, "a.zip");
    ASSERT_TRUE(unzip.ReadContent());
    EXPECT_FALSE(unzip.Extract(W("a.txt"), nullptr, false, true, "right"));
    EXPECT_EQ(Error(unzip, "a.zip"), "filepath for extraction already exists");
    EXPECT_EQ(unzip.GetErrorCode(), -1);
    for (const char* password : {"wrong", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(unzip.Extract(W("a.txt"), nullptr, true, true, password));
        EXPECT_EQ(Error(unzip, "a.zip"), "error opening password protected file");
    }
    EXPECT_EQ(Get("out/a.txt"), "old");
    EXPECT_TRUE(unzip.Extract(W("dir/"), nullptr, false, true, "right"));
    EXPECT_TRUE(std::filesystem::is_directory(Folder() / "out/dir"));
    EXPECT_TRUE(std::filesystem::is_empty(Folder() / "out/dir")) << "a folder entry makes the folder only";
    EXPECT_TRUE(unzip.Extract(W("a.txt"), P("out/new/deep/a.txt").c_str(), false, true, "right"));
    EXPECT_EQ(Get("out/new/deep/a.txt"), "new content");

    Put("junk.zip", "PK\3\4 this is no archive");
    EXPECT_FALSE(unzip.Open(P("junk.zip").c_str()));
    EXPECT_EQ(Error(unzip, "junk.zip"), "error opening archive");
    for (const char* name : {"a.txt", "a.zip", "junk.zip"}) std::filesystem::remove(Folder() / name);
}

// Nothing an archive says may put a byte outside the destination folder.
TEST_F(ZipArchiveTest, HostileNamesAndLinksAreRefusedBeforeAnythingIsWritten) {
    std::filesystem::create_directories(Folder() / "out");
    std::filesystem::create_directories(Folder() / "outside");
    const char* names[] = {"../evil", "a/../../evil", "a\\..\\..\\evil", "/tmp/evil", "\\evil", "C:evil", "c:/evil", ".."};
    for (const char* name : names) {
        Put("bad.zip", RawArchive({{"fine", "y"}, {name, "x"}}));
        CUnZipArchive unzip;
        OpenForExtraction(unzip, "bad.zip");
        EXPECT_FALSE(unzip.ExtractAll(true, true, nullptr)) << name;
        EXPECT_TRUE(unzip.WasRefused()) << name;
        EXPECT_EQ(Error(unzip, "bad.zip"), std::string("entry name leaves the destination folder: ") + name);
        EXPECT_TRUE(std::filesystem::is_empty(Folder() / "out")) << name;
    }
    std::error_code linkError;
    std::filesystem::create_directory_symlink(Folder() / "outside", Folder() / "out/link", linkError);
    if (!linkError) {
        Put("bad.zip", RawArchive({{"link/evil", "x"}}));
        CUnZipArchive unzip;
        OpenForExtraction(unzip, "bad.zip");
        EXPECT_FALSE(unzip.ExtractAll(true, true, nullptr));
        EXPECT_EQ(Error(unzip, "bad.zip"), "entry path runs through a symbolic link: link/evil");
        std::filesystem::remove(Folder() / "out/link");
    }
    EXPECT_TRUE(std::filesystem::is_empty(Folder() / "outside"));
    std::filesystem::remove(Folder() / "outside");
    std::filesystem::remove(Folder() / "bad.zip");
}

#ifndef _WIN32
// A FIFO would block the writer until someone writes into it: a folder's is
// left out, and one named alone is refused.
TEST_F(ZipArchiveTest, FifosAreNotReadFromAFolderNorAlone) {
    std::filesystem::create_directories(Folder() / "tree");
    Put("tree/a", "a");
    ASSERT_EQ(mkfifo(PathOf("tree/fifo").c_str(), 0600), 0);
    CZipArchive zip;
    ASSERT_TRUE(zip.Open(P("t.zip").c_str(), 0));
    EXPECT_TRUE(zip.AddFolder(P("tree").c_str(), nullptr, 6)) << U(zip.GetErrorText());
    EXPECT_FALSE(zip.AddFile(P("tree/fifo").c_str(), W("fifo").c_str(), 6, nullptr, false));
    EXPECT_EQ(U(zip.GetErrorText()), PathOf("t.zip") + " archive error: error in opening source file for reading.");
    ASSERT_TRUE(zip.Close());
    CUnZipArchive unzip;
    OpenForExtraction(unzip, "t.zip");
    ASSERT_TRUE(unzip.ReadContent());
    ASSERT_EQ(unzip.GetEntryCount(), 1u);
    EXPECT_EQ(unzip.GetEntries()[0].name, W("a"));
    unzip.Close();
    std::filesystem::remove_all(Folder() / "tree");
    std::filesystem::remove(Folder() / "t.zip");
}
#endif

// A DOS date holds 1980 to 2107: a file dated at the epoch (as reproducible
// builds date theirs) or past 2107 gets the nearest end, not a date whose
// bits overflowed.
TEST_F(ZipArchiveTest, TimesOutsideTheDosRangeTakeItsNearestEnd) {
    const SYSTEMTIME epoch{1970, 1, 0, 1, 0, 0, 1, 0}, late{2110, 5, 0, 5, 10, 0, 0, 0};
    for (const SYSTEMTIME* time : {&epoch, &late}) {
        Put("f", "x");
        FILETIME stamp{};
        ASSERT_TRUE(SystemTimeToFileTime(time, &stamp));
        HANDLE file = CreateFileW(P("f").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_TRUE(SetFileTime(file, nullptr, nullptr, &stamp));
        CloseHandle(file);
        Write("t.zip", {{"f", "f"}});
        CUnZipArchive unzip;
        OpenForExtraction(unzip, "t.zip");
        ASSERT_TRUE(unzip.ReadContent());
        // 1980-01-01 00:00:00, or 2107-12-31 23:59:58.
        std::uint32_t expected = time == &epoch ? (1u << 21 | 1u << 16)
                                                : (127u << 25 | 12u << 21 | 31u << 16 | 23u << 11 | 59u << 5 | 29u);
        EXPECT_EQ(unzip.GetEntries().at(0).info.dosDate, expected);
    }
    std::filesystem::remove(Folder() / "f");
    std::filesystem::remove(Folder() / "t.zip");
}

// Re-extracting into a folder stops at a file in the way before writing any
// entry, not half-way.
TEST_F(ZipArchiveTest, AFileInTheWayStopsExtractAllBeforeAnythingIsWritten) {
    std::filesystem::create_directories(Folder() / "out");
    Put("out/b", "old");
    Put("two.zip", RawArchive({{"a", "new a"}, {"b", "new b"}}));
    CUnZipArchive unzip;
    OpenForExtraction(unzip, "two.zip");
    EXPECT_FALSE(unzip.ExtractAll(false, true, nullptr));
    EXPECT_EQ(Error(unzip, "two.zip"), "filepath for extraction already exists");
    EXPECT_FALSE(std::filesystem::exists(Folder() / "out/a"));
    EXPECT_EQ(Get("out/b"), "old");
    EXPECT_TRUE(unzip.ExtractAll(true, true, nullptr));
    EXPECT_EQ(Get("out/b"), "new b");
    unzip.Close();
    std::filesystem::remove_all(Folder() / "out");
    std::filesystem::remove(Folder() / "two.zip");
}

TEST_F(ZipArchiveTest, LyingSizesDamagedDataAndBombsAreRefused) {
    std::filesystem::create_directories(Folder() / "out");
    struct Case {
        std::vector<RawEntry> entries;
        const char* error;
        bool atRead;
    } cases[] = {
        {{{"f", "short data", 1000}}, "entry data differ from the size the archive declares: f", false},
        {{{"f", "data", -1, true}}, "error on closing compressed file in archive", false},
        {{{"f", "data"}, {"g", "data", -1, false, 0}}, "entries overlap one another in the archive: g", true},
        {std::vector<RawEntry>(300, {"f", "x", 0xFFFFFFF0}),
         "entries declare more than the destination can hold: 1288490184000 bytes needed", false},
    };
    for (const Case& c : cases) {
        Put("out/f", "old");
        Put("bad.zip", RawArchive(c.entries));
        CUnZipArchive unzip;
        OpenForExtraction(unzip, "bad.zip");
        EXPECT_EQ(unzip.ReadContent(), !c.atRead) << c.error;
        EXPECT_FALSE(unzip.ExtractAll(true, true, nullptr)) << c.error;
        EXPECT_EQ(Error(unzip, "bad.zip").substr(0, std::string(c.error).size()), c.error);
        EXPECT_EQ(Get("out/f"), "old") << "the old file survives: " << c.error;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Folder() / "out"), {}), 1) << c.error;
    }
    std::filesystem::remove(Folder() / "bad.zip");
}

// A fault at any write of an extraction or of an archive leaves no partial
// destination file and fails with the platform's error.
TEST_F(ZipArchiveTest, FaultsOnTheWayLeaveNoPartialFile) {
    if (!zel_platform::FailSystemCall(zel_platform::SystemCall::Write, 1, EIO)) GTEST_SKIP() << "no fault injection";
    zel_platform::ResetSystemCalls();
    const std::string data = RandomBytes(300000, 2);
    Put("data", data);
    Write("a.zip", {{"data", "data"}}, 1);
    for (unsigned nth = 1;; ++nth) {
        ASSERT_LT(nth, 100u);
        CUnZipArchive unzip;
        OpenForExtraction(unzip, "a.zip");
        zel_platform::FailSystemCall(zel_platform::SystemCall::Write, nth, ENOSPC);
        bool extracted = unzip.ExtractAll(true, true, nullptr);
        zel_platform::ResetSystemCalls();
        if (extracted) break;
        EXPECT_EQ(Error(unzip, "a.zip"), "error on writing extracted data to destination file") << nth;
        EXPECT_FALSE(std::filesystem::exists(Folder() / "out/data")) << nth;
        EXPECT_TRUE(!std::filesystem::exists(Folder() / "out") || std::filesystem::is_empty(Folder() / "out")) << nth;
    }
    EXPECT_TRUE(Get("out/data") == data);
    for (unsigned nth = 1;; ++nth) {
        ASSERT_LT(nth, 100u);
        CZipArchive zip;
        ASSERT_TRUE(zip.Open(P("b.zip").c_str(), 0));
        zel_platform::FailSystemCall(zel_platform::SystemCall::Write, nth, ENOSPC);
        bool written = zip.AddFile(P("data").c_str(), W("data").c_str(), 1, nullptr, false) && zip.Close();
        zel_platform::ResetSystemCalls();
        if (written) break;
        EXPECT_NE(zip.GetErrorCode(), 0) << nth;
        EXPECT_FALSE(zip.GetErrorText().empty()) << nth;
    }
    CUnZipArchive check;
    ASSERT_TRUE(check.Open(P("b.zip").c_str()));
    check.SetDestinationFolder(P("out"));
    EXPECT_TRUE(check.ExtractAll(true, true, nullptr));
    check.Close();
    for (const char* name : {"data", "a.zip", "b.zip"}) std::filesystem::remove(Folder() / name);
}

TEST_F(ZipArchiveTest, OverlongNamesAreRefusedOnWrite) {
    Put("f", "x");
    CZipArchive zip;
    ASSERT_TRUE(zip.Open(P("a.zip").c_str(), 0));
    EXPECT_FALSE(zip.AddFile(P("f").c_str(), W(std::string(70000, 'n')).c_str(), 6, nullptr, false));
    EXPECT_TRUE(zip.WasRefused());
    EXPECT_FALSE(zip.Close(std::string(70000, 'c').c_str()));
    EXPECT_TRUE(zip.Close(nullptr));
    std::filesystem::remove(Folder() / "a.zip");
    std::filesystem::remove(Folder() / "f");
}

}  // namespace

TEST_F(ZipArchiveTest, FileCrcReportsTheChecksumOrTheFailure) {
    std::ofstream(PathOf("nine.txt"), std::ios::binary) << "123456789";
    char buffer[4];  // smaller than the file: the sum runs over several reads
    unsigned long crc = 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(CZipArchive::fileCrc(P("nine.txt").c_str(), buffer, sizeof buffer, &crc), 0);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "file " + PathOf("nine.txt") + " crc cbf43926\n");
    EXPECT_EQ(crc, 0xCBF43926ul);  // the check value of CRC-32
    crc = 1;
    EXPECT_EQ(CZipArchive::fileCrc(P("missing.txt").c_str(), buffer, sizeof buffer, &crc), -1);
    EXPECT_EQ(crc, 0ul);
    EXPECT_EQ(CZipArchive::fileCrc(P("nine.txt").c_str(), buffer, 0, &crc), -1);
    std::filesystem::remove(PathOf("nine.txt"));
}
