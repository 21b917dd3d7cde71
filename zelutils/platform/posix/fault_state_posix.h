// What the POSIX fault handler leaves for the guard and the dump writer
// (internal).
#pragma once

#include "zelutils/platform/fault_state.h"

#include <cstddef>

namespace zel_platform::posix {

/// The crash report text the fault handler wrote for the calling thread's
/// current fault (see minidumpapiset.h for its format); length 0 outside a
/// guard's filter.
struct FaultReport {
    const char* text;
    std::size_t length;
};
FaultReport CurrentFaultReport();

}  // namespace zel_platform::posix
