// Byte-order marks, encoding detection and Base64.
#include "zelutils/text/zel_encoding.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using zel_text::BomKind;
using zel_text::TextEncoding;

namespace {

using Bytes = std::vector<unsigned char>;

// A count far from every mark length, to see that FindBom leaves it alone.
constexpr std::size_t kUntouched = 12345;

struct BomCase {
    Bytes bytes;
    BomKind kind;
    std::size_t length;
};

// Every mark with one byte of text after it, so a length check that reads
// the whole buffer instead of the mark would be caught.
const BomCase kMarks[] = {
    {{0xFF, 0xFE, 0x00, 0x00, 0x41}, BomKind::Utf32LE, 4},
    {{0xFF, 0xFE, 0x41, 0x00}, BomKind::Utf16LE, 2},
    {{0xEF, 0xBB, 0xBF, 0x41}, BomKind::Utf8, 3},
    {{0x2B, 0x2F, 0x76, 0x38, 0x41}, BomKind::Utf7, 3},
    {{0xFE, 0xFF, 0x00, 0x41}, BomKind::Utf16BE, 2},
    {{0x00, 0x00, 0xFE, 0xFF, 0x41}, BomKind::Utf32BE, 4},
    {{0xFB, 0xEE, 0x28, 0x41}, BomKind::Bocu1, 3},
    {{0x0E, 0xFE, 0xFF, 0x41}, BomKind::Scsu, 3},
    {{0xDD, 0x73, 0x66, 0x73, 0x41}, BomKind::UtfEbcdic, 4},
};

BomKind Find(const Bytes& bytes, std::size_t* length) {
    return zel_text::FindBom(bytes.data(), bytes.size(), length);
}

TextEncoding Detect(const Bytes& bytes) {
    return zel_text::DetectTextEncoding(bytes.data(), bytes.size());
}

Bytes Ascii(const std::string& text) { return Bytes(text.begin(), text.end()); }

// RFC 4648's encoder written the plainest way, for comparing long outputs.
std::string ReferenceBase64(const Bytes& data) {
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t i = 0;
    for (; i + 3 <= data.size(); i += 3) {
        unsigned v = data[i] << 16 | data[i + 1] << 8 | data[i + 2];
        for (int shift = 18; shift >= 0; shift -= 6) out += alphabet[(v >> shift) & 63];
    }
    if (data.size() - i == 1) {
        unsigned v = data[i] << 16;
        out += std::string{alphabet[v >> 18], alphabet[(v >> 12) & 63]} + "==";
    } else if (data.size() - i == 2) {
        unsigned v = data[i] << 16 | data[i + 1] << 8;
        out +=
            std::string{alphabet[v >> 18], alphabet[(v >> 12) & 63], alphabet[(v >> 6) & 63]} + "=";
    }
    return out;
}

Bytes Pattern(std::size_t size) {
    Bytes data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 167 + (i >> 8));
    return data;
}

}  // namespace

TEST(FindBom, RecognisesEveryMarkWithItsLength) {
    for (const BomCase& c : kMarks) {
        std::size_t length = kUntouched;
        EXPECT_EQ(Find(c.bytes, &length), c.kind) << "kind " << static_cast<unsigned>(c.kind);
        EXPECT_EQ(length, c.length) << "kind " << static_cast<unsigned>(c.kind);
        // The mark alone is enough, and the length argument is optional.
        EXPECT_EQ(zel_text::FindBom(c.bytes.data(), c.length + (c.kind == BomKind::Utf7), nullptr),
                  c.kind);
    }
}

TEST(FindBom, PrefersUtf32LittleEndianOverTheUtf16MarkItBeginsWith) {
    std::size_t length = 0;
    EXPECT_EQ(Find({0xFF, 0xFE, 0x00, 0x00, 0x41, 0x00}, &length), BomKind::Utf32LE);
    EXPECT_EQ(length, 4u);
    // Cut before the fourth byte, the same start is a UTF-16 LE mark.
    EXPECT_EQ(Find({0xFF, 0xFE, 0x00}, &length), BomKind::Utf16LE);
    EXPECT_EQ(length, 2u);
}

TEST(FindBom, Utf7NeedsAFourthByteThatCompletesTheMark) {
    std::size_t length = kUntouched;
    EXPECT_EQ(Find({0x2B, 0x2F, 0x76}, &length), BomKind::None);
    EXPECT_EQ(Find({0x2B, 0x2F, 0x76, 'A'}, &length), BomKind::None);
    EXPECT_EQ(length, kUntouched);
    for (unsigned char fourth : {'8', '9', '+', '/'}) {
        EXPECT_EQ(Find({0x2B, 0x2F, 0x76, fourth}, nullptr), BomKind::Utf7) << fourth;
    }
}

TEST(FindBom, NoMarkLeavesTheLengthUntouched) {
    std::size_t length = kUntouched;
    EXPECT_EQ(Find(Ascii("plain text"), &length), BomKind::None);
    EXPECT_EQ(Find({0xEF, 0xBB}, &length), BomKind::None);  // a mark cut short
    EXPECT_EQ(Find({0x00, 0x00, 0xFE}, &length), BomKind::None);
    EXPECT_EQ(zel_text::FindBom(nullptr, 4, &length), BomKind::None);
    EXPECT_EQ(zel_text::FindBom("\xEF\xBB\xBF", 0, &length), BomKind::None);
    EXPECT_EQ(length, kUntouched);
}

TEST(DetectTextEncoding, FollowsTheMark) {
    std::size_t length = kUntouched;
    EXPECT_EQ(zel_text::DetectTextEncoding("\xEF\xBB\xBFx", 4, &length), TextEncoding::Utf8);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(Detect({0xFF, 0xFE}), TextEncoding::Utf16LE);
    // Every other mark names an encoding the library does not read,
    // UTF-32 LE included although it begins with the UTF-16 LE mark.
    for (const BomCase& c : kMarks) {
        if (c.kind == BomKind::Utf8 || c.kind == BomKind::Utf16LE) continue;
        length = kUntouched;
        EXPECT_EQ(zel_text::DetectTextEncoding(c.bytes.data(), c.bytes.size(), &length),
                  TextEncoding::Unsupported)
            << "kind " << static_cast<unsigned>(c.kind);
        EXPECT_EQ(length, c.length);
    }
    EXPECT_EQ(Detect({0x2B, 0x2F, 0x76, 0x38}), TextEncoding::Unsupported);
}

TEST(DetectTextEncoding, TooFewBytesOrNullAreUnsupported) {
    std::size_t length = kUntouched;
    EXPECT_EQ(zel_text::DetectTextEncoding(nullptr, 10, &length), TextEncoding::Unsupported);
    EXPECT_EQ(zel_text::DetectTextEncoding("A", 1, &length), TextEncoding::Unsupported);
    // One byte of a UTF-16 LE mark is not a mark either.
    EXPECT_EQ(zel_text::DetectTextEncoding("\xFF", 1, &length), TextEncoding::Unsupported);
    EXPECT_EQ(length, kUntouched);
}

TEST(DetectTextEncoding, WithoutAMarkLooksAtTheZeroBytes) {
    EXPECT_EQ(Detect(Ascii("ABCDEFGHIJ")), TextEncoding::Narrow);
    const Bytes utf16 = {'A', 0, 'B', 0, 'C', 0, 'D', 0, 'E', 0};
    EXPECT_EQ(Detect(utf16), TextEncoding::Utf16LE);
    // Eight bytes are too few to tell, even with the UTF-16 pattern.
    EXPECT_EQ(Detect(Bytes(utf16.begin(), utf16.begin() + 8)), TextEncoding::Narrow);
    EXPECT_EQ(Detect(Bytes(utf16.begin(), utf16.begin() + 9)), TextEncoding::Utf16LE);
    // Any non-zero odd byte among 1, 3, 5, 7 means narrow text.
    for (std::size_t odd : {1, 3, 5, 7}) {
        Bytes bytes = utf16;
        bytes[odd] = 'x';
        EXPECT_EQ(Detect(bytes), TextEncoding::Narrow) << "byte " << odd;
    }
    // Bytes from 8 on are not looked at.
    Bytes tail = utf16;
    tail[8] = 0;
    tail[9] = 'x';
    EXPECT_EQ(Detect(tail), TextEncoding::Utf16LE);
}

TEST(DetectTextEncoding, ZeroEvenBytesDecideBySeventhByte) {
    // Odd bytes all zero; with one of bytes 0, 2, 4 non-zero the text is
    // UTF-16, otherwise byte 6 decides.
    for (std::size_t even : {0, 2, 4}) {
        Bytes bytes(10, 0);
        bytes[even] = 'x';
        EXPECT_EQ(Detect(bytes), TextEncoding::Utf16LE) << "byte " << even;
    }
    Bytes zeros(10, 0);
    EXPECT_EQ(Detect(zeros), TextEncoding::Narrow);
    zeros[6] = 'x';
    EXPECT_EQ(Detect(zeros), TextEncoding::Utf16LE);
}

TEST(GetBom, CopiesEachMarkAndItsLength) {
    for (const BomCase& c : kMarks) {
        unsigned char bom[zel_text::kMaxBomLength] = {};
        std::size_t length = 0;
        ASSERT_TRUE(zel_text::GetBom(c.kind, bom, &length));
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(Bytes(bom, bom + length), Bytes(c.bytes.begin(), c.bytes.begin() + c.length));
    }
}

TEST(GetBom, RefusesKindsOutsideTheTable) {
    unsigned char bom[zel_text::kMaxBomLength] = {0x55, 0x55, 0x55, 0x55};
    std::size_t length = kUntouched;
    EXPECT_FALSE(zel_text::GetBom(BomKind::None, bom, &length));
    EXPECT_FALSE(zel_text::GetBom(static_cast<BomKind>(10), bom, &length));
    EXPECT_FALSE(zel_text::GetBom(BomKind::Utf8, nullptr, &length));
    EXPECT_FALSE(zel_text::GetBom(BomKind::Utf8, bom, nullptr));
    EXPECT_EQ(length, kUntouched);
    EXPECT_EQ(bom[0], 0x55);
}

TEST(Base64Encode, MatchesTheRfcVectors) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors) {
        std::size_t count = std::char_traits<char>::length(plain);
        std::string target(zel_text::Base64EncodedSize(count), '#');
        ASSERT_TRUE(zel_text::Base64Encode(plain, count, target.data(), target.size())) << plain;
        EXPECT_EQ(target, std::string(encoded) + '\0') << plain;
    }
    const unsigned char man[] = {0x4D, 0x61, 0x6E};
    char target[5];
    ASSERT_TRUE(zel_text::Base64Encode(man, 3, target, sizeof target));
    EXPECT_STREQ(target, "TWFu");
}

TEST(Base64Encode, NeedsRoomForTheTerminatorAndKeepsWhatFitted) {
    const unsigned char byte = 0x4D;
    char target[8];
    ASSERT_TRUE(zel_text::Base64Encode(&byte, 1, target, 5));
    EXPECT_STREQ(target, "TQ==");

    std::memset(target, '#', sizeof target);
    EXPECT_FALSE(zel_text::Base64Encode(&byte, 1, target, 4));
    EXPECT_EQ(std::string(target, 5), "TQ==#");  // unterminated, nothing past the capacity

    std::memset(target, '#', sizeof target);
    EXPECT_FALSE(zel_text::Base64Encode(&byte, 1, target, 3));
    EXPECT_EQ(std::string(target, 4), "TQ=#");

    // An empty source still needs its terminator.
    EXPECT_FALSE(zel_text::Base64Encode("", 0, target, 0));
    ASSERT_TRUE(zel_text::Base64Encode(nullptr, 0, target, 1));
    EXPECT_EQ(target[0], '\0');
    EXPECT_FALSE(zel_text::Base64Encode(nullptr, 1, target, sizeof target));
}

TEST(Base64Encode, LongInputsMatchTheReferenceAtEveryLength) {
    // Lengths around the group and block boundaries of the fast path.
    for (std::size_t size = 0; size < 200; ++size) {
        Bytes data = Pattern(size);
        std::string target(zel_text::Base64EncodedSize(size), '#');
        ASSERT_TRUE(zel_text::Base64Encode(data.data(), size, target.data(), target.size()));
        ASSERT_EQ(target, ReferenceBase64(data) + '\0') << "size " << size;
    }
    Bytes big = Pattern(1 << 20 | 1);
    std::string target(zel_text::Base64EncodedSize(big.size()), '#');
    ASSERT_TRUE(zel_text::Base64Encode(big.data(), big.size(), target.data(), target.size()));
    EXPECT_EQ(target, ReferenceBase64(big) + '\0');
}

TEST(Base64Encode, ShortBuffersStopAtTheirCapacityAtEveryLength) {
    // Every capacity short of the need writes exactly the prefix that fits,
    // whether it ends inside the complete groups, the last group, the
    // padding or before the terminator.
    for (std::size_t size : {1, 2, 3, 4, 5, 6, 7, 47, 48, 49, 50}) {
        Bytes data = Pattern(size);
        std::string expected = ReferenceBase64(data);
        std::size_t need = zel_text::Base64EncodedSize(size);
        for (std::size_t capacity = 0; capacity < need; ++capacity) {
            std::string target(need + 1, '#');
            ASSERT_FALSE(zel_text::Base64Encode(data.data(), size, target.data(), capacity));
            EXPECT_EQ(target, expected.substr(0, capacity) + std::string(need + 1 - capacity, '#'))
                << "size " << size << " capacity " << capacity;
        }
    }
}
