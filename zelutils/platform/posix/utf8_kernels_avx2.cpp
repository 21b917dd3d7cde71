// The UTF-8 codec's kernels for AVX2 (with POPCNT): 32 bytes or 16 units a
// window. Only this file is compiled for AVX2. The byte shuffles work within
// each 128-bit half, so the values that cross from one half to the other
// (the bytes before a position, the unit before and after one) come from a
// shift across the whole register.
#include "zelutils/platform/posix/utf8_kernels.h"

#if defined(__AVX2__) && defined(__POPCNT__)

#include "zelutils/platform/posix/utf8_vector_kernel.h"

#include <immintrin.h>

namespace zel_platform::posix {
namespace {

struct Avx2 {
    using Reg = __m256i;
    static constexpr int kBytes = 32;
    static constexpr std::uint64_t kAll = 0xFFFFFFFFu;
    static Reg Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
    static Reg Zero() { return _mm256_setzero_si256(); }
    static Reg Bytes(int byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }
    static Reg Units(int unit) { return _mm256_set1_epi16(static_cast<short>(unit)); }
    static Reg And(Reg a, Reg b) { return _mm256_and_si256(a, b); }
    static Reg Or(Reg a, Reg b) { return _mm256_or_si256(a, b); }
    static Reg Xor(Reg a, Reg b) { return _mm256_xor_si256(a, b); }
    static Reg AndNot(Reg a, Reg b) { return _mm256_andnot_si256(a, b); }
    static Reg Add8(Reg a, Reg b) { return _mm256_add_epi8(a, b); }
    static Reg Sub8(Reg a, Reg b) { return _mm256_sub_epi8(a, b); }
    static Reg Sub16(Reg a, Reg b) { return _mm256_sub_epi16(a, b); }
    static Reg Min8(Reg a, Reg b) { return _mm256_min_epu8(a, b); }
    static Reg Equal8(Reg a, Reg b) { return _mm256_cmpeq_epi8(a, b); }
    static Reg Equal16(Reg a, Reg b) { return _mm256_cmpeq_epi16(a, b); }
    static Reg Blend(Reg a, Reg b, Reg mask) { return _mm256_blendv_epi8(a, b, mask); }
    template <int kBits>
    static Reg ShiftLeft16(Reg v) { return _mm256_slli_epi16(v, kBits); }
    template <int kBits>
    static Reg ShiftRight16(Reg v) { return _mm256_srli_epi16(v, kBits); }
    static std::uint64_t Mask(Reg v) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(v)); }
    static Reg Lookup(const NibbleClasses& table, Reg nibbles) {
        return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(Table(table)), nibbles);
    }
    // The half below (Up) or above (Down) the register's, zeros beyond it.
    template <int kCount>
    static Reg Up(Reg v) { return _mm256_alignr_epi8(v, _mm256_permute2x128_si256(v, v, 0x08), 16 - kCount); }
    template <int kCount>
    static Reg Down(Reg v) { return _mm256_alignr_epi8(_mm256_permute2x128_si256(v, v, 0x81), v, kCount); }
    static Reg UnpackLow8(Reg a, Reg b) { return _mm256_unpacklo_epi8(a, b); }
    static Reg UnpackHigh8(Reg a, Reg b) { return _mm256_unpackhi_epi8(a, b); }
    static Reg UnpackLow16(Reg a, Reg b) { return _mm256_unpacklo_epi16(a, b); }
    static Reg UnpackHigh16(Reg a, Reg b) { return _mm256_unpackhi_epi16(a, b); }
    template <int kIndex>
    static __m128i Half(Reg v) { return _mm256_extracti128_si256(v, kIndex); }
    static void WidenBytes(char16_t* out, Reg v) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_cvtepu8_epi16(Half<0>(v)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16), _mm256_cvtepu8_epi16(Half<1>(v)));
    }
    static void NarrowUnits(unsigned char* out, Reg v) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(Half<0>(v), Half<1>(v)));
    }
};

}  // namespace

const Utf8Kernels* Avx2Utf8Kernels() { return &kVectorKernels<Avx2>; }

}  // namespace zel_platform::posix

#else

const zel_platform::posix::Utf8Kernels* zel_platform::posix::Avx2Utf8Kernels() { return nullptr; }

#endif
