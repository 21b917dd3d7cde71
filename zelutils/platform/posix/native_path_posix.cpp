// UTF-16 library paths to UTF-8 system paths and back.
#include "zelutils/platform/native_path.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/codecs.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"

#include <cerrno>
#include <string>

namespace zel_platform::posix {

std::string ToNativePath(const WCHAR* path) {
    std::string out;
    if (path == nullptr) return out;
    std::size_t length = 0;
    while (path[length] != 0) ++length;
    out.resize(Utf16ToUtf8(path, length, nullptr, 0).count);
    Utf16ToUtf8(path, length, &out[0], out.size());
    // A backslash byte never occurs inside a longer UTF-8 sequence.
    for (char& c : out) {
        if (c == '\\') c = '/';
    }
    return out;
}

WideString FromNativeText(const char* text, std::size_t length) {
    WideString out(Utf8ToUtf16(text, length, nullptr, 0).count, u'\0');
    Utf8ToUtf16(text, length, &out[0], out.size());
    return out;
}

DWORD PathError(int errnoValue, const std::string& nativePath) {
    if (errnoValue != ENOENT) return ErrorFromErrno(errnoValue);
    std::string::size_type end = nativePath.find_last_not_of('/');
    if (end == std::string::npos) return ERROR_PATH_NOT_FOUND;  // the empty path, as Windows
    std::string::size_type slash = nativePath.rfind('/', end);
    if (slash == std::string::npos) return ERROR_FILE_NOT_FOUND;
    std::string folder = slash == 0 ? "/" : nativePath.substr(0, slash);
    struct statx status {};
    if (sys::Stat(AT_FDCWD, folder.c_str(), 0, &status) == 0 && S_ISDIR(status.stx_mode)) {
        return ERROR_FILE_NOT_FOUND;
    }
    return ERROR_PATH_NOT_FOUND;
}

DWORD CopyOrMeasure(const WideString& text, LPWSTR buffer, DWORD bufferLength) {
    if (buffer == nullptr || text.size() >= bufferLength)
        return static_cast<DWORD>(text.size() + 1);
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}

}  // namespace zel_platform::posix

namespace zel_platform {

std::filesystem::path FileSystemPath(const WCHAR* path) {
    return std::filesystem::path(posix::ToNativePath(path));
}

std::FILE* OpenStdioFile(const WCHAR* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // "e": close-on-exec, as every descriptor the library opens.
    std::string closeOnExec = std::string(mode) + "e";
    return std::fopen(posix::ToNativePath(path).c_str(), closeOnExec.c_str());
}

DWORD ErrorFromErrorCode(const std::error_code& code) {
    if (!code) return ERROR_SUCCESS;
    if (code.category() == std::generic_category() || code.category() == std::system_category()) {
        return ErrorFromErrno(code.value());
    }
    return ERROR_GEN_FAILURE;
}

}  // namespace zel_platform
