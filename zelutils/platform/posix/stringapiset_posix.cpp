// Code-page conversions: the Win32 argument and error rules over the UTF-8
// codec and the iconv bridge, and the process's ANSI and OEM code pages.
#include "zelutils/platform/stringapiset.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/codecs.h"

#include <atomic>
#include <climits>
#include <cstring>
#include <string>

namespace {
using zel_platform::posix::ConversionResult;

std::atomic<UINT> gAnsiCodePage{CP_UTF8};
std::atomic<UINT> gOemCodePage{437};

/// The code page that codePage stands for in this process.
UINT Resolve(UINT codePage) {
    if (codePage == CP_ACP) return gAnsiCodePage.load(std::memory_order_relaxed);
    if (codePage == CP_OEMCP) return gOemCodePage.load(std::memory_order_relaxed);
    return codePage;
}

int Fail(DWORD error) {
    SetLastError(error);
    return 0;
}

/// The argument rules both directions share: a source of at least one unit
/// (any negative count meaning NUL-terminated, as on Windows), a
/// non-negative capacity, a target unless the capacity is 0, and a target
/// that is not the source.
bool ValidArguments(const void* source, int sourceCount, const void* target, int capacity) {
    return source != nullptr && sourceCount != 0 && capacity >= 0 && (target != nullptr || capacity == 0) &&
           source != target;
}

int Finish(ConversionResult result) {
    switch (result.status) {
    case ConversionResult::kUnavailable:
        return Fail(ERROR_INVALID_PARAMETER);
    case ConversionResult::kTargetTooSmall:
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    case ConversionResult::kDone:
        break;
    }
    // A measure beyond INT_MAX: no buffer the caller can describe holds it.
    if (result.count > static_cast<std::size_t>(INT_MAX)) return Fail(ERROR_INSUFFICIENT_BUFFER);
    return static_cast<int>(result.count);
}

bool Available(UINT codePage) {
    return codePage == CP_UTF8 ||
           (codePage != CP_ACP && codePage != CP_OEMCP && zel_platform::posix::IconvCodePageAvailable(codePage));
}

/// The first error of the checks both directions make before converting:
/// arguments, then the code page, then the flags (Windows reports an unknown
/// code page with bad flags as 87); 0 when the call may go on.
DWORD CheckCall(UINT resolvedCodePage, DWORD flags, const void* source, int sourceCount, const void* target,
                int capacity) {
    if (!ValidArguments(source, sourceCount, target, capacity) || !Available(resolvedCodePage)) {
        return ERROR_INVALID_PARAMETER;
    }
    return flags != 0 ? ERROR_INVALID_FLAGS : 0;
}
}  // namespace

int zel_win32::MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByteStr, int cbMultiByte, LPWSTR wideCharStr,
                        int cchWideChar) {
    const UINT resolved = Resolve(codePage);
    if (DWORD error = CheckCall(resolved, flags, multiByteStr, cbMultiByte, wideCharStr, cchWideChar)) {
        return Fail(error);
    }
    const std::size_t length =
        cbMultiByte < 0 ? std::strlen(multiByteStr) + 1 : static_cast<std::size_t>(cbMultiByte);
    // A capacity of 0 measures, whatever the target pointer.
    WCHAR* target = cchWideChar == 0 ? nullptr : wideCharStr;
    const auto capacity = static_cast<std::size_t>(cchWideChar);
    if (resolved == CP_UTF8) {
        return Finish(zel_platform::posix::Utf8ToUtf16(multiByteStr, length, target, capacity));
    }
    return Finish(zel_platform::posix::IconvToUtf16(resolved, multiByteStr, length, target, capacity));
}

int zel_win32::WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wideCharStr, int cchWideChar, LPSTR multiByteStr,
                        int cbMultiByte, LPCSTR defaultChar, LPBOOL usedDefaultChar) {
    const UINT resolved = Resolve(codePage);
    if (DWORD error = CheckCall(resolved, flags, wideCharStr, cchWideChar, multiByteStr, cbMultiByte)) {
        return Fail(error);
    }
    // UTF-7 and UTF-8 represent every character: there is no default to use.
    const bool unicode = resolved == CP_UTF8 || resolved == 65000;
    if (unicode && (defaultChar != nullptr || usedDefaultChar != nullptr)) return Fail(ERROR_INVALID_PARAMETER);
    const std::size_t length = cchWideChar < 0 ? std::char_traits<WCHAR>::length(wideCharStr) + 1
                                                 : static_cast<std::size_t>(cchWideChar);
    char* target = cbMultiByte == 0 ? nullptr : multiByteStr;
    const auto capacity = static_cast<std::size_t>(cbMultiByte);
    if (resolved == CP_UTF8) {
        return Finish(zel_platform::posix::Utf16ToUtf8(wideCharStr, length, target, capacity));
    }
    bool usedDefault = false;
    const int result = Finish(zel_platform::posix::IconvFromUtf16(resolved, wideCharStr, length, target, capacity,
                                                                   defaultChar, &usedDefault));
    if (usedDefaultChar != nullptr) *usedDefaultChar = usedDefault ? TRUE : FALSE;
    return result;
}

BOOL zel_win32::GetCPInfo(UINT codePage, LPCPINFO cpInfo) {
    if (cpInfo == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const UINT resolved = Resolve(codePage);
    if (resolved == CP_UTF8) {
        *cpInfo = CPINFO{};
        cpInfo->MaxCharSize = 4;
        cpInfo->DefaultChar[0] = '?';
        return TRUE;
    }
    if (!zel_platform::posix::IconvCodePageInfo(resolved, cpInfo)) return Fail(ERROR_INVALID_PARAMETER);
    return TRUE;
}

UINT zel_win32::GetACP() { return gAnsiCodePage.load(std::memory_order_relaxed); }

UINT zel_win32::GetOEMCP() { return gOemCodePage.load(std::memory_order_relaxed); }

namespace zel_platform {

bool SetProcessCodePages(UINT ansiCodePage, UINT oemCodePage) {
    if (!Available(ansiCodePage) || !Available(oemCodePage)) return false;
    gAnsiCodePage.store(ansiCodePage, std::memory_order_relaxed);
    gOemCodePage.store(oemCodePage, std::memory_order_relaxed);
    return true;
}

}  // namespace zel_platform
