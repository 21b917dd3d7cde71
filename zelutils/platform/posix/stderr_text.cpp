#include "zelutils/platform/posix/stderr_text.h"

#include <cerrno>
#include <unistd.h>

namespace zel_platform::posix {

void AppendUtf8(std::string& out, LPCWSTR text) {
    for (; *text != 0; ++text) {
        char32_t c = *text;
        if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[1] - 0xDC00);
            ++text;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | c >> 12);
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | c >> 18);
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
}

void WriteToStderr(const std::string& bytes) {
    const char* data = bytes.data();
    std::size_t left = bytes.size();
    while (left != 0) {
        ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace zel_platform::posix
