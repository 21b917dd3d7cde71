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
#include <string>
#include <system_error>
#include <vector>

namespace zel_platform {

/// A program's arguments after its name, as UTF-8 text that
/// PathFromArgument turns into the library path the user meant. On POSIX
/// they are argv's bytes as the system gave them; on Windows the UTF-16
/// command line (CommandLineToArgvW) converted to UTF-8, so that names
/// outside the ANSI code page survive (argc and argv are then not used).
ZEL_API std::vector<std::string> ProgramArguments(int argc, char** argv);
/// A file name from ProgramArguments as a library path. On POSIX the bytes
/// reach the file system unchanged, also when they are not UTF-8: each byte
/// that does not decode is carried as the lone surrogate U+DC80 + (byte -
/// 0x80), which the platform writes back as that byte.
ZEL_API std::basic_string<WCHAR> PathFromArgument(const std::string& argument);

/// The path as std::filesystem sees it: UTF-16 becomes the native encoding
/// and, on POSIX, `\` becomes `/`. A null path gives an empty path; on POSIX
/// a lone surrogate U+DC80..U+DCFF is the byte it carries (see
/// PathFromArgument) and any other lone surrogate becomes U+FFFD.
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
