// Numbered file names kept in a ".seq.ini" side file.
#include "zelutils/settings/sequence_counter.h"

#include "tests/support/temp_folder.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace zel_settings;

namespace {
class SequenceCounterTest : public zel_test::TempFolderTest {
protected:
    SequenceCounter Counter(std::uint32_t limit) {
        SequenceCounter counter;
        counter.folder = zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide();
        counter.baseName = zel_text::CZelStringW(ZW("app"));
        counter.extension = zel_text::CZelStringW(ZW(".log.txt"));
        counter.limit = limit;
        return counter;
    }
    std::string NameOf(const zel_text::CZelStringW& path) {
        return zel_text::CZelStringUtf8(path).GetString();
    }
    std::string CounterFile() {
        std::ifstream in(Folder() / "app.seq.ini", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    void SetCounterFile(const std::string& text) {
        std::ofstream(Folder() / "app.seq.ini", std::ios::binary) << text;
    }
    void TearDown() override {
        zel_platform::ResetSystemCalls();
        std::filesystem::remove(Folder() / "app.seq.ini");
        zel_test::TempFolderTest::TearDown();
    }
};
}  // namespace

TEST_F(SequenceCounterTest, StartsAtOneAndRemembersTheNumber) {
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app1.log.txt");
    EXPECT_EQ(CounterFile(), "1") << "the number alone, no line end";
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app2.log.txt");
    EXPECT_EQ(CounterFile(), "2");
}

TEST_F(SequenceCounterTest, WrapsAtTheLimitAndAfterALoweredLimit) {
    SetCounterFile("10");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app1.log.txt");
    SetCounterFile("25");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app1.log.txt");
    SetCounterFile("9");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app10.log.txt");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(0))), Folder().string() + "/app1.log.txt");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(0))), Folder().string() + "/app1.log.txt");
}

TEST_F(SequenceCounterTest, UnreadableOrUnwritableCountersStillGiveNames) {
    SetCounterFile("garbage");
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app1.log.txt");
    SequenceCounter missing = Counter(10);
    missing.folder = missing.folder + ZW("/no/such/folder");
    EXPECT_EQ(NameOf(NextSequenceFileName(missing)), Folder().string() + "/no/such/folder/app1.log.txt");
    EXPECT_EQ(NameOf(NextSequenceFileName(missing)), Folder().string() + "/no/such/folder/app1.log.txt");
}

TEST_F(SequenceCounterTest, AFailedWriteKeepsTheNumberForNextTime) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "fault injection is a facility of the POSIX layer";
    SetCounterFile("5");
    // The disk is full: the new number cannot be written.
    ASSERT_TRUE(zel_platform::FailSystemCall(zel_platform::SystemCall::Write, 1, ENOSPC));
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app6.log.txt");
    zel_platform::ResetSystemCalls();
    EXPECT_EQ(CounterFile(), "5");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Folder()), {}), 1) << "no temporary file left";
    EXPECT_EQ(NameOf(NextSequenceFileName(Counter(10))), Folder().string() + "/app6.log.txt");
}

TEST_F(SequenceCounterTest, ParallelCallersNeverSeeAHalfWrittenCounter) {
    // Not locked, so two callers may share a number; but none may find the
    // file empty mid-write and restart the series at 1.
    SetCounterFile("1000");
    std::atomic<int> restarts{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 6; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                if (NameOf(NextSequenceFileName(Counter(1000000))) == Folder().string() + "/app1.log.txt") ++restarts;
            }
        });
    }
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(restarts.load(), 0);
    EXPECT_GT(std::stoul(CounterFile()), 1000u);
}
