// Rounding, the precision formats, and the value parsers.
#include "zelutils/text/zel_number_format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace zel_text;

namespace {
std::u16string Text(const CZelStringW& s) {
    return std::u16string(reinterpret_cast<const char16_t*>(s.GetString()), s.GetLength());
}
std::u16string Text(const WCHAR* s) { return std::u16string(reinterpret_cast<const char16_t*>(s)); }
}  // namespace

TEST(RoundToDecimals, TiesGoToEvenAndNeverNegativeZero) {
    EXPECT_EQ(RoundToDecimals(2.5, 0), 2.0);
    EXPECT_EQ(RoundToDecimals(3.5, 0), 4.0);
    EXPECT_EQ(RoundToDecimals(-2.5, 0), -2.0);
    EXPECT_EQ(RoundToDecimals(0.125, 2), 0.12);
    EXPECT_EQ(RoundToDecimals(0.375, 2), 0.38);
    EXPECT_EQ(RoundToDecimals(0.25, 1), 0.2);
    EXPECT_EQ(RoundToDecimals(2.6, 0), 3.0);
    EXPECT_EQ(RoundToDecimals(2.4, 0), 2.0);
    double minusZero = RoundToDecimals(-0.4, 0);
    EXPECT_EQ(minusZero, 0.0);
    EXPECT_FALSE(std::signbit(minusZero));
    EXPECT_EQ(RoundToDecimals(1.23, -1), 0.0);
    EXPECT_EQ(RoundToDecimals(1.5, 25), 1.5) << "factors beyond the table";
    EXPECT_TRUE(std::isnan(RoundToDecimals(std::nan(""), 2)));
    EXPECT_TRUE(std::isinf(RoundToDecimals(-HUGE_VAL, 2)));
}

TEST(FormatWithPrecision, UsesTheFixedFormatsAfterRounding) {
    EXPECT_EQ(Text(FormatWithPrecision(0.25, 1)), Text(ZW("0.2")));
    EXPECT_EQ(Text(FormatWithPrecision(5, 1)), Text(ZW("5.0")));
    EXPECT_EQ(Text(FormatWithPrecision(0.125, 2)), Text(ZW("0.12")));
    EXPECT_EQ(Text(FormatWithPrecision(-1.0 / 3, 6)), Text(ZW("-0.333333")));
    EXPECT_EQ(Text(FormatWithPrecision(1, 12)), Text(ZW("1.000000000000")));
    EXPECT_EQ(Text(FormatWithPrecision(1, 16)), Text(ZW("1.0000000000000000")));
    EXPECT_EQ(Text(FormatWithPrecision(-0.004, 2)), Text(ZW("0.00"))) << "no negative zero";
}

TEST(FormatWithPrecision, PrintsWhatTheFormatterPrintsForTheRoundedValue) {
    // Random magnitudes from 1e-20 to 1e20, ties at the last digit, and the
    // largest values printed without the formatter, at every precision.
    std::mt19937_64 random(17);
    std::vector<double> values = {0.0, -0.0, 0.5, -0.5, 1e-7, 9.9999995, 1125899906842623.0 / 1e6,
                                  1125899906842624.0 / 1e6, 1e15, -1e16};
    for (int i = 0; i < 3000; ++i) {
        double mantissa = std::uniform_real_distribution<double>(-10, 10)(random);
        values.push_back(mantissa * std::pow(10.0, static_cast<int>(random() % 41) - 20));
        values.push_back(static_cast<double>(random() % 2000001) / 2 / std::pow(10.0, static_cast<int>(random() % 7)));
    }
    for (double value : values) {
        for (int digits = 2; digits <= 16; ++digits) {
            CZelStringW expected;
            expected.Format(ZW("%.*lf"), digits, RoundToDecimals(value, digits));
            ASSERT_EQ(Text(FormatWithPrecision(value, digits)), Text(expected)) << value << " at " << digits;
        }
    }
}

TEST(FormatWithPrecision, BuildsTheFormatOutsideOneToSixteenWithoutRounding) {
    // 2.5 at 0 digits: the runtime rounds the unrounded value itself.
    CZelStringW expected;
    expected.Format(ZW("%.0lf"), 2.5);
    EXPECT_EQ(Text(FormatWithPrecision(2.5, 0)), Text(expected));
    EXPECT_EQ(Text(FormatWithPrecision(0.1, 17)), Text(ZW("0.10000000000000001")));
    EXPECT_EQ(Text(FormatWithPrecision(1, 20)), Text(ZW("1.00000000000000000000")));
}

TEST(DoubleFormatters, PrintNoValueAsEmpty) {
    for (int digits : {-1, 0, 1, 2, 12, 16, 17}) {
        EXPECT_TRUE(FormatWithPrecision(kNoValueDouble, digits).IsEmpty()) << digits;
    }
    EXPECT_TRUE(FormatWithoutTrailingZeros(kNoValueDouble).IsEmpty());
    // Nor may an angle beyond what "%2d" holds reach an int conversion.
    for (double angle : {kNoValueDouble, -kNoValueDouble, 2147483648.0, -2147483649.0, HUGE_VAL, double(NAN)}) {
        EXPECT_TRUE(FormatDegreesMinutesSeconds(angle).IsEmpty()) << angle;
    }
    EXPECT_EQ(Text(FormatDegreesMinutesSeconds(-2147483647.0)), Text(ZW("-2147483647: 0:0.000")));
    EXPECT_FALSE(FormatWithoutTrailingZeros(-kNoValueDouble).IsEmpty());
}

TEST(FormatWithoutTrailingZeros, DropsZerosAndADanglingPoint) {
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(1.5)), Text(ZW("1.5")));
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(2)), Text(ZW("2")));
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(0)), Text(ZW("0")));
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(100)), Text(ZW("100")));
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(-0.25)), Text(ZW("-0.25")));
    EXPECT_EQ(Text(FormatWithoutTrailingZeros(1e-13)), Text(ZW("0")));
}

TEST(FormatInt64, PrintsTheExtremes) {
    EXPECT_EQ(Text(FormatInt64(std::numeric_limits<std::int64_t>::min())),
              Text(ZW("-9223372036854775808")));
    EXPECT_EQ(Text(FormatInt64(std::numeric_limits<std::int64_t>::max())),
              Text(ZW("9223372036854775807")));
    EXPECT_EQ(Text(FormatInt64(0)), Text(ZW("0")));
}

TEST(FormatDegreesMinutesSeconds, PadsWithBlanks) {
    EXPECT_EQ(Text(FormatDegreesMinutesSeconds(12.5)), Text(ZW("12:30:0.000")));
    EXPECT_EQ(Text(FormatDegreesMinutesSeconds(1.5)), Text(ZW(" 1:30:0.000")));
    EXPECT_EQ(Text(FormatDegreesMinutesSeconds(-1.2625)), Text(ZW("-1:-15:-45.000")));
    EXPECT_EQ(Text(FormatDegreesMinutesSeconds(10.2625)), Text(ZW("10:15:45.000")));
}

TEST(IntegerParsers, AcceptWhatScanfAcceptsAndRejectTheRest) {
    int i = 7;
    EXPECT_TRUE(ParseInt(ZW("  -42abc"), i));
    EXPECT_EQ(i, -42);
    i = 7;
    EXPECT_FALSE(ParseInt(ZW(""), i));
    EXPECT_EQ(i, 0);
    i = 7;
    EXPECT_FALSE(ParseInt(nullptr, i));
    EXPECT_EQ(i, 0);
    i = 7;
    EXPECT_FALSE(ParseInt(ZW("x1"), i));
    EXPECT_EQ(i, 0);

    LONG l = 0;
    EXPECT_TRUE(ParseLong(ZW("2147483647"), l));
    EXPECT_EQ(l, 2147483647);
    unsigned u = 0;
    EXPECT_TRUE(ParseUnsigned(ZW("4294967295"), u));
    EXPECT_EQ(u, 4294967295u);
    short s = 0;
    EXPECT_TRUE(ParseShort(ZW("-32768"), s));
    EXPECT_EQ(s, -32768);
    std::int64_t big = 0;
    EXPECT_TRUE(ParseInt64(ZW("-9223372036854775808"), big));
    EXPECT_EQ(big, std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(ParseInt64(ZW("   "), big));
    EXPECT_EQ(big, 0);
}

TEST(ParseDateTime, ReadsSixFieldsAndLeavesTheDayOfWeek) {
    SYSTEMTIME time{};
    time.wDayOfWeek = 9;
    time.wMilliseconds = 77;
    ASSERT_TRUE(ParseDateTime(CZelStringW(ZW("2010-05-06 07:08:09")), time));
    EXPECT_EQ(time.wYear, 2010);
    EXPECT_EQ(time.wMonth, 5);
    EXPECT_EQ(time.wDay, 6);
    EXPECT_EQ(time.wHour, 7);
    EXPECT_EQ(time.wMinute, 8);
    EXPECT_EQ(time.wSecond, 9);
    EXPECT_EQ(time.wMilliseconds, 0);
    EXPECT_EQ(time.wDayOfWeek, 9);

    SYSTEMTIME untouched{};
    untouched.wYear = 1234;
    EXPECT_FALSE(ParseDateTime(CZelStringW(), untouched));
    EXPECT_EQ(untouched.wYear, 1234);
    EXPECT_FALSE(ParseDateTime(CZelStringW(ZW("2010-05-06")), untouched));
}

TEST(ParseColor, NeedsSevenCharactersWithAHash) {
    DWORD color = 0;
    EXPECT_TRUE(ParseColor(CZelStringW(ZW("#FF8000")), color));
    EXPECT_EQ(color, 0x00FF8000u);
    EXPECT_TRUE(ParseColor(CZelStringW(ZW("#00ff01")), color));
    EXPECT_EQ(color, 0x000000FF01u);
    color = 5;
    EXPECT_FALSE(ParseColor(CZelStringW(ZW("#FF800")), color));
    EXPECT_FALSE(ParseColor(CZelStringW(ZW("FF8000")), color));
    EXPECT_FALSE(ParseColor(CZelStringW(ZW("#FF80000")), color));
    EXPECT_EQ(color, 5u);
    // A field that does not parse counts as 0 and the call still succeeds.
    EXPECT_TRUE(ParseColor(CZelStringW(ZW("#12GG34")), color));
    EXPECT_EQ(color, 0x00120000u);
}
