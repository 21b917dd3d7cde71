/// @file
/// Numbers and values as wide text and back, with one rounding rule shared by
/// all decimal output (half to even, with a tie test of two epsilons, never
/// -0). Formatters return the empty string only for the no-value double;
/// parsers return false and a zero value when the text does not hold the
/// expected field. Nothing here throws.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cfloat>
#include <cstdint>

namespace zel_text {

/// The double that stands for "no value": the largest finite double. Every
/// double formatter prints it as the empty string.
constexpr double kNoValueDouble = DBL_MAX;

/// True when value is the no-value double.
constexpr bool IsNoValue(double value) { return value == kNoValueDouble; }

/// value rounded to digits decimals, half to even (a fraction within
/// 2 * DBL_EPSILON of one half is a tie); 0.0 for negative digits; never -0.
ZEL_API double RoundToDecimals(double value, int digits);

/// value rounded to digits decimals and printed with "%3.1lf" (1 digit) or
/// "%.Nlf" (2 to 16 digits). Other digit counts print the unrounded value
/// with a format built from "%%.%dlf", leaving the rounding to the runtime.
/// Empty for the no-value double.
ZEL_API CZelStringW FormatWithPrecision(double value, int digits);

/// value printed with "%.12lf" and its trailing zeros removed, the decimal
/// point too when nothing follows it ("1.5", "2"). Empty for the no-value double.
ZEL_API CZelStringW FormatWithoutTrailingZeros(double value);

/// The decimal text of a 64-bit integer.
ZEL_API CZelStringW FormatInt64(std::int64_t value);

/// An angle in decimal degrees as "%2d:%2d:%5.3f" degrees, minutes and
/// seconds (blank-padded); a negative angle gives negative minutes and
/// seconds as well. Empty for the no-value double and for an angle the
/// format cannot hold (NaN, infinite, whole degrees beyond an int).
ZEL_API CZelStringW FormatDegreesMinutesSeconds(double degrees);

/// Integer parsers: false and 0 for a null or empty text or when the text
/// does not start (after blanks) with the number; trailing text is ignored.
ZEL_API bool ParseInt(const WCHAR* text, int& value);
/// As ParseInt, for a 32-bit long ("%ld").
ZEL_API bool ParseLong(const WCHAR* text, LONG& value);
/// As ParseInt, for an unsigned ("%u").
ZEL_API bool ParseUnsigned(const WCHAR* text, unsigned& value);
/// As ParseInt, for a short ("%hd").
ZEL_API bool ParseShort(const WCHAR* text, short& value);
/// As ParseInt, for a 64-bit integer ("%I64d").
ZEL_API bool ParseInt64(const WCHAR* text, std::int64_t& value);

/// Parses "YYYY-MM-DD hh:mm:ss" into the year, month, day, hour, minute and
/// second of time (day of week untouched; milliseconds := second / 1000,
/// which is 0 for every valid second). True only when all six fields were
/// read; an empty text writes nothing.
ZEL_API bool ParseDateTime(const CZelStringW& text, SYSTEMTIME& time);

/// Parses "#RRGGBB" into 0x00RRGGBB. False unless the text has exactly 7
/// characters and begins with '#'; a hexadecimal field that does not parse
/// counts as 0 and the result is still true (kept so that colours written
/// by older versions keep loading).
ZEL_API bool ParseColor(const CZelStringW& text, DWORD& color);

}  // namespace zel_text
