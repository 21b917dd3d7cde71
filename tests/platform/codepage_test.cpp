// Code-page conversions: the UTF-8 codec, the Win32 argument rules, iconv
// code pages, code page descriptions and the process's ANSI/OEM settings.
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using WString = std::basic_string<WCHAR>;

/// Converts with a measuring call first, as callers do; the converting call
/// must write exactly what the measure announced.
WString ToWide(UINT codePage, const std::string& bytes) {
    const int size = static_cast<int>(bytes.size());
    const int needed = MultiByteToWideChar(codePage, 0, bytes.data(), size, nullptr, 0);
    EXPECT_GT(needed, 0) << "error " << GetLastError();
    WString wide(static_cast<std::size_t>(needed), u'\0');
    EXPECT_EQ(MultiByteToWideChar(codePage, 0, bytes.data(), size, wide.data(), needed), needed);
    return wide;
}

std::string ToNarrow(UINT codePage, const WString& wide) {
    const int size = static_cast<int>(wide.size());
    const int needed = WideCharToMultiByte(codePage, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    EXPECT_GT(needed, 0) << "error " << GetLastError();
    std::string bytes(static_cast<std::size_t>(needed), '\0');
    EXPECT_EQ(WideCharToMultiByte(codePage, 0, wide.data(), size, bytes.data(), needed, nullptr, nullptr), needed);
    return bytes;
}

std::string Hex(const WString& text) {
    std::string hex;
    char unit[8];
    for (WCHAR c : text) {
        std::snprintf(unit, sizeof unit, "%04X ", static_cast<unsigned>(c));
        hex += unit;
    }
    return hex;
}

std::string Hex(const std::string& bytes) {
    std::string hex;
    char byte[4];
    for (char c : bytes) {
        std::snprintf(byte, sizeof byte, "%02X ", static_cast<unsigned char>(c));
        hex += byte;
    }
    return hex;
}

constexpr WCHAR kFffd = 0xFFFD;

}  // namespace

// ---------------------------------------------------------------- UTF-8

TEST(Utf8Codec, RoundTripsAllSequenceLengthsAndEmbeddedNuls) {
    const std::string utf8("A\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\0z\xF4\x8F\xBF\xBF\xEF\xBF\xBF", 20);
    const WString wide{u'A', 0, 0xE9, 0x20AC, 0xD83D, 0xDE00, 0, u'z', 0xDBFF, 0xDFFF, 0xFFFF};
    EXPECT_EQ(Hex(ToWide(CP_UTF8, utf8)), Hex(wide));
    EXPECT_EQ(Hex(ToNarrow(CP_UTF8, wide)), Hex(utf8));
}

TEST(Utf8Codec, EachMaximalIllFormedSubpartBecomesOneReplacement) {
    struct Case {
        std::string bytes;
        WString expected;
    };
    const Case cases[] = {
        {"\x80", {kFffd}},                                            // stray continuation
        {"\xBF\x80" "a", {kFffd, kFffd, u'a'}},
        {"\xC0\x80", {kFffd, kFffd}},                                 // overlong NUL
        {"\xC1\xBF", {kFffd, kFffd}},
        {"\xC2", {kFffd}},                                            // truncated by the end
        {"\xC2" "A", {kFffd, u'A'}},
        {"\xE2\x82" "A", {kFffd, u'A'}},                              // truncated before ASCII
        {"\xE2\x82", {kFffd}},
        {"\xE2\x82\xC3\xA9", {kFffd, 0xE9}},                          // truncated before a valid sequence
        {"\xF0\x9F\x98", {kFffd}},
        {"\xF0\x9F\x98" "A", {kFffd, u'A'}},
        {"\xF5\x80\x80\x80", {kFffd, kFffd, kFffd, kFffd}},
        {"\xF8\x88\x80\x80\x80", {kFffd, kFffd, kFffd, kFffd, kFffd}},  // old 5-byte form
        {"\xFE\xFF", {kFffd, kFffd}},
        // The boundaries just inside the valid ranges.
        {"\xED\x9F\xBF\xEE\x80\x80", {0xD7FF, 0xE000}},
        {"\xE0\xA0\x80\xF0\x90\x80\x80", {0x0800, 0xD800, 0xDC00}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Hex(ToWide(CP_UTF8, c.bytes)), Hex(c.expected)) << "bytes " << Hex(c.bytes);
    }
    // A lead byte with a continuation byte outside its range (an overlong
    // form, an encoded surrogate, above 10FFFF) is one U+FFFD with that
    // byte; what follows is decoded on its own. This is the Windows result.
    const Case rangeCases[] = {
        {"\xE0\x80\x80", {kFffd, kFffd}},                             // overlong 3-byte
        {"\xE0\x9F\xBF", {kFffd, kFffd}},
        {"-\xED\xA0\x80-", {u'-', kFffd, kFffd, u'-'}},               // encoded surrogates
        {"\xED\xBF\xBF", {kFffd, kFffd}},
        {"\xF0\x80\x80\x80", {kFffd, kFffd, kFffd}},                  // overlong 4-byte
        {"\xF0\x8F\xBF\xBF" "a", {kFffd, kFffd, kFffd, u'a'}},
        {"\xF4\x90\x80\x80", {kFffd, kFffd, kFffd}},                  // above 10FFFF
        {"\xE0\x80", {kFffd}},
        // The example the Unicode standard gives for this practice.
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
         {0x61, kFffd, kFffd, kFffd, 0x62, kFffd, 0x63, kFffd, kFffd, 0x64}},
    };
    for (const Case& c : rangeCases) {
        EXPECT_EQ(Hex(ToWide(CP_UTF8, c.bytes)), Hex(c.expected)) << "bytes " << Hex(c.bytes);
    }
}

TEST(Utf8Codec, LoneSurrogatesBecomeTheReplacementCharacter) {
    const std::string replacement = "\xEF\xBF\xBD";
    struct Case {
        WString wide;
        std::string expected;
    };
    const Case cases[] = {
        {{0xD800}, replacement},
        {{0xDC00}, replacement},
        {{0xD800, u'a'}, replacement + "a"},
        {{u'a', 0xDFFF}, "a" + replacement},
        {{0xDC00, 0xD800}, replacement + replacement},
        {{0xD83D, 0xD83D, 0xDE00}, replacement + "\xF0\x9F\x98\x80"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Hex(ToNarrow(CP_UTF8, c.wide)), Hex(c.expected)) << "units " << Hex(c.wide);
    }
}

// A non-ASCII character at every position of ASCII text of every length up to
// 40, so the block loops' entries and tails are all reached, with a target of
// exactly the size needed and one unit too small.
TEST(Utf8Codec, NonAsciiCharacterAtEveryPositionNearBlockBoundaries) {
    struct Insert {
        std::string utf8;
        WString utf16;
    };
    const Insert inserts[] = {
        {"\xC3\xA9", {0xE9}},
        {"\xE2\x82\xAC", {0x20AC}},
        {"\xF0\x9F\x98\x80", {0xD83D, 0xDE00}},
    };
    for (const Insert& insert : inserts) {
        for (std::size_t length = 1; length <= 40; ++length) {
            for (std::size_t at = 0; at < length; ++at) {
                std::string utf8;
                WString utf16;
                for (std::size_t i = 0; i < length; ++i) {
                    if (i == at) {
                        utf8 += insert.utf8;
                        utf16 += insert.utf16;
                    } else {
                        utf8 += static_cast<char>('a' + i % 26);
                        utf16 += static_cast<WCHAR>('a' + i % 26);
                    }
                }
                SCOPED_TRACE("length " + std::to_string(length) + " at " + std::to_string(at) + ": " + Hex(utf8));
                ASSERT_EQ(ToWide(CP_UTF8, utf8), utf16);
                ASSERT_EQ(ToNarrow(CP_UTF8, utf16), utf8);
                // One unit short; the emulation never splits a surrogate pair
                // (a capacity of 0 would measure).
                if (zel_platform::kEmulated && utf16.size() > 1) {
                    WString wide(utf16.size() - 1, u'\0');
                    SetLastError(0);
                    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                                  wide.data(), static_cast<int>(wide.size())),
                              0);
                    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
                }
                std::string narrow(utf8.size(), '\0');
                SetLastError(0);
                EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, utf16.data(), static_cast<int>(utf16.size()),
                                              narrow.data(), static_cast<int>(narrow.size()) - 1, nullptr, nullptr),
                          0);
                EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
            }
        }
    }
}

TEST(Utf8Codec, NothingBeyondTheConvertedTextIsWritten) {
    // Inputs whose ASCII starts are converted a block at a time while the
    // text converted is shorter than the block.
    std::string utf8 = "abc";
    WString utf16 = ZW("abc");
    for (int i = 0; i < 15; ++i) {
        utf8 += "\xE2\x82\xAC";
        utf16 += static_cast<WCHAR>(0x20AC);
    }
    for (std::size_t length = 18; length <= utf8.size(); length += 3) {
        WString wide(64, u'#');
        const int written = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(length), wide.data(), 64);
        ASSERT_GT(written, 0);
        EXPECT_EQ(wide.substr(0, static_cast<std::size_t>(written)), ToWide(CP_UTF8, utf8.substr(0, length)));
        EXPECT_EQ(wide.substr(static_cast<std::size_t>(written)), WString(64 - written, u'#')) << length;
    }
    std::string narrow(64, '#');
    const int written = WideCharToMultiByte(CP_UTF8, 0, utf16.data(), static_cast<int>(utf16.size()), narrow.data(),
                                            64, nullptr, nullptr);
    ASSERT_EQ(written, static_cast<int>(utf8.size()));
    EXPECT_EQ(narrow, utf8 + std::string(64 - utf8.size(), '#'));
}

TEST(Utf8Codec, RandomTextRoundTripsAndRandomBytesDecodeStably) {
    std::mt19937 random(12345);
    std::uniform_int_distribution<std::uint32_t> pick(0, 0x10FFFF);
    std::uniform_int_distribution<int> kind(0, 3);
    WString text;
    for (int i = 0; i < 20000; ++i) {
        std::uint32_t cp = pick(random);
        if (kind(random) == 0) cp &= 0x7F;
        if (cp >= 0xD800 && cp <= 0xDFFF) cp = 0xFFFD;
        if (cp >= 0x10000) {
            text += static_cast<WCHAR>(0xD800 + ((cp - 0x10000) >> 10));
            text += static_cast<WCHAR>(0xDC00 + (cp & 0x3FF));
        } else {
            text += static_cast<WCHAR>(cp);
        }
    }
    EXPECT_EQ(ToWide(CP_UTF8, ToNarrow(CP_UTF8, text)), text);

    // Any bytes decode to well-formed UTF-16, which then round-trips.
    std::uniform_int_distribution<int> byte(0, 255);
    std::string bytes;
    for (int i = 0; i < 20000; ++i) bytes += static_cast<char>(i % 3 == 0 ? byte(random) : 0x80 | byte(random));
    const WString decoded = ToWide(CP_UTF8, bytes);
    EXPECT_EQ(ToWide(CP_UTF8, ToNarrow(CP_UTF8, decoded)), decoded);
}

// ---------------------------------------------------------------- arguments

TEST(CodePageArguments, ANegativeCountConvertsAndCountsTheTerminator) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -2002, nullptr, 0), 3);
    EXPECT_EQ(WideCharToMultiByte(1252, 0, ZW("h\u00E9"), -2, nullptr, 0, nullptr, nullptr), 3);
    WCHAR wide[8];
    ASSERT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, wide, 8), 3);
    EXPECT_EQ(WString(wide, 3), (WString{u'h', 0xE9, 0}));

    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, ZW("h\u00E9"), -1, nullptr, 0, nullptr, nullptr), 4);
    char narrow[8];
    ASSERT_EQ(WideCharToMultiByte(CP_UTF8, 0, ZW("h\u00E9"), -1, narrow, 8, nullptr, nullptr), 4);
    EXPECT_EQ(std::string(narrow, 4), std::string("h\xC3\xA9", 4));

    ASSERT_EQ(WideCharToMultiByte(1252, 0, ZW("h\u00E9"), -1, narrow, 8, nullptr, nullptr), 3);
    EXPECT_EQ(std::string(narrow, 3), std::string("h\xE9", 3));
}

TEST(CodePageArguments, ZeroCapacityMeasuresWhateverTheTarget) {
    WCHAR wide[1];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, wide, 0), 3);
    char narrow[1];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, ZW("\u20AC"), 1, narrow, 0, nullptr, nullptr), 3);
    EXPECT_EQ(WideCharToMultiByte(932, 0, ZW("\u65E5a"), 2, narrow, 0, nullptr, nullptr), 3);
}

template <class Call>
void ExpectFailure(const char* what, DWORD error, Call call) {
    SetLastError(0);
    EXPECT_EQ(call(), 0) << what;
    EXPECT_EQ(GetLastError(), error) << what;
}

TEST(CodePageArguments, BadArgumentsFailWithTheWin32Errors) {
    WCHAR wide[8];
    char narrow[8];
    BOOL used = FALSE;
    ExpectFailure("zero count", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0, "a", 0, wide, 8); });
    ExpectFailure("null source", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, wide, 8); });
    ExpectFailure("negative capacity", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0, "a", 1, wide, -1); });
    ExpectFailure("null target", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 8); });
    ExpectFailure("flags", ERROR_INVALID_FLAGS,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0x10000, "a", 1, wide, 8); });
    ExpectFailure("unknown code page", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(123456, 0, "a", 1, wide, 8); });
    ExpectFailure("unknown code page and flags", ERROR_INVALID_PARAMETER,
                  [&] { return MultiByteToWideChar(123456, 0x10000, "a", 1, wide, 8); });
    ExpectFailure("wide unknown code page and flags", ERROR_INVALID_PARAMETER, [&] {
        return WideCharToMultiByte(123456, 0x10000, ZW("a"), 1, narrow, 8, nullptr, nullptr);
    });
    ExpectFailure("too small", ERROR_INSUFFICIENT_BUFFER,
                  [&] { return MultiByteToWideChar(CP_UTF8, 0, "abc", 3, wide, 2); });
    ExpectFailure("too small, iconv", ERROR_INSUFFICIENT_BUFFER,
                  [&] { return MultiByteToWideChar(1252, 0, "abc", 3, wide, 2); });

    ExpectFailure("wide zero count", ERROR_INVALID_PARAMETER,
                  [&] { return WideCharToMultiByte(CP_UTF8, 0, ZW("a"), 0, narrow, 8, nullptr, nullptr); });
    ExpectFailure("wide null target", ERROR_INVALID_PARAMETER,
                  [&] { return WideCharToMultiByte(CP_UTF8, 0, ZW("a"), 1, nullptr, 8, nullptr, nullptr); });
    ExpectFailure("wide flags", ERROR_INVALID_FLAGS,
                  [&] { return WideCharToMultiByte(1252, 0x10000, ZW("a"), 1, narrow, 8, nullptr, nullptr); });
    // Windows documents this failure; Wine, which runs the Windows build of
    // the tests, accepts the call.
    if (zel_platform::kEmulated) {
        ExpectFailure("UTF-8 with a default character", ERROR_INVALID_PARAMETER,
                      [&] { return WideCharToMultiByte(CP_UTF8, 0, ZW("a"), 1, narrow, 8, "?", nullptr); });
        ExpectFailure("UTF-8 with a used-default flag", ERROR_INVALID_PARAMETER,
                      [&] { return WideCharToMultiByte(CP_UTF8, 0, ZW("a"), 1, narrow, 8, nullptr, &used); });
    }
    ExpectFailure("wide too small", ERROR_INSUFFICIENT_BUFFER,
                  [&] { return WideCharToMultiByte(CP_UTF8, 0, ZW("\u00E9"), 1, narrow, 1, nullptr, nullptr); });
    ExpectFailure("wide too small, iconv", ERROR_INSUFFICIENT_BUFFER,
                  [&] { return WideCharToMultiByte(932, 0, ZW("\u65E5"), 1, narrow, 1, nullptr, nullptr); });
}

// ---------------------------------------------------------------- iconv code pages

TEST(Cp1252, RoundTripsWindowsPunctuationAndUndefinedBytes) {
    const std::string bytes("caf\xE9 \x80\x85\x91\x9F \x81\x8D\x8F\x90\x9D");
    const WString wide{u'c', u'a', u'f', 0xE9, u' ', 0x20AC, 0x2026, 0x2018, 0x0178, u' ',
                       0x81, 0x8D, 0x8F, 0x90, 0x9D};
    EXPECT_EQ(Hex(ToWide(1252, bytes)), Hex(wide));
    EXPECT_EQ(Hex(ToNarrow(1252, wide)), Hex(bytes));
}

TEST(Cp1252, MissingCharactersBecomeTheDefaultCharacter) {
    const WString wide{u'a', 0x4E00, u'b', 0xD83D, 0xDE00, u'c', 0xDC00, 0x80};
    // One default character per unit of a surrogate pair, as the Windows tables give.
    EXPECT_EQ(ToNarrow(1252, wide), "a?b??c??");
    char narrow[16];
    BOOL used = FALSE;
    int written = WideCharToMultiByte(1252, 0, wide.data(), static_cast<int>(wide.size()), narrow, 16, "*", &used);
    EXPECT_EQ(std::string(narrow, static_cast<std::size_t>(written)), "a*b**c**");
    EXPECT_TRUE(used);
    written = WideCharToMultiByte(1252, 0, ZW("\u00E9t\u00E9"), 3, narrow, 16, nullptr, &used);
    EXPECT_EQ(written, 3);
    EXPECT_FALSE(used);
}

TEST(Cp1252, ACutConversionReportsOnlyTheDefaultCharactersItStored) {
    char narrow[4];
    BOOL used = TRUE;
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(1252, 0, ZW("Th\u0440i"), 4, narrow, 1, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_FALSE(used) << "the conversion stopped before the missing character";
    EXPECT_EQ(WideCharToMultiByte(1252, 0, ZW("Th\u0440i"), 4, narrow, 3, nullptr, &used), 0);
    EXPECT_TRUE(used);
}

TEST(Cp1252, LongTextCrossesTheConversionChunksIntact) {
    WString wide;
    std::string expected;
    for (int i = 0; i < 30000; ++i) {
        if (i % 97 == 0) {
            wide += static_cast<WCHAR>(0x4E00);
            expected += '?';
        } else if (i % 13 == 0) {
            wide += static_cast<WCHAR>(0x20AC);
            expected += '\x80';
        } else {
            wide += static_cast<WCHAR>('a' + i % 26);
            expected += static_cast<char>('a' + i % 26);
        }
    }
    EXPECT_EQ(ToNarrow(1252, wide), expected);
    WString back = wide;
    for (WCHAR& c : back) {
        if (c == 0x4E00) c = u'?';
    }
    EXPECT_EQ(ToWide(1252, expected), back);
}

TEST(Cp932, RoundTripsJapaneseText) {
    // "日本語のテキスト" and half-width katakana "ｱ".
    const std::string bytes("\x93\xFA\x96\x7B\x8C\xEA\x82\xCC\x83\x65\x83\x4C\x83\x58\x83\x67 \xB1");
    const WString wide{0x65E5, 0x672C, 0x8A9E, 0x306E, 0x30C6, 0x30AD, 0x30B9, 0x30C8, u' ', 0xFF71};
    EXPECT_EQ(Hex(ToWide(932, bytes)), Hex(wide));
    EXPECT_EQ(Hex(ToNarrow(932, wide)), Hex(bytes));
    EXPECT_EQ(ToNarrow(932, WString{0x0E01, u'x'}), "?x");
}

TEST(Cp932, UndecodableBytesBecomeTheKatakanaMiddleDot) {
    struct Case {
        std::string bytes;
        WString expected;
    };
    const Case cases[] = {
        {"a\x93", {u'a', 0x30FB}},       // lead byte cut off by the end
        {"\x81 b", {0x30FB, u'b'}},      // a lead byte takes the next byte along
        {"\x81\x7F" "c", {0x30FB, u'c'}},
        {"\xEB\x40" "d", {0x30FB, u'd'}},  // a pair without a character
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Hex(ToWide(932, c.bytes)), Hex(c.expected)) << "bytes " << Hex(c.bytes);
    }
}

TEST(Cp932, Byte80IsACharacterOfItsOwn) {
    EXPECT_EQ(Hex(ToWide(932, "a\x80" "b")), Hex(WString{u'a', 0x80, u'b'}));
    EXPECT_EQ(Hex(ToNarrow(932, WString{0x80, 0x4E9C})), Hex(std::string("\x80\x88\x9F")));
}

TEST(Cp932, AShortTargetNeverReceivesHalfACharacter) {
    // 亜亜 is 88 9F 88 9F; the trail byte 9F is itself in the lead-byte range.
    const WString text{0x4E9C, 0x4E9C};
    for (int capacity : {1, 2, 3}) {
        char narrow[4] = {'x', 'x', 'x', 'x'};
        SetLastError(0);
        EXPECT_EQ(WideCharToMultiByte(932, 0, text.data(), 2, narrow, capacity, nullptr, nullptr), 0);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        const std::string expected = capacity == 1 ? "xxxx" : "\x88\x9F" "xx";
        EXPECT_EQ(Hex(std::string(narrow, 4)), Hex(expected)) << "capacity " << capacity;
    }
}

TEST(IconvCodePages, ALastLetterThatAMarkCouldFollowIsNotLost) {
    // Vietnamese and Hebrew text compose base letters with later marks.
    for (UINT codePage : {1255u, 1258u}) {
        CPINFO info;
        if (!GetCPInfo(codePage, &info)) continue;
        WCHAR wide[8] = {};
        EXPECT_EQ(MultiByteToWideChar(codePage, 0, "abc", 3, wide, 8), 3) << codePage;
        EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(wide)), u"abc") << codePage;
    }
}

TEST(IconvCodePages, ConcurrentConversionsGiveTheSameResults) {
    const std::string japanese("\x93\xFA\x96\x7B\x8C\xEA", 6);
    const WString japaneseWide{0x65E5, 0x672C, 0x8A9E};
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i) {
                WCHAR wide[8];
                char narrow[8];
                int n = MultiByteToWideChar(932, 0, japanese.data(), 6, wide, 8);
                if (WString(wide, static_cast<std::size_t>(n)) != japaneseWide) ++failures[t];
                n = WideCharToMultiByte(t % 2 == 0 ? 932 : 1252, 0, japaneseWide.data(), 3, narrow, 8, nullptr,
                                        nullptr);
                if (std::string(narrow, static_cast<std::size_t>(n)) != (t % 2 == 0 ? japanese : "???")) ++failures[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

// ---------------------------------------------------------------- descriptions

TEST(GetCPInfo, DescribesSingleByteDoubleByteAndUtf8CodePages) {
    CPINFO info;
    ASSERT_TRUE(GetCPInfo(1252, &info));
    EXPECT_EQ(info.MaxCharSize, 1u);
    EXPECT_EQ(info.DefaultChar[0], '?');
    EXPECT_EQ(info.LeadByte[0], 0);

    ASSERT_TRUE(GetCPInfo(932, &info));
    EXPECT_EQ(info.MaxCharSize, 2u);
    EXPECT_EQ(info.DefaultChar[0], '?');
    const BYTE leads[] = {0x81, 0x9F, 0xE0, 0xFC, 0, 0};
    EXPECT_TRUE(std::equal(std::begin(leads), std::end(leads), info.LeadByte));

    ASSERT_TRUE(GetCPInfo(CP_UTF8, &info));
    EXPECT_EQ(info.MaxCharSize, 4u);
    EXPECT_EQ(info.DefaultChar[0], '?');

    SetLastError(0);
    EXPECT_FALSE(GetCPInfo(4242424, &info));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetLastError(0);
    EXPECT_FALSE(GetCPInfo(1252, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// ---------------------------------------------------------------- process code pages

class ProcessCodePages : public ::testing::Test {
protected:
    void SetUp() override {
        if (!zel_platform::kEmulated) {
            GTEST_SKIP() << "the system's code pages rule on Windows";
        }
        ansi_ = GetACP();
        oem_ = GetOEMCP();
    }
    void TearDown() override {
        if (zel_platform::kEmulated) {
            EXPECT_TRUE(zel_platform::SetProcessCodePages(ansi_, oem_));
        }
    }

private:
    UINT ansi_ = 0;
    UINT oem_ = 0;
};

TEST_F(ProcessCodePages, ZeroAndOneFollowTheSettingsFromUtf8And437) {
    struct Case {
        UINT ansi;
        UINT oem;
        std::string ansiText;  // e-acute and the euro sign
        std::string oemText;   // e-acute and the multiplication sign
        UINT ansiMaxCharSize;
    };
    const Case cases[] = {
        {CP_UTF8, 437, "\xC3\xA9\xE2\x82\xAC", "\x82?", 4},  // the defaults
        {1252, 850, "\xE9\x80", "\x82\x9E", 1},
    };
    for (const Case& c : cases) {
        if (c.ansi != GetACP()) {
            ASSERT_TRUE(zel_platform::SetProcessCodePages(c.ansi, c.oem));
        }
        EXPECT_EQ(GetACP(), c.ansi);
        EXPECT_EQ(GetOEMCP(), c.oem);
        EXPECT_EQ(ToNarrow(CP_ACP, WString{0xE9, 0x20AC}), c.ansiText);
        EXPECT_EQ(ToWide(CP_ACP, c.ansiText), (WString{0xE9, 0x20AC}));
        EXPECT_EQ(ToNarrow(CP_OEMCP, WString{0xE9, 0xD7}), c.oemText);
        CPINFO info;
        ASSERT_TRUE(GetCPInfo(CP_ACP, &info));
        EXPECT_EQ(info.MaxCharSize, c.ansiMaxCharSize);
    }
}

TEST_F(ProcessCodePages, UnavailableCodePagesChangeNothing) {
    ASSERT_TRUE(zel_platform::SetProcessCodePages(932, 437));
    EXPECT_FALSE(zel_platform::SetProcessCodePages(4242424, 850));
    EXPECT_FALSE(zel_platform::SetProcessCodePages(1252, 4242424));
    EXPECT_FALSE(zel_platform::SetProcessCodePages(CP_OEMCP, 850));
    EXPECT_EQ(GetACP(), 932u);
    EXPECT_EQ(GetOEMCP(), 437u);
}
