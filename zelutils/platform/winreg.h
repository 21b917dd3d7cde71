/// @file
/// The few system settings the library reads, by key path and value name,
/// as the registry under HKEY_LOCAL_MACHINE held them on the devices the
/// library was born on. Here they are an in-process store the host fills
/// (and tests change); the platform puts in the defaults below, so nothing
/// needs configuring:
///
///     System\ErrorReporting\DumpSettings  DumpDirectory
///         where the system dump goes: "zelutils-dumps" in the temporary
///         folder, "zelutils-dumps-<user id>" on POSIX, whose temporary
///         folder all users share.
///
/// Keys and names are compared exactly. Safe to use from any thread.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

namespace zel_platform {

/// Copies the value and a terminator to buffer and returns its length;
/// when buffer (size units) has no room for both, writes nothing and
/// returns the length plus one. 0 and ERROR_FILE_NOT_FOUND when there is no
/// such value, ERROR_INVALID_PARAMETER for a null key or name.
ZEL_API DWORD ReadSystemValue(LPCWSTR key, LPCWSTR name, LPWSTR buffer, DWORD size);

/// Stores value (copied) under key and name; a null value deletes it.
/// False with ERROR_INVALID_PARAMETER for a null key or name.
ZEL_API bool WriteSystemValue(LPCWSTR key, LPCWSTR name, LPCWSTR value);

}  // namespace zel_platform
