#include "zelutils/platform/posix/stderr_text.h"

#include "zelutils/platform/posix/codecs.h"

#include <cerrno>
#include <unistd.h>

namespace zel_platform::posix {

void AppendUtf8(std::string& out, LPCWSTR text) {
    std::size_t length = 0;
    while (text[length] != 0) ++length;
    std::size_t start = out.size();
    out.resize(start + Utf16ToUtf8(text, length, nullptr, 0).count);
    Utf16ToUtf8(text, length, &out[start], out.size() - start);
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
