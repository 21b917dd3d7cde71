// Process and thread identity, and ending the process without clean-up.
#include "zelutils/platform/processthreadsapi.h"

#include "zelutils/platform/errhandlingapi.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
// The calling thread's kernel id, asked once per thread: every log line
// carries it. The thread that forks becomes a new thread in the child, so
// the child forgets the id it inherited.
thread_local DWORD tThreadId = 0;

void ForgetThreadIdInChild() { tThreadId = 0; }

DWORD AskThreadId() {
    static const int registered = ::pthread_atfork(nullptr, nullptr, ForgetThreadIdInChild);
    (void)registered;
    // The kernel's id rather than pthread_self(): it is what log lines and
    // debuggers name, and it differs between threads of different processes.
    tThreadId = static_cast<DWORD>(::syscall(SYS_gettid));
    return tThreadId;
}
}  // namespace

DWORD GetCurrentThreadId() { return tThreadId != 0 ? tThreadId : AskThreadId(); }

DWORD GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }

HANDLE GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)); }

BOOL TerminateProcess(HANDLE process, UINT exitCode) {
    if (process != GetCurrentProcess()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    ::_exit(static_cast<int>(exitCode));
}
