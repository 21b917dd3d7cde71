// Conversions between code pages, UTF-8, UTF-16 and UTF-32, and the UTF-8
// string.
#include "zelutils/text/zel_utf.h"

#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <string>

using zel_text::CZelStringA;
using zel_text::CZelStringT;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;
using WString = std::basic_string<WCHAR>;

namespace {
WString W(const CZelStringW& s) { return WString(s.GetString(), s.GetLength()); }
std::string A(const CZelStringA& s) { return std::string(s.GetString(), s.GetLength()); }
}  // namespace

TEST(CodePageConversion, AConvertedTerminatorIsNotCounted) {
    WCHAR wide[8] = {};
    EXPECT_EQ(zel_text::ConvertNarrowToWide(wide, 8, "ab\0", 3, CP_UTF8), 2);
    EXPECT_EQ(WString(wide, 3), WString(ZW("ab\0"), 3));
    EXPECT_EQ(zel_text::ConvertNarrowToWide(wide, 8, "a\0b", 3, CP_UTF8), 3)
        << "only a NUL written last is dropped";
    char narrow[8] = {};
    EXPECT_EQ(zel_text::ConvertWideToNarrow(narrow, 8, ZW("\x00e9\0"), 2, CP_UTF8), 2);
    EXPECT_EQ(std::string(narrow), "\xc3\xa9");

    EXPECT_EQ(W(CZelStringW("ab\0", 3, CP_UTF8)), ZW("ab"));
    EXPECT_EQ(W(CZelStringW("a\0b", 3, CP_UTF8)), WString(ZW("a\0b"), 3));
    EXPECT_EQ(A(CZelStringA(ZW("x\0"), 2, CP_UTF8)), "x");
}

TEST(CodePageConversion, NothingToConvertOrAFailedCallGivesEmpty) {
    EXPECT_EQ(zel_text::MeasureNarrowToWide("abc", 0, CP_UTF8), 0);
    EXPECT_EQ(zel_text::MeasureWideToNarrow(ZW("abc"), 0, CP_UTF8), 0);
    EXPECT_EQ(zel_text::MeasureNarrowToWide("\xe2\x82\xac", 3, CP_UTF8), 1);
    EXPECT_EQ(zel_text::MeasureWideToNarrow(ZW("\x20ac"), 1, CP_UTF8), 3);
    WCHAR small[1];
    EXPECT_EQ(zel_text::ConvertNarrowToWide(small, 1, "abc", 3, CP_UTF8), 0) << "target too small";

    EXPECT_TRUE(CZelStringW(static_cast<const char*>(nullptr), CP_UTF8).IsEmpty());
    EXPECT_TRUE(CZelStringW("", CP_UTF8).IsEmpty());
    EXPECT_TRUE(CZelStringW("abc", 12345u).IsEmpty()) << "a code page that does not exist";
    EXPECT_TRUE(CZelStringA(ZW("abc"), 12345u).IsEmpty());
    EXPECT_TRUE(CZelStringA(ZW("abc"), -4, CP_UTF8).IsEmpty());
    CZelStringA assigned("old");
    assigned = static_cast<const WCHAR*>(nullptr);
    EXPECT_TRUE(assigned.IsEmpty());
}

TEST(CodePageConversion, BadInputIsConvertedThePlatformWayNotRefused) {
    // Flags 0: undecodable UTF-8 and lone surrogates are replaced, not rejected.
    EXPECT_EQ(W(CZelStringW("a\xff" "b", CP_UTF8)), ZW("a\xfffd" "b"));
    EXPECT_EQ(A(CZelStringA(ZW("a\xd800"), CP_UTF8)), "a\xef\xbf\xbd");
    CZelStringW wide("caf\xc3\xa9", CP_UTF8);
    EXPECT_EQ(W(wide), ZW("caf\x00e9"));
    EXPECT_EQ(wide.GetAllocLength(), 4) << "exactly the measured length";
}

TEST(CodePageConversion, UsableCodePages) {
    EXPECT_TRUE(zel_text::IsCodePageUsable(0));
    EXPECT_TRUE(zel_text::IsCodePageUsable(1));
    EXPECT_TRUE(zel_text::IsCodePageUsable(65001));
    EXPECT_FALSE(zel_text::IsCodePageUsable(1252)) << "even where the platform has it";
    EXPECT_FALSE(zel_text::IsCodePageUsable(-1));
    EXPECT_FALSE(zel_text::IsCodePageUsable(65000));
    CPINFO info;
    EXPECT_EQ(zel_text::IsCodePageUsable(932), GetCPInfo(932, &info) != FALSE);
}

TEST(Utf16Utf32, ASurrogatePairConvertsButCountsZero) {
    const WCHAR pair[] = {0xD83D, 0xDE00};
    char32_t out[4] = {};
    EXPECT_EQ(zel_text::Utf16ToUtf32(out, 4, pair, 2), 1);
    EXPECT_EQ(out[0], U'\U0001F600');
    EXPECT_EQ(zel_text::Utf16CodePointCount(pair, 2), 0);

    const WCHAR mixed[] = {ZW('a'), 0xDBFF, 0xDFFF, ZW('b')};
    EXPECT_EQ(zel_text::Utf16ToUtf32(out, 4, mixed, 4), 3);
    EXPECT_EQ(out[1], U'\U0010FFFF');
    EXPECT_EQ(out[2], U'b');
    EXPECT_EQ(zel_text::Utf16CodePointCount(ZW("abc\xffff"), 4), 4);
    EXPECT_EQ(zel_text::Utf16CodePointCount(ZW(""), 0), 0);
}

TEST(Utf16Utf32, MalformedUtf16FailsTheWholeConversion) {
    char32_t out[4] = {};
    const WCHAR loneLow[] = {ZW('a'), 0xDE00};
    const WCHAR highAtEnd[] = {ZW('a'), 0xD83D};
    const WCHAR highBeforeText[] = {0xD83D, ZW('a')};
    const WCHAR highBeforeHigh[] = {0xD83D, 0xD83D, 0xDE00};
    for (const auto& [units, count] :
         {std::pair{loneLow, 2}, std::pair{highAtEnd, 2}, std::pair{highBeforeText, 2},
          std::pair{highBeforeHigh, 3}}) {
        EXPECT_EQ(zel_text::Utf16ToUtf32(out, 4, units, count), 0);
        EXPECT_EQ(zel_text::Utf16CodePointCount(units, count), 0);
    }
    EXPECT_EQ(zel_text::Utf16ToUtf32(out, 4, ZW(""), 0), 0);
    EXPECT_EQ(zel_text::Utf16ToUtf32(out, 1, ZW("ab"), 2), 0) << "target too small";
}

TEST(Utf16Utf32, CodePointsEncodeToOneOrTwoUnitsOrNothing) {
    WCHAR first = 0;
    WCHAR second = 0;
    EXPECT_EQ(zel_text::CodePointToUtf16(0x110000, first, second), 0);
    EXPECT_EQ(zel_text::CodePointToUtf16(0xDC00, first, second), 0);
    EXPECT_EQ(zel_text::CodePointToUtf16(0xD800, first, second), 0);
    EXPECT_EQ(zel_text::CodePointToUtf16(0xD7FF, first, second), 1);
    EXPECT_EQ(first, 0xD7FF);
    EXPECT_EQ(zel_text::CodePointToUtf16(0xE000, first, second), 1);
    EXPECT_EQ(zel_text::CodePointToUtf16(0x10000, first, second), 2);
    EXPECT_EQ(first, 0xD800);
    EXPECT_EQ(second, 0xDC00);
    EXPECT_EQ(zel_text::CodePointToUtf16(0x1F600, first, second), 2);
    EXPECT_EQ(first, 0xD83D);
    EXPECT_EQ(second, 0xDE00);

    const char32_t text[] = {U'a', U'\U0001F600', U'\x00e9'};
    EXPECT_EQ(zel_text::Utf32ToUtf16Length(text, 3), 4);
    WCHAR units[4] = {};
    EXPECT_EQ(zel_text::Utf32ToUtf16(units, 4, text, 3), 4);
    EXPECT_EQ(WString(units, 4), ZW("a\xd83d\xde00\x00e9"));
    EXPECT_EQ(zel_text::Utf32ToUtf16(units, 3, text, 3), 0) << "target too small";
    const char32_t invalid[] = {U'a', 0x110000};
    EXPECT_EQ(zel_text::Utf32ToUtf16Length(invalid, 2), 0);
    EXPECT_EQ(zel_text::Utf32ToUtf16(units, 4, invalid, 2), 0);
}

TEST(Utf8String, ConvertsFromAndToUtf16WithEmbeddedNuls) {
    const WString text(ZW("a\0\x00e9\xd83d\xde00"), 5);
    CZelStringUtf8 utf8(CZelStringW(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(A(utf8), std::string("a\0\xc3\xa9\xf0\x9f\x98\x80", 8));
    EXPECT_EQ(W(utf8.ToWide()), text);

    CZelStringUtf8 assigned;
    assigned = ZW("\x20ac");
    EXPECT_EQ(A(assigned), "\xe2\x82\xac");
    assigned = "raw bytes";
    EXPECT_EQ(A(assigned), "raw bytes");
    const CZelStringA& asNarrow = assigned;
    EXPECT_EQ(asNarrow.GetString(), assigned.GetString()) << "a narrow string in every other way";
    EXPECT_EQ(W(CZelStringUtf8("\xc3\xa9").ToWide()), ZW("\x00e9"));
}

TEST(Utf8String, NarrowStringsUseTheAnsiCodePageAndUtf8StringsUtf8) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "the system's code pages rule on Windows";
    const UINT ansi = GetACP();
    const UINT oem = GetOEMCP();
    ASSERT_TRUE(zel_platform::SetProcessCodePages(1252, 437));
    CZelStringA narrow;
    narrow = ZW("\x00e9");
    CZelStringUtf8 utf8;
    utf8 = ZW("\x00e9");
    BSTR bstr = CZelStringA("\xe9").AllocSysString();
    zel_platform::SetProcessCodePages(ansi, oem);
    EXPECT_EQ(A(narrow), "\xe9");
    EXPECT_EQ(A(utf8), "\xc3\xa9");
    EXPECT_EQ(WString(bstr, SysStringLen(bstr)), ZW("\x00e9"));
    SysFreeString(bstr);
}
