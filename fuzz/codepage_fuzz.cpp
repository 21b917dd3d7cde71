// Fuzz target: the iconv-backed code pages 932 and 1252. The first byte
// picks the code page and a target size; the rest is text to decode, and,
// read as UTF-16 units, text to encode. The measure equals the conversion,
// decoded text encodes and decodes back to itself, and a target that is too
// small fails with 122 without a byte written past it or half a double-byte
// character at its end.
#include "zelutils/platform/win32.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using WString = std::basic_string<WCHAR>;

WString Decode(UINT codePage, const char* bytes, int size) {
    if (size == 0) return WString();
    int needed = MultiByteToWideChar(codePage, 0, bytes, size, nullptr, 0);
    if (needed <= 0) std::abort();
    WString wide(static_cast<std::size_t>(needed), 0);
    if (MultiByteToWideChar(codePage, 0, bytes, size, &wide[0], needed) != needed) std::abort();
    return wide;
}

std::string Encode(UINT codePage, const WString& wide, BOOL* usedDefault) {
    if (wide.empty()) return std::string();
    const int size = static_cast<int>(wide.size());
    int needed = WideCharToMultiByte(codePage, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) std::abort();
    std::string bytes(static_cast<std::size_t>(needed), 0);
    if (WideCharToMultiByte(codePage, 0, wide.data(), size, &bytes[0], needed, nullptr, usedDefault) != needed) {
        std::abort();
    }
    return bytes;
}

bool IsLead932(unsigned char byte) { return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC); }

// Converting into a target of capacity bytes gives either the whole text or
// error 122 with a prefix of whole characters and nothing past capacity.
void CheckShortTarget(UINT codePage, const WString& wide, const std::string& whole, int capacity) {
    if (wide.empty() || capacity <= 0) return;
    std::string target(static_cast<std::size_t>(capacity) + 8, '\x7F');
    SetLastError(0);
    int written = WideCharToMultiByte(codePage, 0, wide.data(), static_cast<int>(wide.size()), &target[0], capacity,
                                      nullptr, nullptr);
    if (target.compare(static_cast<std::size_t>(capacity), 8, std::string(8, '\x7F')) != 0) std::abort();
    if (written > 0) {
        if (target.compare(0, whole.size(), whole) != 0 || static_cast<std::size_t>(written) != whole.size()) std::abort();
        return;
    }
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || whole.size() <= static_cast<std::size_t>(capacity)) std::abort();
    if (codePage != 932) return;
    // What was stored is whole characters of the full text.
    std::size_t i = 0;
    while (i < static_cast<std::size_t>(capacity) && target[i] == whole[i]) {
        i += IsLead932(static_cast<unsigned char>(whole[i])) ? 2 : 1;
    }
    if (i > static_cast<std::size_t>(capacity)) std::abort();  // half a character at the end
    for (std::size_t j = i; j < static_cast<std::size_t>(capacity); ++j) {
        if (target[j] != '\x7F') std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > (1u << 16)) return 0;
    const UINT codePage = (data[0] & 1) != 0 ? 932 : 1252;
    const int capacity = data[0] >> 1;
    const char* text = reinterpret_cast<const char*>(data + 1);
    const int length = static_cast<int>(size - 1);

    const WString decoded = Decode(codePage, text, length);
    BOOL usedDefault = FALSE;
    const std::string encoded = Encode(codePage, decoded, &usedDefault);
    if (Decode(codePage, encoded.data(), static_cast<int>(encoded.size())) != decoded) std::abort();
    CheckShortTarget(codePage, decoded, encoded, capacity);

    WString units(static_cast<std::size_t>(length) / 2, 0);
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<WCHAR>(static_cast<std::uint8_t>(text[2 * i]) | static_cast<std::uint8_t>(text[2 * i + 1]) << 8);
    }
    const std::string narrow = Encode(codePage, units, &usedDefault);
    CheckShortTarget(codePage, units, narrow, capacity);
    return 0;
}
