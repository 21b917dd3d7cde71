// The per-thread last-error value, and structured exceptions over signals.
//
// A guard is a sigsetjmp point on the guarded thread. The handlers for
// SIGSEGV, SIGBUS, SIGFPE and SIGILL run on the thread's alternate stack (so
// a stack overflow can be handled), record the fault in the innermost guard,
// write the crash report into the thread's report buffer, and jump back to
// the guard; the filter then runs on the thread's normal stack. Between the
// fault and the jump nothing allocates, locks or uses stdio: every buffer is
// made when the thread is prepared.
#include "zelutils/platform/errhandlingapi.h"

#include "zelutils/platform/posix/fault_state_posix.h"
#include "zelutils/platform/processthreadsapi.h"
#include "zelutils/text/zel_chars.h"

#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

// The processor state at a fault, as the signal handler received it.
struct zel_win32::_CONTEXT {
    ucontext_t state;
};

namespace {
thread_local DWORD tLastError = 0;
}  // namespace

DWORD zel_win32::GetLastError() { return tLastError; }

void zel_win32::SetLastError(DWORD error) { tLastError = error; }

namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr std::size_t kAltStackSize = 64 * 1024;
// Room for the report: the memory map of a large process fits; a longer one
// is cut, and the report says so.
constexpr std::size_t kReportCapacity = 1024 * 1024;
constexpr int kMaxFrames = 64;
// How far below the lowest stack address a fault still counts as running
// off the stack: the kernel keeps a gap of 256 pages below a growing stack.
constexpr std::uintptr_t kStackGap = 1024 * 1024;

struct Guard {
    sigjmp_buf jump;
    Guard* outer = nullptr;
    int signal = 0;
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{};
    bool filtering = false;
};

// Per thread, made by PrepareThreadForFaults and released when the thread
// ends. The handler reaches it through a plain thread_local pointer, which
// needs no initialisation call.
struct ThreadFaultState {
    void* altStack = nullptr;
    bool ownsAltStack = false;
    char* report = nullptr;
    std::size_t reportLength = 0;
    std::uintptr_t stackLow = 0;
    Guard* innermost = nullptr;

    ~ThreadFaultState() {
        if (ownsAltStack) {
            stack_t disable{};
            disable.ss_flags = SS_DISABLE;
            ::sigaltstack(&disable, nullptr);
            ::munmap(altStack, kAltStackSize);
        }
        if (report != nullptr) ::munmap(report, kReportCapacity);
    }
};

thread_local ThreadFaultState* tState = nullptr;

struct sigaction gPrevious[4];

int SignalIndex(int signal) {
    for (int i = 0; i < 4; ++i) {
        if (kFaultSignals[i] == signal) return i;
    }
    return -1;
}

// --- Async-signal-safe text into the report buffer. ---

class ReportWriter {
public:
    ReportWriter(char* buffer, std::size_t capacity) : buffer_(buffer), capacity_(capacity) {}
    void Text(const char* text) {
        while (*text != 0 && length_ < capacity_) buffer_[length_++] = *text++;
    }
    void Hex(std::uintptr_t value) {
        char digits[2 + 2 * sizeof(value) + 1];
        digits[0] = '0';
        digits[1] = 'x';
        for (int i = 0; i < static_cast<int>(2 * sizeof(value)); ++i) {
            digits[2 + i] = zel_text::chars::kHexDigitsLower[(value >> (4 * (2 * sizeof(value) - 1 - i))) & 0xF];
        }
        digits[sizeof(digits) - 1] = 0;
        Text(digits);
    }
    void Decimal(long value) {
        char digits[24];
        int at = sizeof(digits) - 1;
        digits[at] = 0;
        bool negative = value < 0;
        unsigned long magnitude = negative ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
        do {
            digits[--at] = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
        if (negative) digits[--at] = '-';
        Text(digits + at);
    }
    void Line(const char* key, std::uintptr_t hexValue) {
        Text(key);
        Text(" ");
        Hex(hexValue);
        Text("\n");
    }
    // Appends the file's whole content (read in place); false when it could
    // not be opened.
    bool File(const char* path) {
        int fd = ::open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) return false;
        for (;;) {
            if (length_ >= capacity_) break;
            ssize_t got = ::read(fd, buffer_ + length_, capacity_ - length_);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            length_ += static_cast<std::size_t>(got);
        }
        ::close(fd);
        return true;
    }
    bool Full() const { return length_ >= capacity_; }
    std::size_t Length() const { return length_; }
    void Truncate(std::size_t length) { length_ = length; }

private:
    char* buffer_;
    std::size_t capacity_;
    std::size_t length_ = 0;
};

const char* SignalName(int signal) {
    switch (signal) {
        case SIGSEGV: return "SIGSEGV";
        case SIGBUS: return "SIGBUS";
        case SIGFPE: return "SIGFPE";
        case SIGILL: return "SIGILL";
        default: return "?";
    }
}

std::uintptr_t ProgramCounter(const ucontext_t& context) {
#if defined(__x86_64__)
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return static_cast<std::uintptr_t>(context.uc_mcontext.pc);
#else
    (void)context;
    return 0;
#endif
}

std::uintptr_t StackPointer(const ucontext_t& context) {
#if defined(__x86_64__)
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
    return static_cast<std::uintptr_t>(context.uc_mcontext.sp);
#else
    (void)context;
    return 0;
#endif
}

void WriteRegisters(ReportWriter& out, const ucontext_t& context) {
#if defined(__x86_64__)
    static const struct {
        const char* name;
        int index;
    } kRegisters[] = {{"rip", REG_RIP}, {"rsp", REG_RSP}, {"rbp", REG_RBP}, {"rax", REG_RAX},
                      {"rbx", REG_RBX}, {"rcx", REG_RCX}, {"rdx", REG_RDX}, {"rsi", REG_RSI},
                      {"rdi", REG_RDI}, {"r8", REG_R8},   {"r9", REG_R9},   {"r10", REG_R10},
                      {"r11", REG_R11}, {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14},
                      {"r15", REG_R15}, {"eflags", REG_EFL}};
    for (const auto& reg : kRegisters) {
        out.Line(reg.name, static_cast<std::uintptr_t>(context.uc_mcontext.gregs[reg.index]));
    }
#elif defined(__aarch64__)
    out.Line("pc", context.uc_mcontext.pc);
    out.Line("sp", context.uc_mcontext.sp);
    for (int i = 0; i < 31; ++i) {
        char name[4] = {'x', static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10), 0};
        out.Line(name, context.uc_mcontext.regs[i]);
    }
#else
    (void)out;
    (void)context;
#endif
}

DWORD Win32Code(int signal, const siginfo_t* info, std::uintptr_t stackLow, std::uintptr_t sp) {
    switch (signal) {
        case SIGSEGV: {
            auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
            std::uintptr_t page = static_cast<std::uintptr_t>(::getpagesize());
            bool nearStackEnd = stackLow != 0 && address < stackLow + page && address + kStackGap >= stackLow;
            bool stackExhausted = stackLow != 0 && sp < stackLow + page;
            return nearStackEnd || stackExhausted ? EXCEPTION_STACK_OVERFLOW : EXCEPTION_ACCESS_VIOLATION;
        }
        case SIGBUS: return EXCEPTION_IN_PAGE_ERROR;
        case SIGFPE:
            switch (info->si_code) {
                case FPE_INTDIV: return EXCEPTION_INT_DIVIDE_BY_ZERO;
                case FPE_INTOVF: return EXCEPTION_INT_OVERFLOW;
                case FPE_FLTDIV: return EXCEPTION_FLT_DIVIDE_BY_ZERO;
                case FPE_FLTOVF: return EXCEPTION_FLT_OVERFLOW;
                default: return EXCEPTION_FLT_INVALID_OPERATION;
            }
        case SIGILL: return info->si_code == ILL_PRVOPC ? EXCEPTION_PRIV_INSTRUCTION : EXCEPTION_ILLEGAL_INSTRUCTION;
        default: return EXCEPTION_ACCESS_VIOLATION;
    }
}

// The report format is documented with the dump writer (minidumpapiset.h).
void WriteReport(ThreadFaultState& state, int signal, const siginfo_t* info, const ucontext_t& context,
                 DWORD code) {
    ReportWriter out(state.report, kReportCapacity);
    out.Text("zelutils crash report 1\nsignal ");
    out.Decimal(signal);
    out.Text(" ");
    out.Text(SignalName(signal));
    out.Text("\nsignal-code ");
    out.Decimal(info->si_code);
    out.Text("\n");
    out.Line("fault-address", reinterpret_cast<std::uintptr_t>(info->si_addr));
    out.Line("exception-code", code);
    out.Text("process ");
    out.Decimal(::getpid());
    out.Text("\nthread ");
    out.Decimal(static_cast<long>(GetCurrentThreadId()));
    out.Text("\nregisters\n");
    WriteRegisters(out, context);
    out.Text("backtrace\n");
    std::uintptr_t pc = ProgramCounter(context);
    void* frames[kMaxFrames];
    int count = ::backtrace(frames, kMaxFrames);
    // The unwinder starts in this handler; the faulting frame is the one at
    // the interrupted program counter.
    int first = 0;
    for (int i = 0; i < count; ++i) {
        if (reinterpret_cast<std::uintptr_t>(frames[i]) == pc) {
            first = i;
            break;
        }
    }
    if (first == 0 && pc != 0) out.Line("frame", pc);
    for (int i = first; i < count; ++i) out.Line("frame", reinterpret_cast<std::uintptr_t>(frames[i]));
    out.Text("memory-map\n");
    out.File("/proc/self/maps");
    const char* kEnd = "end\n";
    if (out.Full()) {
        out.Truncate(kReportCapacity - std::strlen("memory-map-cut\nend\n"));
        out.Text("memory-map-cut\n");
    }
    out.Text(kEnd);
    state.reportLength = out.Length();
}

// Hands a fault that no guard of this thread takes to whoever had the
// signal before the library, or to the default action.
void PassOn(int signal, siginfo_t* info, void* context) {
    int index = SignalIndex(signal);
    const struct sigaction& previous = gPrevious[index];
    if ((previous.sa_flags & SA_SIGINFO) != 0 && previous.sa_sigaction != nullptr) {
        previous.sa_sigaction(signal, info, context);
        return;
    }
    if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler(signal);
        return;
    }
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    ::sigaction(signal, &fallback, nullptr);
    // A fault re-runs the instruction on return and meets the default
    // action; a signal sent by another process must be sent again.
    if (info->si_code <= 0) ::raise(signal);
}

void OnFault(int signal, siginfo_t* info, void* rawContext) {
    int savedErrno = errno;
    ThreadFaultState* state = tState;
    Guard* guard = state != nullptr ? state->innermost : nullptr;
    if (guard == nullptr) {
        PassOn(signal, info, rawContext);
        errno = savedErrno;
        return;
    }
    const auto& context = *static_cast<const ucontext_t*>(rawContext);
    DWORD code = Win32Code(signal, info, state->stackLow, StackPointer(context));
    guard->signal = signal;
    guard->record = EXCEPTION_RECORD{};
    guard->record.ExceptionCode = code;
    guard->record.ExceptionAddress = reinterpret_cast<PVOID>(ProgramCounter(context));
    if (code == EXCEPTION_ACCESS_VIOLATION || code == EXCEPTION_STACK_OVERFLOW) {
        guard->record.NumberParameters = 2;
        guard->record.ExceptionInformation[0] = 0;  // POSIX does not tell reads from writes
        guard->record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(info->si_addr);
    }
    std::memcpy(&guard->context.state, &context, sizeof(context));
    WriteReport(*state, signal, info, context, code);
    errno = savedErrno;
    siglongjmp(guard->jump, 1);
}

void InstallHandlers() {
    // backtrace loads the unwinder on its first call; made here, so the
    // handler's call neither loads nor allocates.
    void* warmUp[2];
    ::backtrace(warmUp, 2);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < 4; ++i) ::sigaction(kFaultSignals[i], &action, &gPrevious[i]);
}

std::uintptr_t LowestStackAddress() {
    pthread_attr_t attributes;
    if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return 0;
    void* base = nullptr;
    std::size_t size = 0;
    ::pthread_attr_getstack(&attributes, &base, &size);
    ::pthread_attr_destroy(&attributes);
    return reinterpret_cast<std::uintptr_t>(base);
}

// Made on the thread's first preparation; its destructor releases the
// memory when the thread ends.
thread_local ThreadFaultState tOwnedState;

// Ends the process by signal's default action: what the fault would have
// done without the guard.
[[noreturn]] void EndByFault(int signal) {
    struct sigaction fallback {};
    fallback.sa_handler = SIG_DFL;
    ::sigaction(signal, &fallback, nullptr);
    sigset_t unblock;
    sigemptyset(&unblock);
    sigaddset(&unblock, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &unblock, nullptr);
    ::raise(signal);
    ::_exit(128 + signal);
}

// Calls function inside the guard's frame. When a C++ exception leaves it,
// the thread's innermost guard goes back to outer, so a later fault cannot
// jump into the frame the exception has left. A fault leaves by the
// handler's jump instead, which skips the destructor: the filter still finds
// the guard in force.
DWORD CallUnderGuard(Guard*& innermost, Guard* outer, DWORD (*function)(void*), void* argument) {
    struct Unlink {
        Guard*& innermost;
        Guard* outer;
        ~Unlink() { innermost = outer; }
    } unlink{innermost, outer};
    return function(argument);
}

}  // namespace

namespace zel_platform {

bool PrepareThreadForFaults() {
    static std::once_flag installed;
    std::call_once(installed, InstallHandlers);
    if (tState != nullptr) return true;
    ThreadFaultState& state = tOwnedState;
    void* report = ::mmap(nullptr, kReportCapacity, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (report == MAP_FAILED) return false;
    state.report = static_cast<char*>(report);
    // A stack the host (or a sanitizer) gave the thread is kept.
    stack_t current{};
    if (::sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) != 0) {
        void* stack = ::mmap(nullptr, kAltStackSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (stack == MAP_FAILED) return false;
        stack_t alternate{};
        alternate.ss_sp = stack;
        alternate.ss_size = kAltStackSize;
        if (::sigaltstack(&alternate, nullptr) != 0) {
            ::munmap(stack, kAltStackSize);
            return false;
        }
        state.altStack = stack;
        state.ownsAltStack = true;
    }
    state.stackLow = LowestStackAddress();
    // The report names the thread; asked now, the handler reads the cached
    // id instead of making the first, not async-signal-safe, request.
    GetCurrentThreadId();
    tState = &state;
    return true;
}

BOOL RunGuarded(DWORD (*function)(void*), void* argument, GuardFilter filter, void* filterContext,
                DWORD* result) {
    if (!PrepareThreadForFaults()) {
        // No alternate stack: the call runs unguarded rather than not at all.
        DWORD value = function(argument);
        if (result != nullptr) *result = value;
        return TRUE;
    }
    ThreadFaultState* state = tState;
    Guard guard;
    guard.outer = state->innermost;
    state->innermost = &guard;
    if (sigsetjmp(guard.jump, 1) == 0) {
        DWORD value = CallUnderGuard(state->innermost, guard.outer, function, argument);
        if (result != nullptr) *result = value;
        return TRUE;
    }
    // Back from the handler with the fault recorded. The guard stays in
    // force while the filter runs: a fault inside the filter lands here again
    // and the filter sees it as a second fault.
    guard.pointers.ExceptionRecord = &guard.record;
    guard.pointers.ContextRecord = &guard.context;
    guard.filtering = true;
    LONG decision = filter(&guard.pointers, filterContext);
    guard.filtering = false;
    state->innermost = guard.outer;
    state->reportLength = 0;
    if (decision != EXCEPTION_EXECUTE_HANDLER) EndByFault(guard.signal);
    return FALSE;
}

EXCEPTION_POINTERS* CurrentFault() {
    ThreadFaultState* state = tState;
    Guard* guard = state != nullptr ? state->innermost : nullptr;
    return guard != nullptr && guard->filtering ? &guard->pointers : nullptr;
}

namespace posix {
FaultReport CurrentFaultReport() {
    ThreadFaultState* state = tState;
    if (state == nullptr || CurrentFault() == nullptr) return {"", 0};
    return {state->report, state->reportLength};
}
}  // namespace posix

}  // namespace zel_platform
