/// @file
/// The library's lowest file layer: every other file user (streams, text
/// files, INI files, the log, zip archives) reaches the platform's file calls
/// through it. It comes in two tiers:
///
/// - the plain tier, free functions on a raw HANDLE that never throw: they
///   return a sentinel (-1, 0 or false) and leave the reason in the last
///   error. A handle of INVALID_HANDLE_VALUE is refused before any platform
///   call is made;
/// - the checked tier, CheckedFile and a few free functions, which throw
///   std::runtime_error("[zelutils/fs/platform_file:<line>] <call>: <error>")
///   on failure and leave the handle as it was.
///
/// Paths are UTF-16 (a CZelStringW or a NUL-terminated WCHAR pointer) with
/// `\` or `/` separators. End of file is not an error in either tier: a read
/// there yields 0 bytes.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>

namespace zel_fs {

/// @name Open-mode word
/// The bits file_open translates into the arguments of CreateFileW. Callers
/// pass them as numbers too, so the values never change. When several
/// disposition bits are set, the first of 0x10, 0x08, 0x04, 0x02, 0x01 wins.
/// The share mode is read and write unless denied.
/// @{
constexpr UINT FO_OPEN_EXISTING = 0x00001;      ///< OPEN_EXISTING
constexpr UINT FO_CREATE_NEW = 0x00002;         ///< CREATE_NEW
constexpr UINT FO_OPEN_ALWAYS = 0x00004;        ///< OPEN_ALWAYS
constexpr UINT FO_CREATE_ALWAYS = 0x00008;      ///< CREATE_ALWAYS
constexpr UINT FO_TRUNCATE_EXISTING = 0x00010;  ///< TRUNCATE_EXISTING
constexpr UINT FO_READ = 0x00020;               ///< GENERIC_READ
constexpr UINT FO_WRITE = 0x00040;              ///< GENERIC_WRITE
constexpr UINT FO_DENY_READ = 0x00100;          ///< no FILE_SHARE_READ
constexpr UINT FO_DENY_WRITE = 0x00200;         ///< no FILE_SHARE_WRITE
constexpr UINT FO_OVERLAPPED = 0x00400;         ///< FILE_FLAG_OVERLAPPED
constexpr UINT FO_TEMPORARY = 0x00800;          ///< FILE_ATTRIBUTE_TEMPORARY
constexpr UINT FO_HIDDEN = 0x01000;             ///< FILE_ATTRIBUTE_HIDDEN
constexpr UINT FO_DELETE_ON_CLOSE = 0x02000;    ///< FILE_FLAG_DELETE_ON_CLOSE
constexpr UINT FO_WRITE_ATTRIBUTES = 0x04000;   ///< FILE_WRITE_ATTRIBUTES
constexpr UINT FO_SHARE_DELETE = 0x08000;       ///< adds FILE_SHARE_DELETE
constexpr UINT FO_BACKUP_SEMANTICS = 0x20000;   ///< FILE_FLAG_BACKUP_SEMANTICS

/// Open an existing file for reading (0x21).
constexpr UINT FO_OPEN_READ = FO_OPEN_EXISTING | FO_READ;
/// Create a file for writing, emptying one that exists (0x48).
constexpr UINT FO_CREATE_WRITE = FO_CREATE_ALWAYS | FO_WRITE;
/// @}

/// @name Open error codes
/// What file_open reports in its error out-argument when the open fails.
/// @{
constexpr int FOE_OTHER = -1;              ///< any other platform error
constexpr int FOE_SHARING_VIOLATION = -2;  ///< ERROR_SHARING_VIOLATION (32)
constexpr int FOE_FILE_EXISTS = -3;        ///< ERROR_FILE_EXISTS (80)
constexpr int FOE_NOT_FOUND = -4;          ///< ERROR_FILE_NOT_FOUND (2)
constexpr int FOE_ACCESS_DENIED = -5;      ///< ERROR_ACCESS_DENIED (5)
/// @}

/// What file_stat reports about an open file. Times are seconds since
/// 1970-01-01 UTC.
struct file_info {
    /// The file's size in bytes.
    std::uint64_t size = 0;
    /// True for a folder.
    bool isDirectory = false;
    /// Always false; kept so the record keeps its shape for its users.
    bool reserved = false;
    ///@{
    /// Last write, last access and creation times (truncated to 32 bits).
    std::int32_t lastWriteTime = 0;
    std::int32_t lastAccessTime = 0;
    std::int32_t creationTime = 0;
    ///@}
};

/// Seconds since 1970 as a file time (100-nanosecond ticks since 1601).
ZEL_API FILETIME seconds_to_filetime(std::int64_t seconds);
/// A file time as seconds since 1970, truncated toward zero.
ZEL_API std::int64_t filetime_to_seconds(const FILETIME& time);

// ---- plain tier -------------------------------------------------------

/// Opens path as the mode word says. On success *created tells whether the
/// file is new (true for FO_CREATE_NEW and FO_CREATE_ALWAYS, and for
/// FO_OPEN_ALWAYS unless the file existed) and *error is 0. On failure the
/// result is INVALID_HANDLE_VALUE and *error an open error code. A mode
/// without a disposition bit returns 0 at once, touching only *created.
ZEL_API HANDLE file_open(const WCHAR* path, UINT mode, bool* created = nullptr,
                         int* error = nullptr);
/// Stores file_open's result in handle; true when it is not INVALID_HANDLE_VALUE.
ZEL_API bool file_open_into(HANDLE& handle, const WCHAR* path, UINT mode, bool* created = nullptr,
                            int* error = nullptr);
/// file_open_into with FO_OPEN_READ.
ZEL_API bool file_open_read(HANDLE& handle, const WCHAR* path);
/// file_open_into with FO_CREATE_WRITE.
ZEL_API bool file_open_write(HANDLE& handle, const WCHAR* path);
/// Closes the handle; true on success.
ZEL_API bool file_close(HANDLE handle);
/// Closes the handle unless it is INVALID_HANDLE_VALUE, then sets it to that.
ZEL_API void file_close_reset(HANDLE& handle);

/// Reads up to count bytes: the bytes read, 0 at end of file, -1 on failure.
ZEL_API std::int32_t file_read(HANDLE handle, void* buffer, std::int32_t count);
/// Writes count bytes: the bytes written, or -1 on failure.
ZEL_API std::int32_t file_write(HANDLE handle, const void* buffer, std::int32_t count);
/// Moves the file pointer by offset from whence (0 begin, 1 current, 2 end)
/// and returns the new position; 0 when the move fails, all ones for an
/// invalid handle.
ZEL_API std::uint64_t file_seek(HANDLE handle, int whence, std::int64_t offset);
/// Cuts or extends the file to size, keeping the file pointer where it was.
/// False at the first step that fails.
ZEL_API bool file_truncate(HANDLE handle, std::uint64_t size);
/// Writes the file's buffers through to the device.
ZEL_API bool file_flush(HANDLE handle);
/// A second handle to the same open file (sharing its pointer). *failed is
/// -1 on failure, when the result is INVALID_HANDLE_VALUE, and 0 on success.
ZEL_API HANDLE file_duplicate(HANDLE handle, int* failed = nullptr);
/// Fills *info for an open file; false for an invalid handle, a null info or
/// a failed call.
ZEL_API bool file_stat(HANDLE handle, file_info* info);
/// Sets the last-access and last-write times (seconds since 1970); the
/// creation time stays.
ZEL_API bool file_set_times(HANDLE handle, std::int64_t accessTime, std::int64_t writeTime);

/// Whether a file or folder matches path (wildcards allowed); *isDirectory
/// tells which. False for a null or empty path.
ZEL_API bool file_exists(const WCHAR* path, bool* isDirectory = nullptr);
/// file_exists without the out-argument.
ZEL_API bool path_exists(const WCHAR* path);
/// The size of the file at path, or -1 when there is none (or path is empty).
ZEL_API std::int64_t file_size_by_name(const WCHAR* path);

/// Joins the non-null parts with `\` (none before the first text), appends
/// the extension with a "." unless it has one, then turns every `/` into `\`
/// and collapses every run of backslashes into one, a leading `\\` too:
/// ("C:/a//b", "c", null, "txt") gives "C:\a\b\c.txt".
ZEL_API void build_path(zel_text::CZelStringW& out, const WCHAR* part1, const WCHAR* part2,
                        const WCHAR* part3, const WCHAR* extension);

/// The directory-listing flag that keeps ".." in a listing.
constexpr UINT LIST_INCLUDE_PARENT = 4;
/// The index of the last separator (`\` or `/`) in path, or -1; both count,
/// since library paths mix them.
ZEL_API int LastPathSeparator(const zel_text::CZelStringW& path);
/// Creates the folder and every missing folder above it. True when the
/// folder exists afterwards (an empty path is the current folder); false with
/// the last error otherwise (183 when a file stands in the way).
ZEL_API bool CreateFolderPath(const zel_text::CZelStringW& folder);
/// True for "." and, unless flags has LIST_INCLUDE_PARENT, for "..".
ZEL_API bool is_dot_entry(const WCHAR* name, UINT flags);

// ---- checked tier -----------------------------------------------------

/// A file handle whose operations throw std::runtime_error on failure. It
/// holds nothing but the handle, INVALID_HANDLE_VALUE until opened with the
/// plain tier (file_open_into(file.handle, ...)); it never closes the handle
/// itself (file_close_reset(file.handle) does).
class ZEL_API CheckedFile {
public:
    CheckedFile() = default;

    /// Reads up to count bytes; 0 at end of file.
    std::int32_t Read(void* buffer, std::int32_t count);
    /// Writes count bytes; anything less, a short write included, throws.
    std::int32_t Write(const void* buffer, std::int32_t count);
    /// Writes the buffers through; throws for an invalid handle too.
    void Flush();
    /// The file pointer.
    std::uint64_t Tell();
    /// Moves the file pointer (whence 0 begin, 1 current, 2 end) and returns
    /// the new position.
    std::uint64_t Seek(std::int64_t offset, int whence);
    /// Moves the file pointer to the start; returns 0.
    std::uint64_t SeekToBegin() { return Seek(0, 0); }
    /// Moves the file pointer to the end; returns the size.
    std::uint64_t SeekToEnd() { return Seek(0, 2); }
    /// The size of the file.
    std::uint64_t GetSize();
    /// Cuts or extends the file to size and leaves the file pointer there.
    void SetSize(std::uint64_t size);

    /// The file, opened and closed by the caller.
    HANDLE handle = INVALID_HANDLE_VALUE;
};

/// Renames from to to (replacing a file of that name, as MoveFileExW with
/// MOVEFILE_REPLACE_EXISTING); throws "MoveFile".
ZEL_API void MoveFileChecked(const WCHAR* from, const WCHAR* to);
/// Deletes a file; throws "DeleteFile".
ZEL_API void DeleteFileChecked(const WCHAR* path);
/// GetTempFileNameW into out (emptied first); returns the unique number
/// used. Throws "GetTempFileName", leaving out empty.
ZEL_API UINT GetTempFileNameChecked(const WCHAR* directory, const WCHAR* prefix, UINT unique,
                                    zel_text::CZelStringW& out);
/// The folder for temporary files, ending in a separator, into out (emptied
/// first). Throws "GetTempPath", leaving out empty.
ZEL_API void GetTempPathChecked(zel_text::CZelStringW& out);
/// The path of module (null: the program) into out; with fullPath false only
/// the file name without folder and extension ("\Windows\app.exe" gives
/// "app"). Throws "GetModuleFileName", also when the path does not fit
/// MAX_PATH.
ZEL_API void GetModuleFileNameChecked(HMODULE module, zel_text::CZelStringW& out, bool fullPath);

}  // namespace zel_fs
