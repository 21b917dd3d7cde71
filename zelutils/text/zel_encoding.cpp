#include "zelutils/text/zel_encoding.h"

#include <algorithm>
#include <cstring>

namespace zel_text {
namespace {

struct BomRow {
    BomKind kind;
    std::size_t length;
    unsigned char bytes[kMaxBomLength];
};

// Searched in this order: a UTF-32 LE mark also begins with the UTF-16 LE
// mark, so the longer one must come first.
constexpr BomRow kBomTable[] = {
    {BomKind::Utf32LE, 4, {0xFF, 0xFE, 0x00, 0x00}},
    {BomKind::Utf16LE, 2, {0xFF, 0xFE}},
    {BomKind::Utf8, 3, {0xEF, 0xBB, 0xBF}},
    {BomKind::Utf7, 3, {0x2B, 0x2F, 0x76}},
    {BomKind::Utf16BE, 2, {0xFE, 0xFF}},
    {BomKind::Utf32BE, 4, {0x00, 0x00, 0xFE, 0xFF}},
    {BomKind::Bocu1, 3, {0xFB, 0xEE, 0x28}},
    {BomKind::Scsu, 3, {0x0E, 0xFE, 0xFF}},
    {BomKind::UtfEbcdic, 4, {0xDD, 0x73, 0x66, 0x73}},
};

// "+/v" only starts a UTF-7 mark when the next Base64 digit completes the
// bits of U+FEFF; any other text may begin with those three characters.
bool CompletesUtf7Mark(const unsigned char* bytes, std::size_t count) {
    if (count < 4) return false;
    unsigned char fourth = bytes[3];
    return fourth == '8' || fourth == '9' || fourth == '+' || fourth == '/';
}

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of every 12-bit value, so a 3-byte group becomes its 4
// characters with two lookups and no per-character work.
struct PairTable {
    char pairs[4096][2];
};

constexpr PairTable MakePairTable() {
    PairTable table{};
    for (unsigned value = 0; value < 4096; ++value) {
        table.pairs[value][0] = kAlphabet[value >> 6];
        table.pairs[value][1] = kAlphabet[value & 63];
    }
    return table;
}

constexpr PairTable kPairs = MakePairTable();

// Encodes complete 3-byte groups; the caller has checked that 4 * groups
// characters fit.
void EncodeGroups(const unsigned char* source, std::size_t groups, char* target) {
    for (; groups != 0; --groups, source += 3, target += 4) {
        unsigned value = unsigned{source[0]} << 16 | unsigned{source[1]} << 8 | source[2];
        std::memcpy(target, kPairs.pairs[value >> 12], 2);
        std::memcpy(target + 2, kPairs.pairs[value & 0xFFF], 2);
    }
}

// The encoder's contract character by character: each character, the
// padding and the NUL are written only while there is room, so a short
// buffer keeps every character that fitted.
bool EncodeChecked(const unsigned char* source, std::size_t count, char* target,
                   std::size_t capacity) {
    std::size_t written = 0;
    auto put = [&](char c) {
        if (written == capacity) return false;
        target[written++] = c;
        return true;
    };
    for (std::size_t i = 0; i < count; i += 3) {
        std::size_t left = count - i;
        unsigned value = unsigned{source[i]} << 16;
        if (left > 1) value |= unsigned{source[i + 1]} << 8;
        if (left > 2) value |= source[i + 2];
        if (!put(kAlphabet[value >> 18]) || !put(kAlphabet[(value >> 12) & 63])) return false;
        if (left > 1 && !put(kAlphabet[(value >> 6) & 63])) return false;
        if (left > 2 && !put(kAlphabet[value & 63])) return false;
    }
    for (std::size_t padding = (3 - count % 3) % 3; padding != 0; --padding) {
        if (!put('=')) return false;
    }
    return put('\0');
}

}  // namespace

BomKind FindBom(const void* bytes, std::size_t count, std::size_t* bomLength) {
    if (bytes == nullptr) return BomKind::None;
    const auto* b = static_cast<const unsigned char*>(bytes);
    for (const BomRow& row : kBomTable) {
        if (row.length > count || std::memcmp(b, row.bytes, row.length) != 0) continue;
        if (row.kind == BomKind::Utf7 && !CompletesUtf7Mark(b, count)) continue;
        if (bomLength != nullptr) *bomLength = row.length;
        return row.kind;
    }
    return BomKind::None;
}

TextEncoding DetectTextEncoding(const void* bytes, std::size_t count, std::size_t* bomLength) {
    if (bytes == nullptr || count < 2) return TextEncoding::Unsupported;
    switch (FindBom(bytes, count, bomLength)) {
        case BomKind::None: break;
        case BomKind::Utf8: return TextEncoding::Utf8;
        case BomKind::Utf16LE: return TextEncoding::Utf16LE;
        default: return TextEncoding::Unsupported;
    }
    // Without a mark, UTF-16 LE text of Latin characters has zero high bytes
    // at the odd offsets. Nine bytes are required although eight are looked
    // at; existing files were classified with that threshold.
    const auto* b = static_cast<const unsigned char*>(bytes);
    if (count < 9 || b[1] != 0 || b[3] != 0 || b[5] != 0 || b[7] != 0) return TextEncoding::Narrow;
    if (b[0] != 0 || b[2] != 0 || b[4] != 0) return TextEncoding::Utf16LE;
    return b[6] != 0 ? TextEncoding::Utf16LE : TextEncoding::Narrow;
}

bool GetBom(BomKind kind, unsigned char* bom, std::size_t* length) {
    if (bom == nullptr || length == nullptr) return false;
    for (const BomRow& row : kBomTable) {
        if (row.kind != kind) continue;
        std::memcpy(bom, row.bytes, row.length);
        *length = row.length;
        return true;
    }
    return false;
}

bool Base64Encode(const void* source, std::size_t count, char* target, std::size_t capacity) {
    if (target == nullptr || (source == nullptr && count != 0)) return false;
    const auto* s = static_cast<const unsigned char*>(source);
    // The complete groups that fit need no per-character check; the checked
    // encoder finishes the rest, so a short buffer ends exactly where the
    // character-by-character rule would have stopped.
    std::size_t fastGroups = std::min(count / 3, capacity / 4);
    EncodeGroups(s, fastGroups, target);
    std::size_t consumed = fastGroups * 3;
    std::size_t written = fastGroups * 4;
    return EncodeChecked(s + consumed, count - consumed, target + written, capacity - written);
}

}  // namespace zel_text
