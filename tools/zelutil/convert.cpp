// zelutil convert: text from one code page to another, through UTF-16.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace zelutil {
namespace {

using WideText = std::basic_string<WCHAR>;

constexpr const char* kCommand = "convert";
// Not a narrow code page: the bytes are UTF-16LE and are taken as they are.
constexpr UINT kUtf16Le = 1200;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// The code page a command-line name or number stands for; false when it is
/// neither a known name nor a code page available here.
bool ParseCodePage(const std::string& text, UINT* codePage) {
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (name == "utf8" || name == "utf-8") {
        *codePage = CP_UTF8;
    } else if (name == "utf16" || name == "utf-16" || name == "utf-16le") {
        *codePage = kUtf16Le;
        return true;
    } else if (name == "ansi") {
        *codePage = CP_ACP;
    } else if (name == "oem") {
        *codePage = CP_OEMCP;
    } else if (!name.empty() && name.size() <= 9 &&
               std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; })) {
        *codePage = static_cast<UINT>(std::stoul(name));
        if (*codePage == kUtf16Le) return true;
    } else {
        return false;
    }
    CPINFO info;
    return GetCPInfo(*codePage, &info) != FALSE;
}

/// Reads all of file into bytes; false with errno set on a read error.
bool ReadAll(std::FILE* file, std::string* bytes) {
    char chunk[65536];
    std::size_t got;
    errno = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes->append(chunk, got);
    if (std::ferror(file) == 0) return true;
    if (errno == 0) errno = EIO;
    return false;
}

/// Decodes input to UTF-16; false when the conversion fails.
bool Decode(const std::string& input, UINT codePage, WideText* wide) {
    if (codePage == kUtf16Le) {
        wide->resize(input.size() / 2);
        for (std::size_t i = 0; i < wide->size(); ++i) {
            (*wide)[i] = static_cast<WCHAR>(static_cast<unsigned char>(input[2 * i]) |
                                            static_cast<unsigned char>(input[2 * i + 1]) << 8);
        }
        return true;
    }
    if (input.empty()) return true;
    const int size = static_cast<int>(input.size());
    const int needed = MultiByteToWideChar(codePage, 0, input.data(), size, nullptr, 0);
    if (needed <= 0) return false;
    wide->resize(static_cast<std::size_t>(needed));
    return MultiByteToWideChar(codePage, 0, input.data(), size, wide->data(), needed) == needed;
}

/// Encodes UTF-16 to codePage; false when the conversion fails.
bool Encode(const WideText& wide, UINT codePage, std::string* output) {
    if (codePage == kUtf16Le) {
        output->reserve(wide.size() * 2);
        for (WCHAR unit : wide) {
            output->push_back(static_cast<char>(unit & 0xFF));
            output->push_back(static_cast<char>(unit >> 8));
        }
        return true;
    }
    if (wide.empty()) return true;
    if (wide.size() > static_cast<std::size_t>(INT_MAX)) return false;
    const int size = static_cast<int>(wide.size());
    const int needed = WideCharToMultiByte(codePage, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return false;
    output->resize(static_cast<std::size_t>(needed));
    return WideCharToMultiByte(codePage, 0, wide.data(), size, output->data(), needed, nullptr, nullptr) == needed;
}

}  // namespace

int RunConvert(const Args& args) {
    std::string from;
    std::string to;
    std::vector<std::string> files;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        std::string* option = arg == "--from" ? &from : arg == "--to" ? &to : nullptr;
        if (option != nullptr) {
            if (i + 1 == args.size()) return UsageError(kCommand, "missing value after " + arg);
            *option = args[++i];
        } else if (arg.rfind("--from=", 0) == 0) {
            from = arg.substr(7);
        } else if (arg.rfind("--to=", 0) == 0) {
            to = arg.substr(5);
        } else if (arg.size() > 1 && arg[0] == '-') {
            return UsageError(kCommand, "unknown option '" + arg + "'");
        } else {
            files.push_back(arg);
        }
    }
    if (from.empty() || to.empty()) return UsageError(kCommand, "--from and --to are required (see --help)");
    if (files.size() > 2) return UsageError(kCommand, "too many arguments");
    UINT fromCodePage;
    UINT toCodePage;
    if (!ParseCodePage(from, &fromCodePage)) return UsageError(kCommand, "unknown code page '" + from + "'");
    if (!ParseCodePage(to, &toCodePage)) return UsageError(kCommand, "unknown code page '" + to + "'");

    std::string input;
    const bool fromStdin = files.empty() || files[0] == "-";
    if (fromStdin) {
        if (!ReadAll(stdin, &input)) {
            return UsageError(kCommand, std::string("cannot read standard input: ") + std::strerror(errno));
        }
    } else {
        File file(std::fopen(files[0].c_str(), "rb"));
        if (!file || !ReadAll(file.get(), &input)) {
            return UsageError(kCommand, "cannot read '" + files[0] + "': " + std::strerror(errno));
        }
    }
    if (input.size() > static_cast<std::size_t>(INT_MAX)) {
        return UsageError(kCommand, "input too large (more than 2 GB)");
    }
    if (fromCodePage == kUtf16Le && input.size() % 2 != 0) {
        std::fprintf(stderr, "zelutil %s: the input is not UTF-16LE: odd number of bytes\n", kCommand);
        return kExitFailure;
    }

    WideText wide;
    std::string output;
    if (!Decode(input, fromCodePage, &wide) || !Encode(wide, toCodePage, &output)) {
        std::fprintf(stderr, "zelutil %s: conversion failed (error %u)\n", kCommand,
                     static_cast<unsigned>(GetLastError()));
        return kExitFailure;
    }

    if (files.size() < 2 || files[1] == "-") {
        if (std::fwrite(output.data(), 1, output.size(), stdout) != output.size() || std::fflush(stdout) != 0) {
            return UsageError(kCommand, std::string("cannot write standard output: ") + std::strerror(errno));
        }
        return kExitOk;
    }
    File file(std::fopen(files[1].c_str(), "wb"));
    bool written = file && std::fwrite(output.data(), 1, output.size(), file.get()) == output.size();
    if (file && std::fclose(file.release()) != 0) written = false;
    if (!written) return UsageError(kCommand, "cannot write '" + files[1] + "': " + std::strerror(errno));
    return kExitOk;
}

}  // namespace zelutil
