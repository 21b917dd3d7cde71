// Library paths are native wide paths on Windows.
#include "zelutils/platform/native_path.h"

#include "zelutils/platform/errhandlingapi.h"

#include <shellapi.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <string>

namespace zel_platform {

std::vector<std::string> ProgramArguments(int, char**) {
    std::vector<std::string> arguments;
    int count = 0;
    LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return arguments;
    for (int i = 1; i < count; ++i) {
        int length = static_cast<int>(std::wcslen(wide[i]));
        std::string utf8(static_cast<std::size_t>(
                             WideCharToMultiByte(CP_UTF8, 0, wide[i], length, nullptr, 0, nullptr, nullptr)),
                         '\0');
        WideCharToMultiByte(CP_UTF8, 0, wide[i], length, &utf8[0], static_cast<int>(utf8.size()), nullptr, nullptr);
        arguments.push_back(std::move(utf8));
    }
    LocalFree(wide);
    return arguments;
}

std::basic_string<WCHAR> PathFromArgument(const std::string& argument) {
    const int length = static_cast<int>(argument.size());
    std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, argument.data(), length, nullptr, 0)),
                      L'\0');
    MultiByteToWideChar(CP_UTF8, 0, argument.data(), length, &wide[0], static_cast<int>(wide.size()));
    return wide;
}

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
