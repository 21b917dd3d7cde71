// The system clock as a file time.
#include "zelutils/platform/sysinfoapi.h"

#include "zelutils/platform/posix/file_time.h"

#include <ctime>

void GetSystemTimeAsFileTime(LPFILETIME systemTimeAsFileTime) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    *systemTimeAsFileTime = zel_platform::posix::FileTimeOf(now.tv_sec, now.tv_nsec);
}
