/// @file
/// Memory-mapped files in one call: OpenMappedFile opens a file for mapping
/// (or takes the paging file when no path is given), creates a mapping
/// object over it and maps a view, reducing every platform failure to the
/// result's error number; nothing throws and nothing is logged. MappedFile
/// holds the three handles of an open mapping and releases them on Close.
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

namespace zel_fs {

/// What to map. The fields are passed to the platform's calls as they are.
struct MappedFileRequest {
    zel_text::CZelStringW path;  ///< empty: a mapping backed by the paging file
    DWORD desiredAccess = 0;     ///< GENERIC_READ, GENERIC_WRITE or both
    DWORD shareMode = 0;  ///< FILE_SHARE_* bits for the file
    LPSECURITY_ATTRIBUTES securityAttributes = nullptr;  ///< for the file and the mapping
    DWORD creationDisposition = OPEN_EXISTING;  ///< as CreateFileW's
    DWORD flagsAndAttributes = 0;  ///< as CreateFileW's
    HANDLE templateFile = nullptr;  ///< as CreateFileW's (ignored on POSIX)
    /// Empty: the mapping is named "hfile_" and the decimal file handle
    /// value, a name that only this process sees (handle values repeat in
    /// other processes). A given name is shared by every process using it.
    zel_text::CZelStringW mappingName;
    DWORD viewOffsetHigh = 0;  ///< the view's start, a multiple of 64 KB
    DWORD viewOffsetLow = 0;   ///< the view's start, low 32 bits
    SIZE_T viewBytes = 0;  ///< 0: to the end of the mapping
    DWORD maximumSizeHigh = 0;  ///< the mapping's size; 0 and 0: the file's size
    DWORD maximumSizeLow = 0;   ///< also the size reported when non-zero or without a file
};

/// What OpenMappedFile made.
struct MappedFileResult {
    HANDLE fileHandle = INVALID_HANDLE_VALUE;  ///< 0 for a paging-file mapping
    HANDLE mappingHandle = nullptr;  ///< null when the mapping failed
    void* view = nullptr;  ///< the first byte of the view, null when it failed
    DWORD error = 0;  ///< the platform's error number, 0 on success
    DWORD size = 0;   ///< maximumSizeLow when non-zero or without a file, else the file size (low 32 bits)
};

/// Opens, maps and views request in one call. On failure every handle made
/// on the way is closed and error holds the reason: 87 when desiredAccess
/// asks neither read nor write, else the last error of the failing call.
/// Read-write access gives a read-write view; any other access a read-only
/// one, so GENERIC_WRITE alone maps the file read-only (kept: callers rely
/// on such a view being readable). A mapping name that exists already is
/// shared and reports 0. When the mapping cannot be made, the view is still
/// attempted and reports its own error. A paging-file view reports file
/// handle 0, so that it counts as valid.
ZEL_API MappedFileResult OpenMappedFile(const MappedFileRequest& request);

/// The handles of an open mapping. A plain record that copies freely: it
/// releases nothing when destroyed, and only one copy of an owned mapping
/// may be closed.
class ZEL_API MappedFile {
public:
    MappedFile() = default;
    /// Takes result's handles; owned says whether Close releases them.
    explicit MappedFile(const MappedFileResult& result, bool owned = true);

    /// With the owned flag, unmaps the view and closes the mapping and the
    /// file; then, owned or not, resets every field to the empty state.
    void Close();
    /// True while a file handle is held (a paging-file mapping holds 0).
    bool IsValid() const { return fileHandle_ != INVALID_HANDLE_VALUE; }

    /// The first byte of the view (null when none).
    void* View() const { return view_; }
    /// The file's handle (0 for a paging-file mapping).
    HANDLE FileHandle() const { return fileHandle_; }
    /// The mapping's handle.
    HANDLE MappingHandle() const { return mappingHandle_; }
    /// The error OpenMappedFile reported, 0 on success.
    DWORD Error() const { return error_; }
    /// Whether Close releases the handles.
    bool Owned() const { return owned_; }
    /// A mark for the caller: the view was written and the file is yet to
    /// catch up. The library never sets it; Close clears it.
    bool Modified() const { return modified_; }
    /// Sets the caller's mark (see Modified).
    void SetModified(bool modified) { modified_ = modified; }

private:
    HANDLE fileHandle_ = INVALID_HANDLE_VALUE;
    HANDLE mappingHandle_ = nullptr;
    void* view_ = nullptr;
    DWORD error_ = 0;
    bool owned_ = false;
    bool modified_ = false;
};

}  // namespace zel_fs
