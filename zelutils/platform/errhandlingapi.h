/// @file
/// The per-thread last-error value. Platform calls report failures as Win32
/// error numbers here; on POSIX, errno values are translated by one table
/// (ErrorFromErrno) so that every module sees the same numbers.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// The calling thread's last error number.
ZEL_API DWORD GetLastError();
/// Sets the calling thread's last error number.
ZEL_API void SetLastError(DWORD error);
#endif

namespace zel_platform {
/// The Win32 error number for a C library errno value (ENOENT -> 2,
/// ENOTDIR -> 3, EACCES/EPERM/EROFS/EISDIR -> 5, EBADF -> 6, ENOMEM -> 8,
/// EINVAL -> 87, EEXIST -> 80, ENOSPC/EDQUOT -> 112, ENAMETOOLONG -> 206, ...).
/// errno 0 gives 0; an errno without an entry gives ERROR_GEN_FAILURE (31).
ZEL_API DWORD ErrorFromErrno(int errnoValue);
/// SetLastError(ErrorFromErrno(errnoValue)).
ZEL_API void SetLastErrorFromErrno(int errnoValue);
}  // namespace zel_platform
