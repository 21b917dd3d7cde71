/// @file
/// Identity of the running process and thread, and ending the process at
/// once. On POSIX thread ids are the kernel's (gettid), so they match what
/// debuggers and /proc show.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// The calling thread's id: different for every live thread of the system,
/// the same for the whole life of the thread.
ZEL_API DWORD GetCurrentThreadId();
/// The process id.
ZEL_API DWORD GetCurrentProcessId();
/// The pseudo-handle that stands for the current process in the calls that
/// take a process, (HANDLE)-1. As on Windows, it has the same value as
/// INVALID_HANDLE_VALUE and needs no closing.
ZEL_API HANDLE GetCurrentProcess();
/// Ends the process named by process immediately with exitCode: no exit
/// handlers, no static destructors, no stdio flush. Only the current
/// process can be named here; any other handle fails with
/// ERROR_INVALID_HANDLE. A parent sees the low 8 bits of exitCode.
ZEL_API BOOL TerminateProcess(HANDLE process, UINT exitCode);
#endif
