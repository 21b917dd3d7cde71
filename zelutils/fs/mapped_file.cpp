#include "zelutils/fs/mapped_file.h"

#include <cstdint>

namespace zel_fs {
namespace {

void CloseMapping(HANDLE& mapping) {
    if (mapping != nullptr) CloseHandle(mapping);
    mapping = nullptr;
}

void CloseFile(HANDLE& file) {
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    file = INVALID_HANDLE_VALUE;
}

}  // namespace

MappedFileResult OpenMappedFile(const MappedFileRequest& request) {
    MappedFileResult result;
    if (request.desiredAccess < GENERIC_WRITE) {
        result.error = ERROR_INVALID_PARAMETER;
        return result;
    }
    bool hasFile = !request.path.IsEmpty();
    if (hasFile) {
        result.fileHandle = CreateFileForMappingW(
            request.path, request.desiredAccess, request.shareMode, request.securityAttributes,
            request.creationDisposition, request.flagsAndAttributes, request.templateFile);
        if (result.fileHandle == INVALID_HANDLE_VALUE) {
            result.error = GetLastError();
            return result;
        }
        result.size = request.maximumSizeLow != 0 ? request.maximumSizeLow
                                                  : GetFileSize(result.fileHandle, nullptr);
    } else {
        result.size = request.maximumSizeLow;
    }

    constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
    bool readWrite = (request.desiredAccess & kReadWrite) == kReadWrite;
    DWORD protect = readWrite ? PAGE_READWRITE : PAGE_READONLY;
    if (request.mappingName.IsEmpty()) {
        // The handle's value as a 32-bit number, as handles have always been
        // printed; -1 when there is no file.
        zel_text::CZelStringW name;
        name.Format(ZW("hfile_%d"),
                    static_cast<int>(reinterpret_cast<std::intptr_t>(result.fileHandle)));
        result.mappingHandle = zel_platform::CreateProcessFileMapping(
            result.fileHandle, request.securityAttributes, protect, request.maximumSizeHigh,
            request.maximumSizeLow, name);
    } else {
        result.mappingHandle =
            CreateFileMappingW(result.fileHandle, request.securityAttributes, protect,
                               request.maximumSizeHigh, request.maximumSizeLow, request.mappingName);
    }
    result.error = GetLastError();
    if (result.error == ERROR_ALREADY_EXISTS) {
        result.error = ERROR_SUCCESS;
    } else if (result.error != ERROR_SUCCESS) {
        // Kept as it always was: the view below is still attempted on the
        // null mapping and reports its own error.
        CloseMapping(result.mappingHandle);
        CloseFile(result.fileHandle);
    }

    result.view = MapViewOfFile(result.mappingHandle, readWrite ? FILE_MAP_WRITE | FILE_MAP_READ : FILE_MAP_READ,
                                request.viewOffsetHigh, request.viewOffsetLow, request.viewBytes);
    if (result.view == nullptr) {
        result.error = GetLastError();
        CloseMapping(result.mappingHandle);
        CloseFile(result.fileHandle);
        return result;
    }
    if (!hasFile) result.fileHandle = nullptr;
    return result;
}

MappedFile::MappedFile(const MappedFileResult& result, bool owned)
    : fileHandle_(result.fileHandle),
      mappingHandle_(result.mappingHandle),
      view_(result.view),
      error_(result.error),
      owned_(owned) {}

void MappedFile::Close() {
    if (owned_) {
        if (view_ != nullptr) UnmapViewOfFile(view_);
        if (mappingHandle_ != nullptr) CloseHandle(mappingHandle_);
        // A paging-file mapping holds 0, which names no file.
        if (fileHandle_ != INVALID_HANDLE_VALUE && fileHandle_ != nullptr) CloseHandle(fileHandle_);
    }
    *this = MappedFile();
}

}  // namespace zel_fs
