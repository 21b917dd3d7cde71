/// @file
/// Identity of the running process and thread, threads, and ending the
/// process at once. On POSIX thread ids are the kernel's (gettid), so they
/// match what debuggers and /proc show; threads are POSIX threads, each
/// given an alternate signal stack so that a guarded call on it can report
/// a stack overflow (see errhandlingapi.h).
#pragma once

#include "zelutils/platform/fileapi.h"
#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
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
/// ERROR_INVALID_HANDLE. A parent sees the low 8 bits of exitCode, except
/// that a non-zero code whose low 8 bits are 0 (such as 0xBADEE000, the end
/// of a crash report that faulted) ends the process with status 255: a
/// failure must never read as success.
ZEL_API BOOL TerminateProcess(HANDLE process, UINT exitCode);
}  // namespace zel_win32
using namespace zel_win32;
#endif

#ifndef _WIN32
/// CreateThread flag: the thread waits for ResumeThread before it runs.
#define CREATE_SUSPENDED 0x00000004
/// The exit code GetExitCodeThread reports while the thread runs.
#define STILL_ACTIVE 259

/// The body of a thread: takes CreateThread's parameter and returns the exit code.
typedef DWORD (*LPTHREAD_START_ROUTINE)(LPVOID parameter);

namespace zel_win32 {
struct _SECURITY_ATTRIBUTES;  // fileapi.h
/// Starts start(parameter) on a new thread and returns its handle (null and
/// the last error when the system refuses). stackSize 0 takes the system's
/// default; others are raised to the system's minimum. With CREATE_SUSPENDED
/// in creationFlags the body waits for ResumeThread. *threadId (when given)
/// receives the thread's id. The handle is signalled when the body returns;
/// the caller closes it. Security attributes are ignored.
ZEL_API HANDLE CreateThread(LPSECURITY_ATTRIBUTES securityAttributes, SIZE_T stackSize,
                            LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD creationFlags,
                            LPDWORD threadId);
/// Lets a thread created suspended run. Returns the previous suspend count
/// (1, then 0 for a running thread); (DWORD)-1 and ERROR_INVALID_HANDLE for
/// a handle that is not a thread.
ZEL_API DWORD ResumeThread(HANDLE thread);
/// Stores the body's result, or STILL_ACTIVE while it runs.
ZEL_API BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// Registers functions to run around fork, as pthread_atfork does: prepare
/// in the forking thread just before the fork, parent and child just after
/// it in each process (any may be null). For state that a lock guards: lock
/// in prepare, unlock in the parent, start afresh in the child, whose only
/// thread is the forking one. Windows has no fork: nothing is registered.
ZEL_API void RegisterForkHandlers(void (*prepare)(), void (*parent)(), void (*child)());

/// Gives the calling thread name (null or empty: nothing changes) for
/// debuggers and system tools: gdb's thread list and /proc/PID/task/*/comm
/// on Linux, which keeps 15 bytes of UTF-8 (a longer name is cut after the
/// last whole character that fits); the thread description on Windows 10
/// and later, where older systems keep no name.
ZEL_API void NameCurrentThread(LPCWSTR name);
}  // namespace zel_platform
