/// @file
/// Clocks and memory figures under their Win32 names: the millisecond tick
/// count, the UTC clock, and the machine's memory status. On POSIX the tick
/// count is CLOCK_MONOTONIC and the UTC clock CLOCK_REALTIME; none of these
/// calls fails.
///
/// The library's own modules read the tick count through
/// zel_platform::TickCount, which tests can point at a source of their own
/// (the real GetTickCount cannot be replaced on Windows).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// Memory figures of the machine and the process, in bytes. SIZE_T is as
/// wide as a pointer, so a 64-bit process sees the full figures, as 64-bit
/// Windows reports them.
typedef struct _MEMORYSTATUS {
    DWORD dwLength;         ///< sizeof(MEMORYSTATUS), set by the call
    DWORD dwMemoryLoad;     ///< percentage of physical memory in use
    SIZE_T dwTotalPhys;     ///< physical memory
    SIZE_T dwAvailPhys;     ///< physical memory available without swapping
    SIZE_T dwTotalPageFile; ///< commit limit: physical memory plus swap
    SIZE_T dwAvailPageFile; ///< what of the commit limit is available
    SIZE_T dwTotalVirtual;  ///< the process's address space
    SIZE_T dwAvailVirtual;  ///< what of it is not mapped
} MEMORYSTATUS, *LPMEMORYSTATUS;
/// @typedef MEMORYSTATUS
/// See _MEMORYSTATUS.
/// @typedef LPMEMORYSTATUS
/// Pointer to a MEMORYSTATUS.

/// Milliseconds since an arbitrary start (boot on Windows), wrapping to 0
/// after 2^32 - 1; compare two values by unsigned difference.
ZEL_API DWORD GetTickCount();
/// The current UTC time in 100-ns units since 1601-01-01.
ZEL_API void GetSystemTimeAsFileTime(LPFILETIME systemTimeAsFileTime);
/// The current UTC time as calendar fields (wDayOfWeek 0 = Sunday).
ZEL_API void GetSystemTime(LPSYSTEMTIME systemTime);
/// Fills *buffer (dwLength included) with the current memory figures.
ZEL_API void GlobalMemoryStatus(LPMEMORYSTATUS buffer);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// A replacement for the tick count, e.g. a test clock.
using TickSource = DWORD (*)();

/// Makes TickCount read source; null restores GetTickCount. Returns the
/// source that was in force (null for GetTickCount). Process-wide.
ZEL_API TickSource SetTickSource(TickSource source);
/// The tick count the library's modules use: the installed source, else
/// GetTickCount(). Safe to call from any thread.
ZEL_API DWORD TickCount();
}  // namespace zel_platform
