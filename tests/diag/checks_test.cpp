// Assertion and fatal-error boxes. The boxes are answered by a handler the
// test installs; process-ending answers run in child processes.
#include "zelutils/diag/checks.h"

#include "tests/support/temp_folder.h"
#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

using namespace zel_core;

namespace {

struct SeenBox {
    std::string text;
    std::string caption;
    UINT type = 0;
};

class BoxTest : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        zel_test::TempFolderTest::SetUp();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        // Checks log; the log of this process goes to a folder of its own.
        zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
            zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide(), 0);
    }
    void TearDown() override {
        zel_platform::SetMessageBoxHandler(nullptr);
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            std::filesystem::remove_all(entry.path());
        }
        zel_test::TempFolderTest::TearDown();
    }
    // Answers every box with answer and remembers the last one.
    void Answer(int answer) {
        zel_platform::SetMessageBoxHandler([this, answer](HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
            seen_.text = zel_text::CZelStringUtf8(text).GetString();
            seen_.caption = zel_text::CZelStringUtf8(caption).GetString();
            seen_.type = type;
            return answer;
        });
    }
    SeenBox seen_;
};

int PrintAndAnswerOk(HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
    std::fprintf(stderr, "[%s|%x] %s\n", zel_text::CZelStringUtf8(caption).GetString(), type,
                 zel_text::CZelStringUtf8(text).GetString());
    return IDOK;
}

}  // namespace

TEST(RuntimeException, CarriesItsMessage) {
    try {
        throw runtime_exception("broken");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "broken");
    }
}

TEST_F(BoxTest, RetryAndIgnoreAreReturnedAndTheBoxShowsFileLineAndMessage) {
    Answer(IDRETRY);
    EXPECT_FALSE(zelAssertBox("src/a.cpp", 12, "x > 0"));
    EXPECT_EQ(seen_.caption, "ZEL ASSERT");
    EXPECT_EQ(seen_.text, "src/a.cpp\n12\n\nx > 0");
    EXPECT_EQ(seen_.type, 0x50012u);
    Answer(IDIGNORE);
    EXPECT_TRUE(zelAssertBox("src/a.cpp", 13, nullptr));
    EXPECT_EQ(seen_.text, "src/a.cpp\n13\n\n") << "a null message leaves the blank line alone";
}

TEST_F(BoxTest, OneBoxAtATimeTheSecondCallerGoesOnAtOnce) {
    std::atomic<bool> showing{false};
    std::atomic<bool> release{false};
    zel_platform::SetMessageBoxHandler([&](HWND, LPCWSTR, LPCWSTR, UINT) {
        showing = true;
        while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return IDIGNORE;
    });
    std::thread first([] { zelAssertBox("first.cpp", 1, "first"); });
    while (!showing) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(zelAssertBox("second.cpp", 2, "second")) << "no debugger: the second caller continues";
    release = true;
    first.join();
}

TEST_F(BoxTest, AbortEndsTheProcessWithCodeThree) {
    EXPECT_EXIT(
        {
            zel_platform::SetMessageBoxHandler([](HWND, LPCWSTR, LPCWSTR, UINT) { return IDABORT; });
            zelAssertBox("a.cpp", 1, "m");
        },
        ::testing::ExitedWithCode(3), "");
}

TEST_F(BoxTest, FatalErrorShowsThreeLinesAndExitsNormally) {
    EXPECT_EXIT(
        {
            zel_platform::SetMessageBoxHandler(PrintAndAnswerOk);
            fatalErrorBox("src/b.cpp", 7, "disk gone");
        },
        ::testing::ExitedWithCode(0), "\\[Error\\|40030\\] Error disk gone\nsrc/b.cpp\n@7");
    // The child's log holds the check and, since the exit was normal, its last line.
    std::string log;
    for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
        if (entry.path().string().find(".log.txt") == std::string::npos) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        log = std::string(std::istreambuf_iterator<char>(in), {});
    }
    EXPECT_NE(log.find("DBGCHK disk gone src/b.cpp @ 7\r\n"), std::string::npos);
    EXPECT_EQ(log.substr(log.size() - 18), "Logging finished\r\n");
}
