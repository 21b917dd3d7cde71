/// @file
/// Waiting for an object to be signalled, and sleeping. On POSIX the objects
/// that can be waited for are threads (signalled when their body returns).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// No time limit for a wait.
#define INFINITE 0xFFFFFFFF
/// @name Wait results
//@{
/// What WaitForSingleObject returns: the object is signalled; the time ran
/// out; the wait failed (see the last error).
#define WAIT_OBJECT_0 0x00000000L
#define WAIT_TIMEOUT 0x00000102L
#define WAIT_FAILED ((DWORD)0xFFFFFFFF)
//@}

namespace zel_win32 {
/// Waits up to milliseconds (INFINITE: without limit) for object to be
/// signalled: WAIT_OBJECT_0 when it is, WAIT_TIMEOUT when the time ran out,
/// WAIT_FAILED and ERROR_INVALID_HANDLE for a handle that cannot be waited
/// for (including the pseudo-handles -1 and -2).
ZEL_API DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
/// Suspends the calling thread for at least milliseconds (INFINITE: for
/// ever); 0 gives up the rest of the time slice.
ZEL_API void Sleep(DWORD milliseconds);
}  // namespace zel_win32
using namespace zel_win32;
#endif
