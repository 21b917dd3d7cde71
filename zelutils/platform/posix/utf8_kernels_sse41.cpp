// The UTF-8 codec's kernels for SSSE3 and SSE4.1 (with POPCNT). Only this
// file is compiled for those instruction sets; everything in it has internal
// linkage, so no function compiled for them can stand in for another
// translation unit's copy on a processor without them.
//
// Decoding takes 16 bytes at a time. Bit masks of the byte classes (ASCII,
// continuation, lead of 2, 3 or 4 bytes) give the characters that end in the
// window; the window is converted up to the end of its last whole character
// when every continuation byte is where a lead byte announces one and no lead
// byte starts an overlong form, a surrogate or a code point above 10FFFF
// (three table lookups on the lead byte's nibbles and the next byte's high
// nibble). Each byte position then computes the unit it would give as the
// last byte of its character, a 4-byte character giving its high surrogate
// at its third byte and its low surrogate at its fourth; a shuffle packs the
// positions that end a unit.
//
// Encoding takes 8 units at a time: each unit gives up to 3 bytes (a
// surrogate of a pair gives 2 of the pair's 4), laid out in a 32-bit lane,
// and a shuffle per 4 units keeps the bytes each unit's length asks for. A
// high surrogate in the last lane waits for the next window, whose first
// lane is then its low surrogate.
#include "zelutils/platform/posix/utf8_kernels.h"

#if defined(__SSSE3__) && defined(__SSE4_1__) && defined(__POPCNT__)

#include "zelutils/platform/posix/utf8_kernel_tables.h"

#include <smmintrin.h>

namespace zel_platform::posix {
namespace {

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
template <typename Entry>
__m128i Table(const Entry& entry) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&entry));
}
__m128i Bytes(int byte) { return _mm_set1_epi8(static_cast<char>(byte)); }
__m128i Units(int unit) { return _mm_set1_epi16(static_cast<short>(unit)); }
unsigned Mask(__m128i v) { return static_cast<unsigned>(_mm_movemask_epi8(v)); }

/// The positions (bit i: byte i) of lead bytes that start an overlong form,
/// a surrogate or a code point above 10FFFF, or that no character starts with.
unsigned BadLeads(__m128i bytes, __m128i next) {
    const __m128i nibble = Bytes(0x0F);
    const __m128i errors = _mm_and_si128(
        _mm_and_si128(_mm_shuffle_epi8(Table(kByLeadHigh), _mm_and_si128(_mm_srli_epi16(bytes, 4), nibble)),
                      _mm_shuffle_epi8(Table(kByLeadLow), _mm_and_si128(bytes, nibble))),
        _mm_shuffle_epi8(Table(kByNextHigh), _mm_and_si128(_mm_srli_epi16(next, 4), nibble)));
    return ~Mask(_mm_cmpeq_epi8(errors, _mm_setzero_si128())) & 0xFFFF;
}

template <bool kStore>
std::size_t Decode(const unsigned char** position, const unsigned char* end, char16_t* out, std::size_t room) {
    const unsigned char* in = *position;
    std::size_t count = 0;
    // A window reads 17 bytes; 32 more must follow, whose at least 8 units
    // overwrite what the window stores past its own.
    while (end - in >= 48 && (!kStore || room - count >= 16)) {
        const __m128i bytes = Load(in);
        const unsigned bit7 = Mask(bytes);
        if (bit7 == 0) {
            if constexpr (kStore) {
                Store(out + count, _mm_cvtepu8_epi16(bytes));
                Store(out + count + 8, _mm_cvtepu8_epi16(_mm_srli_si128(bytes, 8)));
            }
            in += 16;
            count += 16;
            continue;
        }
        const unsigned bit6 = Mask(_mm_add_epi8(bytes, bytes));
        const unsigned bit5 = Mask(_mm_slli_epi16(bytes, 2));
        const unsigned bit4 = Mask(_mm_slli_epi16(bytes, 3));
        const unsigned continuation = bit7 & ~bit6;
        const unsigned lead = bit7 & bit6;      // of 2 bytes or more
        const unsigned lead3 = lead & bit5;     // of 3 bytes or more
        const unsigned lead4 = lead3 & bit4;
        const unsigned ends = (~bit7 | (lead & ~bit5) << 1 | (lead3 & ~bit4) << 2 | lead4 << 3) & 0xFFFF;
        if (ends == 0) break;
        const unsigned taken = (2u << (31 - __builtin_clz(ends))) - 1;  // the bytes of whole characters
        if (((lead << 1 | lead3 << 2 | lead4 << 3) ^ continuation) & taken) break;
        if (BadLeads(bytes, Load(in + 1)) & taken) break;
        const unsigned kept = ends | (lead4 << 2 & taken);
        if constexpr (kStore) {
            const __m128i zero = _mm_setzero_si128();
            const __m128i before1 = _mm_slli_si128(bytes, 1);
            const __m128i before2 = _mm_slli_si128(bytes, 2);
            const __m128i leads4 = _mm_cmpeq_epi8(_mm_and_si128(bytes, Bytes(0xF0)), Bytes(0xF0));
            const __m128i third3 = _mm_slli_si128(_mm_cmpeq_epi8(_mm_and_si128(bytes, Bytes(0xF0)), Bytes(0xE0)), 2);
            const __m128i third4 = _mm_slli_si128(leads4, 2);
            const __m128i fourth4 = _mm_slli_si128(leads4, 3);
            // The unit a character ending here gives (its low surrogate for
            // 4 bytes): 6 bits of this byte, 6 of the one before, 4 of the
            // one before that (or the DC of a low surrogate).
            __m128i low = _mm_or_si128(_mm_and_si128(bytes, Bytes(0x3F)),
                                       _mm_and_si128(_mm_slli_epi16(before1, 6), Bytes(0xC0)));
            low = _mm_blendv_epi8(bytes, low, bytes);
            __m128i high = _mm_or_si128(
                _mm_and_si128(_mm_srli_epi16(before1, 2), Bytes(0x0F)),
                _mm_or_si128(_mm_and_si128(_mm_slli_epi16(before2, 4), _mm_and_si128(third3, Bytes(0xF0))),
                             _mm_and_si128(fourth4, Bytes(0xDC))));
            high = _mm_blendv_epi8(zero, high, bytes);
            // The high surrogate at the third byte of 4: D800 + (code point
            // >> 10) - 0x40, whose low byte may borrow from the high one.
            const __m128i above10 = _mm_or_si128(_mm_and_si128(_mm_slli_epi16(before1, 2), Bytes(0xFC)),
                                                 _mm_and_si128(_mm_srli_epi16(bytes, 4), Bytes(0x03)));
            const __m128i borrow = _mm_cmpeq_epi8(_mm_min_epu8(above10, Bytes(0x3F)), above10);
            low = _mm_blendv_epi8(low, _mm_sub_epi8(above10, Bytes(0x40)), third4);
            high = _mm_blendv_epi8(
                high, _mm_add_epi8(_mm_or_si128(_mm_and_si128(before2, Bytes(0x07)), Bytes(0xD8)), borrow), third4);
            const unsigned kept0 = kept & 0xFF;
            const unsigned kept1 = kept >> 8;
            Store(out + count, _mm_shuffle_epi8(_mm_unpacklo_epi8(low, high), Table(kUnitPack.entries[kept0])));
            count += static_cast<std::size_t>(__builtin_popcount(kept0));
            Store(out + count, _mm_shuffle_epi8(_mm_unpackhi_epi8(low, high), Table(kUnitPack.entries[kept1])));
            count += static_cast<std::size_t>(__builtin_popcount(kept1));
        } else {
            count += static_cast<std::size_t>(__builtin_popcount(kept));
        }
        in += __builtin_popcount(taken);
    }
    *position = in;
    return count;
}

template <bool kStore>
std::size_t Encode(const char16_t** position, const char16_t* end, unsigned char* out, std::size_t room) {
    const char16_t* in = *position;
    std::size_t count = 0;
    // 16 more units must follow a window: their at least 16 bytes overwrite
    // what the window stores past its own.
    while (end - in >= 32 && (!kStore || room - count >= 32)) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i units = Load(in);
        const __m128i ascii = _mm_cmpeq_epi16(_mm_and_si128(units, Units(0xFF80)), zero);
        if (Mask(ascii) == 0xFFFF) {
            const __m128i units2 = Load(in + 8);
            if (Mask(_mm_cmpeq_epi16(_mm_and_si128(units2, Units(0xFF80)), zero)) == 0xFFFF) {
                if constexpr (kStore) Store(out + count, _mm_packus_epi16(units, units2));
                in += 16;
                count += 16;
                continue;
            }
        }
        const __m128i top5 = _mm_and_si128(units, Units(0xF800));
        const __m128i below800 = _mm_cmpeq_epi16(top5, zero);
        const __m128i surrogate = _mm_cmpeq_epi16(top5, Units(0xD800));
        const __m128i top6 = _mm_and_si128(units, Units(0xFC00));
        const __m128i highSurrogate = _mm_cmpeq_epi16(top6, Units(0xD800));
        const __m128i lowSurrogate = _mm_cmpeq_epi16(top6, Units(0xDC00));
        // A high surrogate not followed by a low one (but in the last lane,
        // which waits for the next window), a low one not preceded by a high.
        const unsigned highMask = Mask(highSurrogate);
        if ((Mask(_mm_andnot_si128(_mm_srli_si128(lowSurrogate, 2), highSurrogate)) & 0x3FFF) != 0 ||
            Mask(_mm_andnot_si128(_mm_slli_si128(highSurrogate, 2), lowSurrogate)) != 0) {
            break;
        }
        // Two bits per lane: bit 0 for 2 bytes or more, bit 1 for 3 bytes.
        unsigned twoOrMore = ~Mask(ascii) & 0xFFFF;
        unsigned three = ~Mask(_mm_or_si128(below800, surrogate)) & 0xFFFF;
        const bool waits = (highMask & 0xC000) != 0;
        if (waits) {
            twoOrMore &= 0x3FFF;
            three |= 0xC000;
        }
        const unsigned codes = (twoOrMore & 0x5555) | (three & 0xAAAA);
        if constexpr (kStore) {
            __m128i last = _mm_blendv_epi8(_mm_or_si128(_mm_and_si128(units, Units(0x3F)), Units(0x80)), units, ascii);
            __m128i middle = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(units, 6), Units(0x3F)), Units(0x80));
            middle = _mm_or_si128(middle, _mm_andnot_si128(ascii, _mm_and_si128(below800, Units(0x40))));
            const __m128i first = _mm_or_si128(_mm_srli_epi16(units, 12), Units(0xE0));
            // A pair's 4 bytes: F0 | plane >> 2 and 80 | (plane << 4 | the
            // high surrogate's bits 9..6) & 3F from its high surrogate (with
            // plane: 10 bits of code point above 0x10000), the 2 low bytes
            // from its low surrogate, whose bits 5..4 of the middle byte
            // come from the high surrogate's 2 low bits.
            const __m128i shifted = _mm_sub_epi16(units, Units(0xD7C0));
            middle = _mm_blendv_epi8(middle, _mm_or_si128(_mm_srli_epi16(shifted, 8), Units(0xF0)), highSurrogate);
            last = _mm_blendv_epi8(
                last, _mm_or_si128(_mm_and_si128(_mm_srli_epi16(shifted, 2), Units(0x3F)), Units(0x80)),
                highSurrogate);
            middle = _mm_blendv_epi8(
                middle,
                _mm_xor_si128(middle, _mm_slli_epi16(_mm_andnot_si128(_mm_slli_si128(units, 2), Units(3)), 4)),
                lowSurrogate);
            const __m128i firstMiddle = _mm_or_si128(first, _mm_slli_epi16(middle, 8));
            const unsigned codes0 = codes & 0xFF;
            const unsigned codes1 = codes >> 8;
            Store(out + count, _mm_shuffle_epi8(_mm_unpacklo_epi16(firstMiddle, last), Table(kBytePack.entries[codes0])));
            count += kBytePack.lengths[codes0];
            Store(out + count, _mm_shuffle_epi8(_mm_unpackhi_epi16(firstMiddle, last), Table(kBytePack.entries[codes1])));
            count += kBytePack.lengths[codes1];
        } else {
            count += static_cast<std::size_t>(kBytePack.lengths[codes & 0xFF]) + kBytePack.lengths[codes >> 8];
        }
        in += waits ? 7 : 8;
    }
    *position = in;
    return count;
}

std::size_t DecodeAny(const unsigned char** in, const unsigned char* end, char16_t* out, std::size_t room) {
    return out != nullptr ? Decode<true>(in, end, out, room) : Decode<false>(in, end, nullptr, 0);
}

std::size_t EncodeAny(const char16_t** in, const char16_t* end, unsigned char* out, std::size_t room) {
    return out != nullptr ? Encode<true>(in, end, out, room) : Encode<false>(in, end, nullptr, 0);
}

constexpr Utf8Kernels kKernels{DecodeAny, EncodeAny};

}  // namespace

const Utf8Kernels* Sse41Utf8Kernels() { return &kKernels; }

}  // namespace zel_platform::posix

#else

const zel_platform::posix::Utf8Kernels* zel_platform::posix::Sse41Utf8Kernels() { return nullptr; }

#endif
