/// @file
/// The crash guard: a fault (access violation, stack overflow, division by
/// zero, ...) that escapes a guarded call is written to the log, the log is
/// pushed to disk, the system takes a dump of the process, and dump and log
/// copy are filed together in one of ten numbered slots,
/// "<log folder>/SupportInfo/Dumps/0" to ".../9", used in turn; "dumps.ini"
/// there (section "Settings", key "LastDumpIndex") names the slot used last.
///
/// Reports are serialised process-wide: a thread that faults while another
/// reports waits for its turn and then reports into the next slot. A report
/// holds the log's lock throughout (zel_core::LogLock, taken before the
/// report's own), so lines that other threads log meanwhile wait for it,
/// and a thread that faults inside a log line reports in its turn. A fault
/// on the reporting thread itself, inside the report, ends the process at
/// once with TerminateProcess(0xBADEE000); a POSIX exit status keeps 8 bits,
/// so there the parent sees status 255, never a status that reads as
/// success. Every failing step of a report is logged with an "APPCRASH: "
/// line; nothing throws.
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/zel_api.h"

namespace zel_core {

/// The exit code of a process that faulted inside its own crash report.
constexpr UINT kFaultInsideReportExitCode = 0xBADEE000u;

/// Where a report is filed: mode 0 lets the guard handle the fault
/// (EXCEPTION_EXECUTE_HANDLER), mode 1 only reports it and passes it on
/// (EXCEPTION_CONTINUE_SEARCH), so the process ends as it would unguarded.
enum CrashMode : int { kCrashHandle = 0, kCrashReportOnly = 1 };

/// The crash filter. Breaks into an attached debugger; logs
/// "STACKOVERFLOW at %s@%d" for a stack overflow; reports the fault
/// ("APPCRASH (%X in THR#%X) at %s@%d", the free memory, the dump and the
/// log copy in the next slot) unless this thread is already reporting, in
/// which case the process ends at once (see above). Returns
/// EXCEPTION_CONTINUE_SEARCH for a stack fault, a null fault or mode 1,
/// otherwise EXCEPTION_EXECUTE_HANDLER.
ZEL_API LONG reportCrash(EXCEPTION_POINTERS* fault, const char* sourceFile, int sourceLine, int mode);

/// Runs *result = function(argument) under the crash guard, reporting a
/// fault with sourceFile and sourceLine as its position. True when function
/// returned; false when a fault was reported and handled (*result then
/// holds the fault's exception code), after letting go of the holds on the
/// log's lock that the abandoned frames had (a fault inside a log line). A
/// fault the filter passes on ends the process by the fault itself.
ZEL_API bool guardedCall(const char* sourceFile, int sourceLine, DWORD (*function)(void* argument), void* argument,
                         DWORD* result, int mode = kCrashHandle);

/// Whether a crash report is being written by any thread right now.
ZEL_API bool isHandlingCrash();

}  // namespace zel_core

namespace zel {

/// A host's hook into crash reports: handleCrash runs on the faulting
/// thread at the end of each report, inside it (a fault there ends the
/// process as any fault inside the report does). It runs under the log's
/// lock: it may log, but must not wait for another thread that logs.
class ZEL_API IZelCrashHandler {
public:
    virtual ~IZelCrashHandler();
    /// Called with the fault's exception code after the dump is filed.
    virtual void handleCrash(DWORD code) = 0;
};

/// The library's own handler: logs "handleCrash: code %d".
class ZEL_API ZelCrashHandlerImpl : public IZelCrashHandler {
public:
    void handleCrash(DWORD code) override;
};

/// Registers handler for every later report (null: none, the default) and
/// returns the one registered before. The caller keeps ownership and keeps
/// the handler alive while it is registered.
ZEL_API IZelCrashHandler* SetCrashHandler(IZelCrashHandler* handler);
/// The registered handler, or null.
ZEL_API IZelCrashHandler* GetCrashHandler();

}  // namespace zel
