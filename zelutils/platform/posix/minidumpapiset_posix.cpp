// Writes the crash report the fault handler captured for the calling
// thread's fault.
#include "zelutils/platform/minidumpapiset.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/fault_state_posix.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"
#include "zelutils/platform/processthreadsapi.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

using namespace zel_platform::posix;

BOOL WriteCrashReport(DWORD processId, DWORD threadId, LPCWSTR dumpDirectory) {
    FaultReport report = CurrentFaultReport();
    if (dumpDirectory == nullptr || processId != GetCurrentProcessId() ||
        threadId != GetCurrentThreadId() || report.length == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::string folder = ToNativePath(dumpDirectory);
    // Reports hold the process's registers and memory map: the user's own.
    if (sys::MakeDirectory(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        SetLastError(PathError(errno, folder));
        return FALSE;
    }
    std::string path = folder + "/zelutils-" + std::to_string(processId) + "-" +
                       std::to_string(threadId) + ".crash.txt";
    int fd = sys::Open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        SetLastError(PathError(errno, path));
        return FALSE;
    }
    std::size_t written = 0;
    while (written < report.length) {
        ssize_t count = sys::Write(fd, report.text + written, report.length - written);
        if (count <= 0) {
            zel_platform::SetLastErrorFromErrno(count < 0 ? errno : ENOSPC);
            sys::Close(fd);
            sys::Unlink(path.c_str());
            return FALSE;
        }
        written += static_cast<std::size_t>(count);
    }
    if (sys::Close(fd) != 0) {
        zel_platform::SetLastErrorFromErrno(errno);
        sys::Unlink(path.c_str());
        return FALSE;
    }
    return TRUE;
}

}  // namespace

namespace zel_platform {

// The temporary folder is shared by every user.
std::basic_string<WCHAR> DumpFolderName() {
    std::string name = "zelutils-dumps-" + std::to_string(::getuid());
    return std::basic_string<WCHAR>(name.begin(), name.end());
}

DumpCapture FindDumpCapture() { return WriteCrashReport; }

}  // namespace zel_platform
