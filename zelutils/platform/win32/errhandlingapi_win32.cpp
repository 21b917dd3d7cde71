// Guarded calls over a vectored exception handler. MinGW's compiler has no
// __try/__except, so a fault on a guarded thread is recorded in the
// innermost guard and the handler jumps back to the guard's setjmp point;
// the filter runs there, on the thread's normal stack.
#include "zelutils/platform/errhandlingapi.h"

#include "zelutils/platform/fault_state.h"

#include <cstring>
#include <memory>
#include <mutex>

namespace {

struct Guard {
    void* jump[5];  // __builtin_setjmp's buffer
    Guard* outer = nullptr;
    EXCEPTION_RECORD record{};
    // On the heap: with the 1,232-byte, 16-aligned CONTEXT in the guard's
    // own frame, MinGW's optimised __builtin_setjmp receiver returned into
    // the exception dispatcher and the fault repeated for ever (under Wine).
    std::unique_ptr<CONTEXT> context = std::make_unique<CONTEXT>();
    EXCEPTION_POINTERS pointers{};
    bool filtering = false;
};

thread_local Guard* tInnermost = nullptr;
thread_local bool tPrepared = false;

// Faults only: C++ exceptions, debugger notifications and the like go on
// to their own handlers untouched.
bool IsFault(DWORD code) {
    switch (code) {
        case EXCEPTION_ACCESS_VIOLATION:
        case EXCEPTION_IN_PAGE_ERROR:
        case EXCEPTION_ILLEGAL_INSTRUCTION:
        case EXCEPTION_PRIV_INSTRUCTION:
        case EXCEPTION_INT_DIVIDE_BY_ZERO:
        case EXCEPTION_INT_OVERFLOW:
        case EXCEPTION_FLT_DIVIDE_BY_ZERO:
        case EXCEPTION_FLT_INVALID_OPERATION:
        case EXCEPTION_FLT_OVERFLOW:
        case EXCEPTION_FLT_STACK_CHECK:
        case EXCEPTION_STACK_OVERFLOW:
        case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
        case EXCEPTION_DATATYPE_MISALIGNMENT: return true;
        default: return false;
    }
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* info) {
    Guard* guard = tInnermost;
    if (guard == nullptr || !IsFault(info->ExceptionRecord->ExceptionCode)) return EXCEPTION_CONTINUE_SEARCH;
    guard->record = *info->ExceptionRecord;
    guard->record.ExceptionRecord = nullptr;
    std::memcpy(guard->context.get(), info->ContextRecord, sizeof(CONTEXT));
    __builtin_longjmp(guard->jump, 1);
}

// Runs the filter of the guard that caught a fault and carries out its
// decision; as on POSIX, the guard stays in force while the filter runs.
__attribute__((noinline)) BOOL FilterFault(Guard& guard, zel_platform::GuardFilter filter, void* filterContext) {
    guard.pointers.ExceptionRecord = &guard.record;
    guard.pointers.ContextRecord = guard.context.get();
    guard.filtering = true;
    LONG decision = filter(&guard.pointers, filterContext);
    guard.filtering = false;
    tInnermost = guard.outer;
    // An exception nobody handles ends a Windows process with its code.
    if (decision != EXCEPTION_EXECUTE_HANDLER) TerminateProcess(GetCurrentProcess(), guard.record.ExceptionCode);
    return FALSE;
}

// Calls function inside the guard's frame. When a C++ exception leaves it,
// the thread's innermost guard goes back to outer, so a later fault cannot
// jump into the frame the exception has left. A fault leaves by the
// handler's jump instead, which skips the destructor: the filter still finds
// the guard in force.
__attribute__((noinline)) DWORD CallUnderGuard(Guard* outer, DWORD (*function)(void*), void* argument) {
    struct Unlink {
        Guard* outer;
        ~Unlink() { tInnermost = outer; }
    } unlink{outer};
    return function(argument);
}

}  // namespace

namespace zel_platform {

bool PrepareThreadForFaults() {
    static std::once_flag installed;
    std::call_once(installed, [] { AddVectoredExceptionHandler(1, OnException); });
    if (!tPrepared) {
        // Room for the handler after a stack overflow has used the guard page.
        ULONG guarantee = 32 * 1024;
        SetThreadStackGuarantee(&guarantee);
        tPrepared = true;
    }
    return true;
}

BOOL RunGuarded(DWORD (*function)(void*), void* argument, GuardFilter filter, void* filterContext,
                DWORD* result) {
    PrepareThreadForFaults();
    Guard guard;
    guard.outer = tInnermost;
    tInnermost = &guard;
    if (__builtin_setjmp(guard.jump) == 0) {
        DWORD value = CallUnderGuard(guard.outer, function, argument);
        if (result != nullptr) *result = value;
        return TRUE;
    }
    // Back from the handler's jump. The guard is reached through the thread's
    // record of it, not the local: GCC (MinGW 12, -O2) computes the local's
    // members wrongly on this path and handed the filter null pointers.
    return FilterFault(*tInnermost, filter, filterContext);
}

EXCEPTION_POINTERS* CurrentFault() {
    Guard* guard = tInnermost;
    return guard != nullptr && guard->filtering ? &guard->pointers : nullptr;
}

}  // namespace zel_platform
