/// @file
/// Byte-level text services: recognising a byte-order mark, guessing the
/// encoding of a text file from its first bytes, producing the mark of an
/// encoding, and Base64 encoding of a byte block into a caller's buffer.
/// Nothing here allocates or throws; failure is the result itself (no mark,
/// an unsupported encoding, false).
#pragma once

#include "zelutils/zel_api.h"

#include <cstddef>

namespace zel_text {

/// Encodings recognised by their byte-order mark. The numbers are stored and
/// exchanged by callers, so they never change.
enum class BomKind : unsigned {
    None = 0,  ///< no byte-order mark
    Utf8 = 1,
    Utf16BE = 2,
    Utf16LE = 3,
    Utf32BE = 4,
    Utf32LE = 5,
    Scsu = 6,
    Utf7 = 7,
    UtfEbcdic = 8,
    Bocu1 = 9,
};

/// How DetectTextEncoding says a text should be read. The numbers are shared
/// with the settings files' encoding codes, so they never change.
enum class TextEncoding : unsigned {
    Unsupported = 0,  ///< an encoding the library does not read
    Narrow = 1,       ///< narrow text in the system code page
    Utf16LE = 2,
    Utf8 = 3,
};

/// The longest byte-order mark: GetBom needs a buffer of this many bytes.
constexpr std::size_t kMaxBomLength = 4;

/// The encoding whose byte-order mark begins the count bytes, or None (also
/// for null bytes). On a match the mark's length is stored in *bomLength when
/// given; without a match *bomLength is left as it was. UTF-32 LE is tried
/// before UTF-16 LE, whose mark begins it. The UTF-7 mark (2B 2F 76) counts
/// only with a fourth byte of '8', '9', '+' or '/'; that byte carries bits of
/// the next character, so the length reported is 3.
ZEL_API BomKind FindBom(const void* bytes, std::size_t count, std::size_t* bomLength = nullptr);

/// Guesses how to read a text from its first count bytes: by the byte-order
/// mark when there is one (UTF-8, UTF-16 LE, any other mark: Unsupported),
/// else by where the zero bytes sit among the first eight. Fewer than two
/// bytes, or null bytes: Unsupported. *bomLength is set as by FindBom.
ZEL_API TextEncoding DetectTextEncoding(const void* bytes, std::size_t count,
                                        std::size_t* bomLength = nullptr);

/// Copies the byte-order mark of kind into bom (kMaxBomLength bytes of room)
/// and its length into *length. False, writing nothing, for None, a kind
/// outside the table, or a null argument.
ZEL_API bool GetBom(BomKind kind, unsigned char* bom, std::size_t* length);

/// The capacity Base64Encode needs for count source bytes: four characters
/// per started group of three bytes, plus the terminating NUL.
constexpr std::size_t Base64EncodedSize(std::size_t count) {
    return (count / 3 + (count % 3 != 0 ? 1 : 0)) * 4 + 1;
}

/// Writes the Base64 text (RFC 4648 alphabet, '=' padding, no line breaks)
/// of count source bytes into target, followed by a NUL. Returns false when
/// capacity is smaller than Base64EncodedSize(count): the characters that fit
/// are written and the text is left unterminated. False, writing nothing,
/// for a null target or a null source with a non-zero count.
ZEL_API bool Base64Encode(const void* source, std::size_t count, char* target,
                          std::size_t capacity);

}  // namespace zel_text
