#include "zelutils/zip/zip_io.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

namespace zel_zip::detail {
namespace {

// One open archive file: the handle and whether a call on it has failed
// (minizip asks afterwards through the error function).
struct ArchiveFile {
    HANDLE handle = INVALID_HANDLE_VALUE;
    bool failed = false;
};

ArchiveFile* FileOf(voidpf stream) { return static_cast<ArchiveFile*>(stream); }

voidpf ZCALLBACK OpenArchive(voidpf, const void* fileName, int mode) {
    if (fileName == nullptr) return nullptr;
    UINT openMode = 0;
    if ((mode & ZLIB_FILEFUNC_MODE_READWRITEFILTER) == ZLIB_FILEFUNC_MODE_READ) {
        openMode = zel_fs::FO_OPEN_READ;
    } else if ((mode & ZLIB_FILEFUNC_MODE_EXISTING) != 0) {
        openMode = zel_fs::FO_OPEN_EXISTING | zel_fs::FO_READ | zel_fs::FO_WRITE;
    } else if ((mode & ZLIB_FILEFUNC_MODE_CREATE) != 0) {
        openMode = zel_fs::FO_CREATE_ALWAYS | zel_fs::FO_READ | zel_fs::FO_WRITE;
    } else {
        return nullptr;
    }
    HANDLE handle = zel_fs::file_open(static_cast<const WCHAR*>(fileName), openMode);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    auto file = std::make_unique<ArchiveFile>();
    file->handle = handle;
    return file.release();  // owned by minizip until CloseFile
}

// minizip asks for sizes as uLong; the platform reads and writes at most
// INT_MAX bytes a call, so larger requests are done in pieces.
template <typename Buffer, typename Call>
uLong Transfer(voidpf stream, Buffer buffer, uLong size, Call call) {
    ArchiveFile* file = FileOf(stream);
    uLong done = 0;
    while (done < size) {
        std::int32_t piece = static_cast<std::int32_t>(std::min<uLong>(size - done, INT_MAX));
        std::int32_t moved = call(file->handle, buffer + done, piece);
        if (moved < 0) {
            file->failed = true;
            break;
        }
        if (moved == 0) break;
        done += static_cast<uLong>(moved);
    }
    return done;
}

uLong ZCALLBACK ReadArchive(voidpf, voidpf stream, void* buffer, uLong size) {
    return Transfer(stream, static_cast<char*>(buffer), size, zel_fs::file_read);
}

uLong ZCALLBACK WriteArchive(voidpf, voidpf stream, const void* buffer, uLong size) {
    uLong written = Transfer(stream, static_cast<const char*>(buffer), size, zel_fs::file_write);
    if (written != size) FileOf(stream)->failed = true;
    return written;
}

ZPOS64_T ZCALLBACK TellArchive(voidpf, voidpf stream) {
    LARGE_INTEGER position{};
    LARGE_INTEGER zero{};
    if (!SetFilePointerEx(FileOf(stream)->handle, zero, &position, FILE_CURRENT)) {
        FileOf(stream)->failed = true;
        return static_cast<ZPOS64_T>(-1);
    }
    return static_cast<ZPOS64_T>(position.QuadPart);
}

long ZCALLBACK SeekArchive(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
    DWORD method = origin == ZLIB_FILEFUNC_SEEK_CUR ? FILE_CURRENT
                   : origin == ZLIB_FILEFUNC_SEEK_END ? FILE_END
                                                      : FILE_BEGIN;
    LARGE_INTEGER distance{};
    distance.QuadPart = static_cast<LONGLONG>(offset);
    if (!SetFilePointerEx(FileOf(stream)->handle, distance, nullptr, method)) {
        FileOf(stream)->failed = true;
        return -1;
    }
    return 0;
}

int ZCALLBACK CloseArchive(voidpf, voidpf stream) {
    std::unique_ptr<ArchiveFile> file(FileOf(stream));
    return zel_fs::file_close(file->handle) ? 0 : -1;
}

int ZCALLBACK ArchiveFailed(voidpf, voidpf stream) { return FileOf(stream)->failed ? 1 : 0; }

std::uint32_t Little16(const unsigned char* p) { return p[0] | (p[1] << 8u); }
std::uint32_t Little32(const unsigned char* p) {
    return Little16(p) | (static_cast<std::uint32_t>(Little16(p + 2)) << 16);
}

}  // namespace

bool IsEmptyArchive(const WCHAR* path) {
    constexpr std::int64_t kEndRecord = 22;
    std::int64_t size = zel_fs::file_size_by_name(path);
    if (size < kEndRecord || size > kEndRecord + 0xFFFF) return false;
    HANDLE file = zel_fs::file_open(path, zel_fs::FO_OPEN_READ);
    if (file == INVALID_HANDLE_VALUE) return false;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    bool read = zel_fs::file_read(file, bytes.data(), static_cast<std::int32_t>(size)) == size;
    zel_fs::file_close(file);
    const unsigned char* end = bytes.data();
    return read && Little32(end) == 0x06054b50u && Little16(end + 10) == 0 &&
           Little32(end + 12) == 0 && kEndRecord + Little16(end + 20) == size;
}

zlib_filefunc64_def PlatformFileFunctions() {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = OpenArchive;
    functions.zread_file = ReadArchive;
    functions.zwrite_file = WriteArchive;
    functions.ztell64_file = TellArchive;
    functions.zseek64_file = SeekArchive;
    functions.zclose_file = CloseArchive;
    functions.zerror_file = ArchiveFailed;
    functions.opaque = nullptr;
    return functions;
}

}  // namespace zel_zip::detail
