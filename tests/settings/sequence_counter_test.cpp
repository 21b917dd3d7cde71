// Numbered file names kept in a ".seq.ini" side file.
#include "zelutils/settings/sequence_counter.h"

#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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
