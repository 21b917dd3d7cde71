// UTF-16 library paths to UTF-8 system paths and back.
#include "zelutils/platform/native_path.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"

#include <cerrno>
#include <string>

namespace zel_platform::posix {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void AppendUtf16(WideString& out, char32_t c) {
    if (c < 0x10000) {
        out += static_cast<WCHAR>(c);
    } else {
        c -= 0x10000;
        out += static_cast<WCHAR>(0xD800 | (c >> 10));
        out += static_cast<WCHAR>(0xDC00 | (c & 0x3FF));
    }
}

bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Decodes one UTF-8 sequence at text[i]; advances i past it, or by one byte
// for a byte that does not start a valid sequence.
char32_t DecodeUtf8(const unsigned char* text, std::size_t length, std::size_t& i) {
    unsigned char lead = text[i];
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    int extra;
    char32_t c;
    char32_t minimum;
    if (lead >= 0xC2 && lead <= 0xDF) {
        extra = 1, c = lead & 0x1F, minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        extra = 2, c = lead & 0x0F, minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        extra = 3, c = lead & 0x07, minimum = 0x10000;
    } else {
        ++i;
        return kReplacement;
    }
    if (length - i <= static_cast<std::size_t>(extra)) {
        ++i;
        return kReplacement;
    }
    for (int k = 1; k <= extra; ++k) {
        unsigned char next = text[i + k];
        if ((next & 0xC0) != 0x80) {
            ++i;
            return kReplacement;
        }
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        ++i;
        return kReplacement;
    }
    i += extra + 1;
    return c;
}

}  // namespace

std::string ToNativePath(const WCHAR* path) {
    std::string out;
    if (path == nullptr) return out;
    for (const WCHAR* p = path; *p != 0; ++p) {
        char32_t c = *p;
        if (c == u'\\') {
            c = u'/';
        } else if (IsHighSurrogate(c) && IsLowSurrogate(p[1])) {
            c = 0x10000 + ((c - 0xD800) << 10) + (p[1] - 0xDC00);
            ++p;
        } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return out;
}

WideString FromNativeText(const char* text, std::size_t length) {
    WideString out;
    out.reserve(length);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    for (std::size_t i = 0; i < length;) AppendUtf16(out, DecodeUtf8(bytes, length, i));
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
