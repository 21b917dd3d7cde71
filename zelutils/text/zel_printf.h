/// @file
/// The library's printf and scanf dialect, the same on every platform: the
/// Microsoft C runtime's. Every printf-style function of the library (string
/// Format, the log, number formatting) ends up here, and text parsed with a
/// scanf-style format goes through ScanText.
///
/// Formatting takes flags `- + space # 0`, width and precision (also `*`),
/// the sizes `hh h l ll L I I32 I64 z j t w` (`l` with integers is the
/// 32-bit LONG of the Windows runtimes, on every platform) and the conversions
/// `d i u o x X c C s S f F e E g G a A p %`. In a narrow format `%s`/`%c`
/// take narrow text and `%S`/`%C` wide text; in a wide format the reverse.
/// `%hs`/`%hc` are always narrow, `%ls`/`%lc`/`%ws`/`%wc` always wide. Text
/// of the other width is converted with code page 0 (CP_ACP); a precision on
/// `%s` counts characters of the source and no character past it is read.
/// A null `%s` pointer prints "(null)"; `%p` prints the pointer in upper-case
/// hexadecimal with all its digits (16 on 64-bit targets), with a "0X" prefix
/// only under the `#` flag; the
/// `0` flag pads text conversions with zeros too. Integers are formatted
/// here; floating-point digits come from the C library's snprintf, one
/// conversion at a time, so rounding and the spelling of infinities and NaN
/// are the platform's.
///
/// Failure: `%n` is refused, because a format string that comes from data
/// must never write to memory; it fails the whole call (-1), as does an
/// unknown conversion, a malformed specification or a size that does not fit
/// the conversion (`%wd`, `%hf`). A failed formatting call leaves an empty
/// text in a buffer that has room for one character; a failed scan stores
/// nothing.
#pragma once

#include "zelutils/platform/wchar.h"
#include "zelutils/zel_api.h"

#include <cstdarg>
#include <cstddef>

namespace zel_text {

/// Formats into buffer, which holds count characters, with the rules of the
/// Microsoft runtime's _vsnprintf:
/// - the text and its terminator fit: writes both, returns the text length;
/// - the text fits exactly in count (no room for the terminator): writes the
///   text unterminated and returns count (so an empty text with count 0
///   returns 0);
/// - the text is longer than count: writes the first count characters,
///   unterminated, and returns -1.
/// A null buffer with count 0 measures (returns the length the text needs);
/// a null buffer with another count, a null format, a refused or malformed
/// format, a text that cannot be converted, or a text longer than INT_MAX
/// characters return -1.
ZEL_API int FormatBufferV(char* buffer, size_t count, const char* format, va_list args);
/// The wide form of FormatBufferV: count and the result are in WCHAR units.
ZEL_API int FormatBufferV(WCHAR* buffer, size_t count, const WCHAR* format, va_list args);
/// FormatBufferV with the arguments given in place.
ZEL_API int FormatBuffer(char* buffer, size_t count, const char* format, ...);
/// FormatBufferV with the arguments given in place (wide).
ZEL_API int FormatBuffer(WCHAR* buffer, size_t count, const WCHAR* format, ...);

/// The number of characters the formatted text needs, not counting the
/// terminator; -1 for a null, refused or malformed format (like _vscprintf).
ZEL_API int FormattedLengthV(const char* format, va_list args);
/// The wide form of FormattedLengthV, in WCHAR units.
ZEL_API int FormattedLengthV(const WCHAR* format, va_list args);

/// Reads fields from input as sscanf does, with the conversions
/// `d i u o x X c s %`, widths, `*` (read but not stored), the sizes
/// `hh h l ll L I I32 I64 z j t w`; blanks in the format match any amount of
/// white space, including none; every conversion but `%c` skips leading
/// white space. In a narrow scan `%s`/`%c` store char and `%S`/`%C` WCHAR, in
/// a wide scan the reverse (`%hs`, `%ls`, `%ws` are explicit); text stored in
/// the other width is converted with code page 0. Integers out of range wrap
/// to the size of their target.
/// Returns the number of fields stored, or -1 when the input ends before the
/// first conversion. A null input or format, `%n`, or an unknown conversion
/// return -1 and store nothing.
ZEL_API int ScanTextV(const char* input, const char* format, va_list args);
/// The wide form of ScanTextV.
ZEL_API int ScanTextV(const WCHAR* input, const WCHAR* format, va_list args);
/// ScanTextV with the targets given in place.
ZEL_API int ScanText(const char* input, const char* format, ...);
/// ScanTextV with the targets given in place (wide).
ZEL_API int ScanText(const WCHAR* input, const WCHAR* format, ...);

}  // namespace zel_text
