// CloseHandle over the handle table.
#include "zelutils/platform/handleapi.h"

#include "zelutils/platform/posix/handle_table.h"

BOOL CloseHandle(HANDLE object) {
    return zel_platform::posix::RemoveObject(object) ? TRUE : FALSE;
}
