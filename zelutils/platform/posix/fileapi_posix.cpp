// Files, folders and directory searches over POSIX descriptors, with the
// Win32 dispositions, error numbers and end-of-file reporting.
#include "zelutils/platform/fileapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/file_descriptor.h"
#include "zelutils/platform/posix/file_time.h"
#include "zelutils/platform/posix/handle_table.h"
#include "zelutils/platform/posix/path_conversion.h"
#include "zelutils/platform/posix/system_calls.h"
#include "zelutils/text/zel_chars.h"

#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace zel_platform::posix {
namespace {

constexpr DWORD kReadAccess = GENERIC_READ | GENERIC_ALL | FILE_READ_DATA;
constexpr DWORD kWriteAccess = GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA;
constexpr DWORD kAttributeAccess = kWriteAccess | FILE_WRITE_ATTRIBUTES;

bool SameFile(const struct statx& a, const struct statx& b) {
    return a.stx_ino == b.stx_ino && a.stx_dev_major == b.stx_dev_major &&
           a.stx_dev_minor == b.stx_dev_minor;
}

bool Fail(DWORD error) {
    SetLastError(error);
    return false;
}

bool FailFromErrno() {
    SetLastErrorFromErrno(errno);
    return false;
}

// An open descriptor. Duplicated handles share the object, so the descriptor
// is closed (and a delete-on-close file removed) when the last handle goes.
class FileObject final : public KernelObject {
public:
    FileObject(int fd, DWORD access, bool regular, std::string deleteOnClosePath)
        : KernelObject(ObjectKind::File),
          fd_(fd),
          access_(access),
          regular_(regular),
          deletePath_(std::move(deleteOnClosePath)) {}

    ~FileObject() override { Release(); }

    bool Release() override {
        if (fd_ < 0) return true;
        if (!deletePath_.empty()) UnlinkIfStillThisFile();
        int result = sys::Close(fd_);
        fd_ = -1;
        // Linux releases the descriptor even when close is interrupted, and
        // an interrupted close has lost no data.
        return result == 0 || errno == EINTR || FailFromErrno();
    }

    int Fd() const { return fd_; }
    bool Allows(DWORD rights) const { return (access_ & rights) != 0; }
    // Regular files are read until the count is met or the end is reached;
    // other files (pipes, devices) return what one read gives, as on Windows.
    bool Regular() const { return regular_; }

private:
    // The name may have been renamed away or reused since the open.
    void UnlinkIfStillThisFile() {
        struct statx named {};
        struct statx open {};
        if (sys::Stat(AT_FDCWD, deletePath_.c_str(), AT_SYMLINK_NOFOLLOW, &named) == 0 &&
            sys::Stat(fd_, "", AT_EMPTY_PATH, &open) == 0 && SameFile(named, open)) {
            sys::Unlink(deletePath_.c_str());
        }
    }

    int fd_;
    DWORD access_;
    bool regular_;
    std::string deletePath_;
};

std::shared_ptr<FileObject> FileOf(HANDLE file) { return Find<FileObject>(file, ObjectKind::File); }

// Looks up the file and checks the access the call needs (5 without it).
std::shared_ptr<FileObject> FileWithAccess(HANDLE file, DWORD rights) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (object && !object->Allows(rights)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return object;
}

// The common start of ReadFile and WriteFile: the count done is 0 until
// known, the handle must allow the transfer, I/O is synchronous only, and a
// null buffer for a count other than 0 fails with nullBufferError.
std::shared_ptr<FileObject> BeginTransfer(HANDLE file, DWORD rights, LPCVOID buffer, DWORD count,
                                          LPDWORD done, LPOVERLAPPED overlapped, DWORD nullBufferError) {
    if (done != nullptr) *done = 0;
    std::shared_ptr<FileObject> object = FileWithAccess(file, rights);
    if (object && (overlapped != nullptr || (buffer == nullptr && count != 0))) {
        SetLastError(overlapped != nullptr ? ERROR_INVALID_PARAMETER : nullBufferError);
        return nullptr;
    }
    return object;
}

// Reports the bytes moved, also on failure (errno then tells why).
BOOL EndTransfer(DWORD total, LPDWORD done, bool succeeded) {
    if (done != nullptr) *done = total;
    if (succeeded) return TRUE;
    SetLastErrorFromErrno(errno);
    return FALSE;
}

FILETIME FileTimeOf(const struct statx_timestamp& time) {
    return posix::FileTimeOf(time.tv_sec, static_cast<long>(time.tv_nsec));
}

DWORD AttributesOf(const struct statx& status) {
    DWORD attributes = 0;
    if (S_ISDIR(status.stx_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if ((status.stx_mode & S_IWUSR) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
    if (S_ISLNK(status.stx_mode)) attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    if (S_ISCHR(status.stx_mode) || S_ISBLK(status.stx_mode) || S_ISFIFO(status.stx_mode) ||
        S_ISSOCK(status.stx_mode)) {
        attributes |= FILE_ATTRIBUTE_DEVICE;
    }
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

// The birth time where the file system records one, else the last change.
FILETIME CreationTimeOf(const struct statx& status) {
    return FileTimeOf((status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime : status.stx_ctime);
}

std::string AbsolutePath(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    char* cwd = getcwd(nullptr, 0);
    if (cwd == nullptr) return path;
    std::string absolute = std::string(cwd) + "/" + path;
    std::free(cwd);
    return absolute;
}

// Opens with a Win32 disposition. *existed tells, for OPEN_ALWAYS and
// CREATE_ALWAYS, that the file was there before; *created that this open
// certainly made it.
int OpenWithDisposition(const std::string& path, int flags, DWORD disposition, mode_t mode,
                        bool* existed, bool* created) {
    switch (disposition) {
    case CREATE_NEW:
        *created = true;
        return sys::Open(path.c_str(), flags | O_CREAT | O_EXCL, mode);
    case OPEN_EXISTING:
        return sys::Open(path.c_str(), flags, 0);
    case TRUNCATE_EXISTING:
        return sys::Open(path.c_str(), flags | O_TRUNC, 0);
    default:
        break;
    }
    // OPEN_ALWAYS, CREATE_ALWAYS: the existing file first, else an exclusive
    // create, so "it was there" is never a guess. A file that comes and goes
    // between the two steps sends us round again; after a few rounds (or for
    // a dangling link, which neither step accepts) a plain create decides.
    int truncate = disposition == CREATE_ALWAYS ? O_TRUNC : 0;
    for (int round = 0; round < 8; ++round) {
        int fd = sys::Open(path.c_str(), flags | truncate, 0);
        if (fd >= 0) {
            *existed = true;
            return fd;
        }
        if (errno != ENOENT) return -1;
        fd = sys::Open(path.c_str(), flags | O_CREAT | O_EXCL, mode);
        *created = fd >= 0;
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return sys::Open(path.c_str(), flags | O_CREAT | truncate, mode);
}

// Moves the file pointer. `within32Bits`: the caller cannot receive a
// position past 4 GB, so such a move is refused and undone.
bool MovePointer(HANDLE file, LONGLONG distance, DWORD method, bool within32Bits,
                 LONGLONG* position) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (!object) return false;
    if (method > FILE_END) return Fail(ERROR_INVALID_PARAMETER);
    static_assert(FILE_BEGIN == SEEK_SET && FILE_CURRENT == SEEK_CUR && FILE_END == SEEK_END,
                  "move methods are the lseek origins");
    off_t previous = within32Bits ? sys::Seek(object->Fd(), 0, SEEK_CUR) : 0;
    off_t result = sys::Seek(object->Fd(), distance, static_cast<int>(method));
    if (result < 0) {
        // With a valid origin, EINVAL means a position before the start.
        return Fail(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorFromErrno(errno));
    }
    if (within32Bits && result > 0xFFFFFFFFLL) {
        sys::Seek(object->Fd(), previous, SEEK_SET);
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *position = result;
    return true;
}

bool StatusOf(HANDLE file, struct statx* status) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (!object) return false;
    return sys::Stat(object->Fd(), "", AT_EMPTY_PATH, status) == 0 || FailFromErrno();
}

// ---- directory searches -------------------------------------------------

WCHAR FoldAscii(WCHAR c) { return (c >= u'A' && c <= u'Z') ? static_cast<WCHAR>(c + 32) : c; }

// `*` any run; `?` one unit other than a dot, while at a dot or at the end of
// the name a run of `?` matches nothing (so "a?" finds "a", and " ?a" does
// not find " .a"), as Windows' DOS_QM does; ASCII letters compare without case.
bool MatchesPattern(const WideString& pattern, std::size_t patternEnd, const WideString& name) {
    std::size_t p = 0, n = 0;
    std::size_t starP = WideString::npos, starN = 0;
    while (n < name.size()) {
        if (p < patternEnd && pattern[p] == u'*') {
            starP = p++;
            starN = n;
        } else if (p < patternEnd && pattern[p] == u'?' && name[n] == u'.') {
            while (p < patternEnd && pattern[p] == u'?') ++p;
        } else if (p < patternEnd &&
                   (pattern[p] == u'?' || FoldAscii(pattern[p]) == FoldAscii(name[n]))) {
            ++p;
            ++n;
        } else if (starP != WideString::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < patternEnd && (pattern[p] == u'*' || pattern[p] == u'?')) ++p;
    return p == patternEnd;
}

// "name.*" also finds "name", and "*.*" finds every name, dotted or not.
bool Matches(const WideString& pattern, const WideString& name) {
    std::size_t size = pattern.size();
    if (MatchesPattern(pattern, size, name)) return true;
    return size >= 2 && pattern[size - 2] == u'.' && pattern[size - 1] == u'*' &&
           MatchesPattern(pattern, size - 2, name);
}

// Stats an entry as Windows describes one: a symbolic link by its target (a
// dangling one by itself), marked FILE_ATTRIBUTE_REPARSE_POINT so that a
// walker does not descend through it. False with errno when both fail.
bool StatEntry(int dirFd, const char* name, struct statx* status, bool* isLink) {
    if (sys::Stat(dirFd, name, AT_SYMLINK_NOFOLLOW, status) != 0) return false;
    *isLink = S_ISLNK(status->stx_mode);
    if (*isLink) {
        struct statx target {};
        if (sys::Stat(dirFd, name, 0, &target) == 0) *status = target;
    }
    return true;
}

DWORD EntryAttributesOf(const struct statx& status, bool isLink) {
    DWORD attributes = AttributesOf(status);
    return isLink ? (attributes & ~FILE_ATTRIBUTE_NORMAL) | FILE_ATTRIBUTE_REPARSE_POINT : attributes;
}

void FillFindData(const WideString& name, const struct statx& status, bool isLink,
                  LPWIN32_FIND_DATAW data) {
    *data = WIN32_FIND_DATAW{};
    data->dwFileAttributes = EntryAttributesOf(status, isLink);
    data->ftCreationTime = CreationTimeOf(status);
    data->ftLastAccessTime = FileTimeOf(status.stx_atime);
    data->ftLastWriteTime = FileTimeOf(status.stx_mtime);
    data->nFileSizeHigh = static_cast<DWORD>(status.stx_size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(status.stx_size);
    std::size_t length = name.size() < MAX_PATH - 1 ? name.size() : MAX_PATH - 1;
    name.copy(data->cFileName, length);
}

// A search in progress: the open folder and the pattern of its last
// component. A search for one named entry has no folder and no next entry.
class SearchObject final : public KernelObject {
public:
    SearchObject(DIR* folder, WideString pattern)
        : KernelObject(ObjectKind::Find), folder_(folder), pattern_(std::move(pattern)) {}

    ~SearchObject() override {
        if (folder_ != nullptr) sys::CloseDirectory(folder_);
    }

    // The next matching entry; false with 18 at the end, or the error.
    bool Next(LPWIN32_FIND_DATAW data) {
        if (folder_ == nullptr) return Fail(ERROR_NO_MORE_FILES);
        for (;;) {
            dirent* entry = sys::ReadDirectory(folder_);
            if (entry == nullptr) return errno == 0 ? Fail(ERROR_NO_MORE_FILES) : FailFromErrno();
            WideString name =
                FromNativeText(entry->d_name, std::char_traits<char>::length(entry->d_name));
            if (!Matches(pattern_, name)) continue;
            struct statx status {};
            bool isLink = false;
            if (!StatEntry(dirfd(folder_), entry->d_name, &status, &isLink)) {
                continue;  // gone since readdir
            }
            FillFindData(name, status, isLink, data);
            return true;
        }
    }

private:
    DIR* folder_;
    WideString pattern_;
};

// The library-side last component of a path (after the last `\` or `/`).
std::size_t LastComponentStart(const WCHAR* path) {
    std::size_t start = 0;
    for (std::size_t i = 0; path[i] != 0; ++i) {
        if (path[i] == u'\\' || path[i] == u'/') start = i + 1;
    }
    return start;
}

// ---- temporary names ----------------------------------------------------

void AppendHex(WideString& out, UINT value) {
    WCHAR digits[8];
    int count = 0;
    do {
        digits[count++] = static_cast<WCHAR>(zel_text::chars::kHexDigitsUpper[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    while (count > 0) out += digits[--count];
}

WideString TempFileName(const WideString& stem, UINT unique) {
    WideString name = stem;
    AppendHex(name, unique);
    name += u".tmp";
    return name;
}

}  // namespace

int DuplicateFileDescriptor(HANDLE file, bool needWrite) {
    std::shared_ptr<FileObject> object = FileWithAccess(file, kReadAccess);
    if (object && needWrite && !object->Allows(kWriteAccess)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return -1;
    }
    if (!object) return -1;
    int fd = fcntl(object->Fd(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0) SetLastErrorFromErrno(errno);
    return fd;
}

}  // namespace zel_platform::posix

using namespace zel_platform::posix;
using zel_platform::ErrorFromErrno;
using zel_platform::SetLastErrorFromErrno;

HANDLE zel_win32::CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD /*shareMode: not enforceable*/,
                   LPSECURITY_ATTRIBUTES /*securityAttributes*/, DWORD creationDisposition,
                   DWORD flagsAndAttributes, HANDLE /*templateFile*/) {
    bool read = (desiredAccess & kReadAccess) != 0;
    bool write = (desiredAccess & kWriteAccess) != 0;
    // Truncation asks for GENERIC_WRITE itself; FILE_WRITE_DATA does not do.
    if (creationDisposition < CREATE_NEW || creationDisposition > TRUNCATE_EXISTING ||
        (creationDisposition == TRUNCATE_EXISTING && (desiredAccess & GENERIC_WRITE) == 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::string path;
    if (!NameToNativePath(fileName, path)) return INVALID_HANDLE_VALUE;
    int flags = (read && write) ? O_RDWR : write ? O_WRONLY : O_RDONLY;
    flags |= O_CLOEXEC;
    if ((flagsAndAttributes & FILE_FLAG_WRITE_THROUGH) != 0) flags |= O_DSYNC;
    mode_t mode = (flagsAndAttributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444 : 0666;
    bool backupSemantics = (flagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS) != 0;

    bool existed = false;
    bool created = false;
    int fd = OpenWithDisposition(path, flags, creationDisposition, mode, &existed, &created);
    if (fd < 0 && errno == EISDIR && backupSemantics && creationDisposition != CREATE_ALWAYS &&
        creationDisposition != TRUNCATE_EXISTING) {
        // A folder handle carries no data access; the rights are still recorded.
        fd = sys::Open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
        existed = true;
        created = false;
    }
    if (fd < 0) {
        // A folder is no file to create: Windows denies it rather than report it exists.
        int error = errno;
        struct statx existing {};
        bool folder = error == EEXIST && !backupSemantics &&
                      sys::Stat(AT_FDCWD, path.c_str(), 0, &existing) == 0 && S_ISDIR(existing.stx_mode);
        SetLastError(folder ? ERROR_ACCESS_DENIED : PathError(error, path));
        return INVALID_HANDLE_VALUE;
    }
    // A step that fails after the open takes back a file the open created,
    // so a failed create leaves nothing behind, as on Windows.
    auto abandon = [&](int openFd, DWORD error) {
        if (openFd >= 0) sys::Close(openFd);
        if (created) sys::Unlink(path.c_str());
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    };
    struct statx status {};
    if (sys::Stat(fd, "", AT_EMPTY_PATH, &status) != 0) return abandon(fd, ErrorFromErrno(errno));
    if (S_ISDIR(status.stx_mode) && !backupSemantics) return abandon(fd, ERROR_ACCESS_DENIED);
    std::string deletePath;
    if ((flagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0) deletePath = AbsolutePath(path);
    HANDLE handle = InsertObject(std::make_shared<FileObject>(
        fd, desiredAccess, S_ISREG(status.stx_mode), std::move(deletePath)));
    // A full table: the object closed the descriptor already.
    if (handle == nullptr) return abandon(-1, GetLastError());
    bool reportExisting =
        existed && (creationDisposition == OPEN_ALWAYS || creationDisposition == CREATE_ALWAYS);
    SetLastError(reportExisting ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

BOOL zel_win32::ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    std::shared_ptr<FileObject> object =
        BeginTransfer(file, kReadAccess, buffer, toRead, read, overlapped, ERROR_NOACCESS);
    if (!object) return FALSE;
    DWORD total = 0;
    while (total < toRead) {
        ssize_t count = sys::Read(object->Fd(), static_cast<char*>(buffer) + total, toRead - total);
        if (count < 0) return EndTransfer(total, read, false);
        total += static_cast<DWORD>(count);
        if (count == 0 || !object->Regular()) break;
    }
    return EndTransfer(total, read, true);
}

BOOL zel_win32::WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
               LPOVERLAPPED overlapped) {
    std::shared_ptr<FileObject> object =
        BeginTransfer(file, kWriteAccess, buffer, toWrite, written, overlapped, ERROR_INVALID_USER_BUFFER);
    if (!object) return FALSE;
    DWORD total = 0;
    while (total < toWrite) {
        ssize_t count =
            sys::Write(object->Fd(), static_cast<const char*>(buffer) + total, toWrite - total);
        // A write that makes no progress would be retried for ever: the
        // device is out of room.
        if (count == 0) errno = ENOSPC;
        if (count <= 0) return EndTransfer(total, written, false);
        total += static_cast<DWORD>(count);
    }
    return EndTransfer(total, written, true);
}

DWORD zel_win32::SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD moveMethod) {
    LONGLONG move = distance;
    if (distanceHigh != nullptr) {
        move = static_cast<LONGLONG>(
            (static_cast<ULONGLONG>(static_cast<DWORD>(*distanceHigh)) << 32) |
            static_cast<DWORD>(distance));
    }
    LONGLONG position = 0;
    if (!MovePointer(file, move, moveMethod, distanceHigh == nullptr, &position)) {
        return INVALID_SET_FILE_POINTER;
    }
    if (distanceHigh != nullptr) *distanceHigh = static_cast<LONG>(position >> 32);
    // Cleared so that an all-ones low word can be told from a failure.
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(position);
}

BOOL zel_win32::SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                      DWORD moveMethod) {
    LONGLONG position = 0;
    if (!MovePointer(file, distance.QuadPart, moveMethod, false, &position)) return FALSE;
    if (newPosition != nullptr) newPosition->QuadPart = position;
    return TRUE;
}

DWORD zel_win32::GetFileSize(HANDLE file, LPDWORD sizeHigh) {
    struct statx status {};
    if (!StatusOf(file, &status)) return INVALID_FILE_SIZE;
    if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(status.stx_size >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(status.stx_size);
}

BOOL zel_win32::SetEndOfFile(HANDLE file) {
    std::shared_ptr<FileObject> object = FileWithAccess(file, kWriteAccess);
    if (!object) return FALSE;
    off_t position = sys::Seek(object->Fd(), 0, SEEK_CUR);
    if (position < 0 || sys::Truncate(object->Fd(), position) != 0) return FailFromErrno();
    return TRUE;
}

BOOL zel_win32::FlushFileBuffers(HANDLE file) {
    std::shared_ptr<FileObject> object = FileWithAccess(file, kWriteAccess);
    if (!object) return FALSE;
    if (sys::Sync(object->Fd()) == 0) return TRUE;
    // A pipe has no medium: Windows flushes one once its reader holds the
    // bytes, which a write here has already handed over. fsync refuses
    // pipes and sockets with EINVAL.
    int error = errno;
    struct statx status {};
    if (error == EINVAL && sys::Stat(object->Fd(), "", AT_EMPTY_PATH, &status) == 0 &&
        (S_ISFIFO(status.stx_mode) || S_ISSOCK(status.stx_mode))) {
        return TRUE;
    }
    errno = error;
    return FailFromErrno();
}

// The whole file's flock lock stands for any range: the library locks files
// only to serialise whole-file edits.
BOOL zel_win32::LockFileEx(HANDLE file, DWORD flags, DWORD /*reserved*/, DWORD /*bytesLow*/,
                           DWORD /*bytesHigh*/, LPOVERLAPPED overlapped) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (!object) return FALSE;
    if (overlapped == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    int operation = (flags & LOCKFILE_EXCLUSIVE_LOCK) != 0 ? LOCK_EX : LOCK_SH;
    if ((flags & LOCKFILE_FAIL_IMMEDIATELY) != 0) operation |= LOCK_NB;
    if (sys::Lock(object->Fd(), operation) == 0) return TRUE;
    return errno == EWOULDBLOCK ? Fail(ERROR_LOCK_VIOLATION) : FailFromErrno();
}

BOOL zel_win32::UnlockFileEx(HANDLE file, DWORD /*reserved*/, DWORD /*bytesLow*/, DWORD /*bytesHigh*/,
                             LPOVERLAPPED overlapped) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (!object) return FALSE;
    if (overlapped == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    return sys::Lock(object->Fd(), LOCK_UN) == 0 || FailFromErrno();
}

BOOL zel_win32::GetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION information) {
    struct statx status {};
    if (!StatusOf(file, &status)) return FALSE;
    if (information == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    information->dwFileAttributes = AttributesOf(status);
    information->ftCreationTime = CreationTimeOf(status);
    information->ftLastAccessTime = FileTimeOf(status.stx_atime);
    information->ftLastWriteTime = FileTimeOf(status.stx_mtime);
    information->dwVolumeSerialNumber = (status.stx_dev_major << 20) | status.stx_dev_minor;
    information->nFileSizeHigh = static_cast<DWORD>(status.stx_size >> 32);
    information->nFileSizeLow = static_cast<DWORD>(status.stx_size);
    information->nNumberOfLinks = status.stx_nlink;
    information->nFileIndexHigh = static_cast<DWORD>(status.stx_ino >> 32);
    information->nFileIndexLow = static_cast<DWORD>(status.stx_ino);
    return TRUE;
}

BOOL zel_win32::SetFileTime(HANDLE file, const FILETIME* /*creationTime: POSIX keeps no settable one*/,
                 const FILETIME* lastAccessTime, const FILETIME* lastWriteTime) {
    std::shared_ptr<FileObject> object = FileWithAccess(file, kAttributeAccess);
    if (!object) return FALSE;
    struct timespec times[2];
    const FILETIME* requested[2] = {lastAccessTime, lastWriteTime};
    for (int i = 0; i < 2; ++i) {
        if (requested[i] == nullptr) {
            times[i].tv_sec = 0;
            times[i].tv_nsec = UTIME_OMIT;
        } else if (TicksOf(*requested[i]) >= kMaxFileTime) {
            return Fail(ERROR_INVALID_PARAMETER);
        } else {
            times[i] = TimespecOf(TicksOf(*requested[i]));
        }
    }
    return sys::SetTimes(object->Fd(), times) == 0 || FailFromErrno();
}

HANDLE zel_win32::FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData) {
    if (fileName == nullptr || findData == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::size_t start = LastComponentStart(fileName);
    WideString pattern(fileName + start);
    std::string path = ToNativePath(fileName);
    if (pattern.empty()) {
        // "folder\" names no entry to find; a missing folder is a bad path.
        struct statx status {};
        bool folder = sys::Stat(AT_FDCWD, path.c_str(), 0, &status) == 0 && S_ISDIR(status.stx_mode);
        SetLastError(folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    std::shared_ptr<SearchObject> search;
    if (pattern.find_first_of(u"*?") == WideString::npos) {
        struct statx status {};
        bool isLink = false;
        if (!StatEntry(AT_FDCWD, path.c_str(), &status, &isLink)) {
            SetLastError(PathError(errno, path));
            return INVALID_HANDLE_VALUE;
        }
        // The entry's own name: "name." finds "name".
        std::size_t slash = path.find_last_of('/');
        std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
        FillFindData(FromNativeText(path.data() + nameStart, path.size() - nameStart), status, isLink,
                     findData);
        search = std::make_shared<SearchObject>(nullptr, std::move(pattern));
    } else {
        std::string folder =
            start == 0 ? std::string(".") : ToNativePath(WideString(fileName, start).c_str());
        DIR* directory = sys::OpenDirectory(folder.c_str());
        if (directory == nullptr) {
            // A folder that cannot be listed for want of existence is a bad path.
            SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
            return INVALID_HANDLE_VALUE;
        }
        search = std::make_shared<SearchObject>(directory, std::move(pattern));
        if (!search->Next(findData)) {
            if (GetLastError() == ERROR_NO_MORE_FILES) SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
    }
    HANDLE handle = InsertObject(std::move(search));
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

BOOL zel_win32::FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData) {
    std::shared_ptr<SearchObject> search = Find<SearchObject>(findFile, ObjectKind::Find);
    if (!search) return FALSE;
    if (findData == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    return search->Next(findData);
}

BOOL zel_win32::FindClose(HANDLE findFile) {
    if (!FindObject(findFile, ObjectKind::Find)) return FALSE;
    return RemoveObject(findFile) ? TRUE : FALSE;
}

BOOL zel_win32::DeleteFileW(LPCWSTR fileName) {
    std::string path;
    if (!NameToNativePath(fileName, path)) return FALSE;
    if (IsReadOnlyFile(path)) return Fail(ERROR_ACCESS_DENIED);
    if (sys::Unlink(path.c_str()) == 0) return TRUE;
    return Fail(PathError(errno, path));
}

BOOL zel_win32::CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES /*securityAttributes*/) {
    std::string path;
    if (!NameToNativePath(pathName, path)) return FALSE;
    if (sys::MakeDirectory(path.c_str(), 0777) == 0) return TRUE;
    return Fail(errno == EEXIST ? ERROR_ALREADY_EXISTS : PathError(errno, path));
}

BOOL zel_win32::RemoveDirectoryW(LPCWSTR pathName) {
    std::string path;
    if (!NameToNativePath(pathName, path)) return FALSE;
    if (sys::RemoveDirectory(path.c_str()) == 0) return TRUE;
    int error = errno;
    struct statx status {};
    if (error == ENOTDIR && sys::Stat(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, &status) == 0) {
        return Fail(ERROR_DIRECTORY);  // the name is a file, not a folder on the way
    }
    return Fail(PathError(error, path));
}

BOOL zel_win32::SetFileAttributesW(LPCWSTR fileName, DWORD fileAttributes) {
    std::string path;
    if (!NameToNativePath(fileName, path)) return FALSE;
    struct statx status {};
    if (sys::Stat(AT_FDCWD, path.c_str(), 0, &status) != 0) return Fail(PathError(errno, path));
    if (S_ISDIR(status.stx_mode)) return TRUE;
    mode_t permissions = status.stx_mode & 07777;
    mode_t wanted = (fileAttributes & FILE_ATTRIBUTE_READONLY) != 0 ? permissions & ~mode_t{0222}
                                                                    : permissions | S_IWUSR;
    if (wanted == permissions) return TRUE;
    return sys::ChangeModeOf(path.c_str(), wanted) == 0 || Fail(PathError(errno, path));
}

DWORD zel_win32::GetFileAttributesW(LPCWSTR fileName) {
    std::string path;
    if (!NameToNativePath(fileName, path)) return INVALID_FILE_ATTRIBUTES;
    struct statx status {};
    bool isLink = false;
    if (!StatEntry(AT_FDCWD, path.c_str(), &status, &isLink)) {
        SetLastError(PathError(errno, path));
        return INVALID_FILE_ATTRIBUTES;
    }
    return EntryAttributesOf(status, isLink);
}

BOOL zel_win32::GetDiskFreeSpaceExW(LPCWSTR directoryName, PULARGE_INTEGER freeBytesAvailableToCaller,
                                    PULARGE_INTEGER totalNumberOfBytes, PULARGE_INTEGER totalNumberOfFreeBytes) {
    std::string path = directoryName == nullptr ? std::string(".") : ToNativePath(directoryName);
    struct statvfs volume {};
    if (statvfs(path.c_str(), &volume) != 0) return Fail(PathError(errno, path));
    ULONGLONG unit = volume.f_frsize;
    if (freeBytesAvailableToCaller != nullptr) freeBytesAvailableToCaller->QuadPart = unit * volume.f_bavail;
    if (totalNumberOfBytes != nullptr) totalNumberOfBytes->QuadPart = unit * volume.f_blocks;
    if (totalNumberOfFreeBytes != nullptr) totalNumberOfFreeBytes->QuadPart = unit * volume.f_bfree;
    return TRUE;
}

DWORD zel_win32::GetTempPathW(DWORD bufferLength, LPWSTR buffer) {
    const char* folder = std::getenv("TMPDIR");
    std::string path = (folder != nullptr && *folder != 0) ? folder : "/tmp";
    if (path.back() != '/') path += '/';
    return CopyOrMeasure(FromNativeText(path.data(), path.size()), buffer, bufferLength);
}

UINT zel_win32::GetTempFileNameW(LPCWSTR pathName, LPCWSTR prefixString, UINT unique, LPWSTR tempFileName) {
    if (pathName == nullptr || tempFileName == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    WideString stem(pathName);
    if (!stem.empty() && stem.back() != u'\\' && stem.back() != u'/') stem += u'/';
    for (int i = 0; prefixString != nullptr && i < 3 && prefixString[i] != 0; ++i)
        stem += prefixString[i];
    // Room for four hex digits, ".tmp" and the terminator, as Windows demands.
    if (stem.size() + 9 > MAX_PATH) return Fail(ERROR_FILENAME_EXCED_RANGE);

    if (unique != 0) {
        unique &= 0xFFFF;
        WideString name = TempFileName(stem, unique);
        name.copy(tempFileName, name.size());
        tempFileName[name.size()] = 0;
        return unique;
    }
    // Start somewhere different in each process and at each moment, then
    // walk the 65535 numbers; O_EXCL makes each try an atomic claim.
    auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    UINT start = static_cast<UINT>((now ^ (static_cast<long long>(getpid()) << 16)) % 0xFFFF) + 1;
    for (UINT step = 0; step < 0xFFFF; ++step) {
        UINT number = (start - 1 + step) % 0xFFFF + 1;
        WideString name = TempFileName(stem, number);
        std::string path = ToNativePath(name.c_str());
        int fd = sys::Open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0) {
            sys::Close(fd);
            name.copy(tempFileName, name.size());
            tempFileName[name.size()] = 0;
            return number;
        }
        // A folder that is missing (or is no folder) is "the directory name
        // is invalid" here, as Windows reports it.
        if (errno == ENOENT || errno == ENOTDIR) return Fail(ERROR_DIRECTORY);
        if (errno != EEXIST) return Fail(PathError(errno, path));
    }
    return Fail(ERROR_FILE_EXISTS);
}

bool zel_platform::ResolveSymbolicLinks(LPCWSTR path, std::basic_string<WCHAR>& target) {
    if (path == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    std::string current = ToNativePath(path);
    // As many links as the system itself follows before it reports a loop.
    constexpr int kMaxLinks = 40;
    for (int followed = 0;; ++followed) {
        struct statx status {};
        if (sys::Stat(AT_FDCWD, current.c_str(), AT_SYMLINK_NOFOLLOW, &status) != 0) {
            if (errno != ENOENT) return Fail(PathError(errno, current));
            status.stx_mode = S_IFREG;  // not there yet: created under this name
        }
        if (!S_ISLNK(status.stx_mode)) {
            target = followed == 0 ? WideString(path) : FromNativeText(current.data(), current.size());
            return true;
        }
        if (followed == kMaxLinks) return Fail(ERROR_CANT_RESOLVE_FILENAME);
        // One byte more than the link's size tells a link replaced meanwhile
        // by a longer one, which the next round reads again.
        std::string link(static_cast<std::size_t>(status.stx_size) + 1, '\0');
        ssize_t length = sys::ReadLink(current.c_str(), link.data(), link.size());
        if (length < 0) return Fail(PathError(errno, current));
        if (static_cast<std::size_t>(length) == link.size()) continue;
        link.resize(static_cast<std::size_t>(length));
        std::string::size_type slash = current.find_last_of('/');
        if (link.empty() || link[0] == '/' || slash == std::string::npos) {
            current = link;
        } else {
            current = current.substr(0, slash + 1) + link;
        }
    }
}

bool zel_platform::CopyFileAccess(LPCWSTR model, HANDLE file) {
    std::shared_ptr<FileObject> object = FileOf(file);
    if (!object) return false;
    if (model == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    std::string path = ToNativePath(model);
    struct statx status {};
    if (sys::Stat(AT_FDCWD, path.c_str(), 0, &status) != 0) return Fail(PathError(errno, path));
    // The owner first, since changing it may clear set-id bits. A process
    // that may not give the file away keeps it as its own (EPERM).
    if (sys::ChangeOwner(object->Fd(), status.stx_uid, status.stx_gid) != 0 && errno != EPERM) {
        return FailFromErrno();
    }
    return sys::ChangeMode(object->Fd(), status.stx_mode & 07777) == 0 || FailFromErrno();
}

bool zel_platform::IsExecutable(HANDLE file) {
    struct statx status {};
    return StatusOf(file, &status) && (status.stx_mode & S_IXUSR) != 0;
}

bool zel_platform::MakeExecutable(HANDLE file) {
    struct statx status {};
    if (!StatusOf(file, &status)) return false;
    mode_t permissions = status.stx_mode & 07777;
    // Read permission (0444) shifted onto execute (0111): the bits the mask
    // left readable become executable, and no others.
    return sys::ChangeMode(FileOf(file)->Fd(), permissions | ((permissions & 0444) >> 2)) == 0 || FailFromErrno();
}

BOOL zel_win32::FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime) {
    if (fileTime == nullptr || localFileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    ULONGLONG ticks = TicksOf(*fileTime);
    if (ticks >= kMaxFileTime) return Fail(ERROR_INVALID_PARAMETER);
    time_t seconds = TimespecOf(ticks).tv_sec;
    struct tm local {};
    tzset();  // a TZ changed since the last conversion counts, as it does for mktime
    if (localtime_r(&seconds, &local) == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    ULONGLONG shifted = 0;
    if (!zel_platform::posix::ShiftTicks(ticks, local.tm_gmtoff * static_cast<LONGLONG>(kTicksPerSecond),
                                         &shifted)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *localFileTime = zel_platform::posix::FileTimeOf(shifted);
    return TRUE;
}

BOOL zel_win32::LocalFileTimeToFileTime(const FILETIME* localFileTime, LPFILETIME fileTime) {
    if (fileTime == nullptr || localFileTime == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    ULONGLONG ticks = TicksOf(*localFileTime);
    if (ticks >= kMaxFileTime) return Fail(ERROR_INVALID_PARAMETER);
    // The local fields, read as if they were UTC, go through mktime, which
    // knows the offset in force at that local time (DST included).
    time_t localSeconds = TimespecOf(ticks).tv_sec;
    struct tm fields {};
    if (gmtime_r(&localSeconds, &fields) == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    fields.tm_isdst = -1;
    time_t utcSeconds = mktime(&fields);
    ULONGLONG shifted = 0;
    if (!zel_platform::posix::ShiftTicks(
            ticks, static_cast<LONGLONG>(utcSeconds - localSeconds) * static_cast<LONGLONG>(kTicksPerSecond),
            &shifted)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *fileTime = zel_platform::posix::FileTimeOf(shifted);
    return TRUE;
}
