// The code-page codecs behind MultiByteToWideChar and WideCharToMultiByte on
// POSIX (internal): the library's own UTF-8 codec and the iconv bridge for
// every other code page.
//
// Every conversion takes an explicit source length (embedded NULs are plain
// characters) and a target that may be null with capacity 0, which measures.
// A target that is too small receives what fits (the UTF-8 codec stops before
// the first character that does not), and the result says so. Bad input never fails a
// conversion: it becomes a replacement character.
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/stringapiset.h"

#include <cstddef>

namespace zel_platform::posix {

struct ConversionResult {
    enum Status { kDone, kTargetTooSmall, kUnavailable };
    /// Units needed (kDone with a null target), units written (kDone), or
    /// units written before the target ran out (kTargetTooSmall).
    std::size_t count;
    Status status;
};

/// UTF-8 to UTF-16. Each maximal subpart of an ill-formed sequence (a stray
/// continuation byte, C0/C1/F5..FF, a truncated sequence) becomes one
/// U+FFFD; an overlong, surrogate or above-10FFFF form becomes one U+FFFD for
/// its lead and second byte, then the rest is decoded on its own (Windows).
ConversionResult Utf8ToUtf16(const char* source, std::size_t length, char16_t* target,
                             std::size_t capacity);
/// UTF-16 to UTF-8. A lone surrogate becomes EF BF BD (U+FFFD).
ConversionResult Utf16ToUtf8(const char16_t* source, std::size_t length, char* target,
                             std::size_t capacity);

/// Whether iconv can convert codePage (any code page but 0, 1 and 65001).
bool IconvCodePageAvailable(UINT codePage);
/// GetCPInfo for an iconv code page; false when it is not available.
bool IconvCodePageInfo(UINT codePage, CPINFO* info);
/// codePage text to UTF-16 through iconv. A byte 80..9F that is not a lead
/// byte and that iconv lacks is the C1 control of the same value, as in the
/// Windows tables (0x80 in 932); any other undecodable byte (with the byte
/// after it when it is a lead byte) becomes the code page's default wide
/// character: U+30FB for 932, '?' for the others.
ConversionResult IconvToUtf16(UINT codePage, const char* source, std::size_t length,
                              char16_t* target, std::size_t capacity);
/// UTF-16 to codePage text through iconv. Each unit of a character the code
/// page lacks (or a lone surrogate) becomes defaultChar, or the code page's
/// own default character when defaultChar is null; *usedDefault tells
/// whether one was stored (or counted, when measuring). A target too small
/// receives whole characters only: a double-byte character is never split.
ConversionResult IconvFromUtf16(UINT codePage, const char16_t* source, std::size_t length,
                                char* target, std::size_t capacity, const char* defaultChar,
                                bool* usedDefault);

}  // namespace zel_platform::posix
