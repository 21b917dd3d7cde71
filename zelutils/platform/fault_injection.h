/// @file
/// Test hooks into the system calls of the POSIX emulation. Every call the
/// emulation makes to the operating system passes one table, where a test
/// can make the Nth call of a kind fail with a chosen errno, make a write
/// short, or count calls, without preloading anything. Faults are process
/// wide and meant for single-threaded tests. On Windows, where the real API
/// is in force, the hooks do nothing and report false.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <cstddef>

namespace zel_platform {

/// The kinds of system call the emulation makes.
enum class SystemCall {
    Open,             ///< open: CreateFileW, GetTempFileNameW
    Close,            ///< close, when the last handle to a file goes
    Read,             ///< read
    Write,            ///< write
    Seek,             ///< lseek
    Truncate,         ///< ftruncate: SetEndOfFile
    Sync,             ///< fsync: FlushFileBuffers
    Stat,             ///< statx of a handle or a path
    SetTimes,         ///< futimens: SetFileTime
    Rename,           ///< rename: MoveFileW, MoveFileExW
    Unlink,           ///< unlink: DeleteFileW, delete-on-close
    MakeDirectory,    ///< mkdir: CreateDirectoryW
    RemoveDirectory,  ///< rmdir: RemoveDirectoryW
    OpenDirectory,    ///< opendir: FindFirstFileW
    ReadDirectory,    ///< readdir: FindFirstFileW, FindNextFileW
    CloseDirectory,   ///< closedir: FindClose
    ReadLink,         ///< readlink: ResolveSymbolicLinks
    ChangeMode,       ///< fchmod, fchmodat: CopyFileAccess, SetFileAttributesW
    ChangeOwner,      ///< fchown: CopyFileAccess
    Lock,             ///< flock: LockFileEx, UnlockFileEx
};

/// Makes the nth call of the kind from now on (1: the next one) fail with
/// errnoValue without reaching the system. One such fault per kind; a new one
/// replaces the old. Interrupted calls (EINTR) are retried by the emulation,
/// so failing one with EINTR shows up only in the count.
ZEL_API bool FailSystemCall(SystemCall call, unsigned nth, int errnoValue);
/// Makes the nth write from now on transfer at most `bytes` bytes and report
/// that count. With errnoValue other than 0 the write after it fails with
/// errnoValue (a disk that fills after `bytes` bytes); with `bytes` 0 the nth
/// write itself fails.
ZEL_API bool ShortenWrite(unsigned nth, std::size_t bytes, int errnoValue);
/// The calls of the kind made (or failed by a fault) since the last reset.
ZEL_API unsigned long SystemCallCount(SystemCall call);
/// Clears every armed fault and every count.
ZEL_API void ResetSystemCalls();

/// Limits the size of the files this process writes (RLIMIT_FSIZE) and
/// ignores SIGXFSZ, so a write past the limit fails with
/// ERROR_FILE_TOO_LARGE instead of ending the process. The first call saves
/// the previous limit and signal action for RestoreFileSizeLimit.
ZEL_API bool SetFileSizeLimit(ULONGLONG bytes);
/// Puts back the limit and the SIGXFSZ action saved by SetFileSizeLimit.
ZEL_API void RestoreFileSizeLimit();

}  // namespace zel_platform
