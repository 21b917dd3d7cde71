/// @file
/// Calendar conversions of file times (100-nanosecond ticks since
/// 1601-01-01 UTC) under their Win32 names. Out-of-range input fails with
/// ERROR_INVALID_PARAMETER (87).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// Splits a file time into calendar fields (day of week included). Fails for
/// times of 0x8000000000000000 ticks and above.
ZEL_API BOOL FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
/// Joins calendar fields (years 1601 to 30827; the day of week is ignored)
/// into a file time. Fails for a field out of range, such as 30 February.
ZEL_API BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime);
}  // namespace zel_win32
using namespace zel_win32;
#endif
