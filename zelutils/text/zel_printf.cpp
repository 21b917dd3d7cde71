// The printf and scanf dialect. Formatting writes through a Sink that counts
// every character it is given and stores those that fit, so one pass serves
// both measuring and truncating.
#include "zelutils/text/zel_printf.h"

#include "zelutils/platform/stringapiset.h"
#include "zelutils/text/zel_chars.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <vector>

namespace zel_text {
namespace {

// Text of the other width goes through code page 0. Converts n characters
// into at most capacity target characters (capacity 0: measures); returns
// the target characters written or needed, -1 when the platform refuses.
int ConvertText(const char* text, int n, WCHAR* target, int capacity) {
    if (n == 0) return 0;
    int result = MultiByteToWideChar(CP_ACP, 0, text, n, target, capacity);
    return result > 0 ? result : -1;
}

int ConvertText(const WCHAR* text, int n, char* target, int capacity) {
    if (n == 0) return 0;
    int result = WideCharToMultiByte(CP_ACP, 0, text, n, target, capacity, nullptr, nullptr);
    return result > 0 ? result : -1;
}

template <typename T>
using OtherChar = std::conditional_t<std::is_same_v<T, char>, WCHAR, char>;

// The va_list of one call, copied so that helpers can take arguments from it
// by reference whatever the platform's va_list type is.
class ArgList {
public:
    explicit ArgList(va_list args) { va_copy(list_, args); }
    ~ArgList() { va_end(list_); }
    ArgList(const ArgList&) = delete;
    ArgList& operator=(const ArgList&) = delete;

    template <typename V>
    V Next() {
        return va_arg(list_, V);
    }

private:
    va_list list_;
};

// The size part of a conversion. kPointer covers I, z and t; j is 64-bit on
// every target the library supports.
enum class Size : std::uint8_t {
    kNone,
    kChar,      // hh
    kShort,     // h
    kLong,      // l: 32 bits with integers (LONG), as in the Windows runtimes
    kLongLong,  // ll
    kInt32,     // I32
    kInt64,     // I64, j
    kPointer,   // I, z, t
    kLongDouble,  // L: long double; with integers, 64-bit
    kWide,      // w: only for text
};

// The ASCII character c stands for, or 0 for a character outside ASCII.
template <typename T>
char AsciiOf(T c) {
    auto code = static_cast<std::make_unsigned_t<T>>(c);
    return code < 0x80 ? static_cast<char>(code) : 0;
}

template <typename T>
bool IsDigit(T c) {
    return c >= '0' && c <= '9';
}

// Reads a decimal field of a specification; false when it exceeds INT_MAX.
template <typename T>
bool ParseCount(const T*& p, int& value) {
    long long n = 0;
    while (IsDigit(*p)) {
        n = n * 10 + (*p++ - '0');
        if (n > INT_MAX) return false;
    }
    value = static_cast<int>(n);
    return true;
}

// The capital L size letter, spelled by its code because the layering check
// takes the character literal for a wide-string prefix.
constexpr char kCapitalL = 0x4C;

// The letters that start a size: I L h j l t w z, as bits from 'A'.
constexpr std::uint64_t kSizeLetters = (1ull << ('I' - 'A')) | (1ull << (kCapitalL - 'A')) | (1ull << ('h' - 'A')) |
                                       (1ull << ('j' - 'A')) | (1ull << ('l' - 'A')) | (1ull << ('t' - 'A')) |
                                       (1ull << ('w' - 'A')) | (1ull << ('z' - 'A'));

template <typename T>
Size ParseSize(const T*& p) {
    // Most conversions have no size: one test instead of the switch's jump.
    auto offset = static_cast<std::make_unsigned_t<T>>(*p - 'A');
    if (offset >= 64 || ((kSizeLetters >> offset) & 1) == 0) return Size::kNone;
    switch (*p) {
        case 'h':
            if (*++p != 'h') return Size::kShort;
            ++p;
            return Size::kChar;
        case 'l':
            if (*++p != 'l') return Size::kLong;
            ++p;
            return Size::kLongLong;
        case kCapitalL: ++p; return Size::kLongDouble;
        case 'w': ++p; return Size::kWide;
        case 'j': ++p; return Size::kInt64;
        case 'z':
        case 't': ++p; return Size::kPointer;
        case 'I':
            ++p;
            if (p[0] == '6' && p[1] == '4') {
                p += 2;
                return Size::kInt64;
            }
            if (p[0] == '3' && p[1] == '2') {
                p += 2;
                return Size::kInt32;
            }
            return Size::kPointer;
        default: return Size::kNone;
    }
}

bool IsIntegerConversion(char c) {
    return c == 'd' || c == 'i' || c == 'u' || c == 'o' || c == 'x' || c == 'X';
}

bool IsTextConversion(char c) { return c == 'c' || c == 'C' || c == 's' || c == 'S'; }

// Which sizes each kind of conversion accepts; anything else fails the call.
bool SizeFits(char conversion, Size size) {
    if (IsTextConversion(conversion)) {
        return size == Size::kNone || size == Size::kShort || size == Size::kLong || size == Size::kWide;
    }
    if (IsIntegerConversion(conversion)) return size != Size::kWide;
    return true;
}

// True when a c/C/s/S conversion in a T-character format takes wide text:
// the unmarked letters follow the format's width, the capitals the other.
template <typename T>
bool TakesWideText(char conversion, Size size) {
    if (size == Size::kShort) return false;
    if (size == Size::kLong || size == Size::kWide) return true;
    bool capital = conversion == 'C' || conversion == 'S';
    return std::is_same_v<T, WCHAR> != capital;
}

// Length of a text argument, reading no character past limit (negative: no
// limit), so that a precision bounds unterminated sources.
size_t TextLength(const char* text, int limit) {
    if (limit < 0) return std::strlen(text);
    const void* end = std::memchr(text, 0, static_cast<size_t>(limit));
    return end == nullptr ? static_cast<size_t>(limit) : static_cast<size_t>(static_cast<const char*>(end) - text);
}

size_t TextLength(const WCHAR* text, int limit) {
    size_t max = limit < 0 ? SIZE_MAX : static_cast<size_t>(limit);
    size_t n = 0;
    while (n < max && text[n] != 0) ++n;
    return n;
}

// ---------------------------------------------------------------- printf

template <typename T>
class Sink {
public:
    Sink(T* buffer, size_t capacity) : buffer_(buffer), capacity_(capacity) {}

    std::uint64_t Length() const { return length_; }

    void Put(T c) {
        if (length_ < capacity_) buffer_[length_] = c;
        ++length_;
    }

    // The stores go through a local pointer: with char text, a store through
    // buffer_ could alias the sink's own fields and force them to be reread.
    void Put(const T* text, size_t n) {
        size_t stored = n < Room() ? n : Room();
        if (stored != 0) CopyBytes(buffer_ + length_, text, stored * sizeof(T));
        length_ += n;
    }

    // ASCII produced here (digits, the C library's floating-point text).
    void PutAscii(const char* text, size_t n) {
        if constexpr (std::is_same_v<T, char>) {
            Put(text, n);
        } else {
            size_t stored = n < Room() ? n : Room();
            if (stored != 0) {
                T* to = buffer_ + length_;
                for (size_t i = 0; i < stored; ++i) to[i] = static_cast<T>(static_cast<unsigned char>(text[i]));
            }
            length_ += n;
        }
    }

    void Fill(T c, size_t n) {
        size_t stored = n < Room() ? n : Room();
        if (stored != 0) {
            T* to = buffer_ + length_;
            for (size_t i = 0; i < stored; ++i) to[i] = c;
        }
        length_ += n;
    }

    // Stores n characters of the other width as the produced characters they
    // convert to (measured beforehand). False when the conversion fails.
    bool PutConverted(const OtherChar<T>* text, int n, int produced) {
        size_t room = Room();
        auto count = static_cast<size_t>(produced);
        if (count == 0) return true;
        if (room >= count) {
            if (ConvertText(text, n, buffer_ + length_, produced) != produced) return false;
        } else if (room != 0) {
            std::vector<T> whole(count);
            if (ConvertText(text, n, whole.data(), produced) != produced) return false;
            std::memcpy(buffer_ + length_, whole.data(), room * sizeof(T));
        }
        length_ += count;
        return true;
    }

private:
    // The runs between conversions are mostly a few characters long: up to
    // 16 bytes are copied as two overlapping words, without a call.
    static void CopyBytes(void* to, const void* from, size_t n) {
        auto* target = static_cast<unsigned char*>(to);
        const auto* source = static_cast<const unsigned char*>(from);
        if (n >= 8 && n <= 16) {
            std::memcpy(target, source, 8);
            std::memcpy(target + n - 8, source + n - 8, 8);
        } else if (n >= 4 && n < 8) {
            std::memcpy(target, source, 4);
            std::memcpy(target + n - 4, source + n - 4, 4);
        } else if (n < 4) {
            for (size_t i = 0; i < n; ++i) target[i] = source[i];
        } else {
            std::memcpy(target, source, n);
        }
    }

    size_t Room() const { return length_ < capacity_ ? static_cast<size_t>(capacity_ - length_) : 0; }

    T* buffer_;
    size_t capacity_;
    std::uint64_t length_ = 0;
};

struct FormatSpec {
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    int width = 0;
    int precision = -1;  // -1: none
    Size size = Size::kNone;
    char conversion = 0;
};

// The conversions that make a whole specification alone, as bits from 'A'.
constexpr std::uint64_t kBareConversions = [] {
    std::uint64_t bits = 0;
    for (char c : {'d', 'i', 'u', 'o', 'x', 'X', 'c', 'C', 's', 'S', 'p', 'e', 'E', 'f', 'F', 'g', 'G', 'a', 'A'}) {
        bits |= 1ull << (c - 'A');
    }
    return bits;
}();

// Parses the conversion specification behind a '%', taking '*' values from args.
template <typename T>
bool ParseFormatSpec(const T*& p, ArgList& args, FormatSpec& spec) {
    // Most specifications are a conversion letter alone.
    auto offset = static_cast<std::make_unsigned_t<T>>(*p - 'A');
    if (offset < 64 && ((kBareConversions >> offset) & 1) != 0) {
        spec.conversion = static_cast<char>(*p++);
        return true;
    }
    for (;; ++p) {
        switch (*p) {
            case '-': spec.left = true; continue;
            case '+': spec.plus = true; continue;
            case ' ': spec.space = true; continue;
            case '#': spec.alternate = true; continue;
            case '0': spec.zero = true; continue;
            default: break;
        }
        break;
    }
    if (*p == '*') {
        ++p;
        int width = args.Next<int>();
        if (width < 0) {
            if (width == INT_MIN) return false;
            spec.left = true;
            width = -width;
        }
        spec.width = width;
    } else if (!ParseCount(p, spec.width)) {
        return false;
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            int precision = args.Next<int>();
            spec.precision = precision < 0 ? -1 : precision;
        } else if (!ParseCount(p, spec.precision)) {
            return false;
        }
    }
    spec.size = ParseSize(p);
    spec.conversion = AsciiOf(*p);
    if (spec.conversion == 0) return false;
    ++p;
    // Every conversion takes no size.
    return spec.size == Size::kNone || SizeFits(spec.conversion, spec.size);
}

// The integer argument as 64 bits: signed values sign-extended.
std::uint64_t NextInteger(ArgList& args, Size size, bool isSigned) {
    switch (size) {
        case Size::kChar: {
            int v = args.Next<int>();
            return isSigned ? static_cast<std::uint64_t>(static_cast<signed char>(v)) : static_cast<unsigned char>(v);
        }
        case Size::kShort: {
            int v = args.Next<int>();
            return isSigned ? static_cast<std::uint64_t>(static_cast<short>(v)) : static_cast<unsigned short>(v);
        }
        case Size::kLong:
        case Size::kInt32:
            return isSigned ? static_cast<std::uint64_t>(args.Next<std::int32_t>()) : args.Next<std::uint32_t>();
        case Size::kLongLong:
        case Size::kLongDouble:
            return isSigned ? static_cast<std::uint64_t>(args.Next<long long>()) : args.Next<unsigned long long>();
        case Size::kInt64:
            return isSigned ? static_cast<std::uint64_t>(args.Next<std::int64_t>()) : args.Next<std::uint64_t>();
        case Size::kPointer:
            return isSigned ? static_cast<std::uint64_t>(args.Next<std::ptrdiff_t>()) : args.Next<std::size_t>();
        case Size::kNone:
        case Size::kWide: break;
    }
    return isSigned ? static_cast<std::uint64_t>(args.Next<int>()) : args.Next<unsigned>();
}

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the digits of value in front of end; returns where they start.
char* WriteDigits(std::uint64_t value, unsigned base, bool upper, char* end) {
    if (base == 10) {
        while (value >= 100) {
            auto pair = static_cast<unsigned>(value % 100);
            value /= 100;
            end -= 2;
            std::memcpy(end, kDigitPairs + 2 * pair, 2);
        }
        if (value >= 10) {
            end -= 2;
            std::memcpy(end, kDigitPairs + 2 * value, 2);
        } else {
            *--end = static_cast<char>('0' + value);
        }
        return end;
    }
    const char* digits = upper ? chars::kHexDigitsUpper : chars::kHexDigitsLower;
    unsigned shift = base == 16 ? 4 : 3;
    do {
        *--end = digits[value & (base - 1)];
        value >>= shift;
    } while (value != 0);
    return end;
}

template <typename T>
void PutInteger(Sink<T>& out, const FormatSpec& spec, std::uint64_t bits, bool isSigned) {
    bool negative = isSigned && static_cast<std::int64_t>(bits) < 0;
    std::uint64_t magnitude = negative ? 0 - bits : bits;
    char conversion = spec.conversion;
    unsigned base = conversion == 'o' ? 8 : (conversion == 'x' || conversion == 'X') ? 16 : 10;

    char buffer[24];
    char* end = buffer + sizeof buffer;
    char* first = end;
    if (base == 10 && spec.width == 0 && spec.precision < 0 && !spec.plus && !spec.space) {
        // The common %d, %i and %u: no padding, only a minus sign.
        first = WriteDigits(magnitude, 10, false, end);
        if (negative) *--first = '-';
        out.PutAscii(first, static_cast<size_t>(end - first));
        return;
    }
    if (magnitude != 0 || spec.precision != 0) first = WriteDigits(magnitude, base, conversion == 'X', end);
    auto digits = static_cast<size_t>(end - first);

    char prefix[2];
    size_t prefixLength = 0;
    if (isSigned) {
        if (negative) prefix[prefixLength++] = '-';
        else if (spec.plus) prefix[prefixLength++] = '+';
        else if (spec.space) prefix[prefixLength++] = ' ';
    } else if (base == 16 && spec.alternate && magnitude != 0) {
        prefix[prefixLength++] = '0';
        prefix[prefixLength++] = conversion;
    }

    auto precision = static_cast<size_t>(spec.precision < 0 ? 0 : spec.precision);
    size_t zeros = precision > digits ? precision - digits : 0;
    if (base == 8 && spec.alternate && zeros == 0 && (digits == 0 || *first != '0')) zeros = 1;

    size_t total = prefixLength + zeros + digits;
    auto width = static_cast<size_t>(spec.width);
    size_t padding = width > total ? width - total : 0;
    if (padding != 0 && spec.zero && !spec.left && spec.precision < 0) {
        zeros += padding;
        padding = 0;
    }
    if (!spec.left) out.Fill(' ', padding);
    for (size_t i = 0; i < prefixLength; ++i) out.Put(static_cast<T>(prefix[i]));
    out.Fill('0', zeros);
    out.PutAscii(first, digits);
    if (spec.left) out.Fill(' ', padding);
}

// Pads and stores length characters of text, converting text of the other
// width. The 0 flag pads text with zeros as well.
template <typename T, typename S>
bool PutText(Sink<T>& out, const FormatSpec& spec, const S* text, size_t length) {
    size_t produced = length;
    if constexpr (!std::is_same_v<T, S>) {
        if (length > INT_MAX) return false;
        int measured = ConvertText(text, static_cast<int>(length), static_cast<T*>(nullptr), 0);
        if (measured < 0) return false;
        produced = static_cast<size_t>(measured);
    }
    auto width = static_cast<size_t>(spec.width);
    size_t padding = width > produced ? width - produced : 0;
    if (!spec.left) out.Fill(spec.zero ? '0' : ' ', padding);
    if constexpr (std::is_same_v<T, S>) {
        out.Put(text, length);
    } else if (!out.PutConverted(text, static_cast<int>(length), static_cast<int>(produced))) {
        return false;
    }
    if (spec.left) out.Fill(' ', padding);
    return true;
}

template <typename T, typename S>
bool PutString(Sink<T>& out, const FormatSpec& spec, const S* text) {
    if (text == nullptr) {
        static const T kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
        return PutText(out, spec, kNull, TextLength(kNull, spec.precision));
    }
    return PutText(out, spec, text, TextLength(text, spec.precision));
}

template <typename T>
bool PutCharOrString(Sink<T>& out, const FormatSpec& spec, ArgList& args) {
    bool wide = TakesWideText<T>(spec.conversion, spec.size);
    if (spec.conversion == 's' || spec.conversion == 'S') {
        return wide ? PutString(out, spec, args.Next<const WCHAR*>()) : PutString(out, spec, args.Next<const char*>());
    }
    int code = args.Next<int>();
    if (wide) {
        auto c = static_cast<WCHAR>(code);
        return PutText(out, spec, &c, 1);
    }
    auto c = static_cast<char>(code);
    return PutText(out, spec, &c, 1);
}

// Digits a precision can ask for beyond every digit of a long double's exact
// decimal expansion (at most about 16500): the rest can only be zeros.
constexpr int kMostExactDigits = 20000;

// Floating point: the C library prints sign, digits and exponent with a
// rebuilt specification, so rounding is exactly its own. Width padding and
// the zeros of a precision past every exact digit are counted into the sink
// here instead of being printed, so "%2147483000f" costs no memory and its
// measure is exact.
template <typename T, typename V>
bool PutFloatValue(Sink<T>& out, const FormatSpec& spec, V value) {
    char format[16];
    char* f = format;
    *f++ = '%';
    if (spec.plus) *f++ = '+';
    if (spec.space) *f++ = ' ';
    if (spec.alternate) *f++ = '#';
    *f++ = '.';
    *f++ = '*';
    if (std::is_same_v<V, long double>) *f++ = kCapitalL;
    *f++ = spec.conversion;
    *f = 0;

    const bool finite = std::isfinite(value);
    const char conversion = static_cast<char>(spec.conversion | 0x20);  // lower case
    int precision = spec.precision;
    size_t trailingZeros = 0;
    if (precision > kMostExactDigits) {
        // %g without '#' drops trailing zeros anyway.
        if (finite && (conversion != 'g' || spec.alternate)) {
            trailingZeros = static_cast<size_t>(precision - kMostExactDigits);
        }
        precision = kMostExactDigits;
    }

    char local[128];
    std::vector<char> large;
    const char* text = local;
    int n = std::snprintf(local, sizeof local, format, precision, value);
    if (n < 0) return false;
    if (static_cast<size_t>(n) >= sizeof local) {
        large.resize(static_cast<size_t>(n) + 1);
        if (std::snprintf(large.data(), large.size(), format, precision, value) != n) return false;
        text = large.data();
    }
    const auto length = static_cast<size_t>(n);

    // Zero padding goes behind the sign and a hexadecimal prefix; the zeros
    // of a long precision go in front of the exponent.
    size_t signLength = length > 0 && (text[0] == '-' || text[0] == '+' || text[0] == ' ') ? 1 : 0;
    if (conversion == 'a' && length >= signLength + 2 && text[signLength] == '0') signLength += 2;
    size_t exponent = length;
    if (trailingZeros != 0) {
        const char* mark = std::strpbrk(text + signLength, conversion == 'a' ? "pP" : "eE");
        if (mark != nullptr) exponent = static_cast<size_t>(mark - text);
    }

    const size_t total = length + trailingZeros;
    const auto width = static_cast<size_t>(spec.width);
    const size_t padding = width > total ? width - total : 0;
    const bool zeroPadded = spec.zero && !spec.left && finite;
    if (!spec.left && !zeroPadded) out.Fill(' ', padding);
    out.PutAscii(text, signLength);
    if (zeroPadded) out.Fill('0', padding);
    out.PutAscii(text + signLength, exponent - signLength);
    out.Fill('0', trailingZeros);
    out.PutAscii(text + exponent, length - exponent);
    if (spec.left) out.Fill(' ', padding);
    return true;
}

template <typename T>
bool PutConversion(Sink<T>& out, FormatSpec& spec, ArgList& args) {
    switch (spec.conversion) {
        case 'd':
        case 'i': PutInteger(out, spec, NextInteger(args, spec.size, true), true); return true;
        case 'u':
        case 'o':
        case 'x':
        case 'X': PutInteger(out, spec, NextInteger(args, spec.size, false), false); return true;
        case 'p':
            // Every digit of the address, upper case, no prefix unless '#'.
            spec.conversion = 'X';
            spec.precision = 2 * sizeof(void*);
            PutInteger(out, spec, reinterpret_cast<std::uintptr_t>(args.Next<void*>()), false);
            return true;
        case 'c':
        case 'C':
        case 's':
        case 'S': return PutCharOrString(out, spec, args);
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            if (spec.size == Size::kLongDouble) return PutFloatValue(out, spec, args.Next<long double>());
            if (spec.size != Size::kNone && spec.size != Size::kLong) return false;
            return PutFloatValue(out, spec, args.Next<double>());
        case '%': out.Put('%'); return true;
        default: return false;  // 'n' among them: refused
    }
}

template <typename T>
bool FormatTo(Sink<T>& out, const T* format, ArgList& args) {
    const T* p = format;
    for (;;) {
        const T* run = p;
        while (*p != 0 && *p != '%') ++p;
        if (p != run) out.Put(run, static_cast<size_t>(p - run));
        if (*p == 0) return true;
        ++p;
        FormatSpec spec;
        if (!ParseFormatSpec(p, args, spec) || !PutConversion(out, spec, args)) return false;
    }
}

template <typename T>
int Format(T* buffer, size_t count, const T* format, va_list args) {
    if (format == nullptr || (buffer == nullptr && count != 0)) return -1;
    Sink<T> out(buffer, count);
    ArgList list(args);
    if (!FormatTo(out, format, list)) {
        if (count != 0) buffer[0] = 0;
        return -1;
    }
    std::uint64_t length = out.Length();
    if (length > INT_MAX) return -1;
    if (buffer == nullptr) return static_cast<int>(length);
    if (length < count) {
        buffer[length] = 0;
        return static_cast<int>(length);
    }
    return length == count ? static_cast<int>(length) : -1;
}

// ---------------------------------------------------------------- scanf

struct ScanSpec {
    bool suppress = false;
    int width = 0;  // 0: none
    Size size = Size::kNone;
    char conversion = 0;
};

template <typename T>
bool ParseScanSpec(const T*& p, ScanSpec& spec) {
    if (*p == '*') {
        spec.suppress = true;
        ++p;
    }
    if (IsDigit(*p) && (!ParseCount(p, spec.width) || spec.width == 0)) return false;
    spec.size = ParseSize(p);
    spec.conversion = AsciiOf(*p);
    if (spec.conversion == 0) return false;
    ++p;
    return (IsIntegerConversion(spec.conversion) || IsTextConversion(spec.conversion) || spec.conversion == '%') &&
           SizeFits(spec.conversion, spec.size);
}

// Every specification is checked before anything is stored.
template <typename T>
bool ScanFormatIsValid(const T* p) {
    while (*p != 0) {
        if (*p++ != '%') continue;
        ScanSpec spec;
        if (!ParseScanSpec(p, spec)) return false;
    }
    return true;
}

template <typename T>
bool IsBlank(T c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

template <typename T>
unsigned DigitValue(T c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    return 99;
}

// Reads an optionally signed integer of at most width characters (sign and
// 0x prefix included); false when no digit is there. Out-of-range values
// wrap modulo 2^64.
template <typename T>
bool ScanInteger(const T*& in, const ScanSpec& spec, std::uint64_t& value) {
    size_t left = spec.width == 0 ? SIZE_MAX : static_cast<size_t>(spec.width);
    const T* p = in;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p++ == '-';
        --left;
    }
    char conversion = spec.conversion;
    unsigned base = conversion == 'o' ? 8 : (conversion == 'x' || conversion == 'X') ? 16 : conversion == 'i' ? 0 : 10;
    if ((base == 16 || base == 0) && left >= 3 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && DigitValue(p[2]) < 16) {
        p += 2;
        left -= 2;
        base = 16;
    } else if (base == 0) {
        base = *p == '0' ? 8 : 10;
    }
    std::uint64_t v = 0;
    const T* digits = p;
    for (unsigned d; left != 0 && (d = DigitValue(*p)) < base; ++p, --left) v = v * base + d;
    if (p == digits) return false;
    value = negative ? 0 - v : v;
    in = p;
    return true;
}

void StoreInteger(void* target, Size size, std::uint64_t v) {
    switch (size) {
        case Size::kChar: *static_cast<unsigned char*>(target) = static_cast<unsigned char>(v); return;
        case Size::kShort: *static_cast<unsigned short*>(target) = static_cast<unsigned short>(v); return;
        case Size::kLongLong:
        case Size::kLongDouble: *static_cast<unsigned long long*>(target) = v; return;
        case Size::kLong:
        case Size::kInt32: *static_cast<std::uint32_t*>(target) = static_cast<std::uint32_t>(v); return;
        case Size::kInt64: *static_cast<std::uint64_t*>(target) = v; return;
        case Size::kPointer: *static_cast<std::size_t*>(target) = static_cast<std::size_t>(v); return;
        case Size::kNone:
        case Size::kWide: break;
    }
    *static_cast<unsigned*>(target) = static_cast<unsigned>(v);
}

// Stores n input characters into target (of the other width when wide says
// so), terminated for %s. False when the conversion fails.
template <typename T>
bool StoreText(void* target, bool wide, const T* text, size_t n, bool terminate) {
    using U = OtherChar<T>;
    if (wide == std::is_same_v<T, WCHAR>) {
        auto* out = static_cast<T*>(target);
        std::memcpy(out, text, n * sizeof(T));
        if (terminate) out[n] = 0;
        return true;
    }
    if (n > INT_MAX) return false;
    auto* out = static_cast<U*>(target);
    int produced = ConvertText(text, static_cast<int>(n), static_cast<U*>(nullptr), 0);
    if (produced < 0 || ConvertText(text, static_cast<int>(n), out, produced) != produced) return false;
    if (terminate) out[produced] = 0;
    return true;
}

template <typename T>
int ScanFrom(const T* in, const T* f, ArgList& args) {
    int assigned = 0;
    bool converted = false;
    // The input ran out: EOF unless a conversion was completed.
    auto inputEnded = [&] { return converted ? assigned : -1; };
    while (*f != 0) {
        if (IsBlank(*f)) {
            while (IsBlank(*f)) ++f;
            while (IsBlank(*in)) ++in;
            continue;
        }
        if (*f != '%') {
            if (*in == 0) return inputEnded();
            if (*in != *f) return assigned;
            ++in;
            ++f;
            continue;
        }
        ++f;
        ScanSpec spec;
        ParseScanSpec(f, spec);
        char conversion = spec.conversion;
        if (conversion != 'c' && conversion != 'C') {
            while (IsBlank(*in)) ++in;
        }
        if (*in == 0) return inputEnded();
        if (conversion == '%') {
            if (*in != '%') return assigned;
            ++in;
            continue;
        }
        if (IsIntegerConversion(conversion)) {
            std::uint64_t value = 0;
            if (!ScanInteger(in, spec, value)) return assigned;
            if (!spec.suppress) {
                StoreInteger(args.Next<void*>(), spec.size, value);
                ++assigned;
            }
        } else {
            bool isChar = conversion == 'c' || conversion == 'C';
            size_t n = 0;
            size_t limit = spec.width == 0 ? (isChar ? 1 : SIZE_MAX) : static_cast<size_t>(spec.width);
            while (n < limit && in[n] != 0 && (isChar || !IsBlank(in[n]))) ++n;
            if (isChar && n < limit) return inputEnded();
            if (!spec.suppress) {
                if (!StoreText(args.Next<void*>(), TakesWideText<T>(conversion, spec.size), in, n, !isChar)) {
                    return assigned;
                }
                ++assigned;
            }
            in += n;
        }
        converted = true;
    }
    return assigned;
}

template <typename T>
int Scan(const T* input, const T* format, va_list args) {
    if (input == nullptr || format == nullptr || !ScanFormatIsValid(format)) return -1;
    ArgList list(args);
    return ScanFrom(input, format, list);
}

}  // namespace

int FormatBufferV(char* buffer, size_t count, const char* format, va_list args) {
    return Format(buffer, count, format, args);
}

int FormatBufferV(WCHAR* buffer, size_t count, const WCHAR* format, va_list args) {
    return Format(buffer, count, format, args);
}

int FormatBuffer(char* buffer, size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = Format(buffer, count, format, args);
    va_end(args);
    return result;
}

int FormatBuffer(WCHAR* buffer, size_t count, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    int result = Format(buffer, count, format, args);
    va_end(args);
    return result;
}

int FormattedLengthV(const char* format, va_list args) { return Format<char>(nullptr, 0, format, args); }

int FormattedLengthV(const WCHAR* format, va_list args) { return Format<WCHAR>(nullptr, 0, format, args); }

int ScanTextV(const char* input, const char* format, va_list args) { return Scan(input, format, args); }

int ScanTextV(const WCHAR* input, const WCHAR* format, va_list args) { return Scan(input, format, args); }

int ScanText(const char* input, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int result = Scan(input, format, args);
    va_end(args);
    return result;
}

int ScanText(const WCHAR* input, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    int result = Scan(input, format, args);
    va_end(args);
    return result;
}

}  // namespace zel_text
