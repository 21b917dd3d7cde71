/// @file
/// The Win32 scalar and record types, constants and error numbers that the
/// library uses. On Windows they come from <windows.h>; elsewhere they are
/// declared here with the same sizes and layouts (DWORD is 32 bits, HANDLE is
/// pointer-sized).
#pragma once

#include "zelutils/platform/wchar.h"

#ifdef _WIN32
#include <windows.h>
// BSTR and OLECHAR, which the lean <windows.h> leaves out.
#include <wtypes.h>
#else
#include <cstddef>
#include <cstdint>

/// @name Integer types
//@{
/// Win32's integer types, as wide as on Windows. BYTE is 8 bits, WORD 16,
/// DWORD, LONG, ULONG, INT and BOOL 32, LONGLONG and DWORD64 64; the *_PTR
/// types and SIZE_T are pointer-sized; HRESULT is a signed 32-bit status.
typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef std::int16_t SHORT;
typedef std::uint16_t USHORT;
typedef int INT;
typedef unsigned int UINT;
typedef int BOOL;
typedef char CHAR;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::uint64_t DWORD64;
typedef std::intptr_t INT_PTR;
typedef std::intptr_t LONG_PTR;
typedef std::uintptr_t UINT_PTR;
typedef std::uintptr_t ULONG_PTR;
typedef std::uintptr_t DWORD_PTR;
typedef std::size_t SIZE_T;
typedef LONG HRESULT;
/// A colour as 0x00BBGGRR: red in the low byte, green in the next, blue in the third.
typedef DWORD COLORREF;
//@}

/// @name Handles
//@{
/// Opaque handles. HANDLE is a kernel object (file, event, thread, ...),
/// HINSTANCE/HMODULE a loaded module, HWND a window; P/LP forms point to one.
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef struct HWND__* HWND;
//@}

/// @name Pointer and string types
//@{
/// Win32's pointer aliases. P/LP is a pointer, LPC a pointer to const; STR is
/// narrow (char) text, WSTR and OLESTR UTF-16 (WCHAR) text; BSTR is a
/// length-prefixed UTF-16 string owned by SysAllocString/SysFreeString.
typedef void VOID;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* LPBYTE;
typedef WORD* LPWORD;
typedef DWORD* LPDWORD;
typedef LONG* PLONG;
typedef BOOL* LPBOOL;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR OLECHAR;
typedef OLECHAR* BSTR;
typedef const OLECHAR* LPCOLESTR;
//@}

/// @name Constants and macros
//@{
/// Win32's constants and word macros. TRUE/FALSE for BOOL; MAX_PATH, the
/// classic path limit in characters;
/// INVALID_HANDLE_VALUE, the failure result of CreateFileW and friends;
/// MAKELONG/LOWORD/HIWORD pack and unpack two 16-bit halves; MAKEINTRESOURCEW
/// turns a numeric resource id into a resource name.
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define MAX_PATH 260
#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)
#define MAKELONG(a, b) ((LONG)(((WORD)((DWORD_PTR)(a) & 0xffff)) | ((DWORD)((WORD)((DWORD_PTR)(b) & 0xffff))) << 16))
#define LOWORD(l) ((WORD)((DWORD_PTR)(l) & 0xffff))
#define HIWORD(l) ((WORD)((DWORD_PTR)(l) >> 16))
#define MAKEINTRESOURCEW(i) ((LPWSTR)((ULONG_PTR)((WORD)(i))))
//@}

/// A point in time as 100-nanosecond intervals since 1601-01-01 UTC, in two 32-bit halves.
typedef struct _FILETIME {
    ///@{
    /// Low and high 32 bits of the 64-bit interval count.
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
    ///@}
} FILETIME, *PFILETIME, *LPFILETIME;
/// @typedef FILETIME
/// See _FILETIME.
/// @typedef PFILETIME
/// Pointer to a FILETIME.
/// @typedef LPFILETIME
/// Pointer to a FILETIME.

/// A calendar date and time broken into fields (year, month 1-12, day of week
/// 0-6 from Sunday, day 1-31, hour, minute, second, millisecond).
typedef struct _SYSTEMTIME {
    ///@{
    /// The date and time fields, as their names say.
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
    ///@}
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;
/// @typedef SYSTEMTIME
/// See _SYSTEMTIME.
/// @typedef PSYSTEMTIME
/// Pointer to a SYSTEMTIME.
/// @typedef LPSYSTEMTIME
/// Pointer to a SYSTEMTIME.

/// A signed 64-bit integer, readable whole or as two 32-bit halves.
typedef union _LARGE_INTEGER {
    ///@{
    /// The two halves (u.LowPart, u.HighPart) and the whole value (QuadPart).
    struct {
        ///@{
        /// Low (unsigned) and high (signed) 32 bits.
        DWORD LowPart;
        LONG HighPart;
        ///@}
    } u;
    LONGLONG QuadPart;
    ///@}
} LARGE_INTEGER, *PLARGE_INTEGER;
/// @typedef LARGE_INTEGER
/// See _LARGE_INTEGER.
/// @typedef PLARGE_INTEGER
/// Pointer to a LARGE_INTEGER.

/// An unsigned 64-bit integer, readable whole or as two 32-bit halves.
typedef union _ULARGE_INTEGER {
    ///@{
    /// The two halves (u.LowPart, u.HighPart) and the whole value (QuadPart).
    struct {
        ///@{
        /// Low and high 32 bits.
        DWORD LowPart;
        DWORD HighPart;
        ///@}
    } u;
    ULONGLONG QuadPart;
    ///@}
} ULARGE_INTEGER, *PULARGE_INTEGER;
/// @typedef ULARGE_INTEGER
/// See _ULARGE_INTEGER.
/// @typedef PULARGE_INTEGER
/// Pointer to a ULARGE_INTEGER.

// Error numbers (winerror.h subset).
/// @name Error numbers
//@{
/// A Win32 error number, as GetLastError returns it. Values and meanings are
/// Win32's; FormatMessageW gives their text.
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_INVALID_FUNCTION 1L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_TOO_MANY_OPEN_FILES 4L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_NOT_SAME_DEVICE 17L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_NOT_READY 21L
#define ERROR_SEEK 25L
#define ERROR_WRITE_FAULT 29L
#define ERROR_READ_FAULT 30L
#define ERROR_GEN_FAILURE 31L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_LOCK_VIOLATION 33L
#define ERROR_HANDLE_EOF 38L
#define ERROR_HANDLE_DISK_FULL 39L
#define ERROR_NOT_SUPPORTED 50L
#define ERROR_FILE_EXISTS 80L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_BROKEN_PIPE 109L
#define ERROR_DISK_FULL 112L
#define ERROR_CALL_NOT_IMPLEMENTED 120L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_INVALID_NAME 123L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_NEGATIVE_SEEK 131L
#define ERROR_DIR_NOT_EMPTY 145L
#define ERROR_BAD_PATHNAME 161L
#define ERROR_BUSY 170L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_BAD_EXE_FORMAT 193L
#define ERROR_FILENAME_EXCED_RANGE 206L
#define ERROR_FILE_TOO_LARGE 223L
#define ERROR_DIRECTORY 267L
#define ERROR_OPERATION_ABORTED 995L
#define ERROR_IO_PENDING 997L
#define ERROR_INVALID_FLAGS 1004L
#define ERROR_NO_UNICODE_TRANSLATION 1113L
#define ERROR_IO_DEVICE 1117L
#define ERROR_NO_SYSTEM_RESOURCES 1450L
#define ERROR_TIMEOUT 1460L
#define ERROR_RESOURCE_TYPE_NOT_FOUND 1813L
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814L
#define ERROR_CANT_RESOLVE_FILENAME 1921L
//@}

/// @name COM status codes
//@{
/// An HRESULT value. S_OK is success; E_FAIL an unspecified failure;
/// E_OUTOFMEMORY and E_INVALIDARG as their names say.
#define S_OK ((HRESULT)0L)
#define E_FAIL ((HRESULT)0x80004005L)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_INVALIDARG ((HRESULT)0x80070057L)
//@}
#endif  // _WIN32

namespace zel_platform {
/// True where the Win32 subset is emulated over POSIX, false on Windows.
/// Tests of emulation-only facilities (fault injection, code-page settings)
/// use it to skip themselves where the real API is in force.
#ifdef _WIN32
constexpr bool kEmulated = false;
#else
constexpr bool kEmulated = true;
#endif
}  // namespace zel_platform
