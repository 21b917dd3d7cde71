/// @file
/// Library paths (UTF-16, `\` or `/` separators) handed to the C and C++
/// standard libraries. Portable code that needs std::filesystem or C stdio
/// on a library path converts it here, never by hand, and turns the errors
/// those libraries report into Win32 error numbers here.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

namespace zel_platform {

/// The path as std::filesystem sees it: UTF-16 becomes the native encoding
/// and, on POSIX, `\` becomes `/`. A null path gives an empty path; text that
/// is not valid UTF-16 has its lone surrogates replaced by U+FFFD.
ZEL_API std::filesystem::path FileSystemPath(const WCHAR* path);
/// Opens a C stream on a library path, like _wfopen; mode is fopen's. The
/// descriptor is not inherited by child processes. Null on failure (errno set).
ZEL_API std::FILE* OpenStdioFile(const WCHAR* path, const char* mode);
/// The Win32 error number of an error the standard library reported (for
/// instance by std::filesystem), so that callers see the same numbers as
/// from the platform calls: 0 for no error, ERROR_GEN_FAILURE for an error
/// outside the system's categories.
ZEL_API DWORD ErrorFromErrorCode(const std::error_code& code);

}  // namespace zel_platform
