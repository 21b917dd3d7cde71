#include "zelutils/text/zel_number_format.h"

#include "zelutils/text/zel_printf.h"

#include <clocale>
#include <cmath>
#include <cstdint>

namespace zel_text {
namespace {

constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,
                                   1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13,
                                   1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20};

constexpr double kTieTolerance = 4.440892098500626e-16;  // 2 * DBL_EPSILON
constexpr double kMinuteInDegrees = 0.016666666666666666;

const WCHAR* const kPrecisionFormats[] = {
    ZW("%.2lf"),  ZW("%.3lf"),  ZW("%.4lf"),  ZW("%.5lf"),  ZW("%.6lf"),
    ZW("%.7lf"),  ZW("%.8lf"),  ZW("%.9lf"),  ZW("%.10lf"), ZW("%.11lf"),
    ZW("%.12lf"), ZW("%.13lf"), ZW("%.14lf"), ZW("%.15lf"), ZW("%.16lf")};

// Scans exactly one field of type T with format; false and 0 otherwise.
template <class T>
bool ParseOneField(const WCHAR* text, const WCHAR* format, T& value) {
    value = 0;
    if (text == nullptr || text[0] == 0) return false;
    T parsed = 0;
    if (ScanText(text, format, &parsed) != 1) return false;
    value = parsed;
    return true;
}

}  // namespace

namespace {

// |value| * 10^digits rounded to a whole number, ties to even within a
// tolerance, and the sign of value. digits >= 0.
struct ScaledValue {
    double whole;
    double factor;
    bool negative;
};

ScaledValue RoundScaled(double value, int digits) {
    double factor = digits < 21 ? kPowersOfTen[digits] : std::pow(10.0, digits);
    double whole = 0;
    double fraction = std::modf(std::fabs(value * factor), &whole);
    if (std::fabs(fraction - 0.5) < kTieTolerance) {
        // Doubles from 2^53 up are all even, and the cast is only defined
        // below 2^63.
        if (whole < 9007199254740992.0 && (static_cast<std::int64_t>(whole) & 1) != 0) whole += 1;
    } else if (fraction > 0.5) {
        whole += 1;
    }
    return {whole, factor, value < 0};
}

// Below this, the double nearest whole / 10^digits lies within an eighth of
// a unit of the last place from it, so "%.<digits>f" prints exactly the
// digits of whole.
constexpr double kExactlyPrinted = 1125899906842624.0;  // 2^50

// What text.Format("%.<digits>lf", RoundToDecimals(value, digits)) gives,
// written from the scaled whole number instead of through the formatter.
// False, leaving text alone, where that is not sure to be the same.
bool FormatScaled(CZelStringW& text, const ScaledValue& scaled, int digits) {
    const char* point = std::localeconv()->decimal_point;
    if (!(scaled.whole < kExactlyPrinted) || point[0] == 0 || point[1] != 0) return false;
    char digitsText[20];
    int count = 0;
    for (auto rest = static_cast<std::uint64_t>(scaled.whole); rest != 0 || count <= digits; rest /= 10) {
        digitsText[count++] = static_cast<char>('0' + rest % 10);
    }
    bool minus = scaled.negative && scaled.whole != 0;
    int length = count + 1 + (minus ? 1 : 0);
    WCHAR* out = text.GetBuffer(length);
    if (minus) *out++ = ZW('-');
    for (int i = count - 1; i >= 0; --i) {
        *out++ = static_cast<WCHAR>(digitsText[i]);
        if (i == digits) *out++ = static_cast<WCHAR>(static_cast<unsigned char>(point[0]));
    }
    text.ReleaseBuffer(length);
    return true;
}

}  // namespace

double RoundToDecimals(double value, int digits) {
    if (digits < 0) return 0.0;
    ScaledValue scaled = RoundScaled(value, digits);
    double rounded = scaled.whole / scaled.factor;
    if (scaled.negative && rounded != 0) rounded = -rounded;
    return rounded;
}

CZelStringW FormatWithPrecision(double value, int digits) {
    CZelStringW text;
    if (IsNoValue(value)) return text;
    if (digits == 1) {
        text.Format(ZW("%3.1lf"), RoundToDecimals(value, digits));
    } else if (digits >= 2 && digits <= 16) {
        if (!FormatScaled(text, RoundScaled(value, digits), digits)) {
            text.Format(kPrecisionFormats[digits - 2], RoundToDecimals(value, digits));
        }
    } else {
        CZelStringW format;
        format.Format(ZW("%%.%dlf"), digits);
        text.Format(format.GetString(), value);
    }
    return text;
}

CZelStringW FormatWithoutTrailingZeros(double value) {
    CZelStringW text;
    if (IsNoValue(value)) return text;
    text.Format(ZW("%.12lf"), value);
    int end = text.GetLength();
    while (end > 1 && text.GetAt(end - 1) == ZW('0')) --end;
    if (end > 1 && end < text.GetLength() && text.GetAt(end - 1) == ZW('.')) --end;
    if (end < text.GetLength()) text.Delete(end, text.GetLength() - end);
    return text;
}

CZelStringW FormatInt64(std::int64_t value) {
    CZelStringW text;
    text.Format(ZW("%I64d"), value);
    return text;
}

CZelStringW FormatDegreesMinutesSeconds(double degrees) {
    // Whole degrees are printed as an int: only angles whose degrees fit one
    // may reach the conversion (false for NaN too).
    if (IsNoValue(degrees) || !(std::fabs(degrees) < 2147483648.0)) return CZelStringW();
    double whole = std::trunc(degrees);
    double fraction = degrees - whole;
    int minutes = static_cast<int>(fraction * 60);
    double seconds = (fraction - minutes * kMinuteInDegrees) * 3600;
    CZelStringW text;
    text.Format(ZW("%2d:%2d:%5.3f"), static_cast<int>(whole), minutes, seconds);
    return text;
}

bool ParseInt(const WCHAR* text, int& value) { return ParseOneField(text, ZW("%d"), value); }

bool ParseLong(const WCHAR* text, LONG& value) { return ParseOneField(text, ZW("%ld"), value); }

bool ParseUnsigned(const WCHAR* text, unsigned& value) {
    return ParseOneField(text, ZW("%u"), value);
}

bool ParseShort(const WCHAR* text, short& value) { return ParseOneField(text, ZW("%hd"), value); }

bool ParseInt64(const WCHAR* text, std::int64_t& value) {
    return ParseOneField(text, ZW("%I64d"), value);
}

bool ParseDateTime(const CZelStringW& text, SYSTEMTIME& time) {
    if (text.IsEmpty()) return false;
    // The fields are scanned straight into the record, as short integers.
    int fields = ScanText(text.GetString(), ZW("%hd-%hd-%hd %hd:%hd:%hd"),
                          reinterpret_cast<short*>(&time.wYear), reinterpret_cast<short*>(&time.wMonth),
                          reinterpret_cast<short*>(&time.wDay), reinterpret_cast<short*>(&time.wHour),
                          reinterpret_cast<short*>(&time.wMinute),
                          reinterpret_cast<short*>(&time.wSecond));
    time.wMilliseconds = static_cast<WORD>(time.wSecond / 1000);
    return fields == 6;
}

bool ParseColor(const CZelStringW& text, DWORD& color) {
    if (text.GetLength() != 7 || text.GetAt(0) != ZW('#')) return false;
    unsigned red = 0;
    unsigned green = 0;
    unsigned blue = 0;
    ScanText(text.GetString() + 1, ZW("%2X%2X%2X"), &red, &green, &blue);
    color = (red << 16) | (green << 8) | blue;
    return true;
}

}  // namespace zel_text
