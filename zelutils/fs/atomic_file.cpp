#include "zelutils/fs/atomic_file.h"

#include "zelutils/platform/win32.h"

#include <atomic>

namespace zel_fs {
namespace {

// Creates the temporary file beside target under a name no one else has
// claimed: the exclusive create refuses a name that exists, a link included.
HANDLE CreateTemporaryBeside(const zel_text::CZelStringW& target, zel_text::CZelStringW& temporary) {
    static std::atomic<unsigned> counter{0};
    constexpr int kAttempts = 64;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        unsigned unique = (GetCurrentProcessId() * 2654435761u) ^ (counter.fetch_add(1) * 0x9E3779B9u) ^
                          GetTickCount();
        temporary.Format(ZW("%s.~zel%08X.tmp"), target.GetString(), unique);
        HANDLE file = CreateFileW(temporary.GetString(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) return file;
    }
    return INVALID_HANDLE_VALUE;
}

// Fills the open temporary file: the replaced file's access, the content,
// and the flush to the disk.
bool FillTemporary(HANDLE file, const zel_text::CZelStringW& target, bool targetExists,
                   const std::function<bool(HANDLE)>& writeContent) {
    if (targetExists && !zel_platform::CopyFileAccess(target.GetString(), file)) return false;
    SetLastError(ERROR_SUCCESS);
    if (!writeContent(file)) {
        // A writer that gave no reason still must not leave "success" behind.
        if (GetLastError() == ERROR_SUCCESS) SetLastError(ERROR_WRITE_FAULT);
        return false;
    }
    return FlushFileBuffers(file) != FALSE;
}

}  // namespace

bool ReplaceFileAtomically(const zel_text::CZelStringW& path, const std::function<bool(HANDLE file)>& writeContent) {
    if (path.IsEmpty() || !writeContent) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    std::basic_string<WCHAR> resolved;
    if (!zel_platform::ResolveSymbolicLinks(path.GetString(), resolved)) return false;
    zel_text::CZelStringW target(resolved.c_str(), static_cast<int>(resolved.size()));
    DWORD attributes = GetFileAttributesW(target.GetString());
    bool exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (!exists && GetLastError() != ERROR_FILE_NOT_FOUND) return false;
    if (exists && (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_READONLY)) != 0) {
        SetLastError((attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? ERROR_NOT_SUPPORTED : ERROR_ACCESS_DENIED);
        return false;
    }

    zel_text::CZelStringW temporary;
    HANDLE file = CreateTemporaryBeside(target, temporary);
    if (file == INVALID_HANDLE_VALUE) return false;
    if (!FillTemporary(file, target, exists, writeContent)) {
        zel_platform::LastErrorGuard keep;
        CloseHandle(file);
        DeleteFileW(temporary.GetString());
        return false;
    }
    // A failing close can be a delayed write error: the content is not safe.
    if (!CloseHandle(file)) {
        zel_platform::LastErrorGuard keep;
        DeleteFileW(temporary.GetString());
        return false;
    }
    if (!MoveFileExW(temporary.GetString(), target.GetString(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        // After a failed folder flush the temporary name is gone already.
        zel_platform::LastErrorGuard keep;
        DeleteFileW(temporary.GetString());
        return false;
    }
    return true;
}

}  // namespace zel_fs
