// zelutil text: the lines of a text file in any encoding the library reads,
// printed as UTF-8 with LF line ends.
#include "tools/zelutil/commands.h"

#include "zelutils/fs/text_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zelutil {
namespace {
constexpr const char* kCommand = "text";
// Big enough that a typical file takes few platform reads.
constexpr int kBufferSize = 64 * 1024;
}  // namespace

int RunText(const Args& args) {
    bool trim = false;
    bool skipEmpty = false;
    std::string codePageName;
    std::string path;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--trim") {
            trim = true;
        } else if (arg == "--skip-empty") {
            skipEmpty = true;
        } else if (arg == "--codepage") {
            if (i + 1 == args.size()) return UsageError(kCommand, "missing value after --codepage");
            codePageName = args[++i];
        } else if (arg.size() > 1 && arg[0] == '-') {
            return UsageError(kCommand, "unknown option '" + arg + "'");
        } else if (path.empty()) {
            path = arg;
        } else {
            return UsageError(kCommand, "expected one FILE (see --help)");
        }
    }
    if (path.empty()) return UsageError(kCommand, "expected one FILE (see --help)");

    zel_fs::CTextFile file(kBufferSize);
    if (!codePageName.empty()) {
        UINT codePage = 0;
        if (!ParseCodePage(codePageName, &codePage)) {
            return UsageError(kCommand, "unknown code page '" + codePageName + "'");
        }
        file.SetNarrowCodePage(codePage);
    }
    const zel_text::CZelStringW widePath = PathArgument(path);
    if (!file.Open(widePath)) {
        DWORD error = GetLastError();
        // Opening a folder is refused as access denied (as on Windows): say what it is.
        const DWORD attributes = GetFileAttributesW(widePath);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            error = ERROR_DIRECTORY;
        }
        return UsageError(kCommand, "cannot read '" + path + "': " + Reason(error));
    }
    zel_text::CZelStringW line;
    while (trim ? file.ReadLineTrimmed(line, skipEmpty) : file.ReadLine(line, skipEmpty)) {
        const zel_text::CZelStringUtf8 utf8(line);
        const auto size = static_cast<std::size_t>(utf8.GetLength());
        if (std::fwrite(utf8.GetString(), 1, size, stdout) != size || std::fputc('\n', stdout) == EOF) break;
    }
    if (std::ferror(stdout) != 0 || std::fflush(stdout) != 0) {
        return UsageError(kCommand, std::string("cannot write standard output: ") + std::strerror(errno));
    }
    return kExitOk;
}

}  // namespace zelutil
