// Fuzz target: encoding detection reads no byte past the count it is given,
// names one of the four encodings, and agrees with the byte-order mark it
// reports.
#include "zelutils/text/zel_encoding.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // An exact copy, so that a read past the end is a heap overflow.
    std::vector<std::uint8_t> bytes(data, data + size);
    std::size_t bomLength = 99;
    const auto encoding = zel_text::DetectTextEncoding(bytes.data(), bytes.size(), &bomLength);
    if (static_cast<unsigned>(encoding) > 3) std::abort();
    std::size_t markLength = 99;
    const auto mark = zel_text::FindBom(bytes.data(), bytes.size(), &markLength);
    if (mark != zel_text::BomKind::None && (bomLength != markLength || markLength > zel_text::kMaxBomLength)) {
        std::abort();
    }
    if (zel_text::DetectTextEncoding(bytes.data(), bytes.size()) != encoding) std::abort();
    return 0;
}
