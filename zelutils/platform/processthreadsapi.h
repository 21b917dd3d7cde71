/// @file
/// Processes and threads under their Win32 names.
#pragma once

#include "zelutils/platform/windef.h"

#ifndef _WIN32
/// The pseudo handle that stands for the current process wherever a process
/// handle is taken (all ones, as on Windows). It needs no closing.
inline HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
#endif
