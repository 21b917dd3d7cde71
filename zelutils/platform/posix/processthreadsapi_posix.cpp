// Process and thread identity, and ending the process without clean-up.
#include "zelutils/platform/processthreadsapi.h"

#include "zelutils/platform/errhandlingapi.h"

#include <sys/syscall.h>
#include <unistd.h>

DWORD GetCurrentThreadId() {
    // The kernel's id rather than pthread_self(): it is what log lines and
    // debuggers name, and it differs between threads of different processes.
    return static_cast<DWORD>(::syscall(SYS_gettid));
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }

HANDLE GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)); }

BOOL TerminateProcess(HANDLE process, UINT exitCode) {
    if (process != GetCurrentProcess()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    ::_exit(static_cast<int>(exitCode));
}
