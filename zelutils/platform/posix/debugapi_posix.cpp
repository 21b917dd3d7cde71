// Debug output and the debugger test.
#include "zelutils/platform/debugapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/stderr_text.h"
#include "zelutils/platform/processthreadsapi.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void zel_win32::OutputDebugStringW(LPCWSTR outputString) { zel_platform::DebugOutput(outputString); }

BOOL zel_win32::CheckRemoteDebuggerPresent(HANDLE process, BOOL* debuggerPresent) {
    if (debuggerPresent == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *debuggerPresent = FALSE;
    if (process != GetCurrentProcess()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // A debugger on POSIX is a tracer; the kernel names it in the status file.
    std::FILE* status = std::fopen("/proc/self/status", "re");
    if (status == nullptr) {
        zel_platform::SetLastErrorFromErrno(errno);
        return FALSE;
    }
    char line[256];
    long tracer = -1;
    while (tracer < 0 && std::fgets(line, sizeof line, status) != nullptr) {
        if (std::sscanf(line, "TracerPid: %ld", &tracer) != 1) tracer = -1;
    }
    std::fclose(status);
    if (tracer < 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    *debuggerPresent = tracer != 0 ? TRUE : FALSE;
    return TRUE;
}

namespace zel_platform {

bool DefaultDebugOutputEnabled() {
    // Read once: it is a setting of the process's environment, and the log
    // asks for it with every line.
    static const bool enabled = [] {
        const char* value = std::getenv("ZEL_DEBUG_OUTPUT");
        return value != nullptr && std::strcmp(value, "1") == 0;
    }();
    return enabled;
}

void DefaultDebugOutput(LPCWSTR text) {
    if (text == nullptr || !DefaultDebugOutputEnabled()) return;
    std::string bytes;
    posix::AppendUtf8(bytes, text);
    posix::WriteToStderr(bytes);
}

}  // namespace zel_platform

void zel_win32::DebugBreak() { ::raise(SIGTRAP); }
