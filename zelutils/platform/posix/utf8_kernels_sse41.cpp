// The UTF-8 codec's kernels for SSSE3 and SSE4.1 (with POPCNT): 16 bytes or
// 8 units a window. Only this file is compiled for those instruction sets.
#include "zelutils/platform/posix/utf8_kernels.h"

#if defined(__SSSE3__) && defined(__SSE4_1__) && defined(__POPCNT__)

#include "zelutils/platform/posix/utf8_vector_kernel.h"

namespace zel_platform::posix {
namespace {

struct Sse41 {
    using Reg = __m128i;
    static constexpr int kBytes = 16;
    static constexpr std::uint64_t kAll = 0xFFFF;
    static Reg Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static Reg Zero() { return _mm_setzero_si128(); }
    static Reg Bytes(int byte) { return _mm_set1_epi8(static_cast<char>(byte)); }
    static Reg Units(int unit) { return _mm_set1_epi16(static_cast<short>(unit)); }
    static Reg And(Reg a, Reg b) { return _mm_and_si128(a, b); }
    static Reg Or(Reg a, Reg b) { return _mm_or_si128(a, b); }
    static Reg Xor(Reg a, Reg b) { return _mm_xor_si128(a, b); }
    static Reg AndNot(Reg a, Reg b) { return _mm_andnot_si128(a, b); }
    static Reg Add8(Reg a, Reg b) { return _mm_add_epi8(a, b); }
    static Reg Sub8(Reg a, Reg b) { return _mm_sub_epi8(a, b); }
    static Reg Sub16(Reg a, Reg b) { return _mm_sub_epi16(a, b); }
    static Reg Min8(Reg a, Reg b) { return _mm_min_epu8(a, b); }
    static Reg Equal8(Reg a, Reg b) { return _mm_cmpeq_epi8(a, b); }
    static Reg Equal16(Reg a, Reg b) { return _mm_cmpeq_epi16(a, b); }
    static Reg Blend(Reg a, Reg b, Reg mask) { return _mm_blendv_epi8(a, b, mask); }
    template <int kBits>
    static Reg ShiftLeft16(Reg v) { return _mm_slli_epi16(v, kBits); }
    template <int kBits>
    static Reg ShiftRight16(Reg v) { return _mm_srli_epi16(v, kBits); }
    static std::uint64_t Mask(Reg v) { return static_cast<unsigned>(_mm_movemask_epi8(v)); }
    static Reg Lookup(const NibbleClasses& table, Reg nibbles) { return _mm_shuffle_epi8(Table(table), nibbles); }
    template <int kCount>
    static Reg Up(Reg v) { return _mm_slli_si128(v, kCount); }
    template <int kCount>
    static Reg Down(Reg v) { return _mm_srli_si128(v, kCount); }
    static Reg UnpackLow8(Reg a, Reg b) { return _mm_unpacklo_epi8(a, b); }
    static Reg UnpackHigh8(Reg a, Reg b) { return _mm_unpackhi_epi8(a, b); }
    static Reg UnpackLow16(Reg a, Reg b) { return _mm_unpacklo_epi16(a, b); }
    static Reg UnpackHigh16(Reg a, Reg b) { return _mm_unpackhi_epi16(a, b); }
    template <int>
    static __m128i Half(Reg v) { return v; }
    static void WidenBytes(char16_t* out, Reg v) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_cvtepu8_epi16(v));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_cvtepu8_epi16(_mm_srli_si128(v, 8)));
    }
    static void NarrowUnits(unsigned char* out, Reg v) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
    }
};

}  // namespace

const Utf8Kernels* Sse41Utf8Kernels() { return &kVectorKernels<Sse41>; }

}  // namespace zel_platform::posix

#else

const zel_platform::posix::Utf8Kernels* zel_platform::posix::Sse41Utf8Kernels() { return nullptr; }

#endif
