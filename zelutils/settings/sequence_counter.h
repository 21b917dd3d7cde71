/// @file
/// Numbered file names that survive restarts and wrap around: each call
/// hands out the next name of a series (1, 2, ..., limit, 1, ...) and
/// remembers the number in a small side file, "<base name>.seq.ini" in the
/// series' folder, whose whole content is the number as decimal text.
/// The number is replaced whole (a temporary file renamed over the counter),
/// so readers never see a half-written one. Nothing is reported: a counter
/// file that cannot be read counts as 0; one that cannot be written keeps
/// its number and still yields a name, the same again next time. Not locked:
/// two processes advancing the same series at once may receive the same
/// number.
#pragma once

#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>

namespace zel_settings {

/// A series of numbered file names: `folder/<baseName><number><extension>`.
struct SequenceCounter {
    zel_text::CZelStringW folder;     ///< the directory of the series, no trailing separator
    zel_text::CZelStringW baseName;   ///< the first part of every name
    zel_text::CZelStringW extension;  ///< appended after the number, "." included if wanted
    std::uint32_t limit = 0;          ///< the largest number handed out (0 always gives 1)
};

/// Advances the series and returns "%ls/%ls%u%ls" of folder, base name, the
/// new number and extension.
ZEL_API zel_text::CZelStringW NextSequenceFileName(const SequenceCounter& counter);

}  // namespace zel_settings
