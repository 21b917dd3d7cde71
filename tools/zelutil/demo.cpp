// zelutil demo: the library's typical request on the sample data.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace zelutil {
namespace {

/// Windows-1252 text as a Western European host would read it, turned into
/// UTF-8 in memory through UTF-16.
bool DemoCodePages() {
    const std::string path = ZEL_EXAMPLES_DIR "/sample-1252.txt";
    std::ifstream file(path, std::ios::binary);
    const std::string input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file || input.empty()) {
        std::fprintf(stderr, "zelutil demo: cannot read '%s'\n", path.c_str());
        return false;
    }
    // A single-byte code page gives one unit per byte, and a unit gives at
    // most 3 bytes of UTF-8.
    std::basic_string<WCHAR> wide(input.size(), 0);
    const int units = MultiByteToWideChar(1252, 0, input.data(), static_cast<int>(input.size()), wide.data(),
                                          static_cast<int>(wide.size()));
    std::string utf8(wide.size() * 3, '\0');
    const int bytes = units <= 0 ? 0
                                 : WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(),
                                                       static_cast<int>(utf8.size()), nullptr, nullptr);
    if (units <= 0 || bytes <= 0) {
        std::fprintf(stderr, "zelutil demo: code-page conversion failed (error %u)\n",
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    utf8.resize(static_cast<std::size_t>(bytes));
    const std::string firstLine = utf8.substr(0, utf8.find_first_of("\r\n"));
    std::printf("code pages: sample-1252.txt, %zu bytes of Windows-1252 -> %d UTF-16 units -> %d bytes of UTF-8\n",
                input.size(), units, bytes);
    std::printf("  first line: %s\n", firstLine.c_str());
    return true;
}

}  // namespace

int RunDemo(const Args&) {
    std::puts("zelutil demo: the library is loaded");
    return DemoCodePages() ? kExitOk : kExitFailure;
}

}  // namespace zelutil
