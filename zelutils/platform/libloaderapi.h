/// @file
/// Module identity and the library's unload. A module handle is the module's
/// load address, as on Windows; the null module is the running program.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// Copies the path of module (null: the program) into filename and returns
/// its length. When it does not fit, copies size - 1 units and a terminator,
/// returns size and sets ERROR_INSUFFICIENT_BUFFER (122). 0 with
/// ERROR_MOD_NOT_FOUND (126) when no module is loaded at that address.
ZEL_API DWORD GetModuleFileNameW(HMODULE module, LPWSTR filename, DWORD size);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// The handle of the zelutils library's own module (the program itself when
/// the library is linked statically).
ZEL_API HMODULE LibraryModule();

/// Registers handler to run once when the library unloads: at the DLL's
/// process detach on Windows (before the library's static objects are
/// destroyed); on POSIX, and where the library is linked statically, at
/// exit or unload before the destructors of static objects constructed
/// before the registration. Handlers run last registered first, on the
/// unloading thread, and must not load or free modules. Returns false,
/// registering nothing, for a null handler or when no more can be held (32
/// on Windows).
ZEL_API bool AtLibraryUnload(void (*handler)());
}  // namespace zel_platform
