// Worker threads: the start record, the logging entry and the crash guard.
#include "zelutils/zelsys/zel_thread.h"

#include "zelutils/diag/crash_handler.h"
#include "zelutils/diag/log_file.h"
#include "zelutils/text/zel_string.h"

#include <memory>
#include <string>

namespace zel::thread {
namespace {

// The position a fault in a worker's body is reported at: the wrapper's
// own, the same in every release, so that support staff can tell a
// worker's crash from one in a host's own guarded call.
constexpr const char* kGuardFile = "zelutils/zelsys/zel_thread";
constexpr int kGuardLine = 106;

DWORD ThreadEntry(void* raw) {
    std::shared_ptr<ZelThreadParam> param(static_cast<ZelThreadParam*>(raw));
    // Debuggers and system tools show the name as well.
    zel_platform::NameCurrentThread(zel_text::CZelStringW(param->name.c_str(), CP_ACP).GetString());
    DWORD id = GetCurrentThreadId();
    zel_core::logPrintf("THR_S #%x %s", id, param->name.c_str());
    DWORD result = 0;
    zel_core::guardedCall(kGuardFile, kGuardLine, param->function, param->argument, &result);
    zel_core::logPrintf("THR_F #%x %s", id, param->name.c_str());
    return result;
}

}  // namespace

HANDLE CreateWorkerThread(const char* sourceFile, DWORD sourceLine, const char* name, WorkerFunction function,
                          void* argument, DWORD creationFlags, SIZE_T stackSize) {
    auto param = std::make_unique<ZelThreadParam>(
        ZelThreadParam{name != nullptr ? name : "", sourceFile != nullptr ? sourceFile : "", sourceLine, function,
                       argument});
    if (function == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HANDLE thread = CreateThread(nullptr, stackSize, ThreadEntry, param.get(), creationFlags, nullptr);
    // On failure the record is freed here; once the thread exists it owns it.
    if (thread != nullptr) param.release();
    return thread;
}

bool WaitForWorkerThread(HANDLE thread) {
    if (thread == reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)) ||
        thread == reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2))) {
        return false;
    }
    return WaitForSingleObject(thread, INFINITE) == WAIT_OBJECT_0;
}

bool IsCurrentThread(const std::thread* thread) {
    return thread != nullptr && thread->get_id() == std::this_thread::get_id();
}

DWORD CurrentThreadId() { return GetCurrentThreadId(); }

}  // namespace zel::thread
