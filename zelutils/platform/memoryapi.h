/// @file
/// File mappings: a file, or the paging file, mapped into memory through a
/// mapping object and views of it. On POSIX a mapping object is an entry of
/// the handle table holding its own descriptor (so it outlives the file
/// handle it was made from, as on Windows), and a view is an mmap of it.
///
/// Names: a named mapping is found again by any process of the same user
/// (a registry of names in /dev/shm); opening an existing name returns the
/// existing object with error 183. zel_platform::CreateProcessFileMapping
/// makes names that only the calling process sees.
///
/// POSIX differences: the file under a view can still be truncated by
/// another handle, after which touching the lost pages raises SIGBUS (Windows
/// refuses the truncation); a name outlives its creator only while the
/// creating process runs.
#pragma once

#include "zelutils/platform/fileapi.h"
#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// @name Page protections of CreateFileMappingW
//@{
/// A mapping's protection: read-only, read-write, or copy-on-write.
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define PAGE_WRITECOPY 0x08
//@}
/// @name View access of MapViewOfFile
//@{
/// A view's access: a private copy, writable, readable, or everything.
#define FILE_MAP_COPY 0x0001
#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004
#define FILE_MAP_ALL_ACCESS 0x000F001F
//@}
/// @name Mapping errors
//@{
/// Error numbers of the mapping calls: no view at the address, a file that
/// cannot be mapped (empty, with no size given), an offset not on the 64 KB
/// allocation granularity.
#define ERROR_INVALID_ADDRESS 487L
#define ERROR_FILE_INVALID 1006L
#define ERROR_MAPPED_ALIGNMENT 1132L
//@}

/// Creates a mapping object over file, or over the paging file when file is
/// INVALID_HANDLE_VALUE, sized maximumSize (high, low words; 0 for a file:
/// its current size). protect is PAGE_READONLY, PAGE_READWRITE or
/// PAGE_WRITECOPY (else 87); the file must allow reading, and writing for
/// PAGE_READWRITE (else 5). A larger size grows the file under
/// PAGE_READWRITE and fails with 8 otherwise; a file-backed size of 0 fails
/// with 1006, a paging-file one with 87. When name exists already, returns
/// a handle to that mapping (size and file ignored) with last error 183;
/// otherwise last error 0. Null and the last error on failure.
ZEL_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES securityAttributes,
                                  DWORD protect, DWORD maximumSizeHigh, DWORD maximumSizeLow,
                                  LPCWSTR name);
/// Maps bytes of mapping from offset (high, low words; a multiple of 64 KB,
/// else 1132) into memory; bytes 0 maps to the end of the mapping. access is
/// FILE_MAP_READ, FILE_MAP_WRITE or FILE_MAP_ALL_ACCESS (read and write) or
/// FILE_MAP_COPY (private copy-on-write pages); writing needs a
/// PAGE_READWRITE mapping and a range running past the end fails, both
/// with 5; an offset at or past the end fails with 87. The
/// view keeps the mapping alive after its handle is closed. Null and the
/// last error on failure.
ZEL_API LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                             SIZE_T bytes);
/// Unmaps the view that starts at address. FALSE with 487 for an address
/// that no view starts at.
ZEL_API BOOL UnmapViewOfFile(LPCVOID address);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_win32 {
/// Opens a file to be mapped: CreateFileW's arguments and results, with
/// read access added to desiredAccess, since every mapping reads its file
/// (a file opened for writing only still maps, read-only). The name of the
/// handheld systems' call; desktop Windows has none, so the library
/// supplies it on every platform.
ZEL_API HANDLE CreateFileForMappingW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                                     LPSECURITY_ATTRIBUTES securityAttributes,
                                     DWORD creationDisposition, DWORD flagsAndAttributes,
                                     HANDLE templateFile);
}  // namespace zel_win32
using zel_win32::CreateFileForMappingW;

namespace zel_platform {
/// CreateFileMappingW with a name that only this process sees: another
/// process using the same text reaches an object of its own. For names made
/// from handle values, which repeat across processes.
ZEL_API HANDLE CreateProcessFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES securityAttributes,
                                        DWORD protect, DWORD maximumSizeHigh,
                                        DWORD maximumSizeLow, LPCWSTR name);
}  // namespace zel_platform
