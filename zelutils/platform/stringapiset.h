/// @file
/// Code-page conversions between narrow text and UTF-16, under their Win32
/// names. On POSIX, code page 65001 (UTF-8) is the library's own codec and
/// follows the Windows rules for flags 0: an ill-formed part becomes U+FFFD
/// (an overlong, surrogate or above-10FFFF form one U+FFFD for its lead and
/// second byte), a lone surrogate becomes EF BF BD. Code pages 0 (ANSI) and
/// 1 (OEM) are process settings (UTF-8 and 437 by default on POSIX, see
/// SetProcessCodePages); every other code page goes through iconv.
/// Characters a code page lacks become its default character, without the
/// Windows "best fit" substitutes. A target that is too small fails with
/// ERROR_INSUFFICIENT_BUFFER (122); a null target with capacity 0 measures.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
namespace zel_win32 {
/// @name Code pages and limits
//@{
/// A code-page number or a CPINFO array size. CP_ACP and CP_OEMCP stand for
/// the process's ANSI and OEM code pages, CP_UTF8 for UTF-8; MAX_LEADBYTES
/// and MAX_DEFAULTCHAR size the arrays of CPINFO.
#define CP_ACP 0
#define CP_OEMCP 1
#define CP_UTF8 65001
#define MAX_LEADBYTES 12
#define MAX_DEFAULTCHAR 2
//@}

/// What GetCPInfo reports about a code page.
typedef struct _cpinfo {
    ///@{
    /// The longest character in bytes, the default character (for characters
    /// the code page lacks), and the lead-byte ranges of a double-byte code page
    /// (pairs of first and last byte, ending in a zero pair).
    UINT MaxCharSize;
    BYTE DefaultChar[MAX_DEFAULTCHAR];
    BYTE LeadByte[MAX_LEADBYTES];
    ///@}
} CPINFO, *LPCPINFO;
/// @typedef CPINFO
/// See _cpinfo.
/// @typedef LPCPINFO
/// Pointer to a CPINFO.

/// Converts cbMultiByte bytes (any negative count: up to and including the
/// NUL) of codePage text to UTF-16. Returns the units written, or needed when
/// cchWideChar is 0; 0 on failure with the last error set (87 bad argument or
/// unavailable code page, checked before the flags; 122 target too small;
/// 1004 flags other than 0).
ZEL_API int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByteStr, int cbMultiByte,
                                LPWSTR wideCharStr, int cchWideChar);
/// Converts cchWideChar units (any negative count: up to and including the
/// NUL) of UTF-16 to codePage text; the counterpart of MultiByteToWideChar.
/// defaultChar and usedDefaultChar must be null for code page 65001. A target
/// too small fails with 122 after the whole characters that fit, and
/// *usedDefaultChar then tells about those only.
ZEL_API int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wideCharStr, int cchWideChar,
                                LPSTR multiByteStr, int cbMultiByte, LPCSTR defaultChar,
                                LPBOOL usedDefaultChar);
/// Describes a code page; FALSE with error 87 for one that is not available.
ZEL_API BOOL GetCPInfo(UINT codePage, LPCPINFO cpInfo);
/// The process's ANSI code page (code page 0).
ZEL_API UINT GetACP();
/// The process's OEM code page (code page 1).
ZEL_API UINT GetOEMCP();
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// Sets the code pages that 0 (ANSI) and 1 (OEM) stand for in this process.
/// Returns false, changing nothing, when either is not available here, and
/// on Windows, where the system's settings rule.
ZEL_API bool SetProcessCodePages(UINT ansiCodePage, UINT oemCodePage);

/// Whether byte begins a two-byte character in the code page that info
/// (from GetCPInfo) describes: it lies in one of its lead-byte ranges.
inline bool IsLeadByteIn(const CPINFO& info, unsigned char byte) {
    for (int i = 0; i + 1 < MAX_LEADBYTES && info.LeadByte[i] != 0; i += 2) {
        if (byte >= info.LeadByte[i] && byte <= info.LeadByte[i + 1]) return true;
    }
    return false;
}

/// The ways the UTF-8 codec of the POSIX emulation (code page 65001) can
/// convert; every one gives the same results.
enum class Utf8CodecPath {
    kFastest,  ///< the fastest one the processor runs (the default)
    kPlain,    ///< a character at a time around blocks of ASCII: any processor
    kSse41,    ///< vector kernels for SSSE3 and SSE4.1 (x86 processors)
    kAvx2,     ///< vector kernels for AVX2 (x86 processors)
};
/// Makes every UTF-8 conversion of this process take `path` from now on, so
/// tests can compare the paths on the same text. Returns false, changing
/// nothing, when the processor or the build lacks the path, and on Windows,
/// where the system's codec is in force.
ZEL_API bool SetUtf8CodecPath(Utf8CodecPath path);
}  // namespace zel_platform
