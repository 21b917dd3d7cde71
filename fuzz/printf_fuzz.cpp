// Fuzz target: the printf and scanf dialect with format strings from the
// fuzzer. Printing passes arguments of the types the format names (up to
// four); the measure, a whole print and a cut print must agree, and nothing
// is written past the buffer. Scanning stores into targets large enough for
// any field of the input.
#include "zelutils/text/zel_printf.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

namespace {

using WString = std::basic_string<WCHAR>;

enum class Arg { kInt, kInt64, kDouble, kLongDouble, kPointer };
constexpr std::size_t kMostArgs = 4;

// A text that reads as "ab" both as narrow and as UTF-16 text.
alignas(8) const char kText[8] = {'a', 'b', 0, 0, 0, 0, 0, 0};

// The argument types format names, in order; false when it names more than
// kMostArgs. Parsing stops at the first conversion the dialect refuses,
// since the formatter reads no argument past it.
template <typename T>
bool ArgumentsOf(const T* p, std::vector<Arg>& args) {
    auto isDigit = [](T c) { return c >= '0' && c <= '9'; };
    while (*p != 0) {
        if (*p++ != '%') continue;
        while (*p == '-' || *p == '+' || *p == ' ' || *p == '#' || *p == '0') ++p;
        if (*p == '*') {
            args.push_back(Arg::kInt);
            ++p;
        }
        while (isDigit(*p)) ++p;
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                args.push_back(Arg::kInt);
                ++p;
            }
            while (isDigit(*p)) ++p;
        }
        bool wide64 = false;
        bool longDouble = false;
        if (p[0] == 'I' && p[1] == '6' && p[2] == '4') {
            wide64 = true;
            p += 3;
        } else if (p[0] == 'I' && p[1] == '3' && p[2] == '2') {
            p += 3;
        } else if (p[0] == 'l' && p[1] == 'l') {
            wide64 = true;
            p += 2;
        } else if (p[0] == 'h' && p[1] == 'h') {
            p += 2;
        } else if (*p == 'I' || *p == 'j' || *p == 'z' || *p == 't') {
            wide64 = true;
            ++p;
        } else if (*p == 'L') {
            wide64 = longDouble = true;
            ++p;
        } else if (*p == 'l' || *p == 'h' || *p == 'w') {
            ++p;
        }
        switch (*p) {
            case 'd': case 'i': case 'u': case 'o': case 'x': case 'X':
                args.push_back(wide64 ? Arg::kInt64 : Arg::kInt);
                break;
            case 'c': case 'C': args.push_back(Arg::kInt); break;
            case 's': case 'S': case 'p': args.push_back(Arg::kPointer); break;
            case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
                args.push_back(longDouble ? Arg::kLongDouble : Arg::kDouble);
                break;
            case '%': break;
            default: return args.size() <= kMostArgs;  // refused: nothing more is read
        }
        if (*p != 0) ++p;
    }
    return args.size() <= kMostArgs;
}

// Prints format with the arguments after capacity and checks that the
// measure, a whole print and a cut print agree. One variadic function holds
// the checks, so the argument combinations below instantiate only calls.
template <typename T>
int FormatCopy(T* buffer, std::size_t count, const T* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int result = zel_text::FormatBufferV(buffer, count, format, copy);
    va_end(copy);
    return result;
}

template <typename T>
void CheckPrint(const T* format, std::size_t capacity, ...) {
    va_list args;
    va_start(args, capacity);
    const int measured = FormatCopy(static_cast<T*>(nullptr), 0, format, args);
    if (measured < 0 || measured > (1 << 20)) {
        T guard[4] = {9, 9, 9, 9};
        if (FormatCopy(guard, 1, format, args) >= 0 && measured < 0) std::abort();
        if (guard[1] != 9) std::abort();
        va_end(args);
        return;
    }
    std::vector<T> whole(static_cast<std::size_t>(measured) + 2, T(9));
    if (FormatCopy(whole.data(), whole.size() - 1, format, args) != measured) std::abort();
    if (whole[static_cast<std::size_t>(measured)] != 0 || whole.back() != T(9)) std::abort();
    if (capacity < static_cast<std::size_t>(measured)) {
        std::vector<T> cut(capacity + 1, T(9));
        if (FormatCopy(cut.data(), capacity, format, args) != -1) std::abort();
        if (cut[capacity] != T(9) || std::memcmp(cut.data(), whole.data(), capacity * sizeof(T)) != 0) std::abort();
    }
    va_end(args);
}

template <typename T, typename... Values>
void Print(const T* format, const std::vector<Arg>& args, std::size_t capacity, Values... values) {
    if (sizeof...(Values) == args.size()) {
        CheckPrint(format, capacity, values...);
        return;
    }
    if constexpr (sizeof...(Values) < kMostArgs) {
        switch (args[sizeof...(Values)]) {
            case Arg::kInt: Print(format, args, capacity, values..., static_cast<int>(-12345 * int(capacity + 1))); break;
            case Arg::kInt64: Print(format, args, capacity, values..., std::int64_t{-1234567890123} * std::int64_t(capacity)); break;
            case Arg::kDouble: Print(format, args, capacity, values..., -1.5e-7 * double(capacity)); break;
            case Arg::kLongDouble: Print(format, args, capacity, values..., 2.5e300L * capacity); break;
            case Arg::kPointer: Print(format, args, capacity, values..., static_cast<const void*>(kText)); break;
        }
    }
}

// Scans input with format into targets big enough for any field of input.
template <typename T>
void Scan(const T* input, std::size_t inputLength, const T* format) {
    std::vector<std::vector<std::uint64_t>> targets(8, std::vector<std::uint64_t>(inputLength + 2, 0));
    zel_text::ScanText(input, format, targets[0].data(), targets[1].data(), targets[2].data(), targets[3].data(),
                       targets[4].data(), targets[5].data(), targets[6].data(), targets[7].data());
}

template <typename T>
void Check(const std::vector<T>& format, const std::vector<T>& input, std::size_t capacity) {
    std::vector<Arg> args;
    if (ArgumentsOf(format.data(), args)) Print(format.data(), args, capacity);
    std::size_t directives = 0;
    for (T c : format) directives += c == '%';
    if (directives <= 8) Scan(input.data(), input.size(), format.data());
}

}  // namespace

// The input is a capacity byte, then the format, a NUL, and the text to scan.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > 4096) return 0;
    const std::size_t capacity = data[0];
    const auto* text = reinterpret_cast<const char*>(data + 1);
    const std::size_t length = size - 1;
    const std::size_t split = std::find(text, text + length, '\0') - text;
    std::vector<char> format(text, text + split);
    std::vector<char> input(text + std::min(split + 1, length), text + length);
    format.push_back(0);
    input.push_back(0);
    Check(format, input, capacity);
    std::vector<WCHAR> wideFormat(format.begin(), format.end());
    std::vector<WCHAR> wideInput(input.begin(), input.end());
    Check(wideFormat, wideInput, capacity);
    return 0;
}
