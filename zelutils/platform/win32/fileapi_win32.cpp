// The file hooks the POSIX emulation needs beyond Win32, in their Windows form.
#include "zelutils/platform/fileapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/handleapi.h"

namespace zel_platform {

bool ResolveSymbolicLinks(LPCWSTR path, std::basic_string<WCHAR>& target) {
    if (path == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        target = path;
        return true;
    }
    HANDLE file = CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    constexpr DWORD kFlags = FILE_NAME_NORMALIZED | VOLUME_NAME_DOS;
    DWORD needed = GetFinalPathNameByHandleW(file, nullptr, 0, kFlags);
    std::basic_string<WCHAR> final(needed, L'\0');
    DWORD length = needed == 0 ? 0 : GetFinalPathNameByHandleW(file, &final[0], needed, kFlags);
    {
        LastErrorGuard keep;
        CloseHandle(file);
    }
    if (length == 0 || length >= needed) return false;
    final.resize(length);
    // The system hands the name back in its long form; callers get the usual one.
    if (final.compare(0, 8, L"\\\\?\\UNC\\") == 0) {
        final.replace(0, 8, L"\\\\");
    } else if (final.compare(0, 4, L"\\\\?\\") == 0) {
        final.erase(0, 4);
    }
    target = final;
    return true;
}

bool CopyFileAccess(LPCWSTR /*model*/, HANDLE /*file*/) { return true; }

bool IsExecutable(HANDLE /*file*/) { return false; }

bool MakeExecutable(HANDLE /*file*/) { return true; }

}  // namespace zel_platform
