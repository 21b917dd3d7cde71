// BSTR blocks: a 32-bit byte count, then the UTF-16 units and a NUL unit.
#include "zelutils/platform/oleauto.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {
constexpr std::size_t kPrefix = sizeof(std::uint32_t);
// Keeps the byte count and the terminator within the 32-bit prefix.
constexpr UINT kMaxLength = (0xFFFFFFFFu - kPrefix - sizeof(OLECHAR)) / sizeof(OLECHAR) / 2;

std::uint32_t* BlockOf(BSTR bstr) { return reinterpret_cast<std::uint32_t*>(bstr) - 1; }

BSTR Allocate(const OLECHAR* text, UINT length) {
    if (length > kMaxLength) return nullptr;
    std::size_t bytes = std::size_t{length} * sizeof(OLECHAR);
    auto* block = static_cast<std::uint32_t*>(std::malloc(kPrefix + bytes + sizeof(OLECHAR)));
    if (block == nullptr) return nullptr;
    *block = static_cast<std::uint32_t>(bytes);
    BSTR result = reinterpret_cast<BSTR>(block + 1);
    if (text != nullptr) std::memcpy(result, text, bytes);
    result[length] = 0;
    return result;
}
}  // namespace

BSTR zel_win32::SysAllocStringLen(const OLECHAR* text, UINT length) { return Allocate(text, length); }

BSTR zel_win32::SysAllocString(const OLECHAR* text) {
    if (text == nullptr) return nullptr;
    UINT length = 0;
    while (text[length] != 0) ++length;
    return Allocate(text, length);
}

INT zel_win32::SysReAllocStringLen(BSTR* bstr, const OLECHAR* text, UINT length) {
    if (bstr == nullptr) return FALSE;
    // A fresh block first: text may point into the old one.
    BSTR fresh = Allocate(text, length);
    if (fresh == nullptr) return FALSE;
    SysFreeString(*bstr);
    *bstr = fresh;
    return TRUE;
}

void zel_win32::SysFreeString(BSTR bstr) {
    if (bstr != nullptr) std::free(BlockOf(bstr));
}

UINT zel_win32::SysStringLen(BSTR bstr) {
    return bstr == nullptr ? 0 : *BlockOf(bstr) / sizeof(OLECHAR);
}
