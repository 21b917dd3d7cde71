// What the XML writer's output is checked against, by its tests and by its
// fuzz target. Header only: the fuzz targets do not link the test support
// library.
#pragma once

#include "zelutils/text/zel_utf.h"

#include <string>

namespace zel_test {

/// The bytes of one piece of the writer's output as the writer used to make
/// them: the piece built in UTF-16 and converted whole (ASCII as it is,
/// anything else by the codec).
inline std::string PieceBytes(const zel_text::CZelStringW& piece) {
    std::string bytes;
    for (int i = 0; i < piece.GetLength(); ++i) {
        if (piece.GetAt(i) >= 0x80) {
            zel_text::CZelStringUtf8 utf8(piece);
            return std::string(utf8.GetString(), static_cast<std::size_t>(utf8.GetLength()));
        }
        bytes += static_cast<char>(piece.GetAt(i));
    }
    return bytes;
}

}  // namespace zel_test
