// The time type: field checks, the DOS, system-time and file-time forms,
// and local time across a daylight-saving change.
#include "zelutils/zelsys/zel_time.h"

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

using zel::ZelTime;
using zel::ZelTimeSpan;

namespace {
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

// Shows fatal error boxes on stderr (the default box does so too, but the
// test must not depend on it) so death tests can match the text.
int ShowBoxOnStderr(HWND, LPCWSTR text, LPCWSTR caption, UINT) {
    zel_text::CZelStringUtf8 utf8(text);
    zel_text::CZelStringUtf8 title(caption);
    std::fprintf(stderr, "[%s] %s\n", title.GetString(), utf8.GetString());
    return IDOK;
}
}  // namespace

TEST(ZelTimeFields, ChecksEachFieldInOrder) {
    zel_test::ScopedTimeZone zone("UTC0");
    EXPECT_THROW(ZelTime(1899, 12, 31, 0, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 0, 1, 0, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 13, 1, 0, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 1, 0, 0, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 1, 32, 0, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 1, 1, 24, 0, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 1, 1, 0, 60, 0), zel::TimeFieldError);
    EXPECT_THROW(ZelTime(2000, 1, 1, 0, 0, 60), zel::TimeFieldError);
    try {
        ZelTime(1800, 1, 1, 0, 0, 0);
        FAIL() << "no exception";
    } catch (const zel_core::runtime_exception& error) {
        EXPECT_EQ(static_cast<std::uint32_t>(dynamic_cast<const zel::TimeFieldError&>(error).Code()),
                  0x80004005u);
    }
    EXPECT_EQ(ZelTime(2000, 1, 1, 0, 0, 0).GetTime(), 946684800);
    // Day 31 of a 30-day month passes the checks and is carried over.
    EXPECT_EQ(ZelTime(2021, 4, 31, 0, 0, 0), ZelTime(2021, 5, 1, 0, 0, 0));
}

TEST(ZelTimeFields, FollowTheLocalDaylightSavingRules) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "TZ reaches only the C runtime on Windows, not its time calls";
    zel_test::ScopedTimeZone zone(kCentralEurope);
    // 2021-03-28: clocks go from 02:00 to 03:00.
    EXPECT_EQ((ZelTime(2021, 3, 28, 3, 0, 0) - ZelTime(2021, 3, 28, 1, 0, 0)).GetTotalSeconds(), 3600);
    EXPECT_EQ(ZelTime(2021, 7, 1, 12, 0, 0).GetTime(), 1625133600) << "12:00 CEST is 10:00 UTC";
    EXPECT_EQ((ZelTime(2021, 7, 1, 12, 0, 0, 0) - ZelTime(2021, 7, 1, 12, 0, 0, 1)).GetTotalSeconds(), 3600)
        << "the daylight-saving flag is passed to the runtime";
    EXPECT_EQ(ZelTime(2021, 1, 15, 8, 30, 0).GetHour(), 8);
    EXPECT_EQ(zel_text::CZelStringUtf8(zel_text::FormatTimeOfDay(ZelTime(2021, 7, 1, 7, 8, 9))).GetString(),
              std::string("07:08:09"));
}

TEST(ZelTimeForms, DosWordsAreLocalTime) {
    zel_test::ScopedTimeZone zone(kCentralEurope);
    EXPECT_EQ(ZelTime(WORD{0x0021}, WORD{0}), ZelTime(1980, 1, 1, 0, 0, 0));
    // 2107-12-31 23:59:58, the last DOS time.
    EXPECT_EQ(ZelTime(WORD{(127 << 9) | (12 << 5) | 31}, WORD{(23 << 11) | (59 << 5) | 29}),
              ZelTime(2107, 12, 31, 23, 59, 58));
    // All-ones words are not checked: month 15, hour 31, minute 63 and
    // second 62 are carried over by the runtime.
    EXPECT_NE(ZelTime(WORD{0xFFFF}, WORD{0xFFFF}).GetTime(), 0);
}

TEST(ZelTimeForms, SystemAndFileTimes) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "TZ reaches only the C runtime on Windows, not its time calls";
    zel_test::ScopedTimeZone zone(kCentralEurope);
    SYSTEMTIME ancient{};
    ancient.wYear = 1601;
    ancient.wMonth = 1;
    ancient.wDay = 1;
    EXPECT_EQ(ZelTime(ancient).GetTime(), 0) << "years before 1900 are no time, without a message";

    SYSTEMTIME summer{2021, 7, 0, 1, 12, 0, 0, 0};
    EXPECT_EQ(ZelTime(summer).GetTime(), 1625133600);

    // 2021-07-01 10:00:00 UTC as a file time.
    std::uint64_t ticks = (1625133600ull + 11644473600ull) * 10000000ull;
    FILETIME utc{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    EXPECT_EQ(ZelTime(utc).GetTime(), 1625133600);
    SYSTEMTIME local{};
    ASSERT_TRUE(zel::FileTimeToLocalSystemTime(utc, local));
    EXPECT_EQ(local.wHour, 12);
}

TEST(ZelTimeForms, LocalTimeOnlyWithinTheRangeOfFileTimes) {
    zel_test::ScopedTimeZone zone("UTC0");
    SYSTEMTIME time{};
    for (std::int64_t outside : {std::int64_t{-11644473601}, std::int64_t{910692730086}, INT64_MAX, INT64_MIN}) {
        EXPECT_FALSE(ZelTime(outside).GetLocalTime(time)) << outside;
        EXPECT_EQ(ZelTime(outside).GetHour(), 0) << outside;
    }
    if (!zel_platform::kEmulated) return;  // Windows' local time is its own zone's
    ASSERT_TRUE(ZelTime(-11644473600).GetLocalTime(time));
    EXPECT_EQ(time.wYear, 1601);
    ASSERT_TRUE(ZelTime(910692730085).GetLocalTime(time));
    EXPECT_EQ(time.wYear, 30828);
    EXPECT_EQ(zel_text::CZelStringUtf8(zel_text::FormatTimeOfDay(ZelTime(910692730085))).GetString(),
              std::string("02:48:05"));
}

TEST(ZelTimeSpan, SplitsByTruncatingDivision) {
    ZelTimeSpan span(1, 2, 3, 4);
    EXPECT_EQ(span.GetTotalSeconds(), 93784);
    EXPECT_EQ(span.GetDays(), 1);
    EXPECT_EQ(span.GetTotalHours(), 26);
    EXPECT_EQ(span.GetHours(), 2);
    EXPECT_EQ(span.GetTotalMinutes(), 1563);
    EXPECT_EQ(span.GetMinutes(), 3);
    EXPECT_EQ(span.GetSeconds(), 4);
    ZelTimeSpan negative(-93784);
    EXPECT_EQ(negative.GetDays(), -1);
    EXPECT_EQ(negative.GetHours(), -2);
    EXPECT_EQ(negative.GetSeconds(), -4);

    ZelTime time(1000);
    time += ZelTimeSpan(500);
    EXPECT_EQ(time.GetTime(), 1500);
    time -= ZelTimeSpan(2000);
    EXPECT_EQ(time.GetTime(), -500);
}

class ZelTimeDeathTest : public zel_test::TempFolderTest {
protected:
    // Runs in the child: its log goes to this test's folder.
    void LogIntoFolder() {
        zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
            zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide(), 0);
        zel_platform::SetMessageBoxHandler(ShowBoxOnStderr);
    }
    void TearDown() override {
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            std::filesystem::remove(entry.path());
        }
        zel_test::TempFolderTest::TearDown();
    }
};

TEST_F(ZelTimeDeathTest, UnrepresentableTimesEndTheProcessThroughTheErrorBox) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // One second before 1970 in UTC is the runtime's error value.
    EXPECT_EXIT(
        {
            zel_test::ScopedTimeZone zone("UTC0");
            LogIntoFolder();
            ZelTime(1969, 12, 31, 23, 59, 59);
        },
        ::testing::ExitedWithCode(0), "\\[Error\\] Error Illegal input time\nzelutils/zelsys/zel_time\n@265");
    // Windows turns any file time into local time and refuses it as fields
    // (line 322); the emulation refuses it at the first step (313).
    EXPECT_EXIT(
        {
            LogIntoFolder();
            ZelTime(FILETIME{0xFFFFFFFF, 0xFFFFFFFF});
        },
        ::testing::ExitedWithCode(0), "Invalid argument\nzelutils/zelsys/zel_time\n@3");
}
