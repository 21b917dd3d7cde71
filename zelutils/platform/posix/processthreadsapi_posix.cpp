// Process and thread identity, threads, and ending the process without
// clean-up.
#include "zelutils/platform/processthreadsapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/thread_object.h"
#include "zelutils/platform/stringapiset.h"

#include <limits.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

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

DWORD zel_win32::GetCurrentThreadId() { return tThreadId != 0 ? tThreadId : AskThreadId(); }

DWORD zel_win32::GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }

HANDLE zel_win32::GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)); }

BOOL zel_win32::TerminateProcess(HANDLE process, UINT exitCode) {
    if (process != GetCurrentProcess()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // Only the low 8 bits reach the parent: a failure code such as
    // 0xBADEE000 would read as success.
    bool readsAsSuccess = exitCode != 0 && (exitCode & 0xFF) == 0;
    ::_exit(readsAsSuccess ? 255 : static_cast<int>(exitCode & 0xFF));
}

void zel_platform::NameCurrentThread(LPCWSTR name) {
    if (name == nullptr || name[0] == 0) return;
    int size = WideCharToMultiByte(CP_UTF8, 0, name, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return;
    std::string text(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, name, -1, &text[0], size, nullptr, nullptr);
    text.resize(static_cast<std::size_t>(size) - 1);
    // The kernel keeps 15 bytes; the cut never splits a character.
    constexpr std::size_t kLimit = 15;
    if (text.size() > kLimit) {
        std::size_t length = kLimit;
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
        text.resize(length);
    }
    ::pthread_setname_np(::pthread_self(), text.c_str());
}

namespace {

using zel_platform::posix::ThreadObject;

struct ThreadStart {
    std::shared_ptr<ThreadObject> object;
    LPTHREAD_START_ROUTINE start;
    LPVOID parameter;
};

void* RunThread(void* raw) {
    std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(raw));
    ThreadObject& object = *start->object;
    zel_platform::PrepareThreadForFaults();
    {
        std::unique_lock<std::mutex> lock(object.mutex);
        object.threadId = GetCurrentThreadId();
        object.changed.notify_all();
        object.changed.wait(lock, [&] { return object.suspendCount == 0; });
    }
    DWORD result = start->start(start->parameter);
    std::lock_guard<std::mutex> lock(object.mutex);
    object.exitCode = result;
    object.finished = true;
    object.changed.notify_all();
    return nullptr;
}

}  // namespace

HANDLE zel_win32::CreateThread(LPSECURITY_ATTRIBUTES /*securityAttributes*/, SIZE_T stackSize,
                               LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD creationFlags,
                               LPDWORD threadId) {
    if (start == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto object = std::make_shared<ThreadObject>();
    object->suspendCount = (creationFlags & CREATE_SUSPENDED) != 0 ? 1 : 0;
    HANDLE handle = zel_platform::posix::InsertObject(object);
    if (handle == nullptr) return nullptr;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) {
        std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        std::size_t size = std::max<std::size_t>((stackSize + page - 1) / page * page, PTHREAD_STACK_MIN);
        ::pthread_attr_setstacksize(&attributes, size);
    }
    auto startRecord = std::make_unique<ThreadStart>(ThreadStart{object, start, parameter});
    pthread_t thread;
    int error = ::pthread_create(&thread, &attributes, RunThread, startRecord.get());
    ::pthread_attr_destroy(&attributes);
    if (error != 0) {
        zel_platform::posix::RemoveObject(handle);
        zel_platform::SetLastErrorFromErrno(error);
        return nullptr;
    }
    startRecord.release();  // the thread owns it now
    if (threadId != nullptr) {
        std::unique_lock<std::mutex> lock(object->mutex);
        object->changed.wait(lock, [&] { return object->threadId != 0; });
        *threadId = object->threadId;
    }
    return handle;
}

DWORD zel_win32::ResumeThread(HANDLE thread) {
    auto object = zel_platform::posix::Find<ThreadObject>(thread, zel_platform::posix::ObjectKind::Thread);
    if (!object) return static_cast<DWORD>(-1);
    std::lock_guard<std::mutex> lock(object->mutex);
    DWORD previous = object->suspendCount;
    if (previous > 0 && --object->suspendCount == 0) object->changed.notify_all();
    return previous;
}

BOOL zel_win32::GetExitCodeThread(HANDLE thread, LPDWORD exitCode) {
    auto object = zel_platform::posix::Find<ThreadObject>(thread, zel_platform::posix::ObjectKind::Thread);
    if (!object) return FALSE;
    if (exitCode == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> lock(object->mutex);
    *exitCode = object->finished ? object->exitCode : STILL_ACTIVE;
    return TRUE;
}

void zel_platform::RegisterForkHandlers(void (*prepare)(), void (*parent)(), void (*child)()) {
    ::pthread_atfork(prepare, parent, child);
}
