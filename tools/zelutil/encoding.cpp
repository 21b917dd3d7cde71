// zelutil encoding: how the library reads a file's text.
// zelutil base64: the Base64 text of a file or of standard input, and back.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_encoding.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace zelutil {
namespace {

using zel_text::BomKind;
using zel_text::TextEncoding;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

const char* BomName(BomKind kind) {
    switch (kind) {
    case BomKind::None: return "none";
    case BomKind::Utf8: return "UTF-8";
    case BomKind::Utf16BE: return "UTF-16BE";
    case BomKind::Utf16LE: return "UTF-16LE";
    case BomKind::Utf32BE: return "UTF-32BE";
    case BomKind::Utf32LE: return "UTF-32LE";
    case BomKind::Scsu: return "SCSU";
    case BomKind::Utf7: return "UTF-7";
    case BomKind::UtfEbcdic: return "UTF-EBCDIC";
    case BomKind::Bocu1: return "BOCU-1";
    }
    return "unknown";
}

int CannotRead(const char* command, const std::string& path, int error) {
    return UsageError(command, "cannot read " + path + ": " + std::strerror(error));
}

// Opens FILE, or standard input for none or "-"; prints the error itself.
std::FILE* OpenInput(const char* command, const Args& args, FilePtr& owned, std::string* name) {
    if (args.empty() || args[0] == "-") {
        *name = "standard input";
        return stdin;
    }
    *name = "'" + args[0] + "'";
    const zel_text::CZelStringW path = PathArgument(args[0]);
    // Windows' C runtime opens a folder as "permission denied"; say what it is.
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        CannotRead(command, *name, EISDIR);
        return nullptr;
    }
    owned.reset(zel_platform::OpenStdioFile(path, "rb"));
    if (!owned) CannotRead(command, *name, errno);
    return owned.get();
}

// One line on how the library reads a text that starts with the count
// bytes of head (the whole text when it is shorter).
std::string Describe(const unsigned char* head, std::size_t count) {
    std::size_t bomLength = 0;
    const BomKind kind = zel_text::FindBom(head, count, &bomLength);
    const TextEncoding encoding = zel_text::DetectTextEncoding(head, count);
    const std::string narrow = "narrow text in code page " + std::to_string(GetACP());
    if (kind != BomKind::None) {
        return std::string(BomName(kind)) + " with byte-order mark" +
               (encoding == TextEncoding::Unsupported ? " (the library does not read it)" : "");
    }
    // Fewer than two bytes tell nothing; the library reads them as narrow text.
    if (count < 2) return count == 0 ? "empty (read as " + narrow + ")" : narrow;
    const bool zeros = std::memchr(head, 0, count < 8 ? count : 8) != nullptr;
    switch (encoding) {
    case TextEncoding::Utf16LE: return "UTF-16LE without byte-order mark (guessed from its zero bytes)";
    case TextEncoding::Narrow: return zeros ? narrow + " (guessed: its zero bytes fit no other encoding)" : narrow;
    default: return "not readable by the library (zero bytes where no encoding it reads has them)";
    }
}

constexpr signed char kNotBase64 = -1;

signed char Base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return static_cast<signed char>(c - 'A');
    if (c >= 'a' && c <= 'z') return static_cast<signed char>(c - 'a' + 26);
    if (c >= '0' && c <= '9') return static_cast<signed char>(c - '0' + 52);
    if (c == '+') return 62;
    if (c == '/') return 63;
    return kNotBase64;
}

// Decodes Base64 text from in to stdout: white space is passed over; '='
// only ends the text. Returns the reason for bad input, or empty.
std::string DecodeBase64(std::FILE* in) {
    unsigned long long offset = 0;
    unsigned group = 0;
    int filled = 0;
    int padding = 0;
    for (int c; (c = std::fgetc(in)) != EOF; ++offset) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        if (c == '=' && filled >= 2) {
            ++padding;
            if (filled + padding > 4) return "too much '=' padding at offset " + std::to_string(offset);
            continue;
        }
        const signed char value = Base64Value(static_cast<unsigned char>(c));
        if (value == kNotBase64 || padding > 0) {
            return "character '" + std::string(1, static_cast<char>(c)) + "' at offset " + std::to_string(offset) +
                   (padding > 0 ? " after the padding" : " is not Base64");
        }
        group = group << 6 | static_cast<unsigned>(value);
        if (++filled == 4) {
            const unsigned char bytes[3] = {static_cast<unsigned char>(group >> 16),
                                            static_cast<unsigned char>(group >> 8), static_cast<unsigned char>(group)};
            std::fwrite(bytes, 1, 3, stdout);
            group = 0;
            filled = 0;
        }
    }
    if (filled == 1 || (padding > 0 && filled + padding != 4)) return "the text ends inside a group of four";
    if (filled >= 2) {
        group <<= 6 * (4 - filled);
        const unsigned char bytes[2] = {static_cast<unsigned char>(group >> 16), static_cast<unsigned char>(group >> 8)};
        std::fwrite(bytes, 1, static_cast<std::size_t>(filled - 1), stdout);
    }
    return std::string();
}

}  // namespace

int RunEncoding(const Args& args) {
    if (args.size() != 1) return UsageError("encoding", "expected one FILE (see --help)");
    FilePtr owned;
    std::string name;
    std::FILE* file = OpenInput("encoding", args, owned, &name);
    if (file == nullptr) return kExitUsage;
    // Detection looks at the first nine bytes only.
    unsigned char head[16];
    errno = 0;
    const std::size_t count = std::fread(head, 1, sizeof head, file);
    if (std::ferror(file) != 0) return CannotRead("encoding", name, errno != 0 ? errno : EIO);
    std::printf("%s\n", Describe(head, count).c_str());
    return kExitOk;
}

int RunBase64(const Args& given) {
    Args args;
    bool decode = false;
    for (const std::string& arg : given) {
        if (arg == "-d" || arg == "--decode") {
            decode = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return UsageError("base64", "unknown option '" + arg + "'");
        } else {
            args.push_back(arg);
        }
    }
    if (args.size() > 1) return UsageError("base64", "expected at most one FILE (see --help)");
    FilePtr owned;
    std::string name;
    std::FILE* file = OpenInput("base64", args, owned, &name);
    if (file == nullptr) return kExitUsage;
    errno = 0;
    if (decode) {
        const std::string bad = DecodeBase64(file);
        if (std::ferror(file) != 0) return CannotRead("base64", name, errno != 0 ? errno : EIO);
        if (!bad.empty()) {
            std::fprintf(stderr, "zelutil base64: %s is not Base64: %s\n", name.c_str(), bad.c_str());
            return kExitFailure;
        }
        return kExitOk;
    }
    // Chunks are a multiple of three bytes, so their texts join without padding.
    std::vector<unsigned char> chunk(3 * 16384);
    std::vector<char> text(zel_text::Base64EncodedSize(chunk.size()));
    for (;;) {
        const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), file);
        if (std::ferror(file) != 0) return CannotRead("base64", name, errno != 0 ? errno : EIO);
        if (count == 0) break;
        zel_text::Base64Encode(chunk.data(), count, text.data(), text.size());
        std::fputs(text.data(), stdout);
        if (count < chunk.size()) break;
    }
    std::fputc('\n', stdout);
    return kExitOk;
}

}  // namespace zelutil
