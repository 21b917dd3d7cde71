// The UTF-8 codec's kernels for AVX2. Only this file is compiled for AVX2;
// everything in it has internal linkage, so no function compiled for it can
// stand in for another translation unit's copy on a processor without it.
//
// The same method as the SSE4.1 kernels (utf8_kernels_sse41.cpp), on twice
// the width: 32 bytes a window when decoding, 16 units when encoding. The
// byte shuffles work within each 128-bit half, so the values that cross
// from one half to the other (the bytes before a position, the unit before
// and after one) come from a shift across the whole register.
#include "zelutils/platform/posix/utf8_kernels.h"

#if defined(__AVX2__) && defined(__POPCNT__)

#include "zelutils/platform/posix/utf8_kernel_tables.h"

#include <immintrin.h>

#include <cstdint>

namespace zel_platform::posix {
namespace {

__m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
template <typename Entry>
__m128i Table(const Entry& entry) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&entry));
}
template <typename Entry>
__m256i BothHalves(const Entry& entry) {
    return _mm256_broadcastsi128_si256(Table(entry));
}
__m256i Bytes(int byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }
__m256i Units(int unit) { return _mm256_set1_epi16(static_cast<short>(unit)); }
std::uint32_t Mask(__m256i v) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(v)); }
__m128i Low(__m256i v) { return _mm256_castsi256_si128(v); }
__m128i High(__m256i v) { return _mm256_extracti128_si256(v, 1); }

/// v moved up by kBytes bytes across the whole register, zeros shifted in.
template <int kBytes>
__m256i ShiftUp(__m256i v) {
    return _mm256_alignr_epi8(v, _mm256_permute2x128_si256(v, v, 0x08), 16 - kBytes);
}

/// v moved down by kBytes bytes across the whole register, zeros shifted in.
template <int kBytes>
__m256i ShiftDown(__m256i v) {
    return _mm256_alignr_epi8(_mm256_permute2x128_si256(v, v, 0x81), v, kBytes);
}

/// The positions (bit i: byte i) of lead bytes that start an overlong form,
/// a surrogate or a code point above 10FFFF, or that no character starts with.
std::uint32_t BadLeads(__m256i bytes, __m256i next) {
    const __m256i nibble = Bytes(0x0F);
    const __m256i errors = _mm256_and_si256(
        _mm256_and_si256(_mm256_shuffle_epi8(BothHalves(kByLeadHigh), _mm256_and_si256(_mm256_srli_epi16(bytes, 4), nibble)),
                         _mm256_shuffle_epi8(BothHalves(kByLeadLow), _mm256_and_si256(bytes, nibble))),
        _mm256_shuffle_epi8(BothHalves(kByNextHigh), _mm256_and_si256(_mm256_srli_epi16(next, 4), nibble)));
    return ~Mask(_mm256_cmpeq_epi8(errors, _mm256_setzero_si256()));
}

/// Stores the kept units (bit i: lane i) of 8 at out; returns how many.
std::size_t PackUnits(char16_t* out, __m128i units, unsigned kept) {
    Store(out, _mm_shuffle_epi8(units, Table(kUnitPack.entries[kept])));
    return static_cast<std::size_t>(__builtin_popcount(kept));
}

template <bool kStore>
std::size_t Decode(const unsigned char** position, const unsigned char* end, char16_t* out, std::size_t room) {
    const unsigned char* in = *position;
    std::size_t count = 0;
    // A window reads 33 bytes; 24 more must follow, whose at least 8 units
    // overwrite what the window stores past its own.
    while (end - in >= 64 && (!kStore || room - count >= 32)) {
        const __m256i bytes = Load(in);
        const std::uint64_t bit7 = Mask(bytes);
        if (bit7 == 0) {
            if constexpr (kStore) {
                Store(out + count, _mm256_cvtepu8_epi16(Low(bytes)));
                Store(out + count + 16, _mm256_cvtepu8_epi16(High(bytes)));
            }
            in += 32;
            count += 32;
            continue;
        }
        const std::uint64_t bit6 = Mask(_mm256_add_epi8(bytes, bytes));
        const std::uint64_t bit5 = Mask(_mm256_slli_epi16(bytes, 2));
        const std::uint64_t bit4 = Mask(_mm256_slli_epi16(bytes, 3));
        const std::uint64_t continuation = bit7 & ~bit6;
        const std::uint64_t lead = bit7 & bit6;   // of 2 bytes or more
        const std::uint64_t lead3 = lead & bit5;  // of 3 bytes or more
        const std::uint64_t lead4 = lead3 & bit4;
        const std::uint64_t ends = (~bit7 | (lead & ~bit5) << 1 | (lead3 & ~bit4) << 2 | lead4 << 3) & 0xFFFFFFFFu;
        if (ends == 0) break;
        const std::uint64_t taken = (std::uint64_t{2} << (63 - __builtin_clzll(ends))) - 1;
        if (((lead << 1 | lead3 << 2 | lead4 << 3) ^ continuation) & taken) break;
        if (BadLeads(bytes, Load(in + 1)) & taken) break;
        const std::uint64_t kept = ends | (lead4 << 2 & taken);
        if constexpr (kStore) {
            const __m256i zero = _mm256_setzero_si256();
            const __m256i before1 = ShiftUp<1>(bytes);
            const __m256i before2 = ShiftUp<2>(bytes);
            const __m256i leads4 = _mm256_cmpeq_epi8(_mm256_and_si256(bytes, Bytes(0xF0)), Bytes(0xF0));
            const __m256i third3 =
                ShiftUp<2>(_mm256_cmpeq_epi8(_mm256_and_si256(bytes, Bytes(0xF0)), Bytes(0xE0)));
            const __m256i third4 = ShiftUp<2>(leads4);
            const __m256i fourth4 = ShiftUp<3>(leads4);
            __m256i low = _mm256_or_si256(_mm256_and_si256(bytes, Bytes(0x3F)),
                                          _mm256_and_si256(_mm256_slli_epi16(before1, 6), Bytes(0xC0)));
            low = _mm256_blendv_epi8(bytes, low, bytes);
            __m256i high = _mm256_or_si256(
                _mm256_and_si256(_mm256_srli_epi16(before1, 2), Bytes(0x0F)),
                _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(before2, 4), _mm256_and_si256(third3, Bytes(0xF0))),
                                _mm256_and_si256(fourth4, Bytes(0xDC))));
            high = _mm256_blendv_epi8(zero, high, bytes);
            const __m256i above10 = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(before1, 2), Bytes(0xFC)),
                                                    _mm256_and_si256(_mm256_srli_epi16(bytes, 4), Bytes(0x03)));
            const __m256i borrow = _mm256_cmpeq_epi8(_mm256_min_epu8(above10, Bytes(0x3F)), above10);
            low = _mm256_blendv_epi8(low, _mm256_sub_epi8(above10, Bytes(0x40)), third4);
            high = _mm256_blendv_epi8(
                high, _mm256_add_epi8(_mm256_or_si256(_mm256_and_si256(before2, Bytes(0x07)), Bytes(0xD8)), borrow),
                third4);
            const __m256i units0 = _mm256_unpacklo_epi8(low, high);  // bytes 0..7 and 16..23
            const __m256i units1 = _mm256_unpackhi_epi8(low, high);  // bytes 8..15 and 24..31
            count += PackUnits(out + count, Low(units0), kept & 0xFF);
            count += PackUnits(out + count, Low(units1), kept >> 8 & 0xFF);
            count += PackUnits(out + count, High(units0), kept >> 16 & 0xFF);
            count += PackUnits(out + count, High(units1), kept >> 24 & 0xFF);
        } else {
            count += static_cast<std::size_t>(__builtin_popcountll(kept));
        }
        in += __builtin_popcountll(taken);
    }
    *position = in;
    return count;
}

/// Stores the bytes of 4 units (codes: 2 bits each, see BytePackTable) laid
/// out in 32-bit lanes at out; returns how many.
std::size_t PackBytes(unsigned char* out, __m128i lanes, unsigned codes) {
    Store(out, _mm_shuffle_epi8(lanes, Table(kBytePack.entries[codes])));
    return kBytePack.lengths[codes];
}

template <bool kStore>
std::size_t Encode(const char16_t** position, const char16_t* end, unsigned char* out, std::size_t room) {
    const char16_t* in = *position;
    std::size_t count = 0;
    // 16 more units must follow a window: their at least 16 bytes overwrite
    // what the window stores past its own.
    while (end - in >= 32 && (!kStore || room - count >= 64)) {
        const __m256i zero = _mm256_setzero_si256();
        const __m256i units = Load(in);
        const __m256i ascii = _mm256_cmpeq_epi16(_mm256_and_si256(units, Units(0xFF80)), zero);
        if (Mask(ascii) == 0xFFFFFFFFu) {
            if constexpr (kStore) Store(out + count, _mm_packus_epi16(Low(units), High(units)));
            in += 16;
            count += 16;
            continue;
        }
        const __m256i top5 = _mm256_and_si256(units, Units(0xF800));
        const __m256i below800 = _mm256_cmpeq_epi16(top5, zero);
        const __m256i surrogate = _mm256_cmpeq_epi16(top5, Units(0xD800));
        const __m256i top6 = _mm256_and_si256(units, Units(0xFC00));
        const __m256i highSurrogate = _mm256_cmpeq_epi16(top6, Units(0xD800));
        const __m256i lowSurrogate = _mm256_cmpeq_epi16(top6, Units(0xDC00));
        const std::uint32_t highMask = Mask(highSurrogate);
        if ((Mask(_mm256_andnot_si256(ShiftDown<2>(lowSurrogate), highSurrogate)) & 0x3FFFFFFFu) != 0 ||
            Mask(_mm256_andnot_si256(ShiftUp<2>(highSurrogate), lowSurrogate)) != 0) {
            break;
        }
        std::uint32_t twoOrMore = ~Mask(ascii);
        std::uint32_t three = ~Mask(_mm256_or_si256(below800, surrogate));
        const bool waits = (highMask & 0xC0000000u) != 0;
        if (waits) {
            twoOrMore &= 0x3FFFFFFFu;
            three |= 0xC0000000u;
        }
        const std::uint32_t codes = (twoOrMore & 0x55555555u) | (three & 0xAAAAAAAAu);
        if constexpr (kStore) {
            __m256i last = _mm256_blendv_epi8(_mm256_or_si256(_mm256_and_si256(units, Units(0x3F)), Units(0x80)),
                                              units, ascii);
            __m256i middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 6), Units(0x3F)), Units(0x80));
            middle = _mm256_or_si256(middle, _mm256_andnot_si256(ascii, _mm256_and_si256(below800, Units(0x40))));
            const __m256i first = _mm256_or_si256(_mm256_srli_epi16(units, 12), Units(0xE0));
            const __m256i shifted = _mm256_sub_epi16(units, Units(0xD7C0));
            middle = _mm256_blendv_epi8(middle, _mm256_or_si256(_mm256_srli_epi16(shifted, 8), Units(0xF0)),
                                        highSurrogate);
            last = _mm256_blendv_epi8(
                last, _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(shifted, 2), Units(0x3F)), Units(0x80)),
                highSurrogate);
            middle = _mm256_blendv_epi8(
                middle,
                _mm256_xor_si256(middle, _mm256_slli_epi16(_mm256_andnot_si256(ShiftUp<2>(units), Units(3)), 4)),
                lowSurrogate);
            const __m256i firstMiddle = _mm256_or_si256(first, _mm256_slli_epi16(middle, 8));
            const __m256i lanes0 = _mm256_unpacklo_epi16(firstMiddle, last);  // units 0..3 and 8..11
            const __m256i lanes1 = _mm256_unpackhi_epi16(firstMiddle, last);  // units 4..7 and 12..15
            count += PackBytes(out + count, Low(lanes0), codes & 0xFF);
            count += PackBytes(out + count, Low(lanes1), codes >> 8 & 0xFF);
            count += PackBytes(out + count, High(lanes0), codes >> 16 & 0xFF);
            count += PackBytes(out + count, High(lanes1), codes >> 24);
        } else {
            count += static_cast<std::size_t>(kBytePack.lengths[codes & 0xFF]) + kBytePack.lengths[codes >> 8 & 0xFF] +
                     kBytePack.lengths[codes >> 16 & 0xFF] + kBytePack.lengths[codes >> 24];
        }
        in += waits ? 15 : 16;
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

const Utf8Kernels* Avx2Utf8Kernels() { return &kKernels; }

}  // namespace zel_platform::posix

#else

const zel_platform::posix::Utf8Kernels* zel_platform::posix::Avx2Utf8Kernels() { return nullptr; }

#endif
