/// @file
/// Closing and duplicating handles. On POSIX every handle is an entry in one
/// process-wide table (files, find searches, threads, ...): 0 and
/// INVALID_HANDLE_VALUE are never valid, and a stale or closed handle fails
/// with ERROR_INVALID_HANDLE (6) instead of reaching another object.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// @name DuplicateHandle options
//@{
/// Close the source handle; give the new handle the source's access rights.
#define DUPLICATE_CLOSE_SOURCE 0x00000001
#define DUPLICATE_SAME_ACCESS 0x00000002
//@}

/// Closes any handle of the table. FALSE and error 6 for a handle that is not
/// live; TRUE, doing nothing, for INVALID_HANDLE_VALUE, which is also the
/// current process's pseudo-handle.
ZEL_API BOOL CloseHandle(HANDLE object);
/// Makes a second handle to the same object (sharing, for a file, the file
/// pointer). On POSIX both processes must be GetCurrentProcess() (else 6) and
/// options must hold DUPLICATE_SAME_ACCESS (else 87); DUPLICATE_CLOSE_SOURCE
/// closes the source handle. The object lives until its last handle is closed.
ZEL_API BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE sourceHandle, HANDLE targetProcess,
                             LPHANDLE targetHandle, DWORD desiredAccess, BOOL inheritHandle,
                             DWORD options);
}  // namespace zel_win32
using namespace zel_win32;
#endif
