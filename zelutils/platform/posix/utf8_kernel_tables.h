// Tables of the UTF-8 codec's vector kernels (internal): each kernel file
// includes them, so that they stay private to the file (internal linkage).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

namespace zel_platform::posix {
namespace {

struct Shuffle {
    alignas(16) unsigned char bytes[16];
};

/// For each set of kept 16-bit lanes (bit i: lane i of 8), the shuffle that
/// moves them to the front in order.
struct UnitPackTable {
    Shuffle entries[256];
    constexpr UnitPackTable() : entries() {
        for (unsigned kept = 0; kept < 256; ++kept) {
            unsigned out = 0;
            for (unsigned lane = 0; lane < 8; ++lane) {
                if ((kept >> lane & 1) == 0) continue;
                entries[kept].bytes[out++] = static_cast<unsigned char>(2 * lane);
                entries[kept].bytes[out++] = static_cast<unsigned char>(2 * lane + 1);
            }
            while (out < 16) entries[kept].bytes[out++] = 0x80;
        }
    }
};
constexpr UnitPackTable kUnitPack;

/// For 4 units, each laid out as the bytes [first, middle, last, 0] of a
/// 32-bit lane and described by 2 bits (00: 1 byte, 01: 2, 11: 3, 10: none),
/// the shuffle that keeps their bytes in order, and how many there are.
struct BytePackTable {
    Shuffle entries[256];
    unsigned char lengths[256];
    constexpr BytePackTable() : entries(), lengths() {
        for (unsigned codes = 0; codes < 256; ++codes) {
            unsigned out = 0;
            for (unsigned lane = 0; lane < 4; ++lane) {
                const unsigned code = codes >> (2 * lane) & 3;
                const unsigned first = code == 3 ? 0 : code == 1 ? 1 : code == 0 ? 2 : 3;
                for (unsigned byte = first; byte < 3; ++byte) {
                    entries[codes].bytes[out++] = static_cast<unsigned char>(4 * lane + byte);
                }
            }
            lengths[codes] = static_cast<unsigned char>(out);
            while (out < 16) entries[codes].bytes[out++] = 0x80;
        }
    }
};
constexpr BytePackTable kBytePack;

// Error classes of a lead byte and the byte after it, one bit each.
constexpr char kOverlong2 = 1;     // C0, C1
constexpr char kOverlong3 = 2;     // E0 80..9F
constexpr char kSurrogate = 4;     // ED A0..BF
constexpr char kOverlong4 = 8;     // F0 80..8F
constexpr char kTooLarge = 16;     // F4 90..BF
constexpr char kNoLeadByte = 32;   // F5..FF
constexpr char kAnyNext = kOverlong2 | kNoLeadByte;

/// The error classes by a nibble: a lead byte and the byte after it are
/// ill-formed when the entries of the lead's high nibble, the lead's low
/// nibble and the next byte's high nibble share a class.
struct NibbleClasses {
    alignas(16) char classes[16];
};
constexpr NibbleClasses kByLeadHigh{
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kOverlong2, 0, kOverlong3 | kSurrogate, kOverlong4 | kTooLarge | kNoLeadByte}};
constexpr NibbleClasses kByLeadLow{{kOverlong2 | kOverlong3 | kOverlong4, kOverlong2, 0, 0, kTooLarge, kNoLeadByte,
                                    kNoLeadByte, kNoLeadByte, kNoLeadByte, kNoLeadByte, kNoLeadByte, kNoLeadByte,
                                    kNoLeadByte, kSurrogate | kNoLeadByte, kNoLeadByte, kNoLeadByte}};
constexpr NibbleClasses kByNextHigh{{kAnyNext, kAnyNext, kAnyNext, kAnyNext, kAnyNext, kAnyNext, kAnyNext, kAnyNext,
                                     kAnyNext | kOverlong3 | kOverlong4, kAnyNext | kOverlong3 | kTooLarge,
                                     kAnyNext | kSurrogate | kTooLarge, kAnyNext | kSurrogate | kTooLarge, kAnyNext,
                                     kAnyNext, kAnyNext, kAnyNext}};

}  // namespace
}  // namespace zel_platform::posix
