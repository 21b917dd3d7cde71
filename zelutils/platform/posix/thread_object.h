// The kernel object behind a thread handle (internal).
#pragma once

#include "zelutils/platform/posix/handle_table.h"

#include <condition_variable>
#include <mutex>

namespace zel_platform::posix {

/// A thread started by CreateThread: its suspend state, whether its body
/// has returned, and the body's result.
class ThreadObject : public KernelObject {
public:
    ThreadObject() : KernelObject(ObjectKind::Thread) {}

    std::mutex mutex;
    std::condition_variable changed;
    DWORD suspendCount = 0;
    DWORD threadId = 0;
    bool finished = false;
    DWORD exitCode = 0;
};

}  // namespace zel_platform::posix
