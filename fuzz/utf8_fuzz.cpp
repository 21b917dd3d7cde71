// Fuzz target: the UTF-8 codec. Any bytes decode to what a plain,
// byte-at-a-time decoder following the Windows replacement rules gives, the
// measure equals the conversion, and the decoded text survives encoding and
// decoding again unchanged. The same bytes, read as UTF-16 units, encode to
// UTF-8 that decodes back to the units with lone surrogates replaced. Every
// path of the codec the processor runs is checked.
#include "zelutils/platform/win32.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using WString = std::basic_string<WCHAR>;
constexpr WCHAR kReplacement = 0xFFFD;

bool IsContinuation(std::uint8_t byte) { return (byte & 0xC0) == 0x80; }

// The reference: one U+FFFD for a lead byte with an out-of-range second
// continuation byte (both consumed), otherwise one per maximal ill-formed
// subpart.
WString ReferenceDecode(const std::uint8_t* s, std::size_t n) {
    WString out;
    std::size_t i = 0;
    while (i < n) {
        const std::uint8_t lead = s[i];
        if (lead < 0x80) {
            out += lead;
            ++i;
            continue;
        }
        std::size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
        if (length == 0 || i + 1 >= n || !IsContinuation(s[i + 1])) {
            out += kReplacement;
            ++i;
            continue;
        }
        std::uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        std::uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (s[i + 1] < low || s[i + 1] > high) {
            out += kReplacement;
            i += 2;
            continue;
        }
        std::size_t k = 2;
        while (k < length && i + k < n && IsContinuation(s[i + k])) ++k;
        if (k < length) {
            out += kReplacement;
            i += k;
            continue;
        }
        char32_t code = lead & (length == 2 ? 0x1F : length == 3 ? 0x0F : 0x07);
        for (k = 1; k < length; ++k) code = (code << 6) | (s[i + k] & 0x3F);
        if (code < 0x10000) {
            out += static_cast<WCHAR>(code);
        } else {
            out += static_cast<WCHAR>(0xD7C0 + (code >> 10));
            out += static_cast<WCHAR>(0xDC00 | (code & 0x3FF));
        }
        i += length;
    }
    return out;
}

WString Decode(const char* bytes, int size) {
    if (size == 0) return WString();
    int needed = MultiByteToWideChar(CP_UTF8, 0, bytes, size, nullptr, 0);
    if (needed <= 0) std::abort();
    WString wide(static_cast<std::size_t>(needed) + 1, 0x5A5A);
    if (MultiByteToWideChar(CP_UTF8, 0, bytes, size, &wide[0], needed) != needed) std::abort();
    if (wide[static_cast<std::size_t>(needed)] != 0x5A5A) std::abort();  // nothing written past the end
    wide.resize(static_cast<std::size_t>(needed));
    return wide;
}

std::string Encode(const WString& wide) {
    if (wide.empty()) return std::string();
    const int size = static_cast<int>(wide.size());
    int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) std::abort();
    std::string bytes(static_cast<std::size_t>(needed) + 1, 'Z');
    if (WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, &bytes[0], needed, nullptr, nullptr) != needed) {
        std::abort();
    }
    if (bytes[static_cast<std::size_t>(needed)] != 'Z') std::abort();
    bytes.resize(static_cast<std::size_t>(needed));
    return bytes;
}

void Check(const std::uint8_t* data, std::size_t size) {
    const int length = static_cast<int>(size);
    const WString decoded = Decode(reinterpret_cast<const char*>(data), length);
    if (decoded != ReferenceDecode(data, size)) std::abort();
    if (Decode(Encode(decoded).data(), static_cast<int>(Encode(decoded).size())) != decoded) std::abort();

    WString units(size / 2, 0);
    for (std::size_t i = 0; i < units.size(); ++i) units[i] = static_cast<WCHAR>(data[2 * i] | data[2 * i + 1] << 8);
    WString expected = units;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const bool high = expected[i] >= 0xD800 && expected[i] <= 0xDBFF;
        const bool low = expected[i] >= 0xDC00 && expected[i] <= 0xDFFF;
        if (high && i + 1 < expected.size() && expected[i + 1] >= 0xDC00 && expected[i + 1] <= 0xDFFF) {
            ++i;
        } else if (high || low) {
            expected[i] = kReplacement;
        }
    }
    const std::string encoded = Encode(units);
    if (Decode(encoded.data(), static_cast<int>(encoded.size())) != expected) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > (1u << 20)) return 0;
    using zel_platform::Utf8CodecPath;
    for (Utf8CodecPath path : {Utf8CodecPath::kPlain, Utf8CodecPath::kSse41, Utf8CodecPath::kAvx2}) {
        if (zel_platform::SetUtf8CodecPath(path)) Check(data, size);
    }
    return 0;
}
