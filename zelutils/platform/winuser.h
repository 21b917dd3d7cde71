/// @file
/// String resources. On Windows LoadStringW reads a module's string table; on
/// POSIX the host registers string tables per module (RegisterStringTable)
/// and LoadStringW reads those.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// Copies string resource id of module into buffer (at most bufferMax - 1
/// units, always terminated) and returns the units copied; 0 when the string
/// does not exist. With bufferMax 0, stores a read-only pointer to the
/// resource text in *(LPCWSTR*)buffer and returns its length.
ZEL_API int LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int bufferMax);
#endif

namespace zel_platform {
/// One entry of a host-registered string table.
struct StringResource {
    UINT id;
    const WCHAR* text;
};

/// Registers (or replaces) the string table of module. The texts are copied.
/// Returns false on Windows, where modules carry their own resources.
ZEL_API bool RegisterStringTable(HMODULE module, const StringResource* entries, size_t count);
/// Removes the string table of module, if any.
ZEL_API void UnregisterStringTable(HMODULE module);
}  // namespace zel_platform
