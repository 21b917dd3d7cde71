#include "zelutils/fs/platform_file.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/fileapi.h"
#include "zelutils/platform/handleapi.h"
#include "zelutils/platform/libloaderapi.h"
#include "zelutils/platform/processthreadsapi.h"
#include "zelutils/platform/winbase.h"
#include "zelutils/text/zel_printf.h"

#include <stdexcept>

namespace zel_fs {
namespace {

// The module name that every checked-tier error text carries.
constexpr char kModule[] = "zelutils/fs/platform_file";

constexpr LONGLONG kTicksPerSecond = 10000000;
constexpr LONGLONG kEpochTicks = 116444736000000000LL;  // 1970-01-01 in file-time ticks

bool IsInvalid(HANDLE handle) { return handle == INVALID_HANDLE_VALUE; }

// True for the invalid handle, which never reaches the platform; the last
// error then names the reason, as a platform refusal would.
bool Refused(HANDLE handle) {
    if (!IsInvalid(handle)) return false;
    SetLastError(ERROR_INVALID_HANDLE);
    return true;
}

// Throws the checked tier's error for the platform call `call` made on
// `line` of this file. Callers name the line of the call relative to the
// raising line (the call sits just above it).
[[noreturn]] void Raise(int line, const char* call, DWORD error = GetLastError()) {
    char text[160];
    zel_text::FormatBuffer(text, sizeof text, "[%s:%d] %s: %d", kModule, line, call,
                           static_cast<int>(error));
    throw std::runtime_error(text);
}

// The disposition a mode word selects: the first of 0x10, 0x08, 0x04, 0x02,
// 0x01 that is set; 0 for none.
DWORD DispositionOf(UINT mode) {
    if (mode & FO_TRUNCATE_EXISTING) return TRUNCATE_EXISTING;
    if (mode & FO_CREATE_ALWAYS) return CREATE_ALWAYS;
    if (mode & FO_OPEN_ALWAYS) return OPEN_ALWAYS;
    if (mode & FO_CREATE_NEW) return CREATE_NEW;
    if (mode & FO_OPEN_EXISTING) return OPEN_EXISTING;
    return 0;
}

int OpenErrorCode(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
        return FOE_NOT_FOUND;
    case ERROR_ACCESS_DENIED:
        return FOE_ACCESS_DENIED;
    case ERROR_SHARING_VIOLATION:
        return FOE_SHARING_VIOLATION;
    case ERROR_FILE_EXISTS:
        return FOE_FILE_EXISTS;
    default:
        return FOE_OTHER;
    }
}

// A 64-bit move of the file pointer; false when it fails.
bool MovePointer(HANDLE handle, std::int64_t offset, int whence, std::uint64_t* position) {
    LARGE_INTEGER distance{};
    distance.QuadPart = offset;
    LARGE_INTEGER moved{};
    if (!SetFilePointerEx(handle, distance, &moved, static_cast<DWORD>(whence))) return false;
    *position = static_cast<std::uint64_t>(moved.QuadPart);
    return true;
}

// The directory-less probe behind file_exists and file_size_by_name.
bool Probe(const WCHAR* path, WIN32_FIND_DATAW* data) {
    if (path == nullptr || path[0] == 0) return false;
    HANDLE search = FindFirstFileW(path, data);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    return true;
}

// Whether a low word from SetFilePointer or GetFileSize reports a failure:
// all ones is also a legal low word, told apart by a last error of 0.
bool LowWordFailed(DWORD low) { return low == 0xFFFFFFFF && GetLastError() != ERROR_SUCCESS; }

// SetFilePointer with the high word passed by reference.
std::uint64_t CheckedMove(HANDLE handle, std::int64_t offset, int whence) {
    LONG high = static_cast<LONG>(offset >> 32);
    LONG low = static_cast<LONG>(offset & 0xFFFFFFFF);
    DWORD moved = SetFilePointer(handle, low, &high, static_cast<DWORD>(whence));
    if (LowWordFailed(moved)) Raise(__LINE__ - 1, "SetFilePointer");
    return (static_cast<std::uint64_t>(static_cast<DWORD>(high)) << 32) | moved;
}

}  // namespace

FILETIME seconds_to_filetime(std::int64_t seconds) {
    ULONGLONG ticks = static_cast<ULONGLONG>(seconds * kTicksPerSecond + kEpochTicks);
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::int64_t filetime_to_seconds(const FILETIME& time) {
    auto ticks = static_cast<LONGLONG>((ULONGLONG{time.dwHighDateTime} << 32) | time.dwLowDateTime);
    return (ticks - kEpochTicks) / kTicksPerSecond;
}

// ---- plain tier -------------------------------------------------------

HANDLE file_open(const WCHAR* path, UINT mode, bool* created, int* error) {
    if (created != nullptr) *created = false;
    DWORD disposition = DispositionOf(mode);
    if (disposition == 0) return nullptr;

    DWORD access = 0;
    if (mode & FO_READ) access |= GENERIC_READ;
    if (mode & FO_WRITE) access |= GENERIC_WRITE;
    if (mode & FO_WRITE_ATTRIBUTES) access |= FILE_WRITE_ATTRIBUTES;
    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE;
    if (mode & FO_DENY_READ) share &= ~FILE_SHARE_READ;
    if (mode & FO_DENY_WRITE) share &= ~FILE_SHARE_WRITE;
    if (mode & FO_SHARE_DELETE) share |= FILE_SHARE_DELETE;
    DWORD flags = 0;
    if (mode & FO_OVERLAPPED) flags |= FILE_FLAG_OVERLAPPED;
    if (mode & FO_TEMPORARY) flags |= FILE_ATTRIBUTE_TEMPORARY;
    if (mode & FO_HIDDEN) flags |= FILE_ATTRIBUTE_HIDDEN;
    if (mode & FO_DELETE_ON_CLOSE) flags |= FILE_FLAG_DELETE_ON_CLOSE;
    if (mode & FO_BACKUP_SEMANTICS) flags |= FILE_FLAG_BACKUP_SEMANTICS;

    HANDLE handle = CreateFileW(path, access, share, nullptr, disposition, flags, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        if (error != nullptr) *error = OpenErrorCode(GetLastError());
        return handle;
    }
    if (error != nullptr) *error = 0;
    if (created != nullptr) {
        if (disposition == OPEN_ALWAYS) {
            *created = GetLastError() != ERROR_ALREADY_EXISTS;
        } else {
            *created = disposition == CREATE_NEW || disposition == CREATE_ALWAYS;
        }
    }
    return handle;
}

bool file_open_into(HANDLE& handle, const WCHAR* path, UINT mode, bool* created, int* error) {
    handle = file_open(path, mode, created, error);
    return !IsInvalid(handle);
}

bool file_open_read(HANDLE& handle, const WCHAR* path) {
    return file_open_into(handle, path, FO_OPEN_READ);
}

bool file_open_write(HANDLE& handle, const WCHAR* path) {
    return file_open_into(handle, path, FO_CREATE_WRITE);
}

bool file_close(HANDLE handle) { return CloseHandle(handle) != FALSE; }

void file_close_reset(HANDLE& handle) {
    if (IsInvalid(handle)) return;
    CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
}

std::int32_t file_read(HANDLE handle, void* buffer, std::int32_t count) {
    if (Refused(handle) || count < 0) return -1;
    DWORD read = 0;
    if (ReadFile(handle, buffer, static_cast<DWORD>(count), &read, nullptr)) {
        return static_cast<std::int32_t>(read);
    }
    // Synchronous reads report the end as success with 0 bytes; some
    // platforms and devices report it as this error instead.
    return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
}

std::int32_t file_write(HANDLE handle, const void* buffer, std::int32_t count) {
    if (Refused(handle) || count < 0) return -1;
    DWORD written = 0;
    if (!WriteFile(handle, buffer, static_cast<DWORD>(count), &written, nullptr)) return -1;
    return static_cast<std::int32_t>(written);
}

std::uint64_t file_seek(HANDLE handle, int whence, std::int64_t offset) {
    if (Refused(handle)) return ~std::uint64_t{0};
    std::uint64_t position = 0;
    return MovePointer(handle, offset, whence, &position) ? position : 0;
}

bool file_truncate(HANDLE handle, std::uint64_t size) {
    if (Refused(handle)) return false;
    std::uint64_t previous = 0;
    std::uint64_t ignored = 0;
    return MovePointer(handle, 0, FILE_CURRENT, &previous) &&
           MovePointer(handle, static_cast<std::int64_t>(size), FILE_BEGIN, &ignored) &&
           SetEndOfFile(handle) &&
           MovePointer(handle, static_cast<std::int64_t>(previous), FILE_BEGIN, &ignored);
}

bool file_flush(HANDLE handle) { return !Refused(handle) && FlushFileBuffers(handle); }

HANDLE file_duplicate(HANDLE handle, int* failed) {
    HANDLE duplicate = INVALID_HANDLE_VALUE;
    bool ok =
        !Refused(handle) && DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(),
                                              &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS);
    if (failed != nullptr) *failed = ok ? 0 : -1;
    return ok ? duplicate : INVALID_HANDLE_VALUE;
}

bool file_stat(HANDLE handle, file_info* info) {
    if (Refused(handle) || info == nullptr) return false;
    BY_HANDLE_FILE_INFORMATION record{};
    if (!GetFileInformationByHandle(handle, &record)) return false;
    info->size = (std::uint64_t{record.nFileSizeHigh} << 32) | record.nFileSizeLow;
    info->isDirectory = (record.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info->reserved = false;
    info->lastWriteTime = static_cast<std::int32_t>(filetime_to_seconds(record.ftLastWriteTime));
    info->lastAccessTime = static_cast<std::int32_t>(filetime_to_seconds(record.ftLastAccessTime));
    info->creationTime = static_cast<std::int32_t>(filetime_to_seconds(record.ftCreationTime));
    return true;
}

bool file_set_times(HANDLE handle, std::int64_t accessTime, std::int64_t writeTime) {
    if (Refused(handle)) return false;
    FILETIME access = seconds_to_filetime(accessTime);
    FILETIME write = seconds_to_filetime(writeTime);
    return SetFileTime(handle, nullptr, &access, &write) != FALSE;
}

bool file_exists(const WCHAR* path, bool* isDirectory) {
    WIN32_FIND_DATAW data{};
    if (!Probe(path, &data)) return false;
    if (isDirectory != nullptr) {
        *isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }
    return true;
}

bool path_exists(const WCHAR* path) { return file_exists(path); }

std::int64_t file_size_by_name(const WCHAR* path) {
    WIN32_FIND_DATAW data{};
    if (!Probe(path, &data)) return -1;
    return static_cast<std::int64_t>((std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow);
}

void build_path(zel_text::CZelStringW& out, const WCHAR* part1, const WCHAR* part2,
                const WCHAR* part3, const WCHAR* extension) {
    out.Empty();
    for (const WCHAR* part : {part1, part2, part3}) {
        if (part == nullptr) continue;
        if (!out.IsEmpty()) out += ZW('\\');
        out += part;
    }
    if (extension != nullptr && extension[0] != 0) {
        if (extension[0] != ZW('.')) out += ZW('.');
        out += extension;
    }
    out.Replace(ZW('/'), ZW('\\'));
    // A pass turns three backslashes into two, so repeat until none pair up.
    while (out.Replace(ZW("\\\\"), ZW("\\")) > 0) {
    }
}

bool is_dot_entry(const WCHAR* name, UINT flags) {
    if (name == nullptr || name[0] != ZW('.')) return false;
    if (name[1] == 0) return true;
    return name[1] == ZW('.') && name[2] == 0 && (flags & LIST_INCLUDE_PARENT) == 0;
}

int LastPathSeparator(const zel_text::CZelStringW& path) {
    int backslash = path.ReverseFind(ZW('\\'));
    int slash = path.ReverseFind(ZW('/'));
    return backslash > slash ? backslash : slash;
}

bool CreateFolderPath(const zel_text::CZelStringW& folder) {
    if (folder.IsEmpty()) return true;
    DWORD attributes = GetFileAttributesW(folder.GetString());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return true;
    int separator = LastPathSeparator(folder);
    if (separator == folder.GetLength() - 1) return CreateFolderPath(folder.Left(separator));
    if (separator > 0 && !CreateFolderPath(folder.Left(separator))) return false;
    if (CreateDirectoryW(folder.GetString(), nullptr)) return true;
    // Another creator may have come first.
    DWORD error = GetLastError();
    attributes = GetFileAttributesW(folder.GetString());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return true;
    SetLastError(error);
    return false;
}

// ---- checked tier -----------------------------------------------------

std::int32_t CheckedFile::Read(void* buffer, std::int32_t count) {
    std::int32_t read = file_read(handle, buffer, count);
    if (read == -1 && GetLastError() != ERROR_HANDLE_EOF) Raise(__LINE__ - 1, "Read");
    return read == -1 ? 0 : read;
}

std::int32_t CheckedFile::Write(const void* buffer, std::int32_t count) {
    std::int32_t written = file_write(handle, buffer, count);
    if (written != count) Raise(__LINE__ - 1, "Write");
    return written;
}

void CheckedFile::Flush() {
    bool flushed = file_flush(handle);
    if (!flushed) Raise(__LINE__ - 1, "FlushFileBuffers");
}

std::uint64_t CheckedFile::Tell() { return CheckedMove(handle, 0, FILE_CURRENT); }

std::uint64_t CheckedFile::Seek(std::int64_t offset, int whence) {
    return CheckedMove(handle, offset, whence);
}

std::uint64_t CheckedFile::GetSize() {
    DWORD high = 0;
    DWORD low = GetFileSize(handle, &high);
    if (LowWordFailed(low)) Raise(__LINE__ - 1, "GetFileSize");
    return (std::uint64_t{high} << 32) | low;
}

void CheckedFile::SetSize(std::uint64_t size) {
    Seek(static_cast<std::int64_t>(size), FILE_BEGIN);
    BOOL cut = SetEndOfFile(handle);
    if (!cut) Raise(__LINE__ - 1, "SetEndOfFile");
}

void MoveFileChecked(const WCHAR* from, const WCHAR* to) {
    BOOL moved = MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING);
    if (!moved) Raise(__LINE__ - 1, "MoveFile");
}

void DeleteFileChecked(const WCHAR* path) {
    BOOL deleted = DeleteFileW(path);
    if (!deleted) Raise(__LINE__ - 1, "DeleteFile");
}

UINT GetTempFileNameChecked(const WCHAR* directory, const WCHAR* prefix, UINT unique,
                            zel_text::CZelStringW& out) {
    out.Empty();
    WCHAR name[MAX_PATH] = {};
    UINT used = GetTempFileNameW(directory, prefix, unique, name);
    if (used == 0) Raise(__LINE__ - 1, "GetTempFileName");
    out = name;
    return used;
}

void GetTempPathChecked(zel_text::CZelStringW& out) {
    out.Empty();
    WCHAR path[MAX_PATH] = {};
    // A length past the buffer means the call only measured the folder's name.
    DWORD length = GetTempPathW(MAX_PATH, path);
    if (length == 0) Raise(__LINE__ - 1, "GetTempPath");
    if (length > MAX_PATH) Raise(__LINE__ - 2, "GetTempPath", ERROR_INSUFFICIENT_BUFFER);
    out = path;
}

void GetModuleFileNameChecked(HMODULE module, zel_text::CZelStringW& out, bool fullPath) {
    WCHAR path[MAX_PATH] = {};
    // A path cut to the buffer (ERROR_INSUFFICIENT_BUFFER) is as useless as none.
    DWORD length = GetModuleFileNameW(module, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) Raise(__LINE__ - 1, "GetModuleFileName");
    zel_text::CZelStringW name(path);
    if (!fullPath) {
        name = name.Mid(LastPathSeparator(name) + 1);
        int dot = name.ReverseFind(ZW('.'));
        if (dot >= 0) name = name.Left(dot);
        // The name part is split off into a buffer of 256 units.
        name = name.Left(255);
    }
    out = name;
}

}  // namespace zel_fs
