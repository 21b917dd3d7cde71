#include "zelutils/fs/file_utils.h"

#include "zelutils/diag/log_file.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"

#include <functional>

using zel_text::CZelStringW;

namespace zel_fs {

const WCHAR kFileNameForbidden[] = ZW("<>\\/\":?*|");
const WCHAR kExportNameForbidden[] = ZW("?*'\"\\/|<>`:");

namespace {

bool IsIn(const WCHAR* set, WCHAR c) {
    for (; *set != 0; ++set) {
        if (*set == c) return true;
    }
    return false;
}

CZelStringW ReplaceEach(const CZelStringW& name, const WCHAR* set, WCHAR replacement) {
    CZelStringW result(name);
    for (const WCHAR* c = set; *c != 0; ++c) result.Replace(*c, replacement);
    return result;
}

// The extension that decides a MIME type: the double extension "vqf.zip" of
// job archives whole, else what follows the last dot of the file name.
CZelStringW MimeExtension(const CZelStringW& path) {
    CZelStringW name = path.Mid(LastPathSeparator(path) + 1);
    static const WCHAR kJobArchive[] = ZW(".vqf.zip");
    const int jobLength = static_cast<int>(sizeof(kJobArchive) / sizeof(WCHAR)) - 1;
    if (name.GetLength() > jobLength && name.Right(jobLength).CompareNoCase(kJobArchive) == 0) {
        return name.Right(jobLength - 1);
    }
    int dot = name.ReverseFind(ZW('.'));
    return dot < 0 ? CZelStringW() : name.Mid(dot + 1);
}

// Keeps the last error of a failure across the clean-up calls after it.
class LastErrorKeeper {
public:
    void Keep() { error_ = GetLastError(); }
    ~LastErrorKeeper() {
        if (error_ != 0) SetLastError(error_);
    }

private:
    DWORD error_ = 0;
};

// A directory search that is closed when it goes out of scope.
class FolderSearch {
public:
    explicit FolderSearch(const CZelStringW& folder) : folder_(folder) {
        handle_ = FindFirstFileW((folder + ZW("\\*")).GetString(), &data_);
    }
    ~FolderSearch() {
        if (handle_ != INVALID_HANDLE_VALUE) FindClose(handle_);
    }
    FolderSearch(const FolderSearch&) = delete;
    FolderSearch& operator=(const FolderSearch&) = delete;

    // Calls visit(path, attributes) for each entry but "." and "..", until
    // visit returns false. False when the listing or a visit fails.
    bool ForEach(const std::function<bool(const CZelStringW&, DWORD)>& visit) {
        if (handle_ == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
        do {
            if (is_dot_entry(data_.cFileName, 0)) continue;
            if (!visit(folder_ + ZW("\\") + data_.cFileName, data_.dwFileAttributes)) return false;
        } while (FindNextFileW(handle_, &data_));
        return GetLastError() == ERROR_NO_MORE_FILES;
    }

private:
    CZelStringW folder_;
    WIN32_FIND_DATAW data_{};
    HANDLE handle_;
};

}  // namespace

bool IsValidFileName(const CZelStringW& name) {
    return !name.IsEmpty() && name.FindOneOf(kFileNameForbidden) < 0;
}

CZelStringW MakeValidFileName(const CZelStringW& name, WCHAR replacement) {
    if (replacement == 0 || IsIn(kFileNameForbidden, replacement)) replacement = ZW('_');
    if (name.IsEmpty()) return CZelStringW(replacement);
    return ReplaceEach(name, kFileNameForbidden, replacement);
}

CZelStringW MakeExportName(const CZelStringW& name) { return ReplaceEach(name, kExportNameForbidden, ZW('_')); }

CZelStringW GetMimeType(const CZelStringW& path) {
    CZelStringW extension = MimeExtension(path);
    if (extension.CompareNoCase(ZW("zip")) == 0 || extension.CompareNoCase(ZW("vqfzip")) == 0 ||
        extension.CompareNoCase(ZW("vqf.zip")) == 0) {
        return ZW("application/zip");
    }
    if (extension.CompareNoCase(ZW("txt")) == 0) return ZW("text/plain");
    return ZW("application/octet-stream");
}

bool IsFolderWritable(const CZelStringW& folder) {
    if (folder.IsEmpty()) return false;
    CZelStringW probe;
    build_path(probe, folder.GetString(), ZW("~~tmptmp"), nullptr, ZW("tmp"));
    const char zero = 0;
    if (!WriteFile(probe.GetString(), &zero, 1, false)) return false;
    DeleteFileW(probe.GetString());
    return true;
}

bool HasFreeMemory(std::uint64_t needed) {
    MEMORYSTATUS status{};
    GlobalMemoryStatus(&status);
    std::uint64_t available = status.dwAvailPhys;
    if (available >= needed) return true;
    zel_core::logPrintf("free mem: %I64u, needed: %I64u", available, needed);
    return false;
}

bool WriteFile(const WCHAR* path, const void* buffer, std::int32_t size, bool logErrors) {
    if (path == nullptr || path[0] == 0) {
        zel_core::logPrintf("WriteFile: empty fileName");
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (buffer == nullptr) {
        zel_core::logPrintfW(ZW("WriteFile \"%ls\": empty buffer"), path);
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (size < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    LastErrorKeeper failure;
    HANDLE file = file_open(path, FO_CREATE_WRITE);
    if (file == INVALID_HANDLE_VALUE) {
        failure.Keep();
        if (logErrors) zel_core::logPrintfW(ZW("WriteFile \"%ls\": open error %u"), path, GetLastError());
        return false;
    }
    DWORD written = 0;
    bool complete = ::WriteFile(file, buffer, static_cast<DWORD>(size), &written, nullptr) &&
                    written == static_cast<DWORD>(size);
    if (!complete) {
        failure.Keep();
        if (logErrors) {
            zel_core::logPrintfW(ZW("WriteFile \"%ls\": written %u, expected %u bytes"), path, written,
                                 static_cast<DWORD>(size));
        }
    }
    // A close that fails may have lost data the system still held.
    if (!file_close(file) && complete) {
        failure.Keep();
        complete = false;
    }
    if (!complete) DeleteFileW(path);
    return complete;
}

bool CreateFolderTree(const CZelStringW& folder) {
    if (folder.IsEmpty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    bool isDirectory = false;
    if (file_exists(folder.GetString(), &isDirectory)) {
        if (isDirectory) return true;
        SetLastError(ERROR_ALREADY_EXISTS);
        return false;
    }
    CZelStringW trimmed(folder);
    trimmed.TrimRight(ZW("\\/"));
    int separator = LastPathSeparator(trimmed);
    if (separator > 0 && !CreateFolderTree(trimmed.Left(separator))) return false;
    // Another process may create it in between; what counts is that it is there.
    return CreateDirectoryW(trimmed.GetString(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

bool CopyFolderFiles(const CZelStringW& source, const CZelStringW& destination) {
    if (!CreateFolderTree(destination)) return false;
    FolderSearch search(source);
    return search.ForEach([&](const CZelStringW& path, DWORD attributes) {
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return true;
        CZelStringW target = destination + ZW("\\") + path.Mid(LastPathSeparator(path) + 1);
        return CopyFileW(path.GetString(), target.GetString(), FALSE) != FALSE;
    });
}

bool EmptyFolder(const CZelStringW& folder) {
    FolderSearch search(folder);
    return search.ForEach([](const CZelStringW& path, DWORD attributes) {
        if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            // The link goes, what it points to stays.
            return DeleteFileW(path.GetString()) || RemoveDirectoryW(path.GetString());
        }
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            return EmptyFolder(path) && RemoveDirectoryW(path.GetString());
        }
        if (DeleteFileW(path.GetString())) return true;
        // A read-only file goes too, but only by clearing its attribute first.
        return (attributes & FILE_ATTRIBUTE_READONLY) != 0 && GetLastError() == ERROR_ACCESS_DENIED &&
               SetFileAttributesW(path.GetString(), attributes & ~FILE_ATTRIBUTE_READONLY) &&
               DeleteFileW(path.GetString());
    });
}

}  // namespace zel_fs
