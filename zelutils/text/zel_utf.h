/// @file
/// Conversions between the library's text encodings: narrow text in a code
/// page (CZelStringA), UTF-8 (CZelStringUtf8), UTF-16 (CZelStringW) and UTF-32
/// code points (CZelStringT<char32_t>).
///
/// Code-page conversions go through MultiByteToWideChar and
/// WideCharToMultiByte with flags 0 and no default character: bytes that do
/// not decode become the platform's replacement and characters a code page
/// lacks become its default character, so these fail only when the platform
/// call itself fails (an unusable code page, a target that is too small).
/// The UTF-16/UTF-32 conversions are the library's own and reject malformed
/// input as a whole: nothing is replaced. Nothing here throws; failure is 0
/// from a primitive and the empty string from a string conversion.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

namespace zel_text {

/// The UTF-16 units that byteCount bytes of text in codePage convert to;
/// 0 for a count of 0 or when the conversion fails.
ZEL_API int MeasureNarrowToWide(const char* text, int byteCount, UINT codePage);
/// Converts byteCount bytes of text in codePage into target (capacity units)
/// and returns the units written, not counting a NUL written last (a
/// converted terminator); 0 on failure.
ZEL_API int ConvertNarrowToWide(WCHAR* target, int capacity, const char* text, int byteCount,
                                UINT codePage);
/// The bytes that unitCount units of UTF-16 convert to in codePage; 0 for a
/// count of 0 or when the conversion fails.
ZEL_API int MeasureWideToNarrow(const WCHAR* text, int unitCount, UINT codePage);
/// Converts unitCount units of UTF-16 into target (capacity bytes) in
/// codePage and returns the bytes written, not counting a NUL written last;
/// 0 on failure.
ZEL_API int ConvertWideToNarrow(char* target, int capacity, const WCHAR* text, int unitCount,
                                UINT codePage);

/// How many of the first count bytes of codePage text, which starts at a
/// character, end between two characters: a character cut short (UTF-8,
/// the double-byte code pages, GB18030, EUC-JP and EUC-KR) is left out, so
/// that text read in pieces converts without a character cut in two. count
/// for single-byte code pages, code pages with shift states (ISO-2022-JP,
/// UTF-7), and one the platform lacks.
ZEL_API int WholeCharactersLength(const char* bytes, int count, UINT codePage);

/// Whether text may be converted with codePage here: true for 0 (ANSI),
/// 1 (OEM) and 65001 (UTF-8), true for 932 (Shift-JIS) when the platform
/// has it, false for negative values and every other code page.
ZEL_API bool IsCodePageUsable(int codePage);

/// The number of code points in count UTF-16 units, which equals count for
/// text without surrogates. 0 for any text holding a surrogate, even a
/// well-formed pair: callers rely on a non-zero result meaning one unit per
/// code point, so that is kept. Use Utf16ToUtf32 to convert such text.
ZEL_API int Utf16CodePointCount(const WCHAR* units, int count);
/// Converts count UTF-16 units to code points in target (capacity code
/// points; count always suffices) and returns the code points written. 0 for
/// empty input, for a lone or misplaced surrogate anywhere, or when target is
/// too small.
ZEL_API int Utf16ToUtf32(char32_t* target, int capacity, const WCHAR* units, int count);
/// The UTF-16 units needed for count code points; 0 when any of them is a
/// surrogate or above 0x10FFFF.
ZEL_API int Utf32ToUtf16Length(const char32_t* codePoints, int count);
/// Converts count code points to UTF-16 in target (capacity units) and
/// returns the units written; 0 on an invalid code point or when target is
/// too small.
ZEL_API int Utf32ToUtf16(WCHAR* target, int capacity, const char32_t* codePoints, int count);
/// Encodes one code point in UTF-16: returns 1 (first set), 2 (first and
/// second set), or 0 for a surrogate or a value above 0x10FFFF.
ZEL_API int CodePointToUtf16(char32_t codePoint, WCHAR& first, WCHAR& second);

/// A narrow string whose bytes are UTF-8. It is a CZelStringA in every other
/// respect and goes wherever one goes; it converts from and to UTF-16 with
/// code page 65001.
class CZelStringUtf8 : public CZelStringA {
public:
    CZelStringUtf8() noexcept = default;
    /// Takes the bytes of utf8 as they are.
    CZelStringUtf8(const CZelStringA& utf8) : CZelStringA(utf8) {}
    /// Takes the bytes of a NUL-terminated UTF-8 text as they are.
    CZelStringUtf8(const char* utf8) : CZelStringA(utf8) {}
    /// Takes count bytes of utf8 as they are.
    CZelStringUtf8(const char* utf8, int count) : CZelStringA(utf8, count) {}
    /// UTF-8 from a NUL-terminated UTF-16 text.
    CZelStringUtf8(const WCHAR* text) : CZelStringA(text, kCodePage) {}
    /// UTF-8 from count units of UTF-16.
    CZelStringUtf8(const WCHAR* text, int count) : CZelStringA(text, count, kCodePage) {}
    /// UTF-8 from a UTF-16 string, embedded NULs included.
    CZelStringUtf8(const CZelStringW& text)
        : CZelStringA(text.GetString(), text.GetLength(), kCodePage) {}

    using CZelStringA::operator=;
    /// UTF-8 from a NUL-terminated UTF-16 text.
    CZelStringUtf8& operator=(const WCHAR* text) { return *this = CZelStringUtf8(text); }
    /// UTF-8 from a UTF-16 string.
    CZelStringUtf8& operator=(const CZelStringW& text) { return *this = CZelStringUtf8(text); }

    /// The text as UTF-16, embedded NULs included.
    CZelStringW ToWide() const { return CZelStringW(GetString(), GetLength(), kCodePage); }

private:
    static constexpr UINT kCodePage = 65001;
};

}  // namespace zel_text
