// Vector kernels of the UTF-8 codec (internal). Each instruction set the
// codec can use has its own translation unit, compiled for that set only;
// the codec calls one after checking at run time that the processor has it.
//
// A kernel converts whole blocks of well-formed text from the start of the
// input and stops before the first block that is not (an ill-formed
// sequence, a lone surrogate), before the last few dozen units of input, and
// before the target runs short; the codec's plain path converts what is left,
// so the result is exactly the plain path's. A kernel stores only where the
// plain path would store later anyway: its stores past the text it returns
// fall within what the input left over is sure to overwrite.
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include <cstddef>

namespace zel_platform::posix {

struct Utf8Kernels {
    /// UTF-8 at *in (up to end) to UTF-16 at out, which has room for `room`
    /// units; a null out only counts. Advances *in past the text converted
    /// and returns the units it gave.
    std::size_t (*decode)(const unsigned char** in, const unsigned char* end, char16_t* out, std::size_t room);
    /// UTF-16 at *in (up to end) to UTF-8 at out, which has room for `room`
    /// bytes; a null out only counts. Advances *in past the units converted
    /// and returns the bytes it gave.
    std::size_t (*encode)(const char16_t** in, const char16_t* end, unsigned char* out, std::size_t room);
};

/// The kernels for SSSE3 and SSE4.1 (with POPCNT), or null when this build
/// has none (a processor other than x86).
const Utf8Kernels* Sse41Utf8Kernels();
/// The kernels for AVX2 (with POPCNT), or null when this build has none.
const Utf8Kernels* Avx2Utf8Kernels();

}  // namespace zel_platform::posix
