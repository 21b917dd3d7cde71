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

/// The UTF-8 form of a library path with every `\` turned into `/`. A lone
/// surrogate U+DC80..U+DCFF is written as the byte it carries (0x80..0xFF),
/// so a name read from the system goes back to it unchanged; other lone
/// surrogates become U+FFFD, as the UTF-8 code page writes them. Trailing
/// dots and spaces of the last component are dropped ("name." is "name"),
/// as Windows drops them from every path it is given; a component of dots
/// and spaces only ("." and "..") is kept.
std::string ToNativePath(const WCHAR* path);

/// ToNativePath for a path that names a file or folder itself (to open,
/// create, remove or rename), with Windows' refusals: a null path fails with
/// 3, a path holding a wildcard (`*`, `?`, `<`, `>`, `"`) with 123. False
/// with the last error set.
bool NameToNativePath(const WCHAR* path, std::string& native);

/// Whether nativePath names a read-only file: a regular file whose owner may
/// not write it, as GetFileAttributesW reports FILE_ATTRIBUTE_READONLY.
/// Windows refuses to delete or replace such a file (5). The bits decide, not
/// the caller's rights, so the rule holds for a privileged process too. False
/// when the file cannot be looked at.
bool IsReadOnlyFile(const std::string& nativePath);

/// Text from the system (file names, paths, arguments) as UTF-16: UTF-8 is
/// decoded, and each byte that is not part of a well-formed UTF-8 sequence
/// becomes the lone surrogate U+DC00 + byte, which ToNativePath turns back.
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
