// The scanf subset: the formats numbers and dates are parsed with, the EOF
// rule, widths, the text rules of both widths and the refused formats.
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_printf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

using zel_text::ScanText;
using WString = std::basic_string<WCHAR>;

TEST(ScanNumbers, DateAndTimeFieldsInBothWidths) {
    short f[6] = {};
    EXPECT_EQ(ScanText("2010-05-06 07:08:09", "%hd-%hd-%hd %hd:%hd:%hd", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]), 6);
    EXPECT_EQ(f[0], 2010);
    EXPECT_EQ(f[1], 5);
    EXPECT_EQ(f[5], 9);
    short w[6] = {};
    EXPECT_EQ(ScanText(ZW("2010-05-06 07:08:09"), ZW("%hd-%hd-%hd %hd:%hd:%hd"), &w[0], &w[1], &w[2], &w[3], &w[4],
                       &w[5]),
              6);
    EXPECT_EQ(std::vector<short>(w, w + 6), std::vector<short>({2010, 5, 6, 7, 8, 9}));
    // A separator that does not match stops the scan after the fields before it.
    EXPECT_EQ(ScanText(ZW("2010/05/06"), ZW("%hd-%hd-%hd"), &w[0], &w[1], &w[2]), 1);
}

TEST(ScanNumbers, HexFieldsOfTwoDigitsStopAtTheFirstBadOne) {
    unsigned rgb[3] = {};
    EXPECT_EQ(ScanText(ZW("FF8000"), ZW("%2X%2X%2X"), &rgb[0], &rgb[1], &rgb[2]), 3);
    EXPECT_EQ(rgb[0], 0xFFu);
    EXPECT_EQ(rgb[1], 0x80u);
    EXPECT_EQ(rgb[2], 0u);
    unsigned partial[3] = {0, 0, 7};
    EXPECT_EQ(ScanText("FF80G0", "%2X%2X%2X", &partial[0], &partial[1], &partial[2]), 2);
    EXPECT_EQ(partial[1], 0x80u);
    EXPECT_EQ(partial[2], 7u);
}

TEST(ScanNumbers, SkipLeadingBlanksAndStopAtTrailingGarbage) {
    int value = 0;
    EXPECT_EQ(ScanText(ZW("  42abc"), ZW("%d"), &value), 1);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(ScanText("\t\n-17 ", "%d", &value), 1);
    EXPECT_EQ(value, -17);
    value = 5;
    EXPECT_EQ(ScanText("abc", "%d", &value), 0);
    EXPECT_EQ(ScanText("-", "%d", &value), 0);
    EXPECT_EQ(value, 5);
}

TEST(ScanNumbers, InputEndingBeforeTheFirstConversionIsEof) {
    int a = 0;
    int b = 0;
    EXPECT_EQ(ScanText("", "%d", &a), -1);
    EXPECT_EQ(ScanText(ZW(""), ZW("%d"), &a), -1);
    EXPECT_EQ(ScanText("   ", "%d", &a), -1);
    EXPECT_EQ(ScanText("", "x%d", &a), -1);
    EXPECT_EQ(ScanText("1", "%d %d", &a, &b), 1);
    EXPECT_EQ(ScanText("1", "%*d %d", &b), 0);  // a suppressed field still counts as converted
    EXPECT_EQ(ScanText("", ""), 0);
}

TEST(ScanNumbers, SizesCoverTheirWholeRangeAndWrapBeyondIt) {
    std::int64_t i64 = 0;
    EXPECT_EQ(ScanText("-9223372036854775808", "%I64d", &i64), 1);
    EXPECT_EQ(i64, INT64_MIN);
    EXPECT_EQ(ScanText(ZW("9223372036854775807"), ZW("%I64d"), &i64), 1);
    EXPECT_EQ(i64, INT64_MAX);
    std::uint64_t u64 = 0;
    EXPECT_EQ(ScanText("18446744073709551615", "%I64u", &u64), 1);
    EXPECT_EQ(u64, UINT64_MAX);
    long long ll = 0;
    EXPECT_EQ(ScanText("-5000000000", "%lld", &ll), 1);
    EXPECT_EQ(ll, -5000000000LL);
    LONG l = 0;  // l is 32 bits, as in the Windows runtimes
    EXPECT_EQ(ScanText("-123456", "%ld", &l), 1);
    EXPECT_EQ(l, -123456);
    unsigned u = 0;
    EXPECT_EQ(ScanText("4294967295", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    EXPECT_EQ(ScanText("-1", "%u", &u), 1);
    EXPECT_EQ(u, UINT_MAX);
    short h = 0;
    unsigned short hu = 0;
    EXPECT_EQ(ScanText("70000 65535", "%hd %hu", &h, &hu), 2);
    EXPECT_EQ(h, 70000 - 65536);
    EXPECT_EQ(hu, 65535);
    // The field next to a small target is left alone.
    unsigned char bytes[2] = {0, 0xAA};
    EXPECT_EQ(ScanText("300", "%hhu", &bytes[0]), 1);
    EXPECT_EQ(bytes[0], 300 - 256);
    EXPECT_EQ(bytes[1], 0xAA);
}

TEST(ScanNumbers, BasesAndPrefixes) {
    int v[5] = {};
    EXPECT_EQ(ScanText("0x1f 017 -12 0X1F 17", "%i %i %i %x %o", &v[0], &v[1], &v[2], &v[3], &v[4]), 5);
    EXPECT_EQ(std::vector<int>(v, v + 5), std::vector<int>({31, 15, -12, 31, 15}));
    // A prefix with no digit behind it is a zero followed by other text.
    char rest[4] = {};
    EXPECT_EQ(ScanText("0xg", "%x%s", &v[0], rest), 2);
    EXPECT_EQ(v[0], 0);
    EXPECT_STREQ(rest, "xg");
    // The width counts sign and prefix.
    EXPECT_EQ(ScanText("-123", "%2d%d", &v[0], &v[1]), 2);
    EXPECT_EQ(v[0], -1);
    EXPECT_EQ(v[1], 23);
}

TEST(ScanFormat, BlanksMatchAnyWhiteSpaceLiteralsMatchExactly) {
    int a = 0;
    int b = 0;
    EXPECT_EQ(ScanText("1\t\n 2", "%d %d", &a, &b), 2);
    EXPECT_EQ(ScanText("x5", "x %d", &a), 1);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(ScanText("1;2", "%d,%d", &a, &b), 1);
    EXPECT_EQ(ScanText("50%", "%d%%", &a), 1);
    EXPECT_EQ(ScanText("7 8", "%*d %d", &b), 1);
    EXPECT_EQ(b, 8);
}

TEST(ScanStrings, CharsAndStringsWithWidths) {
    char c = 0;
    EXPECT_EQ(ScanText(" x", "%c", &c), 1);  // %c does not skip blanks
    EXPECT_EQ(c, ' ');
    char pair[3] = {'#', '#', '#'};
    EXPECT_EQ(ScanText("abc", "%2c", pair), 1);
    EXPECT_EQ(std::string(pair, 3), "ab#");  // no terminator
    EXPECT_EQ(ScanText("a", "%2c", pair), -1);
    char first[8] = {};
    char second[8] = {};
    EXPECT_EQ(ScanText("  abcdef ghi", "%3s%s", first, second), 2);
    EXPECT_STREQ(first, "abc");
    EXPECT_STREQ(second, "def");
}

TEST(ScanStrings, WideScanStoresWideSAndNarrowCapitalS) {
    WCHAR wide[8] = {};
    WCHAR third[8] = {};
    char narrow[8] = {};
    WCHAR wc = 0;
    char nc = 0;
    EXPECT_EQ(ScanText(ZW("one two three qz"), ZW("%s %S %ls %c%C"), wide, narrow, third, &wc, &nc), 5);
    EXPECT_EQ(WString(wide), ZW("one"));
    EXPECT_STREQ(narrow, "two");
    EXPECT_EQ(WString(third), ZW("three"));
    EXPECT_EQ(wc, ZW('q'));
    EXPECT_EQ(nc, 'z');
    EXPECT_EQ(ScanText("one two", "%ls %hs", wide, narrow), 2);
    EXPECT_EQ(WString(wide), ZW("one"));
    EXPECT_STREQ(narrow, "two");
    if (GetACP() != 65001) GTEST_SKIP() << "the ANSI code page here is not UTF-8";
    EXPECT_EQ(ScanText("h\xC3\xA9 x", "%S", wide), 1);
    EXPECT_EQ(WString(wide), ZW("h\u00e9"));
    EXPECT_EQ(ScanText(ZW("\u00e9t\u00e9"), ZW("%S"), narrow), 1);
    EXPECT_STREQ(narrow, "\xC3\xA9t\xC3\xA9");
}

TEST(ScanFormat, RefusedAndUnknownConversionsStoreNothing) {
    int a = 77;
    int n = 77;
    EXPECT_EQ(ScanText("5", "%d%n", &a, &n), -1);
    EXPECT_EQ(ScanText(ZW("5"), ZW("%d%n"), &a, &n), -1);
    EXPECT_EQ(a, 77);
    EXPECT_EQ(n, 77);
    for (const char* format : {"%d %f", "%[a]", "%d%", "%0d", "%wd", "%hhs"}) {
        EXPECT_EQ(ScanText("5 5", format, &a, &n), -1) << format;
    }
    EXPECT_EQ(a, 77);
    EXPECT_EQ(ScanText(nullptr, "%d", &a), -1);
    EXPECT_EQ(ScanText("5", nullptr), -1);
}
