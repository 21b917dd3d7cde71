// zelutil convert: text from one code page to another, through UTF-16.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/text/zel_utf.h"

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

using zel_text::CZelStringA;
using zel_text::CZelStringW;

constexpr const char* kCommand = "convert";
// Not a narrow code page: the bytes are UTF-16LE and are taken as they are.


struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

bool ParseCodePage(const std::string& text, UINT* codePage) {
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const struct {
        const char* name;
        UINT codePage;
    } kNames[] = {
        {"utf8", CP_UTF8},           {"utf-8", CP_UTF8},           {"utf16", kCodePageUtf16LE},
        {"utf-16", kCodePageUtf16LE}, {"utf-16le", kCodePageUtf16LE}, {"utf16le", kCodePageUtf16LE},
        {"utf-16be", kCodePageUtf16BE}, {"utf16be", kCodePageUtf16BE}, {"utf32", kCodePageUtf32LE},
        {"utf-32", kCodePageUtf32LE}, {"utf-32le", kCodePageUtf32LE}, {"utf32le", kCodePageUtf32LE},
        {"utf-32be", kCodePageUtf32BE}, {"utf32be", kCodePageUtf32BE}, {"latin1", 28591},
        {"latin-1", 28591},          {"iso-8859-1", 28591},       {"iso8859-1", 28591},
        {"ascii", 20127},            {"us-ascii", 20127},         {"ansi", CP_ACP},
        {"oem", CP_OEMCP},
    };
    for (const auto& known : kNames) {
        if (name == known.name) {
            *codePage = known.codePage;
            break;
        }
        *codePage = UINT_MAX;
    }
    if (*codePage == UINT_MAX) {
        for (const char* prefix : {"windows-", "cp", "ibm"}) {
            if (name.rfind(prefix, 0) == 0) {
                name.erase(0, std::char_traits<char>::length(prefix));
                break;
            }
        }
        if (name.empty() || name.size() > 9 ||
            !std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; })) {
            return false;
        }
        *codePage = static_cast<UINT>(std::stoul(name));
    }
    if (*codePage == kCodePageUtf16LE || *codePage == kCodePageUtf16BE || *codePage == kCodePageUtf32LE ||
        *codePage == kCodePageUtf32BE) {
        return true;
    }
    CPINFO info;
    return GetCPInfo(*codePage, &info) != FALSE;
}

namespace {

enum class ReadResult { kRead, kError, kTooLarge };

/// Reads all of file into bytes; kError with errno set on a read error,
/// kTooLarge when it holds more than a string can (2 GB).
ReadResult ReadAll(std::FILE* file, CZelStringA* bytes) {
    char chunk[65536];
    std::size_t got;
    errno = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        if (got > static_cast<std::size_t>(INT_MAX - bytes->GetLength())) return ReadResult::kTooLarge;
        bytes->Append(chunk, static_cast<int>(got));
    }
    if (std::ferror(file) == 0) return ReadResult::kRead;
    if (errno == 0) errno = EIO;
    return ReadResult::kError;
}

// The code-page conversions are made here with the platform calls rather
// than by the string classes' conversions, which leave out a NUL that ends
// the text: the tool converts bytes and keeps every one of them.

/// Decodes input to UTF-16; false when the conversion fails.
bool Decode(const CZelStringA& input, UINT codePage, CZelStringW* wide) {
    const int size = input.GetLength();
    if (codePage == kCodePageUtf16LE) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(input.GetString());
        WCHAR* units = wide->GetBufferSetLength(size / 2);
        for (int i = 0; i < size / 2; ++i) {
            units[i] = static_cast<WCHAR>(bytes[2 * i] | bytes[2 * i + 1] << 8);
        }
        return true;
    }
    if (size == 0) return true;
    const int needed = zel_text::MeasureNarrowToWide(input, size, codePage);
    if (needed <= 0) return false;
    return MultiByteToWideChar(codePage, 0, input, size, wide->GetBufferSetLength(needed), needed) == needed;
}

/// Encodes UTF-16 to codePage; false when the conversion fails.
bool Encode(const CZelStringW& wide, UINT codePage, CZelStringA* output) {
    const int size = wide.GetLength();
    if (codePage == kCodePageUtf16LE) {
        if (size > INT_MAX / 2) return false;
        const WCHAR* units = wide.GetString();
        char* bytes = output->GetBufferSetLength(2 * size);
        for (int i = 0; i < size; ++i) {
            bytes[2 * i] = static_cast<char>(units[i] & 0xFF);
            bytes[2 * i + 1] = static_cast<char>(units[i] >> 8);
        }
        return true;
    }
    if (size == 0) return true;
    const int needed = zel_text::MeasureWideToNarrow(wide, size, codePage);
    if (needed <= 0) return false;
    return WideCharToMultiByte(codePage, 0, wide, size, output->GetBufferSetLength(needed), needed, nullptr,
                               nullptr) == needed;
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

    CZelStringA input;
    const bool fromStdin = files.empty() || files[0] == "-";
    ReadResult read = ReadResult::kError;
    if (fromStdin) {
        read = ReadAll(stdin, &input);
        if (read == ReadResult::kError) {
            return UsageError(kCommand, std::string("cannot read standard input: ") + std::strerror(errno));
        }
    } else {
        File file(std::fopen(files[0].c_str(), "rb"));
        if (file) read = ReadAll(file.get(), &input);
        if (read == ReadResult::kError) {
            return UsageError(kCommand, "cannot read '" + files[0] + "': " + std::strerror(errno));
        }
    }
    if (read == ReadResult::kTooLarge) return UsageError(kCommand, "input too large (more than 2 GB)");
    if (fromCodePage == kCodePageUtf16LE && input.GetLength() % 2 != 0) {
        std::fprintf(stderr, "zelutil %s: the input is not UTF-16LE: odd number of bytes\n", kCommand);
        return kExitFailure;
    }

    CZelStringW wide;
    CZelStringA output;
    if (!Decode(input, fromCodePage, &wide) || !Encode(wide, toCodePage, &output)) {
        std::fprintf(stderr, "zelutil %s: conversion failed (error %u)\n", kCommand,
                     static_cast<unsigned>(GetLastError()));
        return kExitFailure;
    }

    if (files.size() < 2 || files[1] == "-") {
        const auto size = static_cast<std::size_t>(output.GetLength());
        if (std::fwrite(output.GetString(), 1, size, stdout) != size || std::fflush(stdout) != 0) {
            return UsageError(kCommand, std::string("cannot write standard output: ") + std::strerror(errno));
        }
        return kExitOk;
    }
    File file(std::fopen(files[1].c_str(), "wb"));
    const auto size = static_cast<std::size_t>(output.GetLength());
    bool written = file && std::fwrite(output.GetString(), 1, size, file.get()) == size;
    if (file && std::fclose(file.release()) != 0) written = false;
    if (!written) return UsageError(kCommand, "cannot write '" + files[1] + "': " + std::strerror(errno));
    return kExitOk;
}

}  // namespace zelutil
