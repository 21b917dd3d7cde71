// zelutil encoding: the byte-order mark and detected encoding of a file.
// zelutil base64: the Base64 text of a file or of standard input.
#include "tools/zelutil/commands.h"

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
        case BomKind::Utf16BE: return "UTF-16 big-endian";
        case BomKind::Utf16LE: return "UTF-16 little-endian";
        case BomKind::Utf32BE: return "UTF-32 big-endian";
        case BomKind::Utf32LE: return "UTF-32 little-endian";
        case BomKind::Scsu: return "SCSU";
        case BomKind::Utf7: return "UTF-7";
        case BomKind::UtfEbcdic: return "UTF-EBCDIC";
        case BomKind::Bocu1: return "BOCU-1";
    }
    return "unknown";
}

const char* EncodingName(TextEncoding encoding) {
    switch (encoding) {
        case TextEncoding::Unsupported: return "not readable by the library";
        case TextEncoding::Narrow: return "narrow text in the system code page";
        case TextEncoding::Utf16LE: return "UTF-16 little-endian";
        case TextEncoding::Utf8: return "UTF-8";
    }
    return "unknown";
}

int CannotRead(const char* command, const std::string& path, int error) {
    return UsageError(command, "cannot read '" + path + "': " + std::strerror(error));
}

// Fills buffer from file until it is full or the file ends; false on a read
// error. fread only comes back short at the end or on an error, so every
// chunk but the last is complete.
bool ReadChunk(std::FILE* file, std::vector<unsigned char>& buffer, std::size_t* count) {
    *count = std::fread(buffer.data(), 1, buffer.size(), file);
    return std::ferror(file) == 0;
}

}  // namespace

int RunEncoding(const Args& args) {
    if (args.size() != 1) return UsageError("encoding", "expected one FILE (see --help)");
    const std::string& path = args[0];
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file) return CannotRead("encoding", path, errno);
    // Detection looks at the first eight bytes only.
    std::vector<unsigned char> head(16);
    std::size_t count = 0;
    errno = 0;
    if (!ReadChunk(file.get(), head, &count))
        return CannotRead("encoding", path, errno ? errno : EIO);

    std::size_t bomLength = 0;
    BomKind kind = zel_text::FindBom(head.data(), count, &bomLength);
    TextEncoding encoding = zel_text::DetectTextEncoding(head.data(), count);
    if (kind == BomKind::None) {
        std::printf("bom: 0 (none)\n");
    } else {
        std::printf("bom: %u (%s), %zu bytes\n", static_cast<unsigned>(kind), BomName(kind),
                    bomLength);
    }
    std::printf("encoding: %u (%s)\n", static_cast<unsigned>(encoding), EncodingName(encoding));
    return kExitOk;
}

int RunBase64(const Args& args) {
    if (args.size() > 1) return UsageError("base64", "expected at most one FILE (see --help)");
    const bool fromStdin = args.empty() || args[0] == "-";
    const std::string path = fromStdin ? "<stdin>" : args[0];
    FilePtr owned;
    std::FILE* file = stdin;
    if (!fromStdin) {
        owned.reset(std::fopen(path.c_str(), "rb"));
        if (!owned) return CannotRead("base64", path, errno);
        file = owned.get();
    }
    // Chunks are a multiple of three bytes, so their texts join without padding.
    std::vector<unsigned char> chunk(3 * 16384);
    std::vector<char> text(zel_text::Base64EncodedSize(chunk.size()));
    for (;;) {
        std::size_t count = 0;
        errno = 0;
        if (!ReadChunk(file, chunk, &count)) return CannotRead("base64", path, errno ? errno : EIO);
        if (count == 0) break;
        zel_text::Base64Encode(chunk.data(), count, text.data(), text.size());
        std::fputs(text.data(), stdout);
        if (count < chunk.size()) break;
    }
    std::fputc('\n', stdout);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace zelutil
