/// @file
/// Module identity. A module handle is the module's load address, as on
/// Windows; the null module is the running program.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

namespace zel_platform {
/// The handle of the zelutils library's own module (the program itself when
/// the library is linked statically).
ZEL_API HMODULE LibraryModule();
}  // namespace zel_platform
