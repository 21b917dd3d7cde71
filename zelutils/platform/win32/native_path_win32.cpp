// Library paths are native wide paths on Windows.
#include "zelutils/platform/native_path.h"

#include "zelutils/platform/errhandlingapi.h"

#include <cerrno>
#include <cstdio>
#include <string>

namespace zel_platform {

std::filesystem::path FileSystemPath(const WCHAR* path) {
    return path == nullptr ? std::filesystem::path() : std::filesystem::path(path);
}

std::FILE* OpenStdioFile(const WCHAR* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // "N": not inherited by child processes, as on POSIX.
    std::wstring wideMode(mode, mode + std::char_traits<char>::length(mode));
    wideMode += L'N';
    return _wfopen(path, wideMode.c_str());
}

DWORD ErrorFromErrorCode(const std::error_code& code) {
    if (!code) return ERROR_SUCCESS;
    // The system category carries Win32 numbers here; the generic one, errno values.
    if (code.category() == std::system_category()) return static_cast<DWORD>(code.value());
    if (code.category() == std::generic_category()) return ErrorFromErrno(code.value());
    return ERROR_GEN_FAILURE;
}

}  // namespace zel_platform
