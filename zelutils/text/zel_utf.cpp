// Code-page conversions over the platform calls, and the library's own
// UTF-16/UTF-32 conversions.
#include "zelutils/text/zel_utf.h"

#include "zelutils/platform/stringapiset.h"

#include <algorithm>

namespace zel_text {

namespace {
constexpr char32_t kSurrogateFirst = 0xD800;
constexpr char32_t kLowSurrogateFirst = 0xDC00;
constexpr char32_t kSurrogateLast = 0xDFFF;
constexpr char32_t kLastCodePoint = 0x10FFFF;

bool IsSurrogate(char32_t unit) { return unit >= kSurrogateFirst && unit <= kSurrogateLast; }
bool IsHighSurrogate(char32_t unit) { return unit >= kSurrogateFirst && unit < kLowSurrogateFirst; }
bool IsLowSurrogate(char32_t unit) { return unit >= kLowSurrogateFirst && unit <= kSurrogateLast; }

// A conversion's result without a NUL written last, so that converting a
// text together with its terminator yields the length of the text.
template <typename T>
int WithoutConvertedTerminator(int written, const T* target) {
    return written >= 1 && target[written - 1] == 0 ? written - 1 : written;
}
}  // namespace

int MeasureNarrowToWide(const char* text, int byteCount, UINT codePage) {
    if (byteCount == 0) return 0;
    return MultiByteToWideChar(codePage, 0, text, byteCount, nullptr, 0);
}

int ConvertNarrowToWide(WCHAR* target, int capacity, const char* text, int byteCount,
                        UINT codePage) {
    int written = MultiByteToWideChar(codePage, 0, text, byteCount, target, capacity);
    return WithoutConvertedTerminator(written, target);
}

int MeasureWideToNarrow(const WCHAR* text, int unitCount, UINT codePage) {
    if (unitCount == 0) return 0;
    return WideCharToMultiByte(codePage, 0, text, unitCount, nullptr, 0, nullptr, nullptr);
}

int ConvertWideToNarrow(char* target, int capacity, const WCHAR* text, int unitCount,
                        UINT codePage) {
    int written =
        WideCharToMultiByte(codePage, 0, text, unitCount, target, capacity, nullptr, nullptr);
    return WithoutConvertedTerminator(written, target);
}

int WholeCharactersLength(const char* bytes, int count, UINT codePage) {
    if (codePage == CP_ACP) codePage = GetACP();
    if (codePage == CP_OEMCP) codePage = GetOEMCP();
    const auto* text = reinterpret_cast<const unsigned char*>(bytes);
    if (codePage == CP_UTF8) {
        // Looks back over at most three continuation bytes for their lead.
        for (int back = 1; back <= 3 && back <= count; ++back) {
            const unsigned char byte = text[count - back];
            if ((byte & 0xC0) == 0x80) continue;
            const int needed = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
            return needed > back ? count - back : count;
        }
        return count;
    }
    CPINFO info;
    if (!GetCPInfo(codePage, &info) || info.MaxCharSize == 1) return count;
    // Code pages with shift states (50220, 65000) cannot be cut: they convert in whole pieces.
    if (info.LeadByte[0] == 0 && codePage != 54936 && codePage != 51932 && codePage != 51949) return count;
    const auto isLead = [&info](unsigned char byte) { return zel_platform::IsLeadByteIn(info, byte); };
    // The length of the character that begins at text[at]; a trail byte may
    // look like a lead byte, so only a walk from the start tells them apart.
    const auto length = [&](int at) {
        const unsigned char byte = text[at];
        switch (codePage) {
            case 54936:  // GB18030: a digit second byte makes four bytes
                if (byte < 0x81 || byte == 0xFF) return 1;
                return at + 1 < count && text[at + 1] >= 0x30 && text[at + 1] <= 0x39 ? 4 : 2;
            case 51932:  // EUC-JP: SS3 starts three bytes
            case 51949:  // EUC-KR
                return byte < 0x80 ? 1 : byte == 0x8F ? 3 : 2;
            default: return isLead(byte) ? 2 : 1;
        }
    };
    int start = 0;
    while (start < count) {
        const int next = start + length(start);
        if (next > count) return start;
        start = next;
    }
    return count;
}

bool IsCodePageUsable(int codePage) {
    switch (codePage) {
        case CP_ACP:
        case CP_OEMCP:
        case CP_UTF8:
            return true;
        case 932: {
            CPINFO info;
            return GetCPInfo(932, &info) != FALSE;
        }
        default:
            return false;
    }
}

int Utf16CodePointCount(const WCHAR* units, int count) {
    // The rules are those of Utf16ToUtf32, except that after accepting a pair
    // the scan goes on at its low half, which then fails as a lone low
    // surrogate: every surrogate, paired or not, makes the count 0.
    if (units == nullptr || count <= 0) return 0;
    for (int i = 0; i < count; ++i) {
        if (IsSurrogate(units[i])) return 0;
    }
    return count;
}

int Utf16ToUtf32(char32_t* target, int capacity, const WCHAR* units, int count) {
    if (units == nullptr) return 0;
    int written = 0;
    for (int i = 0; i < count; ++i) {
        char32_t codePoint = units[i];
        if (IsSurrogate(codePoint)) {
            if (!IsHighSurrogate(codePoint) || i + 1 >= count || !IsLowSurrogate(units[i + 1])) {
                return 0;
            }
            codePoint = 0x10000 + ((codePoint - kSurrogateFirst) << 10) +
                        (units[++i] - kLowSurrogateFirst);
        }
        if (written >= capacity) return 0;
        target[written++] = codePoint;
    }
    return written;
}

int CodePointToUtf16(char32_t codePoint, WCHAR& first, WCHAR& second) {
    if (codePoint < kSurrogateFirst || (codePoint > kSurrogateLast && codePoint <= 0xFFFF)) {
        first = static_cast<WCHAR>(codePoint);
        return 1;
    }
    if (codePoint <= kSurrogateLast || codePoint > kLastCodePoint) return 0;
    first = static_cast<WCHAR>(((codePoint - 0x10000) >> 10) + kSurrogateFirst);
    second = static_cast<WCHAR>((codePoint & 0x3FF) + kLowSurrogateFirst);
    return 2;
}

int Utf32ToUtf16Length(const char32_t* codePoints, int count) {
    if (codePoints == nullptr) return 0;
    int units = 0;
    for (int i = 0; i < count; ++i) {
        WCHAR first;
        WCHAR second;
        int produced = CodePointToUtf16(codePoints[i], first, second);
        if (produced == 0) return 0;
        units += produced;
    }
    return units;
}

int Utf32ToUtf16(WCHAR* target, int capacity, const char32_t* codePoints, int count) {
    if (codePoints == nullptr) return 0;
    int written = 0;
    for (int i = 0; i < count; ++i) {
        WCHAR pair[2];
        int produced = CodePointToUtf16(codePoints[i], pair[0], pair[1]);
        if (produced == 0 || produced > capacity - written) return 0;
        std::copy_n(pair, produced, target + written);
        written += produced;
    }
    return written;
}

namespace detail {

namespace {
// Replaces target's text by count units of source converted with measure and
// convert; the empty string when there is nothing to convert or the
// conversion fails.
template <typename Target, typename Source, typename Measure, typename Convert>
void ConvertString(CZelStringT<Target>& target, const Source* source, int count, UINT codePage,
                   Measure measure, Convert convert) {
    target.Empty();
    if (source == nullptr || count <= 0) return;
    int needed = measure(source, count, codePage);
    if (needed <= 0) return;
    Target* buffer = target.GetBuffer(needed);
    // The buffer holds needed characters and a terminator.
    int converted = convert(buffer, needed + 1, source, count, codePage);
    target.ReleaseBuffer(std::max(converted, 0));
}
}  // namespace

void ConvertInto(CZelStringT<WCHAR>& target, const char* text, int count, UINT codePage) {
    ConvertString(target, text, count, codePage, MeasureNarrowToWide, ConvertNarrowToWide);
}

void ConvertInto(CZelStringT<char>& target, const WCHAR* text, int count, UINT codePage) {
    ConvertString(target, text, count, codePage, MeasureWideToNarrow, ConvertWideToNarrow);
}

}  // namespace detail

}  // namespace zel_text
