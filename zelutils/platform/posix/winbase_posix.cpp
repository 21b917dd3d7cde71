// Renaming over renameat2, so "fail if the new name exists" is atomic.
#include "zelutils/platform/winbase.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

using namespace zel_platform::posix;

bool Exists(const std::string& path) {
    struct statx status {};
    return sys::Stat(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, &status) == 0;
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

BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags) {
    if (existingFileName == nullptr || newFileName == nullptr ||
        (flags & ~(MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::string from = ToNativePath(existingFileName);
    std::string to = ToNativePath(newFileName);
    bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    int result = sys::Rename(from.c_str(), to.c_str(), replace ? 0 : RENAME_NOREPLACE);
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

BOOL MoveFileW(LPCWSTR existingFileName, LPCWSTR newFileName) {
    return MoveFileExW(existingFileName, newFileName, 0);
}
