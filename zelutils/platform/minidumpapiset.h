/// @file
/// The system dump of a crashing process. The platform's capture function
/// is looked up at run time (it may be missing) and writes one dump of the
/// calling thread's current fault (the one its guard is filtering, see
/// errhandlingapi.h) into a dump folder.
///
/// On Windows the dump is a minidump from MiniDumpWriteDump in dbghelp.dll,
/// "zelutils-<pid>-<tid>.dmp". On POSIX it is the library's own crash report,
/// captured in the fault handler and written by the capture function as
/// "zelutils-<pid>-<tid>.crash.txt": lines of text, "\n"-ended,
///
///     zelutils crash report 1
///     signal <number> <name>              e.g. "signal 11 SIGSEGV"
///     signal-code <si_code>
///     fault-address 0x<hex>
///     exception-code 0x<hex>              the Win32 code, e.g. 0xc0000005
///     process <pid>
///     thread <tid>
///     registers
///     <name> 0x<hex>                      one per register, e.g. "rip 0x..."
///     backtrace
///     frame 0x<hex>                       innermost first; the first is the
///                                         faulting instruction, the others
///                                         return addresses
///     memory-map
///     <the lines of /proc/self/maps>
///     memory-map-cut                      only when the map did not fit
///     end
///
/// `zelutil crash REPORT` prints its backtrace with function names and
/// source lines.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

namespace zel_platform {

/// Writes a dump of process processId's thread threadId, which must be the
/// calling thread inside a guard's filter, into the folder dumpDirectory
/// (created when missing; on POSIX for the user alone, as the report holds
/// the process's registers and memory map). FALSE and the last error when it cannot:
/// ERROR_INVALID_PARAMETER for another process or thread or outside a
/// filter, the file system's error otherwise. No file is left on failure.
using DumpCapture = BOOL (*)(DWORD processId, DWORD threadId, LPCWSTR dumpDirectory);

/// The platform's capture function, looked up at run time: null (last
/// error ERROR_PROC_NOT_FOUND or the loader's error) when the system has
/// none.
ZEL_API DumpCapture FindDumpCapture();

/// How long the system may go on writing a dump after the capture function
/// returns, in milliseconds: 0 where capture is synchronous (both
/// platforms' writers are).
constexpr DWORD kDumpSettleMilliseconds = 0;

}  // namespace zel_platform
