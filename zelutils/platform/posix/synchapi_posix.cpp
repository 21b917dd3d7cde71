// Waiting for a thread handle to be signalled.
#include "zelutils/platform/synchapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/thread_object.h"

#include <chrono>
#include <thread>

DWORD zel_win32::WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    using zel_platform::posix::ThreadObject;
    auto thread = zel_platform::posix::Find<ThreadObject>(object, zel_platform::posix::ObjectKind::Thread);
    if (!thread) return WAIT_FAILED;
    std::unique_lock<std::mutex> lock(thread->mutex);
    auto finished = [&] { return thread->finished; };
    if (milliseconds == INFINITE) {
        thread->changed.wait(lock, finished);
        return WAIT_OBJECT_0;
    }
    return thread->changed.wait_for(lock, std::chrono::milliseconds(milliseconds), finished) ? WAIT_OBJECT_0
                                                                                           : WAIT_TIMEOUT;
}

void zel_win32::Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        std::this_thread::yield();
        return;
    }
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds == INFINITE ? 86400000 : milliseconds));
    } while (milliseconds == INFINITE);
}
