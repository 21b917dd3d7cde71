// CloseHandle over the handle table.
#include "zelutils/platform/handleapi.h"

#include "zelutils/platform/posix/handle_table.h"
#include "zelutils/platform/processthreadsapi.h"

BOOL CloseHandle(HANDLE object) {
    // All ones is also the current process's pseudo-handle, which Windows
    // lets callers close to no effect: code that closes a failed
    // CreateFileW result unchecked succeeds there, and must here too.
    if (object == GetCurrentProcess()) return TRUE;
    return zel_platform::posix::RemoveObject(object) ? TRUE : FALSE;
}
