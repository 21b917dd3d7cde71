/// @file
/// System clock and information under their Win32 names.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// The current UTC time as a file time (100-nanosecond ticks since 1601).
ZEL_API void GetSystemTimeAsFileTime(LPFILETIME systemTimeAsFileTime);
#endif
