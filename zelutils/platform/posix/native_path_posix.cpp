// UTF-16 library paths to UTF-8 system paths and back.
#include "zelutils/platform/native_path.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/codecs.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"

#include <algorithm>
#include <cerrno>
#include <string>

namespace zel_platform::posix {

namespace {

constexpr char16_t kEscapeFirst = 0xDC80;
constexpr char16_t kEscapeLast = 0xDCFF;

// The length of the well-formed UTF-8 sequence at text, or 0 when the byte
// there starts none (a stray, overlong, surrogate or out-of-range form).
std::size_t WellFormedLength(const unsigned char* text, std::size_t left) {
    unsigned char lead = text[0];
    if (lead < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (left < length || text[1] < low || text[1] > high) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((text[i] & 0xC0) != 0x80) return 0;
    }
    return length;
}

void AppendUtf8(std::string& out, const WCHAR* units, std::size_t count) {
    if (count == 0) return;
    std::size_t start = out.size();
    out.resize(start + Utf16ToUtf8(units, count, nullptr, 0).count);
    Utf16ToUtf8(units, count, &out[start], out.size() - start);
}

void AppendUtf16(WideString& out, const char* text, std::size_t count) {
    if (count == 0) return;
    std::size_t start = out.size();
    out.resize(start + Utf8ToUtf16(text, count, nullptr, 0).count);
    Utf8ToUtf16(text, count, &out[start], out.size() - start);
}

// The length of path without the trailing dots and spaces of its last
// component, unless that component has nothing else.
std::size_t LengthWithoutTrailingDots(const WCHAR* path) {
    std::size_t length = 0;
    std::size_t componentStart = 0;
    for (; path[length] != 0; ++length) {
        if (path[length] == u'\\' || path[length] == u'/') componentStart = length + 1;
    }
    std::size_t end = length;
    while (end > componentStart && (path[end - 1] == u'.' || path[end - 1] == u' ')) --end;
    return end == componentStart ? length : end;
}

}  // namespace

std::string ToNativePath(const WCHAR* path) {
    std::string out;
    if (path == nullptr) return out;
    std::size_t length = LengthWithoutTrailingDots(path);
    std::size_t run = 0;  // start of the units not yet converted
    for (std::size_t i = 0; i < length; ++i) {
        bool escape = path[i] >= kEscapeFirst && path[i] <= kEscapeLast &&
                      (i == 0 || path[i - 1] < 0xD800 || path[i - 1] > 0xDBFF);
        if (!escape) continue;
        AppendUtf8(out, path + run, i - run);
        out += static_cast<char>(path[i] & 0xFF);
        run = i + 1;
    }
    AppendUtf8(out, path + run, length - run);
    // A backslash byte never occurs inside a longer UTF-8 sequence.
    for (char& c : out) {
        if (c == '\\') c = '/';
    }
    return out;
}

bool NameToNativePath(const WCHAR* path, std::string& native) {
    if (path == nullptr) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    for (const WCHAR* c = path; *c != 0; ++c) {
        if (*c == u'*' || *c == u'?' || *c == u'<' || *c == u'>' || *c == u'"') {
            SetLastError(ERROR_INVALID_NAME);
            return false;
        }
    }
    native = ToNativePath(path);
    return true;
}

bool IsReadOnlyFile(const std::string& nativePath) {
    struct statx status {};
    return sys::Stat(AT_FDCWD, nativePath.c_str(), AT_SYMLINK_NOFOLLOW, &status) == 0 &&
           S_ISREG(status.stx_mode) && (status.stx_mode & S_IWUSR) == 0;
}

WideString FromNativeText(const char* text, std::size_t length) {
    WideString out;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    std::size_t run = 0;  // start of the well-formed bytes not yet decoded
    std::size_t i = 0;
    while (i < length) {
        std::size_t sequence = WellFormedLength(bytes + i, length - i);
        if (sequence != 0) {
            i += sequence;
            continue;
        }
        AppendUtf16(out, text + run, i - run);
        out += static_cast<char16_t>(0xDC00 | bytes[i]);
        run = ++i;
    }
    AppendUtf16(out, text + run, length - run);
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

std::vector<std::string> ProgramArguments(int argc, char** argv) {
    return std::vector<std::string>(argv + std::min(argc, 1), argv + std::max(argc, 0));
}

std::basic_string<WCHAR> PathFromArgument(const std::string& argument) {
    return posix::FromNativeText(argument.data(), argument.size());
}

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
