// The fault a thread's guard is reporting, shared by the guard and the dump
// writer of the same platform, and where dumps go (internal).
#pragma once

#include "zelutils/platform/errhandlingapi.h"

#include <string>

namespace zel_platform {

/// The fault the calling thread's innermost guard caught and is filtering
/// now; null outside a guard's filter.
EXCEPTION_POINTERS* CurrentFault();

/// The name of the folder in the temporary folder that takes the system
/// dumps unless the host names another (the DumpDirectory system value):
/// one per user, so that one user's dumps never land in another user's
/// reports and a folder another user made cannot stop the capture.
std::basic_string<WCHAR> DumpFolderName();

}  // namespace zel_platform
