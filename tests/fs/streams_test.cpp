// File, memory and buffered streams.
#include "zelutils/fs/streams.h"

#include "tests/support/temp_folder.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

using namespace zel_fs;

namespace {
std::vector<std::uint8_t> Bytes(std::size_t count, std::uint8_t first = 1) {
    std::vector<std::uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

zel_text::CZelStringW Wide(const std::string& utf8) {
    return zel_text::CZelStringUtf8(utf8.c_str()).ToWide();
}
}  // namespace

TEST(MemoryStream, GrowsByChunksAndSeeksAsymmetrically) {
    TMemoryStream stream(512);
    auto data = Bytes(1000);
    EXPECT_EQ(stream.Write(data.data(), 1000, false), kStreamOk);
    EXPECT_EQ(stream.Size(), 1000u);
    EXPECT_EQ(stream.Tell(), 1000u);

    // A relative seek past the end extends the stream with zeros...
    EXPECT_EQ(stream.Seek(2000, kSeekCurrent), kStreamOk);
    EXPECT_EQ(stream.Tell(), 3000u);
    EXPECT_EQ(stream.Size(), 3000u);
    // ...an absolute one is clamped to the end.
    EXPECT_EQ(stream.Seek(5000, kSeekBegin), kStreamOk);
    EXPECT_EQ(stream.Tell(), 3000u);
    EXPECT_EQ(stream.Seek(-1, kSeekBegin), kStreamOk);
    EXPECT_EQ(stream.Tell(), 0u);
    // A backward seek beyond the base lands at 0.
    EXPECT_EQ(stream.Seek(-4000, kSeekEnd), kStreamOk);
    EXPECT_EQ(stream.Tell(), 0u);
    EXPECT_EQ(stream.Seek(-10, kSeekEnd), kStreamOk);
    EXPECT_EQ(stream.Tell(), 2990u);

    std::vector<std::uint8_t> hole(10, 0xAA);
    std::uint32_t read = 0;
    EXPECT_EQ(stream.Read(hole.data(), 10, read), kStreamOk);
    EXPECT_EQ(read, 10u);
    EXPECT_EQ(hole, std::vector<std::uint8_t>(10, 0)) << "never-written region reads as zeros";

    ASSERT_EQ(stream.Seek(995, kSeekBegin), kStreamOk);
    std::vector<std::uint8_t> across(10);
    EXPECT_EQ(stream.Read(across.data(), 10, read), kStreamOk);
    EXPECT_EQ(read, 10u);
    EXPECT_EQ(std::vector<std::uint8_t>(across.begin(), across.begin() + 5),
              std::vector<std::uint8_t>(data.begin() + 995, data.end()));
    EXPECT_EQ(std::vector<std::uint8_t>(across.begin() + 5, across.end()), std::vector<std::uint8_t>(5, 0));
}

TEST(MemoryStream, ReadAtTheEndIsNotAShortRead) {
    TMemoryStream stream;
    auto data = Bytes(5);
    stream.Write(data.data(), 5, true);
    std::uint8_t buffer[8];
    std::uint32_t read = 99;
    EXPECT_EQ(stream.Read(buffer, 8, read), kStreamOk);
    EXPECT_EQ(read, 0u);
    stream.Seek(2, kSeekBegin);
    EXPECT_EQ(stream.Read(buffer, 8, read), kStreamOk);
    EXPECT_EQ(read, 3u);
}

TEST(MemoryStream, SetSizePullsThePositionBack) {
    TMemoryStream stream(16);
    auto data = Bytes(100);
    stream.Write(data.data(), 100, false);
    EXPECT_EQ(stream.SetSize(10), kStreamOk);
    EXPECT_EQ(stream.Tell(), 10u);
    EXPECT_EQ(stream.Size(), 10u);
    // Growing again shows the old bytes: shrinking keeps the memory.
    EXPECT_EQ(stream.SetSize(20), kStreamOk);
    stream.Seek(10, kSeekBegin);
    std::uint8_t buffer[10];
    std::uint32_t read = 0;
    stream.Read(buffer, 10, read);
    EXPECT_EQ(read, 10u);
    EXPECT_EQ(buffer[0], data[10]);
}

TEST(BufferedStream, WritesBackWhenFullOrFlushed) {
    TMemoryStream inner;
    {
        TBufferedStream buffered(&inner, false, 4);
        auto data = Bytes(10);
        EXPECT_EQ(buffered.Write(data.data(), 10, false), kStreamOk);
        EXPECT_EQ(inner.Size(), 8u) << "two full buffers passed on, two bytes held";
        EXPECT_EQ(buffered.Write(nullptr, 0, true), kStreamOk);
        EXPECT_EQ(inner.Size(), 10u);
        EXPECT_EQ(buffered.Tell(), 0u);
        EXPECT_EQ(buffered.SetSize(5), kStreamFailed);
        EXPECT_EQ(buffered.Write(data.data(), 3, false), kStreamOk);
        EXPECT_EQ(inner.Size(), 10u);
    }
    EXPECT_EQ(inner.Size(), 13u) << "destruction writes pending output";
}

TEST(BufferedStream, ReadsAheadAndKeepsTheShortReadRule) {
    TMemoryStream inner;
    auto data = Bytes(10);
    inner.Write(data.data(), 10, false);
    inner.Seek(0, kSeekBegin);
    TBufferedStream buffered(&inner, false, 4);

    std::uint8_t buffer[16] = {};
    std::uint32_t read = 0;
    EXPECT_EQ(buffered.Read(buffer, 3, read), kStreamOk);
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(inner.Tell(), 4u) << "one block read ahead";
    EXPECT_EQ(buffered.Read(buffer + 3, 5, read), kStreamOk);
    EXPECT_EQ(read, 5u);
    EXPECT_EQ(std::vector<std::uint8_t>(buffer, buffer + 8), std::vector<std::uint8_t>(data.begin(), data.begin() + 8));
    // Asking 10 with 2 left: 2 delivered < 8 missing, a short read.
    EXPECT_EQ(buffered.Read(buffer, 10, read), kStreamShortRead);
    EXPECT_EQ(read, 2u);

    // The comparison is with the bytes still missing: 6 of 10 delivered is
    // not reported as short.
    TMemoryStream six;
    six.Write(data.data(), 6, false);
    six.Seek(0, kSeekBegin);
    TBufferedStream overSix(&six, false, 64);
    EXPECT_EQ(overSix.Read(buffer, 10, read), kStreamOk);
    EXPECT_EQ(read, 6u);
}

TEST(BufferedStream, OwnsItsInnerStreamWhenAsked) {
    auto* inner = new TMemoryStream;
    TBufferedStream buffered(inner, true, 8);
    auto data = Bytes(3);
    EXPECT_EQ(buffered.Write(data.data(), 3, true), kStreamOk);
    EXPECT_EQ(inner->Size(), 3u);
}  // ASan reports a leak if the inner stream is not destroyed.

class FileStreamTest : public zel_test::TempFolderTest {};

TEST_F(FileStreamTest, AMissingFileAnswersWithItsOpenError) {
    TFileStream stream(Wide(PathOf("missing.bin")).GetString(), 0x21);
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(stream.OpenError(), -4);
    std::uint8_t buffer[4];
    std::uint32_t read = 7;
    EXPECT_EQ(stream.Read(buffer, 4, read), -4);
    EXPECT_EQ(stream.Write(buffer, 4, false), -4);
    EXPECT_EQ(stream.Seek(0, kSeekBegin), -4);
    EXPECT_EQ(stream.Tell(), ~std::uint64_t{0});
    EXPECT_EQ(stream.SetSize(0), kStreamFailed);
}

TEST_F(FileStreamTest, WritesReadsAndDuplicatesHandles) {
    zel_text::CZelStringW path = Wide(PathOf("data.bin"));
    auto data = Bytes(300);
    {
        TFileStream writer(path.GetString(), 0x48);
        ASSERT_TRUE(writer.IsOpen());
        EXPECT_EQ(writer.Write(data.data(), 300, true), kStreamOk);
        EXPECT_EQ(writer.Tell(), 300u);
    }
    HANDLE handle = INVALID_HANDLE_VALUE;
    ASSERT_TRUE(file_open_read(handle, path.GetString()));
    {
        TFileStream reader(handle);
        TFileStream copy(reader);
        ASSERT_TRUE(copy.IsOpen());
        std::vector<std::uint8_t> buffer(400);
        std::uint32_t read = 0;
        EXPECT_EQ(reader.Seek(100, kSeekBegin), kStreamOk);
        EXPECT_EQ(reader.Read(buffer.data(), 400, read), kStreamShortRead);
        EXPECT_EQ(read, 200u);
        EXPECT_EQ(buffer[0], data[100]);
        // Seek origins other than 0 and 2 count from the current position.
        EXPECT_EQ(reader.Seek(-50, 7), kStreamOk);
        EXPECT_EQ(reader.Tell(), 250u);
    }
    // The caller's handle is still its own.
    EXPECT_EQ(file_seek(handle, kSeekEnd, 0), 300u);
    file_close_reset(handle);
    EXPECT_TRUE(DeleteFileW(path.GetString()));
}

TEST_F(FileStreamTest, BufferedWritesReachTheFile) {
    zel_text::CZelStringW path = Wide(PathOf("buffered.bin"));
    auto data = Bytes(250);
    {
        TBufferedStream buffered(new TFileStream(path.GetString(), 0x48), true, 64);
        for (int i = 0; i < 4; ++i) ASSERT_EQ(buffered.Write(data.data(), 250, false), kStreamOk);
    }
    {
        TBufferedStream reader(new TFileStream(path.GetString(), 0x21), true, 64);
        std::vector<std::uint8_t> all(1000);
        std::uint32_t read = 0;
        // The refill that meets the end of the file reports the file stream's
        // short read at once; the bytes it brought are served by the next call.
        EXPECT_EQ(reader.Read(all.data(), 1000, read), kStreamShortRead);
        EXPECT_EQ(read, 960u);
        std::uint32_t rest = 0;
        EXPECT_EQ(reader.Read(all.data() + 960, 40, rest), kStreamOk);
        EXPECT_EQ(rest, 40u);
        EXPECT_EQ(std::vector<std::uint8_t>(all.begin() + 750, all.end()), data);
    }
    EXPECT_TRUE(DeleteFileW(path.GetString()));
}

TEST_F(FileStreamTest, PositionsPastFourGigabytesKeepAllSixtyFourBits) {
    zel_text::CZelStringW path = Wide(PathOf("sparse.bin"));
    const std::uint64_t distant = (std::uint64_t{5} << 30) + 3;  // both words of the position in use
    bool written = false;
    {
        TFileStream writer(path.GetString(), 0x48);
        ASSERT_EQ(writer.Seek(static_cast<std::int64_t>(distant), kSeekBegin), kStreamOk);
        written = writer.Write("tail", 4, false) == kStreamOk;
        if (written) {
            EXPECT_EQ(writer.Tell(), distant + 4);
        }
    }
    if (!written) {
        DeleteFileW(path.GetString());
        GTEST_SKIP() << "the file system holds no 5 GB file";
    }
    {
        TFileStream reader(path.GetString(), 0x21);
        ASSERT_EQ(reader.Seek(-6, kSeekEnd), kStreamOk);
        EXPECT_EQ(reader.Tell(), distant - 2);
        char buffer[8] = {};
        std::uint32_t read = 0;
        EXPECT_EQ(reader.Read(buffer, 8, read), kStreamShortRead);
        ASSERT_EQ(read, 6u);
        EXPECT_EQ(std::memcmp(buffer, "\0\0tail", 6), 0);
    }
    EXPECT_TRUE(DeleteFileW(path.GetString()));
}

TEST_F(FileStreamTest, ABufferedWriterOnAFullDiskReportsTheShortWrite) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "fault injection is a facility of the POSIX layer";
    zel_text::CZelStringW path = Wide(PathOf("full.bin"));
    auto data = Bytes(100);
    {
        TBufferedStream buffered(new TFileStream(path.GetString(), 0x48), true, 64);
        // The disk fills after 10 bytes of the first block written back.
        ASSERT_TRUE(zel_platform::ShortenWrite(1, 10, ENOSPC));
        EXPECT_EQ(buffered.Write(data.data(), 100, false), kStreamShortWrite);
        EXPECT_EQ(buffered.Write(nullptr, 0, true), kStreamOk) << "nothing is left in the buffer";
        zel_platform::ResetSystemCalls();
    }
    HANDLE file = INVALID_HANDLE_VALUE;
    ASSERT_TRUE(file_open_read(file, path.GetString()));
    std::uint8_t written[100] = {};
    EXPECT_EQ(file_read(file, written, 100), 10) << "only what the disk took";
    EXPECT_EQ(std::memcmp(written, data.data(), 10), 0);
    file_close_reset(file);
    EXPECT_TRUE(DeleteFileW(path.GetString()));
}

#ifndef _WIN32
TEST_F(FileStreamTest, AFlushedWriteIntoAPipeSucceeds) {
    // A pipe has no medium to flush to: its bytes are with the reader.
    const std::string path = PathOf("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] {
        std::ifstream in(path, std::ios::binary);
        received.assign(std::istreambuf_iterator<char>(in), {});
    });
    {
        TFileStream writer(Wide(path).GetString(), 0x41);
        EXPECT_EQ(writer.Write("through", 7, true), kStreamOk);
    }
    reader.join();
    EXPECT_EQ(received, "through");
    std::filesystem::remove(path);
}
#endif
