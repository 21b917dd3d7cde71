// The UTF-8 codec's paths: each one the processor runs gives the plain
// path's results (measure, conversion, what a short target receives, nothing
// written past the text) on random text, well-formed or not, of every length
// up to a few hundred units at every alignment.
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using WString = std::basic_string<WCHAR>;
using zel_platform::Utf8CodecPath;

constexpr Utf8CodecPath kVectorPaths[] = {Utf8CodecPath::kSse41, Utf8CodecPath::kAvx2};
constexpr std::size_t kMaxLength = 300;
constexpr std::size_t kAlignments = 16;

class Utf8CodecPaths : public ::testing::Test {
protected:
    void TearDown() override { zel_platform::SetUtf8CodecPath(Utf8CodecPath::kFastest); }
};

std::string Utf8Of(char32_t c) {
    std::string s;
    if (c < 0x80) {
        s += static_cast<char>(c);
    } else if (c < 0x800) {
        s += static_cast<char>(0xC0 | c >> 6);
    } else if (c < 0x10000) {
        s += static_cast<char>(0xE0 | c >> 12);
    } else {
        s += static_cast<char>(0xF0 | c >> 18);
        s += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    }
    if (c >= 0x800) s += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    if (c >= 0x80) s += static_cast<char>(0x80 | (c & 0x3F));
    return s;
}

/// A random code point of 1 to 4 UTF-8 bytes (`bytes`), boundaries included.
char32_t RandomCodePoint(std::mt19937& random, int bytes) {
    static const char32_t kLow[] = {0, 0x80, 0x800, 0x10000};
    static const char32_t kHigh[] = {0x7F, 0x7FF, 0xFFFF, 0x10FFFF};
    const char32_t low = kLow[bytes - 1];
    const char32_t high = kHigh[bytes - 1];
    switch (random() % 8) {
    case 0:
        return low;
    case 1:
        return high;
    default:
        char32_t c = low + random() % (high - low + 1);
        return c >= 0xD800 && c <= 0xDFFF ? c - 0x800 : c;  // 0xD7FF and 0xE000 come up too
    }
}

/// Random UTF-8 of at least `length` bytes in runs of one script or mixed
/// ones; with `broken`, now and then an ill-formed part of each kind the
/// decoder tells apart.
std::string RandomUtf8(std::mt19937& random, std::size_t length, bool broken) {
    static const char* const kIllFormed[] = {
        "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\x80", "\xE0\xA0", "\xED\xA0\x80", "\xED\x9F",
        "\xEF\xBF", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF4\x8F\xBF", "\xF5\x80\x80\x80",
        "\xFF", "\xF8\x88\x80\x80\x80", "\xC3\xE2\x82\xAC", "\xE2\x82\x41", "\xF0\x9F\x98\xF0\x9F\x98\x80"};
    std::string text;
    while (text.size() < length) {
        const int script = static_cast<int>(random() % 5);  // 0: mixed, else that many bytes a character
        for (std::size_t run = random() % 24; run > 0 && text.size() < length; --run) {
            if (broken && random() % 24 == 0) {
                text += kIllFormed[random() % (sizeof kIllFormed / sizeof *kIllFormed)];
            } else {
                text += Utf8Of(RandomCodePoint(random, script == 0 ? static_cast<int>(1 + random() % 4) : script));
            }
        }
    }
    return text;
}

/// Random UTF-16 of at least `length` units; with `broken`, now and then a
/// lone surrogate.
WString RandomUtf16(std::mt19937& random, std::size_t length, bool broken) {
    WString text;
    while (text.size() < length) {
        const int script = static_cast<int>(random() % 5);
        for (std::size_t run = random() % 24; run > 0 && text.size() < length; --run) {
            if (broken && random() % 24 == 0) {
                text += static_cast<WCHAR>(random() % 2 ? 0xD800 + random() % 0x400 : 0xDC00 + random() % 0x400);
                continue;
            }
            const char32_t c = RandomCodePoint(random, script == 0 ? static_cast<int>(1 + random() % 4) : script);
            if (c >= 0x10000) {
                text += static_cast<WCHAR>(0xD7C0 + (c >> 10));
                text += static_cast<WCHAR>(0xDC00 | (c & 0x3FF));
            } else {
                text += static_cast<WCHAR>(c);
            }
        }
    }
    return text;
}

/// What the conversions of source through the current path give: the
/// measure, the text converted into a target of that size and into a larger
/// one (past the text, untouched), and what targets too small receive up to
/// their last whole character, with the error.
template <typename Source, typename Target, typename Call, typename Whole>
std::vector<std::basic_string<Target>> Transcript(const Source* source, int length, Call call, Whole isWhole) {
    using Text = std::basic_string<Target>;
    constexpr Target kUntouched = static_cast<Target>(0x5A);
    const auto number = [](long value) {
        const std::string digits = std::to_string(value);
        return Text(digits.begin(), digits.end());
    };
    std::vector<Text> transcript;
    const int needed = call(source, length, nullptr, 0);
    transcript.push_back(number(needed));
    Text target(static_cast<std::size_t>(needed) + 40, kUntouched);
    for (int capacity : {needed, needed + 40}) {
        transcript.push_back(number(call(source, length, target.data(), capacity)));
        transcript.push_back(target);
        EXPECT_EQ(target.substr(static_cast<std::size_t>(needed)), Text(40, kUntouched));
        target.assign(target.size(), kUntouched);
    }
    const Text whole = transcript[2].substr(0, static_cast<std::size_t>(needed));
    for (int capacity : {1, needed / 2, needed - 1}) {
        if (capacity <= 0 || capacity >= needed) continue;
        SetLastError(0);
        transcript.push_back(number(call(source, length, target.data(), capacity)));
        transcript.push_back(number(static_cast<long>(GetLastError())));
        std::size_t fits = static_cast<std::size_t>(capacity);
        while (!isWhole(whole, fits)) --fits;
        transcript.push_back(target.substr(0, fits));
        EXPECT_EQ(transcript.back(), whole.substr(0, fits));
    }
    return transcript;
}

auto DecodeTranscript(const char* source, int length) {
    return Transcript<char, WCHAR>(
        source, length,
        [](const char* s, int n, WCHAR* t, int capacity) { return MultiByteToWideChar(CP_UTF8, 0, s, n, t, capacity); },
        [](const WString& whole, std::size_t at) { return at == 0 || (whole[at - 1] & 0xFC00) != 0xD800; });
}

auto EncodeTranscript(const WCHAR* source, int length) {
    return Transcript<WCHAR, char>(
        source, length,
        [](const WCHAR* s, int n, char* t, int capacity) {
            return WideCharToMultiByte(CP_UTF8, 0, s, n, t, capacity, nullptr, nullptr);
        },
        [](const std::string& whole, std::size_t at) { return at == whole.size() || (whole[at] & 0xC0) != 0x80; });
}

std::string Hex(const std::string& bytes) {
    std::string hex;
    char byte[4];
    for (unsigned char c : bytes) {
        std::snprintf(byte, sizeof byte, "%02X ", c);
        hex += byte;
    }
    return hex;
}

std::string Hex(const WString& units) {
    std::string hex;
    char unit[8];
    for (WCHAR c : units) {
        std::snprintf(unit, sizeof unit, "%04X ", static_cast<unsigned>(c));
        hex += unit;
    }
    return hex;
}

}  // namespace

TEST_F(Utf8CodecPaths, EveryVectorPathDecodesAsThePlainPath) {
    if (!zel_platform::SetUtf8CodecPath(Utf8CodecPath::kPlain)) GTEST_SKIP() << "the system's codec is in force";
    std::mt19937 random(7);
    for (bool broken : {false, true}) {
        for (std::size_t length = 1; length <= kMaxLength; ++length) {
            const std::string text = RandomUtf8(random, length, broken).substr(0, length);
            std::string buffer(kAlignments + length, '\0');
            for (std::size_t alignment = 0; alignment < kAlignments; ++alignment) {
                char* source = &buffer[alignment];
                text.copy(source, length);
                zel_platform::SetUtf8CodecPath(Utf8CodecPath::kPlain);
                const auto plain = DecodeTranscript(source, static_cast<int>(length));
                for (Utf8CodecPath path : kVectorPaths) {
                    if (!zel_platform::SetUtf8CodecPath(path)) continue;
                    ASSERT_EQ(DecodeTranscript(source, static_cast<int>(length)), plain)
                        << "path " << static_cast<int>(path) << ", alignment " << alignment << ": " << Hex(text);
                }
            }
        }
    }
}

TEST_F(Utf8CodecPaths, EveryVectorPathEncodesAsThePlainPath) {
    if (!zel_platform::SetUtf8CodecPath(Utf8CodecPath::kPlain)) GTEST_SKIP() << "the system's codec is in force";
    std::mt19937 random(11);
    for (bool broken : {false, true}) {
        for (std::size_t length = 1; length <= kMaxLength; ++length) {
            const WString text = RandomUtf16(random, length, broken).substr(0, length);
            WString buffer(kAlignments + length, u'\0');
            for (std::size_t alignment = 0; alignment < kAlignments; ++alignment) {
                WCHAR* source = &buffer[alignment];
                text.copy(source, length);
                zel_platform::SetUtf8CodecPath(Utf8CodecPath::kPlain);
                const auto plain = EncodeTranscript(source, static_cast<int>(length));
                for (Utf8CodecPath path : kVectorPaths) {
                    if (!zel_platform::SetUtf8CodecPath(path)) continue;
                    ASSERT_EQ(EncodeTranscript(source, static_cast<int>(length)), plain)
                        << "path " << static_cast<int>(path) << ", alignment " << alignment << ": " << Hex(text);
                }
            }
        }
    }
}
