// CloseHandle and DuplicateHandle over the handle table.
#include "zelutils/platform/handleapi.h"

#include "zelutils/platform/errhandlingapi.h"

#include "zelutils/platform/posix/handle_table.h"
#include "zelutils/platform/processthreadsapi.h"

BOOL zel_win32::CloseHandle(HANDLE object) {
    // All ones is also the current process's pseudo-handle, which Windows
    // lets callers close to no effect: code that closes a failed
    // CreateFileW result unchecked succeeds there, and must here too.
    if (object == GetCurrentProcess()) return TRUE;
    std::shared_ptr<zel_platform::posix::KernelObject> removed =
        zel_platform::posix::RemoveObject(object);
    if (!removed) return FALSE;
    // The last owner releases the object here, so that a failing close (a
    // delayed write error) reaches the caller. A duplicated handle, or a call
    // still using the object on another thread, leaves that to its last user.
    return removed.use_count() > 1 || removed->Release() ? TRUE : FALSE;
}

BOOL zel_win32::DuplicateHandle(HANDLE sourceProcess, HANDLE sourceHandle, HANDLE targetProcess,
                     LPHANDLE targetHandle, DWORD /*desiredAccess*/, BOOL /*inheritHandle*/,
                     DWORD options) {
    // Only the current process exists here, named by its pseudo handle.
    if (sourceProcess != INVALID_HANDLE_VALUE || targetProcess != INVALID_HANDLE_VALUE) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (targetHandle == nullptr || (options & DUPLICATE_SAME_ACCESS) == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Both handles name one object, as on Windows: a file's pointer, access
    // and delete-on-close state are shared, and it closes with its last handle.
    std::shared_ptr<zel_platform::posix::KernelObject> object =
        (options & DUPLICATE_CLOSE_SOURCE) != 0 ? zel_platform::posix::RemoveObject(sourceHandle)
                                                : zel_platform::posix::FindAnyObject(sourceHandle);
    if (!object) return FALSE;
    HANDLE duplicate = zel_platform::posix::InsertObject(std::move(object));
    if (duplicate == nullptr) return FALSE;
    *targetHandle = duplicate;
    return TRUE;
}
