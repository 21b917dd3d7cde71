// The system-call table and the fault hooks in front of it.
#include "zelutils/platform/fault_injection.h"

#include "zelutils/platform/posix/system_calls.h"

#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <mutex>

namespace zel_platform::posix {
namespace {

constexpr int kKinds = static_cast<int>(SystemCall::Lock) + 1;

// The operating system's entry points. open is variadic in C; the wrapper
// always passes the mode.
struct SystemCallTable {
    int (*open)(const char*, int, ...);
    int (*close)(int);
    ssize_t (*read)(int, void*, std::size_t);
    ssize_t (*write)(int, const void*, std::size_t);
    off_t (*lseek)(int, off_t, int);
    int (*ftruncate)(int, off_t);
    int (*fsync)(int);
    int (*statx)(int, const char*, int, unsigned, struct statx*);
    int (*futimens)(int, const struct timespec[2]);
    int (*renameat2)(int, const char*, int, const char*, unsigned);
    int (*unlink)(const char*);
    int (*mkdir)(const char*, mode_t);
    int (*rmdir)(const char*);
    DIR* (*opendir)(const char*);
    dirent* (*readdir)(DIR*);
    int (*closedir)(DIR*);
    ssize_t (*readlink)(const char*, char*, std::size_t);
    int (*fchmod)(int, mode_t);
    int (*fchmodat)(int, const char*, mode_t, int);
    int (*fchown)(int, uid_t, gid_t);
    int (*flock)(int, int);
};

const SystemCallTable kSystem = {::open,  ::close,   ::read,     ::write,     ::lseek,  ::ftruncate,
                                 ::fsync, ::statx,   ::futimens, ::renameat2, ::unlink, ::mkdir,
                                 ::rmdir, ::opendir, ::readdir,  ::closedir, ::readlink,
                                 ::fchmod, ::fchmodat, ::fchown, ::flock};

struct Fault {
    unsigned long at = 0;  // the count at which the call fails; 0: none
    int errnoValue = 0;
};

struct ShortWrite {
    unsigned long at = 0;  // the write count at which the write is cut; 0: none
    std::size_t bytes = 0;
    int errnoValue = 0;
};

// Counting is always on (a relaxed increment per call); the mutex-guarded
// fault records are looked at only while something is armed.
struct FaultState {
    std::atomic<unsigned long> counts[kKinds] = {};
    std::atomic<bool> armed{false};
    std::mutex mutex;
    Fault faults[kKinds];
    ShortWrite shortWrite;

    void UpdateArmed() {
        bool any = shortWrite.at != 0;
        for (const Fault& fault : faults) any = any || fault.at != 0;
        armed.store(any, std::memory_order_release);
    }
};

FaultState& State() {
    // Never destroyed: system calls may run from exit handlers.
    static FaultState* state = new FaultState;
    return *state;
}

// Counts a call and tells whether an armed fault fails it (errno set).
// `count` receives the call's number for the short-write check.
bool Intercept(SystemCall kind, unsigned long* count = nullptr) {
    FaultState& state = State();
    int index = static_cast<int>(kind);
    unsigned long number = state.counts[index].fetch_add(1, std::memory_order_relaxed) + 1;
    if (count != nullptr) *count = number;
    if (!state.armed.load(std::memory_order_acquire)) return false;
    std::lock_guard<std::mutex> lock(state.mutex);
    Fault& fault = state.faults[index];
    if (fault.at != number) return false;
    errno = fault.errnoValue;
    fault = Fault{};
    state.UpdateArmed();
    return true;
}

// The byte count the write numbered `number` may transfer; arms the
// follow-up failure of a disk that fills up.
std::size_t LimitWrite(unsigned long number, std::size_t count) {
    FaultState& state = State();
    if (!state.armed.load(std::memory_order_acquire)) return count;
    std::lock_guard<std::mutex> lock(state.mutex);
    ShortWrite& cut = state.shortWrite;
    if (cut.at != number) return count;
    std::size_t allowed = cut.bytes < count ? cut.bytes : count;
    if (cut.errnoValue != 0) {
        state.faults[static_cast<int>(SystemCall::Write)] = Fault{number + 1, cut.errnoValue};
    }
    cut = ShortWrite{};
    state.UpdateArmed();
    return allowed;
}

template <class Call>
auto RetryInterrupted(Call call) {
    for (;;) {
        auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

// A failed close still releases the descriptor, on Linux even for EINTR (so
// it is never retried); an injected failure does the same.
template <class Release>
int ReleaseReportingFault(SystemCall kind, Release release) {
    if (!Intercept(kind)) return release();
    int injected = errno;
    release();
    errno = injected;
    return -1;
}

}  // namespace

namespace sys {

int Open(const char* path, int flags, mode_t mode) {
    return RetryInterrupted(
        [&] { return Intercept(SystemCall::Open) ? -1 : kSystem.open(path, flags, mode); });
}

int Close(int fd) {
    return ReleaseReportingFault(SystemCall::Close, [fd] { return kSystem.close(fd); });
}

ssize_t Read(int fd, void* buffer, std::size_t count) {
    return RetryInterrupted([&]() -> ssize_t {
        return Intercept(SystemCall::Read) ? -1 : kSystem.read(fd, buffer, count);
    });
}

ssize_t Write(int fd, const void* buffer, std::size_t count) {
    return RetryInterrupted([&]() -> ssize_t {
        unsigned long number = 0;
        if (Intercept(SystemCall::Write, &number)) return -1;
        return kSystem.write(fd, buffer, LimitWrite(number, count));
    });
}

off_t Seek(int fd, off_t offset, int whence) {
    return Intercept(SystemCall::Seek) ? -1 : kSystem.lseek(fd, offset, whence);
}

int Truncate(int fd, off_t length) {
    return RetryInterrupted(
        [&] { return Intercept(SystemCall::Truncate) ? -1 : kSystem.ftruncate(fd, length); });
}

int Sync(int fd) {
    return RetryInterrupted([&] { return Intercept(SystemCall::Sync) ? -1 : kSystem.fsync(fd); });
}

int Stat(int dirFd, const char* path, int flags, struct statx* status) {
    if (Intercept(SystemCall::Stat)) return -1;
    return kSystem.statx(dirFd, path, flags, STATX_BASIC_STATS | STATX_BTIME, status);
}

int SetTimes(int fd, const struct timespec times[2]) {
    return Intercept(SystemCall::SetTimes) ? -1 : kSystem.futimens(fd, times);
}

int Rename(const char* from, const char* to, unsigned flags) {
    if (Intercept(SystemCall::Rename)) return -1;
    return kSystem.renameat2(AT_FDCWD, from, AT_FDCWD, to, flags);
}

int Lock(int fd, int operation) {
    return RetryInterrupted([&] { return Intercept(SystemCall::Lock) ? -1 : kSystem.flock(fd, operation); });
}

int Unlink(const char* path) { return Intercept(SystemCall::Unlink) ? -1 : kSystem.unlink(path); }

int MakeDirectory(const char* path, mode_t mode) {
    return Intercept(SystemCall::MakeDirectory) ? -1 : kSystem.mkdir(path, mode);
}

int RemoveDirectory(const char* path) {
    return Intercept(SystemCall::RemoveDirectory) ? -1 : kSystem.rmdir(path);
}

DIR* OpenDirectory(const char* path) {
    return Intercept(SystemCall::OpenDirectory) ? nullptr : kSystem.opendir(path);
}

dirent* ReadDirectory(DIR* directory) {
    if (Intercept(SystemCall::ReadDirectory)) return nullptr;
    errno = 0;
    return kSystem.readdir(directory);
}

int CloseDirectory(DIR* directory) {
    return ReleaseReportingFault(SystemCall::CloseDirectory,
                                 [directory] { return kSystem.closedir(directory); });
}

ssize_t ReadLink(const char* path, char* buffer, std::size_t size) {
    return Intercept(SystemCall::ReadLink) ? -1 : kSystem.readlink(path, buffer, size);
}

int ChangeMode(int fd, mode_t mode) {
    return Intercept(SystemCall::ChangeMode) ? -1 : kSystem.fchmod(fd, mode);
}

int ChangeModeOf(const char* path, mode_t mode) {
    return Intercept(SystemCall::ChangeMode) ? -1 : kSystem.fchmodat(AT_FDCWD, path, mode, 0);
}

int ChangeOwner(int fd, uid_t owner, gid_t group) {
    return Intercept(SystemCall::ChangeOwner) ? -1 : kSystem.fchown(fd, owner, group);
}

}  // namespace sys
}  // namespace zel_platform::posix

namespace zel_platform {

using posix::State;

bool FailSystemCall(SystemCall call, unsigned nth, int errnoValue) {
    if (nth == 0 || errnoValue == 0) return false;
    auto& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    int index = static_cast<int>(call);
    state.faults[index] = {state.counts[index].load() + nth, errnoValue};
    state.UpdateArmed();
    return true;
}

bool ShortenWrite(unsigned nth, std::size_t bytes, int errnoValue) {
    if (nth == 0 || (bytes == 0 && errnoValue == 0)) return false;
    auto& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    int index = static_cast<int>(SystemCall::Write);
    unsigned long at = state.counts[index].load() + nth;
    if (bytes == 0) {
        state.faults[index] = {at, errnoValue};
    } else {
        state.shortWrite = {at, bytes, errnoValue};
    }
    state.UpdateArmed();
    return true;
}

unsigned long SystemCallCount(SystemCall call) {
    return State().counts[static_cast<int>(call)].load(std::memory_order_relaxed);
}

void ResetSystemCalls() {
    auto& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    for (auto& count : state.counts) count.store(0, std::memory_order_relaxed);
    for (auto& fault : state.faults) fault = {};
    state.shortWrite = {};
    state.UpdateArmed();
}

namespace {
struct SavedLimit {
    std::mutex mutex;
    bool saved = false;
    struct rlimit limit {};
    struct sigaction action {};
};

SavedLimit& Saved() {
    static SavedLimit saved;
    return saved;
}
}  // namespace

bool SetFileSizeLimit(ULONGLONG bytes) {
    SavedLimit& saved = Saved();
    std::lock_guard<std::mutex> lock(saved.mutex);
    struct rlimit current {};
    if (getrlimit(RLIMIT_FSIZE, &current) != 0) return false;
    struct rlimit wanted = current;
    wanted.rlim_cur = bytes;
    if (setrlimit(RLIMIT_FSIZE, &wanted) != 0) return false;
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction previous {};
    sigaction(SIGXFSZ, &ignore, &previous);
    if (!saved.saved) {
        saved.limit = current;
        saved.action = previous;
        saved.saved = true;
    }
    return true;
}

void RestoreFileSizeLimit() {
    SavedLimit& saved = Saved();
    std::lock_guard<std::mutex> lock(saved.mutex);
    if (!saved.saved) return;
    setrlimit(RLIMIT_FSIZE, &saved.limit);
    sigaction(SIGXFSZ, &saved.action, nullptr);
    saved.saved = false;
}

}  // namespace zel_platform
