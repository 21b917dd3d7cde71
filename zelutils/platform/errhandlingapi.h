/// @file
/// The per-thread last-error value, and structured exceptions. Platform calls
/// report failures as Win32 error numbers here; on POSIX, errno values are
/// translated by one table (ErrorFromErrno) so that every module sees the
/// same numbers.
///
/// Structured exceptions (faults such as an access violation or a stack
/// overflow) are caught by a guarded call, zel_platform::RunGuarded. On
/// Windows a vectored handler takes the fault on a thread inside a guard;
/// on POSIX signal handlers for SIGSEGV, SIGBUS, SIGFPE and SIGILL run on an
/// alternate signal stack and translate the signal to its Win32 code
/// (0xC0000005 access violation, 0xC00000FD stack overflow, found from the
/// fault address against the thread's stack, 0xC0000094 integer division by
/// zero, 0xC000001D illegal instruction). Either way the handler only
/// records the fault and jumps back into the guard, and the guard's filter
/// runs on the thread's normal stack, where it may allocate, lock and write
/// files. Faults outside any guard are left alone: the process dies as it
/// would without the library.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// @name Exception codes
//@{
/// A Win32 code of a structured exception. Access violation, page-in error,
/// illegal instruction, floating-point faults (divide by zero, invalid
/// operation, overflow, stack check), integer divide by zero and overflow,
/// privileged instruction, stack overflow.
#define EXCEPTION_ACCESS_VIOLATION 0xC0000005u
#define EXCEPTION_IN_PAGE_ERROR 0xC0000006u
#define EXCEPTION_ILLEGAL_INSTRUCTION 0xC000001Du
#define EXCEPTION_FLT_DIVIDE_BY_ZERO 0xC000008Eu
#define EXCEPTION_FLT_INVALID_OPERATION 0xC0000090u
#define EXCEPTION_FLT_OVERFLOW 0xC0000091u
#define EXCEPTION_FLT_STACK_CHECK 0xC0000092u
#define EXCEPTION_INT_DIVIDE_BY_ZERO 0xC0000094u
#define EXCEPTION_INT_OVERFLOW 0xC0000095u
#define EXCEPTION_PRIV_INSTRUCTION 0xC0000096u
#define EXCEPTION_STACK_OVERFLOW 0xC00000FDu
//@}
/// Capacity of EXCEPTION_RECORD::ExceptionInformation.
#define EXCEPTION_MAXIMUM_PARAMETERS 15
/// @name Filter results
//@{
/// What an exception filter decides. Run the guard's handler, or let the
/// fault go on as if unguarded.
#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_SEARCH 0
//@}

/// What a fault was: the Win32 code, where it happened and, for an access
/// violation, {0 read / 1 write / 8 execute, the address touched}.
typedef struct _EXCEPTION_RECORD {
    ///@{
    /// The exception code, its flags, a chained record (null here), the address
    /// of the faulting instruction, how many ExceptionInformation words are used,
    /// and those words.
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    struct _EXCEPTION_RECORD* ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
    ///@}
} EXCEPTION_RECORD, *PEXCEPTION_RECORD;
/// @typedef EXCEPTION_RECORD
/// See _EXCEPTION_RECORD.
/// @typedef PEXCEPTION_RECORD
/// Pointer to an EXCEPTION_RECORD.

/// The processor state at the fault; its layout is the platform's own.
/// @typedef PCONTEXT
/// Pointer to a CONTEXT.
typedef struct _CONTEXT CONTEXT, *PCONTEXT;

/// What a filter receives about a fault: its record and the processor state.
typedef struct _EXCEPTION_POINTERS {
    ///@{
    /// The fault's record and the processor state at the fault.
    PEXCEPTION_RECORD ExceptionRecord;
    PCONTEXT ContextRecord;
    ///@}
} EXCEPTION_POINTERS, *PEXCEPTION_POINTERS;
/// @typedef EXCEPTION_POINTERS
/// See _EXCEPTION_POINTERS.
/// @typedef PEXCEPTION_POINTERS
/// Pointer to an EXCEPTION_POINTERS.

/// The calling thread's last error number.
ZEL_API DWORD GetLastError();
/// Sets the calling thread's last error number.
ZEL_API void SetLastError(DWORD error);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// The Win32 error number for a C library errno value (ENOENT -> 2,
/// ENOTDIR -> 3, EACCES/EPERM/EROFS/EISDIR -> 5, EBADF -> 6, ENOMEM -> 8,
/// EINVAL -> 87, EEXIST -> 80, ENOSPC/EDQUOT -> 112, ENAMETOOLONG -> 206, ...).
/// errno 0 gives 0; an errno without an entry gives ERROR_GEN_FAILURE (31).
ZEL_API DWORD ErrorFromErrno(int errnoValue);
/// SetLastError(ErrorFromErrno(errnoValue)).
ZEL_API void SetLastErrorFromErrno(int errnoValue);

/// Keeps the calling thread's last error across clean-up after a failure:
/// the error in force when the guard is made is put back when it goes, so
/// that closing or deleting what the failed step left cannot overwrite the
/// reason it failed.
class LastErrorGuard {
public:
    LastErrorGuard() : error_(GetLastError()) {}
    ~LastErrorGuard() { SetLastError(error_); }
    LastErrorGuard(const LastErrorGuard&) = delete;
    LastErrorGuard& operator=(const LastErrorGuard&) = delete;

private:
    DWORD error_;
};

/// Decides about a fault caught by RunGuarded: EXCEPTION_EXECUTE_HANDLER
/// (the guarded call returns FALSE) or EXCEPTION_CONTINUE_SEARCH (the fault
/// goes on as if no guard were there). context is RunGuarded's filterContext.
using GuardFilter = LONG (*)(EXCEPTION_POINTERS* fault, void* context);

/// Runs *result = function(argument) on the calling thread under a guard.
/// TRUE when function returned. When a fault escapes it, filter runs on
/// the thread's own stack (below the guard, with the guard still in force,
/// so a fault inside the filter reaches the filter again); it decides:
/// EXCEPTION_EXECUTE_HANDLER makes RunGuarded return FALSE (*result
/// untouched); anything else ends the process as the fault would have
/// without the guard: on POSIX by the original signal with its default
/// action (a parent sees the signal, never a success status); on Windows
/// with the exception code as exit code. Guards nest: the innermost one
/// gets the fault. Only faults of the calling thread reach its guard.
ZEL_API BOOL RunGuarded(DWORD (*function)(void* argument), void* argument, GuardFilter filter,
                        void* filterContext, DWORD* result);

/// Readies the calling thread for guarded calls (on POSIX: the alternate
/// signal stack, kept until the thread ends, and the fault handlers). The
/// threads the library starts and RunGuarded call it themselves; calling it
/// again does nothing. False when the system refuses the stack memory.
ZEL_API bool PrepareThreadForFaults();
}  // namespace zel_platform
