// The errno translation table, the same on every platform: the POSIX layer
// reports every failed system call through it, and on Windows the C
// runtime's errno values (from stdio, <filesystem> or the CRT's file calls)
// reach the library's callers as the same Win32 numbers.
#include "zelutils/platform/errhandlingapi.h"

#include <cerrno>

namespace {

struct ErrnoEntry {
    int errnoValue;
    DWORD win32Error;
};

// The one place where errno becomes a Win32 error number. The choices follow
// what Windows reports for the same situation: opening a folder as a file is
// "access denied", a full disk or quota is "disk full", a file over the size
// limit is "file too large".
constexpr ErrnoEntry kErrnoTable[] = {
    {EPERM, ERROR_ACCESS_DENIED},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {EINTR, ERROR_OPERATION_ABORTED},
    {EIO, ERROR_IO_DEVICE},
    {ENXIO, ERROR_FILE_NOT_FOUND},
    {EBADF, ERROR_INVALID_HANDLE},
    {EAGAIN, ERROR_NOT_READY},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EACCES, ERROR_ACCESS_DENIED},
    {EFAULT, ERROR_INVALID_PARAMETER},
    {EBUSY, ERROR_BUSY},
    {EEXIST, ERROR_FILE_EXISTS},
    {EXDEV, ERROR_NOT_SAME_DEVICE},
    {ENODEV, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EISDIR, ERROR_ACCESS_DENIED},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {EFBIG, ERROR_FILE_TOO_LARGE},
    {ENOSPC, ERROR_DISK_FULL},
    {ESPIPE, ERROR_SEEK},
    {EROFS, ERROR_ACCESS_DENIED},
    {EPIPE, ERROR_BROKEN_PIPE},
    {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    {ENOSYS, ERROR_NOT_SUPPORTED},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {ELOOP, ERROR_CANT_RESOLVE_FILENAME},
    {EOVERFLOW, ERROR_FILE_TOO_LARGE},
    {ENOTSUP, ERROR_NOT_SUPPORTED},
#ifdef EDQUOT  // the Windows C runtime has no quotas
    {EDQUOT, ERROR_DISK_FULL},
#endif
    {ETIMEDOUT, ERROR_TIMEOUT},
    {EILSEQ, ERROR_NO_UNICODE_TRANSLATION},
};

}  // namespace

namespace zel_platform {

DWORD ErrorFromErrno(int errnoValue) {
    if (errnoValue == 0) return ERROR_SUCCESS;
    for (const ErrnoEntry& entry : kErrnoTable) {
        if (entry.errnoValue == errnoValue) return entry.win32Error;
    }
    return ERROR_GEN_FAILURE;
}

void SetLastErrorFromErrno(int errnoValue) { SetLastError(ErrorFromErrno(errnoValue)); }

}  // namespace zel_platform
