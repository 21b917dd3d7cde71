/// @file
/// NUL-terminated character arrays of any code-unit type (char, WCHAR,
/// char32_t): length, comparison, searching, spans and case mapping, with the
/// semantics of the C library's str* functions. The string classes are built
/// on these instead of the C library's wide-string functions, whose wide
/// character is not the library's WCHAR on every platform. Narrow text is
/// handed to the C library; wider units are mapped one unit at a time with
/// towlower/towupper in the current locale. Nothing here allocates or fails; a null pointer is
/// the caller's error unless a function says otherwise.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <string>
#include <type_traits>

namespace zel_text::chars {

/// The hexadecimal digits in lower case: the digit of a value from 0 to 15
/// is kHexDigitsLower[value].
inline constexpr char kHexDigitsLower[] = "0123456789abcdef";
/// The hexadecimal digits in upper case, as kHexDigitsLower.
inline constexpr char kHexDigitsUpper[] = "0123456789ABCDEF";

/// The code unit as an unsigned number, so that comparisons order text by
/// unit value whatever the signedness of the character type.
template <typename T>
constexpr auto UnitValue(T ch) {
    return static_cast<std::make_unsigned_t<T>>(ch);
}

/// The number of units before the terminator.
template <typename T>
inline std::size_t Length(const T* text) {
    return std::char_traits<T>::length(text);
}

/// Orders two texts by unit value: negative, 0 or positive, like strcmp.
template <typename T>
inline int Compare(const T* left, const T* right) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strcmp(left, right);
    } else {
        for (;; ++left, ++right) {
            if (*left != *right) return UnitValue(*left) < UnitValue(*right) ? -1 : 1;
            if (*left == 0) return 0;
        }
    }
}

/// True when the unit can be handed to the C library's wide classification
/// and mapping functions (wint_t may be narrower than the unit).
template <typename T>
constexpr bool FitsWint(T ch) {
    if constexpr (sizeof(std::wint_t) < sizeof(T)) {
        return UnitValue(ch) <= static_cast<std::wint_t>(-1);
    } else {
        return true;
    }
}

/// The unit mapped to lower case; units the locale does not map, and units
/// beyond the range of wint_t, come back unchanged. A WCHAR result is
/// truncated to 16 bits, as the Windows runtime does.
template <typename T>
inline T ToLower(T ch) {
    if constexpr (std::is_same_v<T, char>) {
        return static_cast<char>(std::tolower(UnitValue(ch)));
    } else {
        return FitsWint(ch) ? static_cast<T>(std::towlower(static_cast<std::wint_t>(ch))) : ch;
    }
}

/// The unit mapped to upper case; see ToLower.
template <typename T>
inline T ToUpper(T ch) {
    if constexpr (std::is_same_v<T, char>) {
        return static_cast<char>(std::toupper(UnitValue(ch)));
    } else {
        return FitsWint(ch) ? static_cast<T>(std::towupper(static_cast<std::wint_t>(ch))) : ch;
    }
}

/// True for the locale's white space (isspace / iswspace).
template <typename T>
inline bool IsSpace(T ch) {
    if constexpr (std::is_same_v<T, char>) {
        return std::isspace(UnitValue(ch)) != 0;
    } else {
        return FitsWint(ch) && std::iswspace(static_cast<std::wint_t>(ch)) != 0;
    }
}

/// Compares unit by unit after mapping both sides to lower case; returns the
/// difference of the first unequal pair of mapped units, so a left text that
/// ends first gives minus the right text's (mapped) unit. Like _stricmp.
template <typename T>
inline int CompareNoCase(const T* left, const T* right) {
    for (;; ++left, ++right) {
        auto l = UnitValue(ToLower(*left));
        auto r = UnitValue(ToLower(*right));
        if (l != r) {
            if constexpr (sizeof(T) < sizeof(int)) {
                return static_cast<int>(l) - static_cast<int>(r);
            } else {
                return l < r ? -1 : 1;
            }
        }
        if (l == 0) return 0;
    }
}

/// The first ch in text, or null. Searching for 0 finds the terminator.
template <typename T>
inline const T* FindChar(const T* text, T ch) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strchr(text, ch);
    } else {
        for (;; ++text) {
            if (*text == ch) return text;
            if (*text == 0) return nullptr;
        }
    }
}

/// The last ch in text, or null. Searching for 0 finds the terminator.
template <typename T>
inline const T* FindLastChar(const T* text, T ch) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strrchr(text, ch);
    } else {
        const T* found = nullptr;
        for (;; ++text) {
            if (*text == ch) found = text;
            if (*text == 0) return found;
        }
    }
}

/// The first occurrence of needle in text, or null; an empty needle is found
/// at the start.
template <typename T>
inline const T* FindText(const T* text, const T* needle) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strstr(text, needle);
    } else {
        if (*needle == 0) return text;
        for (; (text = FindChar(text, *needle)) != nullptr; ++text) {
            const T* a = text;
            const T* b = needle;
            while (*b != 0 && *a == *b) ++a, ++b;
            if (*b == 0) return text;
        }
        return nullptr;
    }
}

/// The length of the leading run of text made of units in set (strspn).
template <typename T>
inline std::size_t SpanOf(const T* text, const T* set) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strspn(text, set);
    } else {
        const T* p = text;
        while (*p != 0 && FindChar(set, *p) != nullptr) ++p;
        return static_cast<std::size_t>(p - text);
    }
}

/// The length of the leading run of text made of units not in set (strcspn).
template <typename T>
inline std::size_t SpanNotOf(const T* text, const T* set) {
    if constexpr (std::is_same_v<T, char>) {
        return std::strcspn(text, set);
    } else {
        const T* p = text;
        while (*p != 0 && FindChar(set, *p) == nullptr) ++p;
        return static_cast<std::size_t>(p - text);
    }
}

/// The first unit of text that is in set, or null (strpbrk).
template <typename T>
inline const T* FindOneOf(const T* text, const T* set) {
    const T* p = text + SpanNotOf(text, set);
    return *p != 0 ? p : nullptr;
}

/// Maps text to lower case in place, up to its terminator.
template <typename T>
inline void MakeLower(T* text) {
    for (; *text != 0; ++text) *text = ToLower(*text);
}

/// Maps text to upper case in place, up to its terminator.
template <typename T>
inline void MakeUpper(T* text) {
    for (; *text != 0; ++text) *text = ToUpper(*text);
}

/// Reverses the units of text in place, up to its terminator.
template <typename T>
inline void Reverse(T* text) {
    T* last = text + Length(text);
    while (text + 1 < last) {
        --last;
        T ch = *text;
        *text++ = *last;
        *last = ch;
    }
}

/// True when each of the length bytes of text is ASCII (below 0x80); the
/// bytes are tested eight at a time.
inline bool IsAscii(const char* text, std::size_t length) {
    std::size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, text + i, 8);
        if ((word & 0x8080808080808080ull) != 0) return false;
    }
    unsigned char high = 0;
    for (; i < length; ++i) high |= static_cast<unsigned char>(text[i]);
    return high < 0x80;
}

}  // namespace zel_text::chars
