// Paths between the library (UTF-16, `\` or `/`) and the system (UTF-8, `/`)
// (internal).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/windef.h"

#include <cstddef>
#include <string>

namespace zel_platform::posix {

using WideString = std::basic_string<WCHAR>;

/// The UTF-8 form of a library path with every `\` turned into `/`. Lone
/// surrogates become U+FFFD, as the UTF-8 code page writes them.
std::string ToNativePath(const WCHAR* path);

/// UTF-8 text from the system (file names, paths) as UTF-16; bytes that are
/// not UTF-8 become U+FFFD.
WideString FromNativeText(const char* text, std::size_t length);

/// The Win32 error for a call on nativePath that failed with errnoValue.
/// Windows tells a missing file (2) from a missing folder on the way to it
/// (3), where POSIX says ENOENT for both: the folder holding the last
/// component is looked at to choose.
DWORD PathError(int errnoValue, const std::string& nativePath);

/// Copies text and a terminator to buffer when it has room for both
/// (returning the length) or, when it has not, returns the length plus one
/// and writes nothing: the sizing rule of GetTempPathW and its kin.
DWORD CopyOrMeasure(const WideString& text, LPWSTR buffer, DWORD bufferLength);

}  // namespace zel_platform::posix
