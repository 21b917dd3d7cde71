/// @file
/// Files, folders and directory searches under their Win32 names. Paths are
/// UTF-16 and accept both `\` and `/` as separators. As on Windows, trailing
/// dots and spaces of a path's last component are dropped ("name." names
/// "name"), and a null path or one holding a wildcard (`*`, `?`, `<`, `>`,
/// `"`) names nothing: the calls that take a file or folder name fail with 3
/// and 123 for them. Failures return the call's sentinel (FALSE,
/// INVALID_HANDLE_VALUE, INVALID_SET_FILE_POINTER, ...) and leave a Win32
/// error number in the last error: 2 file not found, 3 path not found, 5
/// access denied (also a folder opened as a file, a read-only file deleted or
/// replaced), 6 stale handle, 80 file exists, 112 disk full, 123 invalid name,
/// 206 name too long, 223 file too large. A read-only file is one whose
/// owner write permission is cleared, whoever the caller is.
///
/// On POSIX share modes are accepted but not enforced (POSIX cannot deny
/// sharing to other openers), and every I/O is synchronous.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <string>

#ifndef _WIN32
namespace zel_win32 {
/// @name Creation dispositions
//@{
/// A creation disposition of CreateFileW. CREATE_NEW fails if the file
/// exists; CREATE_ALWAYS creates or truncates; OPEN_EXISTING fails if it is
/// missing; OPEN_ALWAYS opens or creates; TRUNCATE_EXISTING opens and empties.
#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5
//@}

/// @name Access rights
//@{
/// An access right of CreateFileW. GENERIC_READ and GENERIC_WRITE for
/// data, GENERIC_EXECUTE, GENERIC_ALL, and the specific FILE_* rights.
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u
#define FILE_READ_DATA 0x0001u
#define FILE_WRITE_DATA 0x0002u
#define FILE_APPEND_DATA 0x0004u
#define FILE_READ_ATTRIBUTES 0x0080u
#define FILE_WRITE_ATTRIBUTES 0x0100u
//@}

/// @name Share modes
//@{
/// A share mode: what other openers may do while the file is open (read,
/// write, delete). Accepted but not enforced on POSIX.
#define FILE_SHARE_READ 0x1u
#define FILE_SHARE_WRITE 0x2u
#define FILE_SHARE_DELETE 0x4u
//@}

/// @name File attributes
//@{
/// A file attribute bit. Used by GetFileAttributesW, WIN32_FIND_DATAW and CreateFileW:
/// read-only, hidden, system, folder, archive, device, normal (none of the
/// others), temporary, reparse point (a symbolic link).
#define FILE_ATTRIBUTE_READONLY 0x1u
#define FILE_ATTRIBUTE_HIDDEN 0x2u
#define FILE_ATTRIBUTE_SYSTEM 0x4u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_ARCHIVE 0x20u
#define FILE_ATTRIBUTE_DEVICE 0x40u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_ATTRIBUTE_TEMPORARY 0x100u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x400u
//@}

/// @name File flags
//@{
/// A flag bit of CreateFileW's flagsAndAttributes. Write-through, overlapped,
/// unbuffered, access-pattern hints, delete on close, and backup semantics,
/// which lets CreateFileW open a folder.
#define FILE_FLAG_WRITE_THROUGH 0x80000000u
#define FILE_FLAG_OVERLAPPED 0x40000000u
#define FILE_FLAG_NO_BUFFERING 0x20000000u
#define FILE_FLAG_RANDOM_ACCESS 0x10000000u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000u
//@}

/// @name Move methods
//@{
/// Origin of a SetFilePointer move: the start of the file, the current position, the end.
#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2
//@}

/// @name File lock flags
//@{
/// LockFileEx's flags: fail at once instead of waiting; an exclusive
/// (write) lock instead of a shared one.
#define LOCKFILE_FAIL_IMMEDIATELY 0x1u
#define LOCKFILE_EXCLUSIVE_LOCK 0x2u
//@}

/// @name Failure sentinels
//@{
/// The failure result of SetFilePointer, GetFileSize or GetFileAttributesW.
/// For the first two, a failure only when the last error is not 0.
#define INVALID_SET_FILE_POINTER ((DWORD)-1)
#define INVALID_FILE_SIZE ((DWORD)0xFFFFFFFF)
#define INVALID_FILE_ATTRIBUTES ((DWORD)-1)
//@}

/// Security attributes for created objects. Only bInheritHandle has an effect,
/// and on POSIX none has; the library passes null.
typedef struct _SECURITY_ATTRIBUTES {
    ///@{
    /// Size of the structure, security descriptor, whether child processes inherit the handle.
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
    ///@}
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;
/// @typedef SECURITY_ATTRIBUTES
/// See _SECURITY_ATTRIBUTES.
/// @typedef PSECURITY_ATTRIBUTES
/// Pointer to a SECURITY_ATTRIBUTES.
/// @typedef LPSECURITY_ATTRIBUTES
/// Pointer to a SECURITY_ATTRIBUTES.

/// State of an asynchronous I/O on Windows; on POSIX every I/O is synchronous
/// and ReadFile/WriteFile reject it.
typedef struct _OVERLAPPED {
    ///@{
    /// Win32's fields: status and byte count of the I/O, the file offset it
    /// starts at, and the event set when it completes.
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    union {
        ///@{
        /// The file offset (low and high 32 bits), or a pointer in its place.
        struct {
            ///@{
            /// Low and high 32 bits of the offset.
            DWORD Offset;
            DWORD OffsetHigh;
            ///@}
        } s;
        PVOID Pointer;
        ///@}
    } u;
    HANDLE hEvent;
    ///@}
} OVERLAPPED, *LPOVERLAPPED;
/// @typedef OVERLAPPED
/// See _OVERLAPPED.
/// @typedef LPOVERLAPPED
/// Pointer to an OVERLAPPED.

/// What GetFileInformationByHandle reports about an open file.
typedef struct _BY_HANDLE_FILE_INFORMATION {
    ///@{
    /// Attributes, creation, last-access and last-write times, volume serial
    /// number, size (high and low 32 bits), number of hard links, and the file
    /// index (high and low 32 bits) that identifies the file on its volume.
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
    ///@}
} BY_HANDLE_FILE_INFORMATION, *LPBY_HANDLE_FILE_INFORMATION;
/// @typedef BY_HANDLE_FILE_INFORMATION
/// See _BY_HANDLE_FILE_INFORMATION.
/// @typedef LPBY_HANDLE_FILE_INFORMATION
/// Pointer to a BY_HANDLE_FILE_INFORMATION.

/// One entry found by FindFirstFileW or FindNextFileW.
typedef struct _WIN32_FIND_DATAW {
    ///@{
    /// Attributes, creation, last-access and last-write times, size (high and low
    /// 32 bits), two reserved words, the entry's name (null-terminated, without
    /// its folder) and its 8.3 short name (empty on POSIX).
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
    ///@}
} WIN32_FIND_DATAW, *PWIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;
/// @typedef WIN32_FIND_DATAW
/// See _WIN32_FIND_DATAW.
/// @typedef PWIN32_FIND_DATAW
/// Pointer to a WIN32_FIND_DATAW.
/// @typedef LPWIN32_FIND_DATAW
/// Pointer to a WIN32_FIND_DATAW.

/// Opens or creates a file (or, with FILE_FLAG_BACKUP_SEMANTICS, a folder).
/// On success the last error is 0, or 183 when OPEN_ALWAYS or CREATE_ALWAYS
/// found the file already there. CREATE_NEW on an existing file fails with
/// 80; a folder without FILE_FLAG_BACKUP_SEMANTICS fails with 5, whatever
/// the disposition. TRUNCATE_EXISTING needs GENERIC_WRITE itself (else 87).
/// On POSIX,
/// FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_TEMPORARY and FILE_FLAG_OVERLAPPED
/// are accepted and have no effect; FILE_ATTRIBUTE_READONLY makes a new file
/// read-only. Returns INVALID_HANDLE_VALUE on failure.
ZEL_API HANDLE CreateFileW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                           LPSECURITY_ATTRIBUTES securityAttributes, DWORD creationDisposition,
                           DWORD flagsAndAttributes, HANDLE templateFile);
/// Reads up to `toRead` bytes at the file pointer. At end of file it succeeds
/// with 0 bytes read, as Windows does for synchronous reads. Needs read
/// access (else 5) and a buffer when `toRead` is not 0 (else 998).
/// `overlapped` must be null on POSIX (else 87).
ZEL_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read,
                      LPOVERLAPPED overlapped);
/// Writes all `toWrite` bytes at the file pointer; on failure *written holds
/// what did reach the file. Needs write access (else 5) and a buffer when
/// `toWrite` is not 0 (else 1784). `overlapped` must be null on POSIX (else 87).
ZEL_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written,
                       LPOVERLAPPED overlapped);
/// Moves the file pointer and returns the low word of the new position (the
/// high word goes to *distanceHigh when given). A low word of all ones is a
/// legal result when the last error is 0. Without distanceHigh, a position
/// past 4 GB fails with 87; a position before the start fails with 131.
ZEL_API DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD moveMethod);
/// The 64-bit form of SetFilePointer.
ZEL_API BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition,
                              DWORD moveMethod);
/// The low word of the file size (the high word to *sizeHigh when given).
/// The last error is 0 on success, so an all-ones low word can be told apart.
ZEL_API DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh);
/// Cuts or extends the file at the file pointer. Needs write access.
ZEL_API BOOL SetEndOfFile(HANDLE file);
/// Writes the file's data through to the device. Needs write access.
ZEL_API BOOL FlushFileBuffers(HANDLE file);
/// Locks a range of an open file, shared or (LOCKFILE_EXCLUSIVE_LOCK)
/// exclusive, waiting for other holders unless LOCKFILE_FAIL_IMMEDIATELY
/// (then 33 when it is held). `overlapped` gives the range's start and must
/// not be null (else 87). On POSIX the lock is advisory and covers the whole
/// file whatever the range (flock: only other lockers wait); two handles of
/// one process exclude each other, as on Windows. Closing the handle
/// releases it.
ZEL_API BOOL LockFileEx(HANDLE file, DWORD flags, DWORD reserved, DWORD bytesLow, DWORD bytesHigh,
                        LPOVERLAPPED overlapped);
/// Releases a lock taken with LockFileEx on the same handle and range.
ZEL_API BOOL UnlockFileEx(HANDLE file, DWORD reserved, DWORD bytesLow, DWORD bytesHigh,
                          LPOVERLAPPED overlapped);
/// Attributes (0x10 for a folder, 0x1 read-only, 0x80 otherwise), times, size,
/// link count, volume and file index of an open file.
ZEL_API BOOL GetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION information);
/// Sets the times that are not null. Needs FILE_WRITE_ATTRIBUTES or write
/// access. On POSIX the creation time cannot be set and is ignored.
ZEL_API BOOL SetFileTime(HANDLE file, const FILETIME* creationTime, const FILETIME* lastAccessTime,
                         const FILETIME* lastWriteTime);

/// Starts a directory search. `*` and `?` are wildcards in the last
/// component, letters compare ASCII case-insensitively, as on Windows: `*`
/// matches any run; `?` one character other than a dot, and nothing at a dot
/// or at the end of the name (so "a?" finds "a" and "ab", and " ?a" does not
/// find " .a"); a pattern ending in ".*" also matches names without a dot.
/// POSIX keeps no 8.3 short names, so none is matched. A path without
/// wildcards finds that entry itself. The order of entries is the file
/// system's. A symbolic link is described by its target and carries
/// FILE_ATTRIBUTE_REPARSE_POINT, as on Windows, so walkers can keep out of
/// it. Fails with 2 (nothing matches, or a path ending in a separator names
/// a folder but no entry) or 3 (the folder is missing).
ZEL_API HANDLE FindFirstFileW(LPCWSTR fileName, LPWIN32_FIND_DATAW findData);
/// The next match of a search; FALSE with 18 when there is none.
ZEL_API BOOL FindNextFileW(HANDLE findFile, LPWIN32_FIND_DATAW findData);
/// Ends a search. Only search handles are accepted (else 6).
ZEL_API BOOL FindClose(HANDLE findFile);

/// Deletes a file; a folder or a read-only file fails with 5.
ZEL_API BOOL DeleteFileW(LPCWSTR fileName);
/// Creates one folder; 183 when something of that name exists.
ZEL_API BOOL CreateDirectoryW(LPCWSTR pathName, LPSECURITY_ATTRIBUTES securityAttributes);
/// Removes an empty folder; 145 when it is not empty, 267 when it is a file.
ZEL_API BOOL RemoveDirectoryW(LPCWSTR pathName);
/// Sets or clears a file's FILE_ATTRIBUTE_READONLY, the one attribute POSIX
/// keeps: set, nobody may write the file (its write permissions are
/// cleared); cleared, its owner may. Other attributes are accepted and have
/// no effect there, as has read-only on a folder. A symbolic link is
/// followed.
ZEL_API BOOL SetFileAttributesW(LPCWSTR fileName, DWORD fileAttributes);
/// The attributes of a file or folder (a symbolic link as in FindFirstFileW),
/// or INVALID_FILE_ATTRIBUTES. On POSIX a device, FIFO or socket has
/// FILE_ATTRIBUTE_DEVICE.
ZEL_API DWORD GetFileAttributesW(LPCWSTR fileName);

/// The bytes available to this user, the total size and the free bytes of
/// the volume holding directoryName; each out-argument may be null.
ZEL_API BOOL GetDiskFreeSpaceExW(LPCWSTR directoryName, PULARGE_INTEGER freeBytesAvailableToCaller,
                                 PULARGE_INTEGER totalNumberOfBytes, PULARGE_INTEGER totalNumberOfFreeBytes);
/// Copies the folder for temporary files, ending in a separator, into buffer
/// and returns its length; when bufferLength is too small, returns the
/// length needed including the terminator and writes nothing. On POSIX the
/// folder is $TMPDIR, or /tmp.
ZEL_API DWORD GetTempPathW(DWORD bufferLength, LPWSTR buffer);
/// Forms "<path><separator><up to 3 prefix characters><hex unique>.tmp" into
/// tempFileName (MAX_PATH units): the number in upper-case hex digits, the
/// extension in lower case, the separator the platform's own (`\` on
/// Windows, `/` on POSIX) unless the path already ends in one. With unique 0
/// it picks a number not yet used, creates the file exclusively (so nothing
/// can be slipped in under that name) and returns the number; otherwise it
/// only forms the name. 0 on failure.
ZEL_API UINT GetTempFileNameW(LPCWSTR pathName, LPCWSTR prefixString, UINT unique,
                              LPWSTR tempFileName);

/// Converts a file time to local time (on POSIX: with the offset of the time
/// zone in force at that instant, TZ included).
ZEL_API BOOL FileTimeToLocalFileTime(const FILETIME* fileTime, LPFILETIME localFileTime);
/// Converts a local file time back to UTC; the inverse of FileTimeToLocalFileTime.
ZEL_API BOOL LocalFileTimeToFileTime(const FILETIME* localFileTime, LPFILETIME fileTime);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {

/// The name a write to `path` reaches: symbolic links in its last component
/// are followed (a relative link from the link's folder) until a name that
/// is no link or does not exist yet; `path` itself when it is no link. False
/// with the last error when a link cannot be read (1921 for a loop of links).
ZEL_API bool ResolveSymbolicLinks(LPCWSTR path, std::basic_string<WCHAR>& target);
/// Gives the open `file` the permission bits of the existing file `model`
/// and, where the process may, its owner and group. On Windows the file keeps
/// the access rights it inherited from its folder, and the call does nothing.
/// False with the last error.
ZEL_API bool CopyFileAccess(LPCWSTR model, HANDLE file);
/// Whether the owner of the open `file` may execute it (a program or a
/// script). Windows keeps no such permission: always false there, as when
/// the file's status cannot be read.
ZEL_API bool IsExecutable(HANDLE file);
/// Lets whoever may read the open `file` execute it too. Does nothing on
/// Windows. False with the last error.
ZEL_API bool MakeExecutable(HANDLE file);

}  // namespace zel_platform
