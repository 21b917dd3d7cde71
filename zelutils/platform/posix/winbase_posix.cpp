// Renaming over renameat2, so "fail if the new name exists" is atomic, and
// copying through read and write.
#include "zelutils/platform/winbase.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"

#include <cerrno>
#include <cstdio>
#include <vector>
#include <string>

namespace {

using namespace zel_platform::posix;

bool Exists(const std::string& path) {
    struct statx status {};
    return sys::Stat(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, &status) == 0;
}

// Whether two names lead to one directory entry: the same file, which is a
// folder (never linked twice) or has no other name.
bool SameEntry(const struct statx& a, const struct statx& b) {
    return a.stx_ino == b.stx_ino && a.stx_dev_major == b.stx_dev_major &&
           a.stx_dev_minor == b.stx_dev_minor && (S_ISDIR(a.stx_mode) || a.stx_nlink == 1);
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// Makes a finished rename durable: the folder holding the new name is synced.
bool SyncFolderOf(const std::string& path) {
    std::string::size_type slash = path.find_last_of('/');
    std::string folder = slash == std::string::npos ? "."
                         : slash == 0               ? "/"
                                                    : path.substr(0, slash);
    int fd = sys::Open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (fd < 0) return false;
    bool synced = sys::Sync(fd) == 0;
    int error = errno;
    sys::Close(fd);
    errno = error;
    return synced;
}

}  // namespace

BOOL zel_win32::MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) {
    if (existingFileName == nullptr || newFileName == nullptr ||
        (flags & ~(MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::string from;
    std::string to;
    if (!NameToNativePath(existingFileName, from) || !NameToNativePath(newFileName, to)) return FALSE;
    bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    // What the names hold decides Windows' answers before any rename; a name
    // that cannot be looked at is left to the rename to report.
    struct statx source {};
    struct statx target {};
    bool sourceKnown = sys::Stat(AT_FDCWD, from.c_str(), AT_SYMLINK_NOFOLLOW, &source) == 0;
    bool targetKnown = sys::Stat(AT_FDCWD, to.c_str(), AT_SYMLINK_NOFOLLOW, &target) == 0;
    if (sourceKnown && targetKnown && SameEntry(source, target)) return TRUE;  // onto itself
    int result = -1;
    if (replace && targetKnown) {
        // Windows replaces neither a folder nor a read-only file; it does
        // replace a file with a folder, which POSIX renames refuse: the two
        // trade places in one step and the file, now under the old name, goes.
        if (S_ISDIR(target.stx_mode) || IsReadOnlyFile(to)) return Fail(ERROR_ACCESS_DENIED);
        if (sourceKnown && S_ISDIR(source.stx_mode)) {
            result = sys::Rename(from.c_str(), to.c_str(), RENAME_EXCHANGE);
            if (result == 0 && sys::Unlink(from.c_str()) != 0) return Fail(zel_platform::ErrorFromErrno(errno));
        }
    }
    if (result != 0) result = sys::Rename(from.c_str(), to.c_str(), replace ? 0 : RENAME_NOREPLACE);
    if (result != 0 && !replace && (errno == EINVAL || errno == ENOSYS)) {
        // A file system without RENAME_NOREPLACE: check, then rename. Not
        // atomic, but the best such a file system allows.
        if (Exists(to)) return Fail(ERROR_ALREADY_EXISTS);
        result = sys::Rename(from.c_str(), to.c_str(), 0);
    }
    if (result != 0) {
        if (errno == EEXIST) return Fail(ERROR_ALREADY_EXISTS);
        if (errno == ENOENT) {
            // Windows blames the source when it is missing, else the target's folder.
            if (!Exists(from)) return Fail(PathError(ENOENT, from));
            return Fail(ERROR_PATH_NOT_FOUND);
        }
        return Fail(zel_platform::ErrorFromErrno(errno));
    }
    if ((flags & MOVEFILE_WRITE_THROUGH) != 0 && !SyncFolderOf(to)) {
        return Fail(zel_platform::ErrorFromErrno(errno));
    }
    return TRUE;
}

BOOL zel_win32::MoveFileW(LPCWSTR existingFileName, LPCWSTR newFileName) {
    return MoveFileExW(existingFileName, newFileName, 0);
}

namespace {

// Copies everything from one descriptor to the other; false with errno set.
bool CopyContent(int from, int to) {
    constexpr std::size_t kBlock = 1 << 16;
    std::vector<char> block(kBlock);
    for (;;) {
        ssize_t got = sys::Read(from, block.data(), kBlock);
        if (got < 0) return false;
        if (got == 0) return true;
        for (ssize_t done = 0; done < got;) {
            ssize_t put = sys::Write(to, block.data() + done, static_cast<std::size_t>(got - done));
            if (put < 0) return false;
            done += put;
        }
    }
}

}  // namespace

BOOL zel_win32::CopyFileW(LPCWSTR existingFileName, LPCWSTR newFileName, BOOL failIfExists) {
    if (existingFileName == nullptr || newFileName == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    std::string from;
    std::string to;
    if (!NameToNativePath(existingFileName, from) || !NameToNativePath(newFileName, to)) return FALSE;
    if (!failIfExists && IsReadOnlyFile(to)) return Fail(ERROR_ACCESS_DENIED);
    int source = sys::Open(from.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (source < 0) return Fail(PathError(errno, from));
    struct statx status {};
    if (sys::Stat(source, "", AT_EMPTY_PATH, &status) != 0 || S_ISDIR(status.stx_mode)) {
        DWORD error = S_ISDIR(status.stx_mode) ? ERROR_ACCESS_DENIED : zel_platform::ErrorFromErrno(errno);
        sys::Close(source);
        return Fail(error);
    }
    int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (failIfExists ? O_EXCL : 0);
    int target = sys::Open(to.c_str(), flags, status.stx_mode & 07777);
    if (target < 0) {
        DWORD error = errno == EEXIST ? ERROR_FILE_EXISTS : PathError(errno, to);
        sys::Close(source);
        return Fail(error);
    }
    struct timespec times[2] = {{0, UTIME_OMIT},
                                {status.stx_mtime.tv_sec, static_cast<long>(status.stx_mtime.tv_nsec)}};
    bool copied = CopyContent(source, target) && sys::SetTimes(target, times) == 0;
    int error = copied ? 0 : errno;
    if (sys::Close(target) != 0 && copied) {
        copied = false;
        error = errno;
    }
    sys::Close(source);
    if (!copied) {
        sys::Unlink(to.c_str());  // no half copy stays under the new name
        return Fail(zel_platform::ErrorFromErrno(error));
    }
    return TRUE;
}
