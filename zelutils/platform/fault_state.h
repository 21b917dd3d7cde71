// The fault a thread's guard is reporting, shared by the guard and the dump
// writer of the same platform (internal).
#pragma once

#include "zelutils/platform/errhandlingapi.h"

namespace zel_platform {

/// The fault the calling thread's innermost guard caught and is filtering
/// now; null outside a guard's filter.
EXCEPTION_POINTERS* CurrentFault();

}  // namespace zel_platform
