/// @file
/// Renaming and copying files under their Win32 names.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// @name MoveFileExW flags
//@{
/// Replace an existing target; allow a copy across volumes; return only once
/// the move has reached the disk.
#define MOVEFILE_REPLACE_EXISTING 0x1u
#define MOVEFILE_COPY_ALLOWED 0x2u
#define MOVEFILE_WRITE_THROUGH 0x8u
//@}

/// Renames a file or folder; fails with 183 when the new name exists
/// (a name moved onto itself succeeds). Where the file system can, the check
/// and the rename are one atomic step.
ZEL_API BOOL MoveFileW(LPCWSTR existingFileName, LPCWSTR newFileName);
/// Renames, replacing an existing file with MOVEFILE_REPLACE_EXISTING (in one
/// atomic step on POSIX). An existing folder or read-only file is never
/// replaced (5); a folder does replace a file. MOVEFILE_WRITE_THROUGH also
/// flushes the folder so the rename survives a power loss.
/// MOVEFILE_COPY_ALLOWED is refused (87): a move across file systems fails
/// with 17.
ZEL_API BOOL MoveFileExW(LPCWSTR existingFileName, LPCWSTR newFileName, DWORD flags);
/// Copies a file's content, permissions and last-write time to newFileName,
/// replacing a file of that name unless failIfExists is set (then 80). A
/// copy that fails part way is removed. A folder as source, or a read-only
/// file to replace, fails with 5.
ZEL_API BOOL CopyFileW(LPCWSTR existingFileName, LPCWSTR newFileName, BOOL failIfExists);
}  // namespace zel_win32
using namespace zel_win32;
#endif
