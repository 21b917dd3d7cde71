// The library's UTF-8 codec (code page 65001).
//
// The plain path works on any processor and is the reference: text is mostly
// ASCII, so both directions first try a block of ASCII at a time (16 bytes
// with SSE2, 8 with word operations elsewhere) and fall back to one character
// at a time only around non-ASCII characters. Measuring runs the same loops
// without stores, so it costs no more than converting. A whole block is
// stored even when only its start is ASCII, but only where the characters
// that follow are sure to overwrite the rest: a successful conversion writes
// nothing beyond the units it returns.
//
// On a processor with SSE4.1 or AVX2, vector kernels (utf8_kernels.h),
// chosen at the first conversion, convert the well-formed blocks of any
// script; the plain path converts what a kernel leaves: ill-formed text, the
// end of the input and the end of the target.
#include "zelutils/platform/posix/codecs.h"
#include "zelutils/platform/posix/utf8_kernels.h"

#include <atomic>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zel_platform::posix {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

#if defined(__SSE2__)
constexpr std::size_t kByteBlock = 16;
constexpr std::size_t kUnitBlock = 16;

__m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

/// The number of leading ASCII bytes in the block at p (kByteBlock when all are).
std::size_t AsciiBytePrefix(const unsigned char* p) {
    unsigned nonAscii = static_cast<unsigned>(_mm_movemask_epi8(Load(p)));
    return nonAscii == 0 ? kByteBlock : static_cast<std::size_t>(__builtin_ctz(nonAscii));
}

void WidenByteBlock(const unsigned char* p, char16_t* out) {
    const __m128i bytes = Load(p);
    const __m128i zero = _mm_setzero_si128();
    Store(out, _mm_unpacklo_epi8(bytes, zero));
    Store(out + 8, _mm_unpackhi_epi8(bytes, zero));
}

/// The number of leading ASCII units in the block at p (kUnitBlock when all are).
std::size_t AsciiUnitPrefix(const char16_t* p) {
    const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
    const __m128i zero = _mm_setzero_si128();
    unsigned ascii = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(Load(p), high), zero))) |
                     static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(Load(p + 8), high), zero)))
                         << 16;
    return ascii == 0xFFFFFFFFu ? kUnitBlock : static_cast<std::size_t>(__builtin_ctz(~ascii)) / 2;
}

void NarrowUnitBlock(const char16_t* p, unsigned char* out) {
    Store(out, _mm_packus_epi16(Load(p), Load(p + 8)));
}

/// UTF-8 length of the 8 units at p, or -1 when one is a surrogate (whose
/// length depends on its neighbour). Counts 3 bytes per unit, less one for
/// each unit below 0x800 and one more for each below 0x80.
int Utf8LengthOfUnitsWithoutSurrogates(const char16_t* p) {
    const __m128i units = Load(p);
    const __m128i zero = _mm_setzero_si128();
    const __m128i top5 = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xF800)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800)))) != 0) return -1;
    unsigned below800 = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(top5, zero)));
    unsigned below80 = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_cmpeq_epi16(_mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xFF80))), zero)));
    // Two mask bits per unit.
    return 24 - (__builtin_popcount(below800) + __builtin_popcount(below80)) / 2;
}
constexpr std::size_t kMeasureBlock = 8;
#else
constexpr std::size_t kByteBlock = 8;
constexpr std::size_t kUnitBlock = 8;
constexpr std::uint64_t kHighBits = 0x8080808080808080u;
constexpr std::uint64_t kNonAsciiUnitBits = 0xFF80FF80FF80FF80u;

std::uint64_t LoadWord(const void* p) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

/// Index, in memory order, of the first nonzero byte of word.
std::size_t FirstMarkedByte(std::uint64_t word) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return static_cast<std::size_t>(__builtin_clzll(word)) / 8;
#else
    return static_cast<std::size_t>(__builtin_ctzll(word)) / 8;
#endif
}

std::size_t AsciiBytePrefix(const unsigned char* p) {
    std::uint64_t nonAscii = LoadWord(p) & kHighBits;
    return nonAscii == 0 ? kByteBlock : FirstMarkedByte(nonAscii);
}

void WidenByteBlock(const unsigned char* p, char16_t* out) {
    for (std::size_t i = 0; i < kByteBlock; ++i) out[i] = p[i];
}

std::size_t AsciiUnitPrefix(const char16_t* p) {
    std::uint64_t nonAscii = (LoadWord(p) | LoadWord(p + 4)) & kNonAsciiUnitBits;
    if (nonAscii == 0) return kUnitBlock;
    std::size_t ascii = 0;
    while (p[ascii] < 0x80) ++ascii;
    return ascii;
}

void NarrowUnitBlock(const char16_t* p, unsigned char* out) {
    for (std::size_t i = 0; i < kUnitBlock; ++i) out[i] = static_cast<unsigned char>(p[i]);
}
#endif

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// Decodes the sequence at in, whose lead byte is not ASCII: stores its code
/// point, or U+FFFD for an ill-formed part, and returns the bytes consumed.
/// A lead byte whose second byte is a continuation byte outside its range
/// (an overlong form, an encoded surrogate, a code point above 10FFFF) makes
/// one U+FFFD together with that byte, as Windows decodes it; otherwise each
/// maximal ill-formed subpart is one U+FFFD.
std::size_t DecodeSequence(const unsigned char* in, const unsigned char* end, char32_t* codePoint) {
    const unsigned lead = in[0];
    const std::size_t available = static_cast<std::size_t>(end - in);
    *codePoint = kReplacement;
    if (lead < 0xC2) return 1;
    if (lead < 0xE0) {
        if (available < 2 || !IsContinuation(in[1])) return 1;
        *codePoint = ((lead & 0x1Fu) << 6) | (in[1] & 0x3Fu);
        return 2;
    }
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead < 0xF0) {
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead < 0xF5) {
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 1;
    }
    if (available < 2 || !IsContinuation(in[1])) return 1;
    if (in[1] < low || in[1] > high) return 2;
    if (available < 3 || !IsContinuation(in[2])) return 2;
    if (lead < 0xF0) {
        *codePoint = ((lead & 0x0Fu) << 12) | ((in[1] & 0x3Fu) << 6) | (in[2] & 0x3Fu);
        return 3;
    }
    if (available < 4 || !IsContinuation(in[3])) return 3;
    *codePoint = ((lead & 0x07u) << 18) | ((in[1] & 0x3Fu) << 12) | ((in[2] & 0x3Fu) << 6) | (in[3] & 0x3Fu);
    return 4;
}

/// UTF-8 to UTF-16 on the plain path, from *in until it reaches stop (the
/// last character may end past it) or the target is full; with kStore false,
/// only counts the units. False when the target is too small.
template <bool kStore>
bool DecodeStretch(const unsigned char*& in, const unsigned char* stop, const unsigned char* end, char16_t* out,
                   std::size_t capacity, std::size_t& count) {
    while (in < stop) {
        if (static_cast<std::size_t>(end - in) >= kByteBlock && (!kStore || capacity - count >= kByteBlock)) {
            const std::size_t ascii = AsciiBytePrefix(in);
            if constexpr (kStore) {
                // Every 3 bytes give at least one unit, so with 3 blocks of
                // input left the units widened past the ASCII prefix are
                // overwritten by the characters that follow.
                if (ascii == kByteBlock || static_cast<std::size_t>(end - in) >= 3 * kByteBlock) {
                    WidenByteBlock(in, out + count);
                } else {
                    for (std::size_t i = 0; i < ascii; ++i) out[count + i] = in[i];
                }
            }
            in += ascii;
            count += ascii;
            if (ascii == kByteBlock) continue;
        } else if (*in < 0x80) {
            if constexpr (kStore) {
                if (count == capacity) return false;
                out[count] = *in;
            }
            ++in;
            ++count;
            continue;
        }
        // A run of non-ASCII characters, without looking for ASCII blocks
        // that text in other scripts rarely has.
        do {
            char32_t codePoint;
            in += DecodeSequence(in, end, &codePoint);
            if (codePoint < 0x10000) {
                if constexpr (kStore) {
                    if (count == capacity) return false;
                    out[count] = static_cast<char16_t>(codePoint);
                }
                ++count;
            } else {
                if constexpr (kStore) {
                    if (capacity - count < 2) return false;
                    out[count] = static_cast<char16_t>(0xD7C0 + (codePoint >> 10));
                    out[count + 1] = static_cast<char16_t>(0xDC00 | (codePoint & 0x3FF));
                }
                count += 2;
            }
        } while (in < stop && *in >= 0x80);
    }
    return true;
}

/// UTF-16 to UTF-8 on the plain path, from *in until it reaches stop (a
/// surrogate pair may end past it) or the target is full; with kStore false,
/// only counts the bytes. False when the target is too small.
template <bool kStore>
bool EncodeStretch(const char16_t*& in, const char16_t* stop, const char16_t* end, unsigned char* out,
                   std::size_t capacity, std::size_t& count) {
    while (in < stop) {
        if (static_cast<std::size_t>(end - in) >= kUnitBlock && (!kStore || capacity - count >= kUnitBlock)) {
            const std::size_t ascii = AsciiUnitPrefix(in);
            // Every unit gives at least one byte, so the bytes narrowed past
            // the ASCII prefix are overwritten by the characters that follow.
            if constexpr (kStore) NarrowUnitBlock(in, out + count);
            in += ascii;
            count += ascii;
            if (ascii == kUnitBlock) continue;
#if defined(__SSE2__)
            if constexpr (!kStore) {
                if (static_cast<std::size_t>(end - in) >= kMeasureBlock) {
                    int bytes = Utf8LengthOfUnitsWithoutSurrogates(in);
                    if (bytes >= 0) {
                        in += kMeasureBlock;
                        count += static_cast<std::size_t>(bytes);
                        continue;
                    }
                }
            }
#endif
        } else if (*in < 0x80) {
            if constexpr (kStore) {
                if (count == capacity) return false;
                out[count] = static_cast<unsigned char>(*in);
            }
            ++in;
            ++count;
            continue;
        }
        do {
            char32_t codePoint = *in++;
            if (codePoint >= 0xD800 && codePoint <= 0xDFFF) {
                if (codePoint <= 0xDBFF && in != end && *in >= 0xDC00 && *in <= 0xDFFF) {
                    codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (*in++ - 0xDC00u);
                } else {
                    codePoint = kReplacement;
                }
            }
            const std::size_t bytes = codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
            if constexpr (kStore) {
                if (capacity - count < bytes) return false;
                unsigned char* p = out + count;
                if (bytes == 2) {
                    p[0] = static_cast<unsigned char>(0xC0 | (codePoint >> 6));
                } else if (bytes == 3) {
                    p[0] = static_cast<unsigned char>(0xE0 | (codePoint >> 12));
                    p[1] = static_cast<unsigned char>(0x80 | ((codePoint >> 6) & 0x3F));
                } else {
                    p[0] = static_cast<unsigned char>(0xF0 | (codePoint >> 18));
                    p[1] = static_cast<unsigned char>(0x80 | ((codePoint >> 12) & 0x3F));
                    p[2] = static_cast<unsigned char>(0x80 | ((codePoint >> 6) & 0x3F));
                }
                p[bytes - 1] = static_cast<unsigned char>(0x80 | (codePoint & 0x3F));
            }
            count += bytes;
        } while (in < stop && *in >= 0x80);
    }
    return true;
}

/// How far the plain path converts from where a kernel stopped before the
/// kernel tries again (ill-formed text costs a failed window each time).
constexpr std::size_t kPlainStretch = 16;

/// Converts the n units at in with kernels (null: the plain path only), a
/// kernel's blocks and plain stretches in turn; with a null out, measures.
template <typename In, typename Out, typename Kernel, typename Stretch>
ConversionResult Convert(const In* in, std::size_t n, Out* out, std::size_t capacity, Kernel kernel,
                         Stretch stretch) {
    const In* const end = in + n;
    std::size_t count = 0;
    while (in != end) {
        const In* stop = end;
        if (kernel != nullptr) {
            count += kernel(&in, end, out == nullptr ? nullptr : out + count, capacity - count);
            if (static_cast<std::size_t>(end - in) > kPlainStretch) stop = in + kPlainStretch;
        }
        if (!stretch(in, stop, end, count)) return {count, ConversionResult::kTargetTooSmall};
    }
    return {count, ConversionResult::kDone};
}

/// The kernels of path, or null when the build or the processor lacks them
/// (and for the plain path).
const Utf8Kernels* KernelsOf(zel_platform::Utf8CodecPath path) {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    const bool sse41 =
        __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("popcnt");
    switch (path) {
    case zel_platform::Utf8CodecPath::kFastest:
        if (const Utf8Kernels* avx2 = KernelsOf(zel_platform::Utf8CodecPath::kAvx2)) return avx2;
        return KernelsOf(zel_platform::Utf8CodecPath::kSse41);
    case zel_platform::Utf8CodecPath::kPlain:
        return nullptr;
    case zel_platform::Utf8CodecPath::kSse41:
        return sse41 ? Sse41Utf8Kernels() : nullptr;
    case zel_platform::Utf8CodecPath::kAvx2:
        return sse41 && __builtin_cpu_supports("avx2") ? Avx2Utf8Kernels() : nullptr;
    }
#endif
    static_cast<void>(path);
    return nullptr;
}

/// The kernels in use: the fastest ones unless a test chose others.
std::atomic<const Utf8Kernels*>& Kernels() {
    static std::atomic<const Utf8Kernels*> kernels{KernelsOf(zel_platform::Utf8CodecPath::kFastest)};
    return kernels;
}

}  // namespace

ConversionResult Utf8ToUtf16(const char* source, std::size_t length, char16_t* target, std::size_t capacity) {
    const Utf8Kernels* kernels = Kernels().load(std::memory_order_relaxed);
    const auto* in = reinterpret_cast<const unsigned char*>(source);
    auto* decode = kernels == nullptr ? nullptr : kernels->decode;
    if (target == nullptr) {
        return Convert(in, length, target, 0, decode,
                       [](const unsigned char*& from, const unsigned char* stop, const unsigned char* end,
                          std::size_t& count) { return DecodeStretch<false>(from, stop, end, nullptr, 0, count); });
    }
    return Convert(in, length, target, capacity, decode,
                   [&](const unsigned char*& from, const unsigned char* stop, const unsigned char* end,
                       std::size_t& count) { return DecodeStretch<true>(from, stop, end, target, capacity, count); });
}

ConversionResult Utf16ToUtf8(const char16_t* source, std::size_t length, char* target, std::size_t capacity) {
    const Utf8Kernels* kernels = Kernels().load(std::memory_order_relaxed);
    auto* out = reinterpret_cast<unsigned char*>(target);
    auto* encode = kernels == nullptr ? nullptr : kernels->encode;
    if (target == nullptr) {
        return Convert(source, length, out, 0, encode,
                       [](const char16_t*& from, const char16_t* stop, const char16_t* end, std::size_t& count) {
                           return EncodeStretch<false>(from, stop, end, nullptr, 0, count);
                       });
    }
    return Convert(source, length, out, capacity, encode,
                   [&](const char16_t*& from, const char16_t* stop, const char16_t* end, std::size_t& count) {
                       return EncodeStretch<true>(from, stop, end, out, capacity, count);
                   });
}

}  // namespace zel_platform::posix

namespace zel_platform {

bool SetUtf8CodecPath(Utf8CodecPath path) {
    const posix::Utf8Kernels* kernels = posix::KernelsOf(path);
    if (kernels == nullptr && path != Utf8CodecPath::kPlain && path != Utf8CodecPath::kFastest) return false;
    posix::Kernels().store(kernels, std::memory_order_relaxed);
    return true;
}

}  // namespace zel_platform
