/// @file
/// Small file utilities shared by the library and its hosts: the rules for
/// file names, MIME types by extension, probes of a folder and of free
/// memory, the whole-file write, folder creation, and the folder copy and
/// emptying used when crash reports are collected.
///
/// Nothing here throws. Functions return false (or an empty result) on
/// failure and leave the platform's last error; the whole-file write also
/// logs why it failed.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>

namespace zel_fs {

/// The characters a file name may not hold: < > \ / " : ? * |
ZEL_API extern const WCHAR kFileNameForbidden[];
/// The stricter set for exported names: the file-name set plus ' and `.
ZEL_API extern const WCHAR kExportNameForbidden[];

/// False for an empty name or one holding a character of kFileNameForbidden.
ZEL_API bool IsValidFileName(const zel_text::CZelStringW& name);
/// name with each character of kFileNameForbidden replaced by replacement
/// ("_" when replacement is itself forbidden); an empty name gives the
/// replacement alone.
ZEL_API zel_text::CZelStringW MakeValidFileName(const zel_text::CZelStringW& name, WCHAR replacement);
/// name with each character of kExportNameForbidden replaced by "_".
ZEL_API zel_text::CZelStringW MakeExportName(const zel_text::CZelStringW& name);
/// "application/zip" for the extensions zip, vqfzip and vqf.zip,
/// "text/plain" for txt (any case), else "application/octet-stream".
ZEL_API zel_text::CZelStringW GetMimeType(const zel_text::CZelStringW& path);

/// Whether a file can be written in folder: writes and removes the one-byte
/// file "~~tmptmp.tmp" there. False for an empty folder.
ZEL_API bool IsFolderWritable(const zel_text::CZelStringW& folder);
/// True when at least needed bytes of physical memory are available;
/// otherwise logs "free mem: ..., needed: ..." and returns false.
ZEL_API bool HasFreeMemory(std::uint64_t needed);

/// Creates path, or empties it, and writes size bytes of buffer as its whole
/// content. False on failure, with the last error of the failing call; a
/// file that was created but not completely written is deleted again. A
/// null or empty path and a null buffer are logged whatever logErrors says;
/// open and write failures only with logErrors. A negative size fails with
/// ERROR_INVALID_PARAMETER before anything is touched.
ZEL_API bool WriteFile(const WCHAR* path, const void* buffer, std::int32_t size, bool logErrors);

/// Creates folder and every missing parent; true when it exists as a folder
/// afterwards. False with the last error of the failing step.
ZEL_API bool CreateFolderTree(const zel_text::CZelStringW& folder);
/// Copies every file directly in source (not its subfolders) into
/// destination, which is created when missing; files of the same name are
/// replaced. Stops at the first failure: false with its last error.
ZEL_API bool CopyFolderFiles(const zel_text::CZelStringW& source, const zel_text::CZelStringW& destination);
/// Deletes everything inside folder, subfolders included, and keeps the
/// folder itself. Read-only files are deleted too: their read-only attribute
/// is cleared first, which DeleteFileW alone refuses to do. Symbolic links
/// are removed, never followed. Stops at the first failure: false with its
/// last error.
ZEL_API bool EmptyFolder(const zel_text::CZelStringW& folder);

}  // namespace zel_fs
