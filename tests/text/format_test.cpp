// The printf dialect: numbers against the C library, the text rules of both
// widths, the buffer-size rules and the refused formats.
#include "zelutils/platform/win32.h"

#include "tests/support/wine.h"
#include "zelutils/text/zel_printf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

using zel_text::FormatBuffer;
using zel_text::FormatBufferV;
using zel_text::FormattedLengthV;
using WString = std::basic_string<WCHAR>;

namespace {

std::string Narrow(const char* format, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    int n = FormatBufferV(buffer, sizeof buffer, format, args);
    va_end(args);
    return n < 0 ? "<failed>" : std::string(buffer, static_cast<size_t>(n));
}

WString Wide(const WCHAR* format, ...) {
    WCHAR buffer[1024];
    va_list args;
    va_start(args, format);
    int n = FormatBufferV(buffer, 1024, format, args);
    va_end(args);
    return n < 0 ? ZW("<failed>") : WString(buffer, static_cast<size_t>(n));
}

template <typename T>
int Measure(const T* format, ...) {
    va_list args;
    va_start(args, format);
    int n = FormattedLengthV(format, args);
    va_end(args);
    return n;
}

WString Widen(const std::string& ascii) { return WString(ascii.begin(), ascii.end()); }

bool AnsiIsUtf8() { return GetACP() == 65001; }

// The same integer conversion written so that every C library reads it alike.
// ' ' and '+' mean nothing to unsigned conversions, and '#' makes a zero
// print as "0" in octal even at precision 0, but MinGW's printf applies the
// former and drops the latter; the C standard and the Microsoft runtime agree
// with the formatter.
std::string CLibraryFormat(std::string flags, const std::string& width, std::string precision,
                           char conversion) {
    if (conversion != 'd' && conversion != 'i') {
        flags.erase(std::remove_if(flags.begin(), flags.end(), [](char c) { return c == ' ' || c == '+'; }),
                    flags.end());
    }
    if (conversion == 'o' && flags.find('#') != std::string::npos && precision == ".0") precision = ".1";
    return "[%" + flags + width + precision + conversion + "]";
}

}  // namespace

// The largest block asked of operator new since a test reset it: shows that
// padding is counted instead of being printed into memory.
static std::atomic<std::size_t> gLargestAllocation{0};

void* operator new(std::size_t size) {
    std::size_t seen = gLargestAllocation.load();
    while (size > seen && !gLargestAllocation.compare_exchange_weak(seen, size)) {
    }
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
// The replacement pair is malloc and free; GCC cannot see that they match.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
#pragma GCC diagnostic pop

// The same format in both widths must give the C library's text.
#define EXPECT_LIKE_C(format, ...)                                                         \
    do {                                                                                   \
        char expected[1024];                                                               \
        std::snprintf(expected, sizeof expected, format, __VA_ARGS__);                     \
        EXPECT_EQ(Narrow(format, __VA_ARGS__), expected) << (format);                      \
        EXPECT_EQ(Wide(Widen(format).c_str(), __VA_ARGS__), Widen(expected)) << (format); \
    } while (0)

// Formats the C library cannot check: both widths against one expected text.
#define EXPECT_FORMAT(expected, format, ...)                           \
    do {                                                               \
        EXPECT_EQ(Narrow(format, __VA_ARGS__), expected) << (format);  \
        EXPECT_EQ(Wide(ZW(format), __VA_ARGS__), ZW(expected)) << (format); \
    } while (0)

TEST(FormatIntegers, MatchTheCLibraryForEveryFlagWidthAndPrecision) {
    const char* flagSets[] = {"", "-", "+", " ", "#", "0", "-0", "+ ", "#0", "+0", "-#"};
    const char* widths[] = {"", "1", "8"};
    const char* precisions[] = {"", ".0", ".3", ".12"};
    const char conversions[] = {'d', 'i', 'u', 'o', 'x', 'X'};
    const int values[] = {0, 1, -1, 42, 0x7f, INT_MAX, INT_MIN};
    for (const char* flags : flagSets) {
        for (const char* width : widths) {
            for (const char* precision : precisions) {
                for (char conversion : conversions) {
                    // Wine's msvcrt pads %a with zeros even when left-aligning.
                    if (zel_test::RunningUnderWine() && std::string(flags) == "-0" &&
                        (conversion == 'a' || conversion == 'A')) {
                        continue;
                    }
                    std::string format = std::string("[%") + flags + width + precision + conversion + "]";
                    std::string cFormat = CLibraryFormat(flags, width, precision, conversion);
                    for (int value : values) {
                        char expected[64];
                        std::snprintf(expected, sizeof expected, cFormat.c_str(), value);
                        EXPECT_EQ(Narrow(format.c_str(), value), expected) << format;
                        EXPECT_EQ(Wide(Widen(format).c_str(), value), Widen(expected)) << format;
                    }
                }
            }
        }
    }
}

TEST(FormatIntegers, SizesReadAndTruncateTheirArgument) {
    EXPECT_LIKE_C("%hd %hu %hhd %hhu %hx", 70000, 70000, 200, 300, -1);
    // l is the 32-bit LONG of the Windows runtimes on every platform.
    EXPECT_FORMAT("-2147483648 4294967295 7fffffff", "%ld %lu %lx", LONG{INT32_MIN}, ULONG{UINT32_MAX},
                  LONG{INT32_MAX});
    EXPECT_LIKE_C("%lld %llu %llo", LLONG_MIN, ULLONG_MAX, ULLONG_MAX);
    EXPECT_LIKE_C("%zu %zx %td %jd", SIZE_MAX, SIZE_MAX, PTRDIFF_MIN, INTMAX_MIN);
    EXPECT_FORMAT("-9223372036854775808 9223372036854775807", "%I64d %I64d", INT64_MIN, INT64_MAX);
    EXPECT_FORMAT("18446744073709551615 FFFFFFFFFFFFFFFF", "%I64u %I64X", UINT64_MAX, UINT64_MAX);
    EXPECT_FORMAT("-2147483648 4294967295", "%I32d %I32u", INT32_MIN, UINT32_MAX);
    // I alone is pointer-sized.
    EXPECT_EQ(Narrow("%Id|%Iu", PTRDIFF_MIN, SIZE_MAX), std::to_string(PTRDIFF_MIN) + "|" + std::to_string(SIZE_MAX));
    EXPECT_EQ(Wide(ZW("%Iu"), SIZE_MAX), Widen(std::to_string(SIZE_MAX)));
}

TEST(FormatIntegers, StarWidthAndPrecisionComeFromTheArguments) {
    EXPECT_FORMAT("[   42]", "[%*d]", 5, 42);
    EXPECT_FORMAT("[42   ]", "[%*d]", -5, 42);  // a negative width left-aligns
    EXPECT_FORMAT("[0]", "[%.*d]", -1, 0);     // a negative precision is none
    EXPECT_FORMAT("[]", "[%.*d]", 0, 0);
    EXPECT_FORMAT("[  007]", "[%*.*d]", 5, 3, 7);
    EXPECT_FORMAT("[3.14]", "[%.*f]", 2, 3.14159);
    EXPECT_EQ(Narrow("[%*.*s]", 6, 2, "abcdef"), "[    ab]");
    EXPECT_EQ(Wide(ZW("[%-*.*s]"), 6, 2, ZW("abcdef")), ZW("[ab    ]"));
}

TEST(FormatPointers, PrintEveryDigitInUpperCaseWithoutPrefix) {
    std::string zeros(2 * sizeof(void*) - 4, '0');
    auto* p = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0xBEEF));
    EXPECT_EQ(Narrow("%p", p), zeros + "BEEF");
    EXPECT_EQ(Wide(ZW("%p"), p), Widen(zeros + "BEEF"));
    EXPECT_EQ(Narrow("%p", nullptr), std::string(2 * sizeof(void*), '0'));
    EXPECT_EQ(Narrow("[%-*p]", static_cast<int>(2 * sizeof(void*) + 2), p), "[" + zeros + "BEEF  ]");
}

TEST(FormatFloats, MatchTheCLibraryForEveryFlagWidthAndPrecision) {
    const char* flagSets[] = {"", "-", "+", " ", "#", "0", "-0", "+0", "#0"};
    const char* widths[] = {"", "12"};
    const char* precisions[] = {"", ".0", ".3", ".*"};
    const char conversions[] = {'f', 'F', 'e', 'E', 'g', 'G', 'a', 'A'};
    const double values[] = {0.0, -0.0, 0.125, -2.5, 1234567.891, 1e-300, DBL_MAX, HUGE_VAL, -HUGE_VAL, NAN};
    for (const char* flags : flagSets) {
        for (const char* width : widths) {
            for (const char* precision : precisions) {
                for (char conversion : conversions) {
                    // Wine's msvcrt pads %a with zeros even when left-aligning.
                    if (zel_test::RunningUnderWine() && std::string(flags) == "-0" &&
                        (conversion == 'a' || conversion == 'A')) {
                        continue;
                    }
                    std::string format = std::string("[%") + flags + width + precision + conversion + "]";
                    bool star = std::string(precision) == ".*";
                    for (double value : values) {
                        if (star) EXPECT_LIKE_C(format.c_str(), 4, value);
                        else EXPECT_LIKE_C(format.c_str(), value);
                    }
                }
            }
        }
    }
    EXPECT_LIKE_C("%lf %Lf %Le %10.2Lf", 0.1, 0.1L, 12345.678L, -1.005L);
    EXPECT_LIKE_C("%3.1lf|%.12lf|%.6f", 0.25, 1.5, 1e300);  // 1e300 outgrows the local buffer
    EXPECT_LIKE_C("%.300f|%400.2e", 1.0 / 3.0, 2.5);
}

TEST(FormatFloats, HugeWidthsAndPrecisionsAreCountedNotAllocated) {
    gLargestAllocation = 0;
    char buffer[16];
    EXPECT_EQ(FormatBuffer(buffer, sizeof buffer, "%2147483000f", 1.0), -1);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(16, ' '));
    EXPECT_EQ(Measure("%2147483000f", 1.0), 2147483000);
    EXPECT_EQ(Measure(ZW("%-2147483000e|"), -1.0), 2147483001);
    EXPECT_EQ(Measure("%.2147483000f", 0.5), 2147483002);
    EXPECT_EQ(Measure("%2147483000f%2147483000f", 1.0, 1.0), -1) << "past INT_MAX";
    EXPECT_LT(gLargestAllocation.load(), 1u << 20);
    // Zeros past every exact digit sit where the C library puts them.
    const std::pair<const char*, double> cases[] = {
        {"%.20005f|", 1.0 / 3.0}, {"%#.20003e|", -2.5},  {"%.20002A|", 1.5},
        {"%#.20004g|", 0.1},      {"%.20004g|", 0.1},    {"%-+20010.20003e|", 7.0},
        {"%020008.20001f", -1.0}, {"%20008.20001f", NAN}, {"%.20003f", HUGE_VAL},
    };
    for (const auto& [format, value] : cases) {
        int n = std::snprintf(nullptr, 0, format, value);
        std::string expected(static_cast<size_t>(n) + 1, '\0');
        std::snprintf(&expected[0], expected.size(), format, value);
        std::string narrow(expected.size(), '\0');
        EXPECT_EQ(FormatBuffer(&narrow[0], narrow.size(), format, value), n) << format;
        EXPECT_EQ(narrow, expected) << format;
        WString wide(expected.size(), 0);
        EXPECT_EQ(FormatBuffer(&wide[0], wide.size(), Widen(format).c_str(), value), n) << format;
        EXPECT_EQ(wide, Widen(expected)) << format;
    }
}

TEST(FormatText, NarrowFormatTakesNarrowSAndWideCapitalS) {
    EXPECT_EQ(Narrow("%s|%S|%hs|%ls|%ws|%hS|%lS", "a", ZW("b"), "c", ZW("d"), ZW("e"), "f", ZW("g")), "a|b|c|d|e|f|g");
    EXPECT_EQ(Narrow("%c%C%hc%lc%wc%hC%lC", 'a', ZW('b'), 'c', ZW('d'), ZW('e'), 'f', ZW('g')), "abcdefg");
}

TEST(FormatText, WideFormatTakesWideSAndNarrowCapitalS) {
    EXPECT_EQ(Wide(ZW("%s|%S|%hs|%ls|%ws|%hS|%lS"), ZW("a"), "b", "c", ZW("d"), ZW("e"), "f", ZW("g")),
              ZW("a|b|c|d|e|f|g"));
    EXPECT_EQ(Wide(ZW("%c%C%hc%lc%wc%hC%lC"), ZW('a'), 'b', 'c', ZW('d'), ZW('e'), 'f', ZW('g')), ZW("abcdefg"));
}

TEST(FormatText, WidthPrecisionAndNullFollowTheMicrosoftRuntime) {
    EXPECT_EQ(Narrow("[%5s|%-5s|%.2s|%05s|%3c|%-3c]", "ab", "ab", "abc", "ab", 'x', 'y'), "[   ab|ab   |ab|000ab|  x|y  ]");
    EXPECT_EQ(Wide(ZW("[%5s|%-5S|%.2s|%05S|%3c|%-3C]"), ZW("ab"), "ab", ZW("abc"), "ab", ZW('x'), 'y'),
              ZW("[   ab|ab   |ab|000ab|  x|y  ]"));
    EXPECT_EQ(Narrow("%s|%S|%.3s|%8s", nullptr, nullptr, nullptr, nullptr), "(null)|(null)|(nu|  (null)");
    EXPECT_EQ(Wide(ZW("%s|%S|%.3S"), nullptr, nullptr, nullptr), ZW("(null)|(null)|(nu"));
}

TEST(FormatText, PrecisionBoundsAnUnterminatedSource) {
    const char narrow[3] = {'a', 'b', 'c'};
    const WCHAR wide[3] = {'x', 'y', 'z'};
    EXPECT_EQ(Narrow("%.3s%.3S%.2S", narrow, wide, wide), "abcxyzxy");
    EXPECT_EQ(Wide(ZW("%.3s%.3S%.2S"), wide, narrow, narrow), ZW("xyzabcab"));
}

TEST(FormatText, CharacterZeroIsWrittenAndCounted) {
    char buffer[8] = "zzzzzzz";
    EXPECT_EQ(FormatBuffer(buffer, sizeof buffer, "a%cb", 0), 3);
    EXPECT_EQ(std::string(buffer, 4), std::string("a\0b\0", 4));
}

TEST(FormatText, OtherWidthIsConvertedWithTheAnsiCodePage) {
    if (!AnsiIsUtf8()) GTEST_SKIP() << "the ANSI code page here is not UTF-8";
    EXPECT_EQ(Narrow("[%S|%5S|%C]", ZW("h\u00e9"), ZW("h\u00e9"), ZW('\u00e9')), "[h\xC3\xA9|  h\xC3\xA9|\xC3\xA9]");
    // Width counts characters of the target, precision those of the source.
    EXPECT_EQ(Wide(ZW("[%S|%4S|%.1S|%-4S]"), "h\xC3\xA9", "h\xC3\xA9", "h\xC3\xA9", "h\xC3\xA9"),
              ZW("[h\u00e9|  h\u00e9|h|h\u00e9  ]"));
    EXPECT_EQ(Measure("%S", ZW("\u00e9\u00e9")), 4);
    EXPECT_EQ(Measure(ZW("%S"), "\xC3\xA9\xC3\xA9"), 2);
    // Converted text that does not fit is cut at the buffer's end.
    WCHAR wide[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(FormatBuffer(wide, 3, ZW("%S"), "ab\xC3\xA9z"), -1);
    EXPECT_EQ(WString(wide, 4), ZW("ab\u00e9#"));
    char narrow[4] = "###";
    EXPECT_EQ(FormatBuffer(narrow, 2, "a%S", ZW("\u00e9")), -1);
    EXPECT_EQ(std::string(narrow, 3), "a\xC3#");
}

template <typename T>
void CheckBufferRules(const T* format, const T* text) {
    T buffer[8];
    auto reset = [&] { std::fill(buffer, buffer + 8, T('#')); };
    reset();
    EXPECT_EQ(FormatBuffer(buffer, 6, format, text), 5);  // text and terminator fit
    EXPECT_EQ(buffer[4], T('o'));
    EXPECT_EQ(buffer[5], T(0));
    reset();
    EXPECT_EQ(FormatBuffer(buffer, 5, format, text), 5);  // exactly fits: no terminator
    EXPECT_EQ(buffer[4], T('o'));
    EXPECT_EQ(buffer[5], T('#'));
    reset();
    EXPECT_EQ(FormatBuffer(buffer, 4, format, text), -1);  // too long: cut, no terminator
    EXPECT_EQ(buffer[3], T('l'));
    EXPECT_EQ(buffer[4], T('#'));
    reset();
    EXPECT_EQ(FormatBuffer(buffer, 0, format, text), -1);
    EXPECT_EQ(buffer[0], T('#'));
    const T empty[] = {0};
    EXPECT_EQ(FormatBuffer(buffer, 0, empty), 0);
    EXPECT_EQ(FormatBuffer(static_cast<T*>(nullptr), 0, format, text), 5);  // measures
    EXPECT_EQ(FormatBuffer(static_cast<T*>(nullptr), 4, format, text), -1);
    EXPECT_EQ(FormatBuffer(buffer, 8, static_cast<const T*>(nullptr)), -1);
}

TEST(FormatBuffer, FollowsTheVsnprintfSizeRules) {
    CheckBufferRules("%s", "hello");
    CheckBufferRules(ZW("%s"), ZW("hello"));
}

TEST(FormatBuffer, LongTextIsMeasuredAndCutWhole) {
    EXPECT_EQ(Measure("%d|%s|%400d", 12345, "abc", 1), 5 + 1 + 3 + 1 + 400);
    EXPECT_EQ(Measure(ZW("%-300s|%.100f"), ZW("x"), 1.0), 300 + 1 + 102);
    EXPECT_EQ(Measure(""), 0);
    char buffer[16];
    EXPECT_EQ(FormatBuffer(buffer, sizeof buffer, "%400d", 7), -1);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(16, ' '));
}

TEST(FormatBuffer, RefusesNAndMalformedFormatsLeavingAnEmptyText) {
    int written = 77;
    char narrow[16] = "untouched";
    EXPECT_EQ(FormatBuffer(narrow, sizeof narrow, "abc%d%n", 5, &written), -1);
    EXPECT_EQ(written, 77);
    EXPECT_EQ(narrow[0], 0);
    EXPECT_EQ(Measure("%n", &written), -1);
    EXPECT_EQ(written, 77);
    WCHAR wide[16];
    EXPECT_EQ(FormatBuffer(wide, 16, ZW("x%ln"), &written), -1);
    EXPECT_EQ(wide[0], 0);
    const char* malformed[] = {"%k", "abc%", "%5", "%wd", "%hf", "%hhs", "%I64s", "%2147483648d", "%.2147483648f",
                               "%\xC3\xA9"};
    for (const char* format : malformed) EXPECT_EQ(Measure(format, 1), -1) << format;
    EXPECT_EQ(Measure("%*d", INT_MIN, 1), -1);
}

TEST(FormatBuffer, PercentAndLiteralsPassThrough) {
    EXPECT_FORMAT("100% sure, 50%", "%d%% sure, %d%%", 100, 50);
    EXPECT_EQ(Narrow("caf\xC3\xA9 %d", 1), "caf\xC3\xA9 1");
    EXPECT_EQ(Wide(ZW("caf\u00e9 %d"), 1), ZW("caf\u00e9 1"));
}

TEST(FormatBuffer, LogPrefixComesOutAsTheCLibraryPrintsIt) {
    const char* prefix = "%02d:%02d:%02d.%03d ; %08x ; ";
    EXPECT_LIKE_C(prefix, 7, 5, 9, 42, 0xBEEFu);
    EXPECT_EQ(Wide(ZW("%02d:%02d:%02d.%03d ; %08x ; %ls"), 23, 59, 0, 7, 0x1A2Bu, ZW("ready")),
              ZW("23:59:00.007 ; 00001a2b ; ready"));
}
