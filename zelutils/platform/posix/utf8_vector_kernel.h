// The UTF-8 codec's vector kernels, written once over the operations of an
// instruction set (internal). Each kernel file defines those operations for
// its set and includes this header; everything here has internal linkage, so
// no function compiled for one set can stand in for another file's copy on a
// processor without it.
//
// Decoding takes a register of bytes at a time. Bit masks of the byte
// classes (ASCII, continuation, lead of 2, 3 or 4 bytes) give the characters
// that end in the window; the window is converted up to the end of its last
// whole character when every continuation byte is where a lead byte
// announces one and no lead byte starts an overlong form, a surrogate or a
// code point above 10FFFF (three table lookups on the lead byte's nibbles
// and the next byte's high nibble). Each byte position then computes the
// unit it would give as the last byte of its character, a 4-byte character
// giving its high surrogate at its third byte and its low surrogate at its
// fourth; a shuffle per 8 positions packs those that end a unit.
//
// Encoding takes a register of units at a time: each unit gives up to 3
// bytes (a surrogate of a pair gives 2 of the pair's 4), laid out in a 32-bit
// lane, and a shuffle per 4 units keeps the bytes each unit's length asks
// for. A high surrogate in the last lane waits for the next window, whose
// first lane is then its low surrogate.
//
// The operations (struct V): Reg, kBytes (bytes a register), kAll (a bit
// for each byte of a register); Load, Zero,
// Bytes and Units (every byte or 16-bit lane set), And, Or, Xor, AndNot
// (~a & b), Add8, Sub8, Sub16, Min8 (unsigned), Equal8, Equal16, Blend (b
// where the mask byte's top bit is set, else a), ShiftLeft16<n>,
// ShiftRight16<n>, Mask (the top bit of each byte), Lookup (a 16-byte table
// indexed by each byte's low nibble), Up<n> and Down<n> (the register moved
// by n bytes towards its high or low end, zeros coming in), UnpackLow8/16 and
// UnpackHigh8/16 (per 128-bit half, as the instructions do), Half<i> (the
// i-th 128-bit half), WidenBytes (the bytes as 16-bit units, stored) and
// NarrowUnits (the units below 0x100 as bytes, stored).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/posix/utf8_kernels.h"

#include <cstdint>
#include <smmintrin.h>

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

template <typename Entry>
__m128i Table(const Entry& entry) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&entry));
}

/// The positions (bit i: byte i) of lead bytes that start an overlong form,
/// a surrogate or a code point above 10FFFF, or that no character starts with.
template <typename V>
std::uint64_t BadLeads(typename V::Reg bytes, typename V::Reg next) {
    const auto nibble = V::Bytes(0x0F);
    const auto errors = V::And(V::And(V::Lookup(kByLeadHigh, V::And(V::template ShiftRight16<4>(bytes), nibble)),
                                      V::Lookup(kByLeadLow, V::And(bytes, nibble))),
                               V::Lookup(kByNextHigh, V::And(V::template ShiftRight16<4>(next), nibble)));
    return ~V::Mask(V::Equal8(errors, V::Zero())) & V::kAll;
}

template <typename V, bool kStore>
std::size_t Decode(const unsigned char** position, const unsigned char* end, char16_t* out, std::size_t room) {
    using Reg = typename V::Reg;
    constexpr std::ptrdiff_t kWindow = V::kBytes;
    const unsigned char* in = *position;
    std::size_t count = 0;
    // A window reads one byte more than its own; 24 more must follow, whose
    // at least 8 units overwrite what the window stores past its own.
    while (end - in >= kWindow + 32 && (!kStore || room - count >= V::kBytes)) {
        const Reg bytes = V::Load(in);
        const std::uint64_t bit7 = V::Mask(bytes);
        if (bit7 == 0) {
            if constexpr (kStore) V::WidenBytes(out + count, bytes);
            in += kWindow;
            count += V::kBytes;
            continue;
        }
        const std::uint64_t bit6 = V::Mask(V::Add8(bytes, bytes));
        const std::uint64_t bit5 = V::Mask(V::template ShiftLeft16<2>(bytes));
        const std::uint64_t bit4 = V::Mask(V::template ShiftLeft16<3>(bytes));
        const std::uint64_t continuation = bit7 & ~bit6;
        const std::uint64_t lead = bit7 & bit6;   // of 2 bytes or more
        const std::uint64_t lead3 = lead & bit5;  // of 3 bytes or more
        const std::uint64_t lead4 = lead3 & bit4;
        const std::uint64_t ends = (~bit7 | (lead & ~bit5) << 1 | (lead3 & ~bit4) << 2 | lead4 << 3) & V::kAll;
        if (ends == 0) break;
        const std::uint64_t taken = (std::uint64_t{2} << (63 - __builtin_clzll(ends))) - 1;  // whole characters
        if (((lead << 1 | lead3 << 2 | lead4 << 3) ^ continuation) & taken) break;
        if (BadLeads<V>(bytes, V::Load(in + 1)) & taken) break;
        const std::uint64_t kept = ends | (lead4 << 2 & taken);
        if constexpr (kStore) {
            const Reg before1 = V::template Up<1>(bytes);
            const Reg before2 = V::template Up<2>(bytes);
            const Reg leads4 = V::Equal8(V::And(bytes, V::Bytes(0xF0)), V::Bytes(0xF0));
            const Reg third3 = V::template Up<2>(V::Equal8(V::And(bytes, V::Bytes(0xF0)), V::Bytes(0xE0)));
            const Reg third4 = V::template Up<2>(leads4);
            const Reg fourth4 = V::template Up<3>(leads4);
            // The unit a character ending here gives (its low surrogate for
            // 4 bytes): 6 bits of this byte, 6 of the one before, 4 of the
            // one before that (or the DC of a low surrogate).
            Reg low = V::Or(V::And(bytes, V::Bytes(0x3F)),
                            V::And(V::template ShiftLeft16<6>(before1), V::Bytes(0xC0)));
            low = V::Blend(bytes, low, bytes);
            Reg high = V::Or(V::And(V::template ShiftRight16<2>(before1), V::Bytes(0x0F)),
                             V::Or(V::And(V::template ShiftLeft16<4>(before2), V::And(third3, V::Bytes(0xF0))),
                                   V::And(fourth4, V::Bytes(0xDC))));
            high = V::Blend(V::Zero(), high, bytes);
            // The high surrogate at the third byte of 4: D800 + (code point
            // >> 10) - 0x40, whose low byte may borrow from the high one.
            const Reg above10 = V::Or(V::And(V::template ShiftLeft16<2>(before1), V::Bytes(0xFC)),
                                      V::And(V::template ShiftRight16<4>(bytes), V::Bytes(0x03)));
            const Reg borrow = V::Equal8(V::Min8(above10, V::Bytes(0x3F)), above10);
            low = V::Blend(low, V::Sub8(above10, V::Bytes(0x40)), third4);
            high = V::Blend(high, V::Add8(V::Or(V::And(before2, V::Bytes(0x07)), V::Bytes(0xD8)), borrow), third4);
            const Reg units0 = V::UnpackLow8(low, high);   // bytes 0..7 of each half
            const Reg units1 = V::UnpackHigh8(low, high);  // bytes 8..15 of each half
            const auto pack = [&](__m128i units, unsigned positions) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + count),
                                 _mm_shuffle_epi8(units, Table(kUnitPack.entries[positions])));
                count += static_cast<std::size_t>(__builtin_popcount(positions));
            };
            pack(V::template Half<0>(units0), kept & 0xFF);
            pack(V::template Half<0>(units1), kept >> 8 & 0xFF);
            if constexpr (V::kBytes == 32) {
                pack(V::template Half<1>(units0), kept >> 16 & 0xFF);
                pack(V::template Half<1>(units1), kept >> 24 & 0xFF);
            }
        } else {
            count += static_cast<std::size_t>(__builtin_popcountll(kept));
        }
        in += __builtin_popcountll(taken);
    }
    *position = in;
    return count;
}

template <typename V, bool kStore>
std::size_t Encode(const char16_t** position, const char16_t* end, unsigned char* out, std::size_t room) {
    using Reg = typename V::Reg;
    constexpr std::ptrdiff_t kWindow = V::kBytes / 2;
    constexpr std::uint64_t kAllButLast = V::kAll >> 2;
    const char16_t* in = *position;
    std::size_t count = 0;
    // 16 more units must follow a window: their at least 16 bytes overwrite
    // what the window stores past its own (3 bytes a unit, and a 16-byte
    // store for the last 4).
    while (end - in >= kWindow + 16 && (!kStore || room - count >= 4 * kWindow)) {
        const Reg zero = V::Zero();
        const Reg units = V::Load(in);
        const Reg ascii = V::Equal16(V::And(units, V::Units(0xFF80)), zero);
        if (V::Mask(ascii) == V::kAll) {
            if constexpr (kStore) V::NarrowUnits(out + count, units);
            in += kWindow;
            count += kWindow;
            continue;
        }
        const Reg top5 = V::And(units, V::Units(0xF800));
        const Reg below800 = V::Equal16(top5, zero);
        const Reg surrogate = V::Equal16(top5, V::Units(0xD800));
        const Reg top6 = V::And(units, V::Units(0xFC00));
        const Reg highSurrogate = V::Equal16(top6, V::Units(0xD800));
        const Reg lowSurrogate = V::Equal16(top6, V::Units(0xDC00));
        // A high surrogate not followed by a low one (but in the last lane,
        // which waits for the next window), a low one not preceded by a high.
        if ((V::Mask(V::AndNot(V::template Down<2>(lowSurrogate), highSurrogate)) & kAllButLast) != 0 ||
            V::Mask(V::AndNot(V::template Up<2>(highSurrogate), lowSurrogate)) != 0) {
            break;
        }
        // Two bits per lane: bit 0 for 2 bytes or more, bit 1 for 3 bytes.
        std::uint64_t twoOrMore = ~V::Mask(ascii) & V::kAll;
        std::uint64_t three = ~V::Mask(V::Or(below800, surrogate)) & V::kAll;
        const bool waits = (V::Mask(highSurrogate) & ~kAllButLast) != 0;
        if (waits) {
            twoOrMore &= kAllButLast;
            three |= ~kAllButLast & V::kAll;
        }
        const std::uint64_t codes = (twoOrMore & 0x5555555555555555u) | (three & 0xAAAAAAAAAAAAAAAAu);
        if constexpr (kStore) {
            Reg last = V::Blend(V::Or(V::And(units, V::Units(0x3F)), V::Units(0x80)), units, ascii);
            Reg middle = V::Or(V::And(V::template ShiftRight16<6>(units), V::Units(0x3F)), V::Units(0x80));
            middle = V::Or(middle, V::AndNot(ascii, V::And(below800, V::Units(0x40))));
            const Reg first = V::Or(V::template ShiftRight16<12>(units), V::Units(0xE0));
            // A pair's 4 bytes: F0 | plane >> 2 and 80 | (plane << 4 | the
            // high surrogate's bits 9..6) & 3F from its high surrogate (with
            // plane: 10 bits of code point above 0x10000), the 2 low bytes
            // from its low surrogate, whose bits 5..4 of the middle byte
            // come from the high surrogate's 2 low bits.
            const Reg shifted = V::Sub16(units, V::Units(0xD7C0));
            middle = V::Blend(middle, V::Or(V::template ShiftRight16<8>(shifted), V::Units(0xF0)), highSurrogate);
            last = V::Blend(last, V::Or(V::And(V::template ShiftRight16<2>(shifted), V::Units(0x3F)), V::Units(0x80)),
                            highSurrogate);
            middle = V::Blend(
                middle, V::Xor(middle, V::template ShiftLeft16<4>(V::AndNot(V::template Up<2>(units), V::Units(3)))),
                lowSurrogate);
            const Reg firstMiddle = V::Or(first, V::template ShiftLeft16<8>(middle));
            const Reg lanes0 = V::UnpackLow16(firstMiddle, last);   // units 0..3 of each half
            const Reg lanes1 = V::UnpackHigh16(firstMiddle, last);  // units 4..7 of each half
            const auto pack = [&](__m128i lanes, unsigned unitCodes) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + count),
                                 _mm_shuffle_epi8(lanes, Table(kBytePack.entries[unitCodes])));
                count += kBytePack.lengths[unitCodes];
            };
            pack(V::template Half<0>(lanes0), codes & 0xFF);
            pack(V::template Half<0>(lanes1), codes >> 8 & 0xFF);
            if constexpr (V::kBytes == 32) {
                pack(V::template Half<1>(lanes0), codes >> 16 & 0xFF);
                pack(V::template Half<1>(lanes1), codes >> 24 & 0xFF);
            }
        } else {
            for (int group = 0; group < kWindow / 4; ++group) count += kBytePack.lengths[codes >> 8 * group & 0xFF];
        }
        in += waits ? kWindow - 1 : kWindow;
    }
    *position = in;
    return count;
}

/// The kernels over the operations V.
template <typename V>
constexpr Utf8Kernels kVectorKernels{
    [](const unsigned char** in, const unsigned char* end, char16_t* out, std::size_t room) {
        return out != nullptr ? Decode<V, true>(in, end, out, room) : Decode<V, false>(in, end, nullptr, 0);
    },
    [](const char16_t** in, const char16_t* end, unsigned char* out, std::size_t room) {
        return out != nullptr ? Encode<V, true>(in, end, out, room) : Encode<V, false>(in, end, nullptr, 0);
    }};

}  // namespace
}  // namespace zel_platform::posix
