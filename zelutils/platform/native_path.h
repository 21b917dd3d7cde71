/// @file
/// Library paths (UTF-16, `\` or `/` separators) handed to the C and C++
/// standard libraries. Portable code that needs std::filesystem or C stdio
/// on a library path converts it here, never by hand.
#pragma once

#include "zelutils/platform/wchar.h"
#include "zelutils/zel_api.h"

#include <cstdio>
#include <filesystem>

namespace zel_platform {

/// The path as std::filesystem sees it: UTF-16 becomes the native encoding
/// and, on POSIX, `\` becomes `/`. A null path gives an empty path; text that
/// is not valid UTF-16 has its lone surrogates replaced by U+FFFD.
ZEL_API std::filesystem::path FileSystemPath(const WCHAR* path);
/// Opens a C stream on a library path, like _wfopen; mode is fopen's. The
/// descriptor is not inherited by child processes. Null on failure (errno set).
ZEL_API std::FILE* OpenStdioFile(const WCHAR* path, const char* mode);

}  // namespace zel_platform
