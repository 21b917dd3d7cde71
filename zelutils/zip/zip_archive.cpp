#include "zelutils/zip/zip_archive.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/zip_crypto.h"
#include "zelutils/zip/zip_io.h"

#include <minizip/zip.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <vector>

namespace zel_zip {
namespace {

constexpr std::int32_t kTransferSize = 16384;
constexpr std::size_t kMaxNameBytes = 0xFFFF;
constexpr uLong kEncryptedFlag = 0x1;
constexpr uLong kUtf8NameFlag = 0x800;
// Version made by: Unix (3) in the high byte, format 3.0. With a Unix host
// other tools honour the UTF-8 flag and the mode in the external attributes;
// for an MS-DOS host some ignore both.
constexpr uLong kVersionMadeBy = (3u << 8) | 30u;
// Entries from this size on are written in ZIP64 form: deflate may grow
// data a little, so the limit keeps room below 4 GB.
constexpr std::uint64_t kZip64Threshold = 0xF0000000u;

zipFile Archive(void* handle) { return static_cast<zipFile>(handle); }

// The name an entry is stored under: leading separators dropped, `\` made
// `/`, with junkFolders only the last component; UTF-8.
std::string ArchiveName(const WCHAR* nameInArchive, bool junkFolders) {
    WString name(nameInArchive != nullptr ? nameInArchive : ZW(""));
    name.erase(0, name.find_first_not_of(ZW("\\/")) == WString::npos ? name.size()
                                                                      : name.find_first_not_of(ZW("\\/")));
    std::replace(name.begin(), name.end(), ZW('\\'), ZW('/'));
    if (junkFolders) name.erase(0, name.find_last_of(ZW('/')) == WString::npos ? 0 : name.find_last_of(ZW('/')) + 1);
    zel_text::CZelStringUtf8 utf8(name.c_str(), static_cast<int>(name.size()));
    return std::string(utf8.GetString(), static_cast<std::size_t>(utf8.GetLength()));
}

// The entry date fields for a file's last-write time, as local time. A
// DOS date holds the years 1980 to 2107: earlier or later times (a file
// dated at the epoch, as reproducible builds date theirs) take the nearest
// end instead of bits that overflow into an invalid date.
tm_zip ZipTimeOf(const FILETIME& lastWrite) {
    FILETIME local{};
    SYSTEMTIME fields{};
    tm_zip time{};
    if (FileTimeToLocalFileTime(&lastWrite, &local) && FileTimeToSystemTime(&local, &fields)) {
        if (fields.wYear < 1980) fields = SYSTEMTIME{1980, 1, 0, 1, 0, 0, 0, 0};
        if (fields.wYear > 2107) fields = SYSTEMTIME{2107, 12, 0, 31, 23, 59, 58, 0};
        time.tm_sec = fields.wSecond;
        time.tm_min = fields.wMinute;
        time.tm_hour = fields.wHour;
        time.tm_mday = fields.wDay;
        time.tm_mon = fields.wMonth - 1u;
        time.tm_year = fields.wYear;
    }
    return time;
}

// An open source file, closed when it goes out of scope.
class SourceFile {
public:
    explicit SourceFile(const WCHAR* path) : handle_(zel_fs::file_open(path, zel_fs::FO_OPEN_READ)) {}
    ~SourceFile() {
        if (handle_ != INVALID_HANDLE_VALUE) zel_fs::file_close(handle_);
    }
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;
    HANDLE Handle() const { return handle_; }

private:
    HANDLE handle_;
};

// Deflates (or stores) and encrypts an entry's data for minizip's raw mode:
// the encryption needs the compressed bytes, which minizip would otherwise
// produce and write itself.
class EncryptingWriter {
public:
    EncryptingWriter(zipFile archive, const char* password, int level)
        : archive_(archive), cipher_(password), deflating_(level != 0) {
        if (deflating_) ready_ = deflateInit2(&stream_, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
    }
    ~EncryptingWriter() {
        if (deflating_ && ready_) deflateEnd(&stream_);
    }
    EncryptingWriter(const EncryptingWriter&) = delete;
    EncryptingWriter& operator=(const EncryptingWriter&) = delete;

    // ZIP_OK or the negative code of the failure.
    int Begin(unsigned long crc) {
        if (!ready_) return ZIP_INTERNALERROR;
        unsigned char header[detail::kEncryptionHeaderSize];
        detail::MakeEncryptionHeader(cipher_, static_cast<unsigned char>(crc >> 24), header);
        return zipWriteInFileInZip(archive_, header, sizeof header);
    }

    int Write(const unsigned char* data, unsigned size) {
        if (!deflating_) {
            output_.assign(data, data + size);
            return Emit(size);
        }
        stream_.next_in = const_cast<Bytef*>(data);
        stream_.avail_in = size;
        return Deflate(Z_NO_FLUSH);
    }

    int Finish() { return deflating_ ? Deflate(Z_FINISH) : ZIP_OK; }

private:
    int Deflate(int flush) {
        output_.resize(kTransferSize);
        for (;;) {
            stream_.next_out = output_.data();
            stream_.avail_out = static_cast<uInt>(output_.size());
            int result = deflate(&stream_, flush);
            if (result == Z_STREAM_ERROR) return ZIP_INTERNALERROR;
            int written = Emit(static_cast<unsigned>(output_.size() - stream_.avail_out));
            if (written != ZIP_OK) return written;
            if (flush == Z_FINISH ? result == Z_STREAM_END : stream_.avail_out != 0) return ZIP_OK;
        }
    }

    int Emit(unsigned size) {
        if (size == 0) return ZIP_OK;
        cipher_.Encrypt(output_.data(), size);
        return zipWriteInFileInZip(archive_, output_.data(), size);
    }

    zipFile archive_;
    detail::TraditionalCipher cipher_;
    bool deflating_;
    bool ready_ = true;
    z_stream stream_{};
    std::vector<unsigned char> output_;
};

std::filesystem::path AbsolutePath(const WCHAR* path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(zel_platform::FileSystemPath(path), error);
    return absolute.lexically_normal();
}

}  // namespace

CZipArchive::~CZipArchive() {
    if (handle_ != nullptr) Close(nullptr);
}

bool CZipArchive::Open(const WCHAR* path, int mode) {
    if (handle_ != nullptr) Close(nullptr);
    ClearError();
    archivePath_ = path != nullptr ? path : ZW("");
    if (path == nullptr) return Fail("error opening archive", -1);
    // minizip cannot add to an archive without entries; rewriting it is the same.
    int append = mode == kAddToArchive && !detail::IsEmptyArchive(path) ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE;
    zlib_filefunc64_def functions = detail::PlatformFileFunctions();
    handle_ = zipOpen2_64(path, append, nullptr, &functions);
    return handle_ != nullptr || Fail("error opening archive", -1);
}

bool CZipArchive::Close() { return Close(nullptr); }

bool CZipArchive::Close(const char* comment) {
    if (handle_ == nullptr) return true;
    ClearError();
    if (comment != nullptr && std::char_traits<char>::length(comment) > kMaxNameBytes) {
        return Refuse("archive comment longer than the format allows", archivePath_, -1);
    }
    // minizip frees the archive even when closing fails, so the handle goes
    // either way; a second close would free it twice.
    int result = zipClose(Archive(handle_), comment);
    handle_ = nullptr;
    return result == ZIP_OK || Fail("error in closing archive.", result);
}

bool CZipArchive::AddFile(const WCHAR* sourcePath, const WCHAR* nameInArchive, int level, const char* password,
                          bool junkFolders) {
    ClearError();
    if (handle_ == nullptr) return Fail("error in opening file inside archive.", ZIP_PARAMERROR);
    // The source is opened before the entry, so a missing source adds nothing.
    // A device or FIFO is no file to archive: opening a FIFO would wait for a
    // writer that may never come.
    DWORD attributes = sourcePath != nullptr ? GetFileAttributesW(sourcePath) : INVALID_FILE_ATTRIBUTES;
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DEVICE) != 0) {
        return Fail("error in opening source file for reading.", -1);
    }
    SourceFile source(sourcePath);
    BY_HANDLE_FILE_INFORMATION status{};
    if (source.Handle() == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(source.Handle(), &status)) {
        return Fail("error in opening source file for reading.", -1);
    }
    std::uint64_t size = (std::uint64_t{status.nFileSizeHigh} << 32) | status.nFileSizeLow;
    unsigned long crc = 0;
    std::vector<unsigned char> buffer(kTransferSize);
    if (password != nullptr && fileCrc(sourcePath, buffer.data(), kTransferSize, &crc) != 0) {
        return Fail("error in reading source file.", -1);
    }
    std::string name = ArchiveName(nameInArchive, junkFolders);
    if (name.size() > kMaxNameBytes) {
        return Refuse("entry name longer than the format allows", nameInArchive, -1);
    }

    zip_fileinfo info{};
    info.tmz_date = ZipTimeOf(status.ftLastWriteTime);
    bool readOnly = (status.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    uLong mode = 0100000u | (readOnly ? 0444u : 0644u) | (zel_platform::IsExecutable(source.Handle()) ? 0111u : 0u);
    info.external_fa = (mode << 16) | (readOnly ? FILE_ATTRIBUTE_READONLY : 0u);
    uLong flags = (zel_text::chars::IsAscii(name.data(), name.size()) ? 0u : kUtf8NameFlag) |
                  (password != nullptr ? kEncryptedFlag : 0u);
    int method = level != 0 ? Z_DEFLATED : 0;
    zipFile archive = Archive(handle_);
    int result = zipOpenNewFileInZip4_64(archive, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, method, level,
                                         password != nullptr ? 1 : 0, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY, nullptr, 0,
                                         kVersionMadeBy, flags, size >= kZip64Threshold ? 1 : 0);
    if (result != ZIP_OK) return Fail("error in opening file inside archive.", result);

    std::optional<EncryptingWriter> encrypting;
    if (password != nullptr) {
        encrypting.emplace(archive, password, level);
        result = encrypting->Begin(crc);
        if (result < 0) return Fail("error in writing file in the archive", result);
    }
    uLong readCrc = crc32(0, nullptr, 0);
    for (;;) {
        std::int32_t got = zel_fs::file_read(source.Handle(), buffer.data(), kTransferSize);
        if (got < 0) return Fail("error in reading source file.", -1);
        if (got == 0) break;
        if (encrypting) {
            readCrc = crc32(readCrc, buffer.data(), static_cast<uInt>(got));
            result = encrypting->Write(buffer.data(), static_cast<unsigned>(got));
        } else {
            result = zipWriteInFileInZip(archive, buffer.data(), static_cast<unsigned>(got));
        }
        if (result < 0) return Fail("error in writing file in the archive", result);
    }
    if (encrypting) {
        result = encrypting->Finish();
        if (result < 0) return Fail("error in writing file in the archive", result);
        // The check byte promised the CRC read first; a file changed since
        // would make an entry no tool accepts.
        if (readCrc != crc) return Fail("error in reading source file.", -1);
        result = zipCloseFileInZipRaw64(archive, size, crc);
    } else {
        result = zipCloseFileInZip(archive);
    }
    return result == ZIP_OK || Fail("error in closing file in the archive", result);
}

bool CZipArchive::AddFolder(const WCHAR* folderPath, const WCHAR* prefixInArchive, int level, const char* password) {
    ClearError();
    DWORD attributes = folderPath != nullptr ? GetFileAttributesW(folderPath) : INVALID_FILE_ATTRIBUTES;
    if (attributes == INVALID_FILE_ATTRIBUTES) return Fail("error in opening source file for reading.", -1);
    WString prefix(prefixInArchive != nullptr ? prefixInArchive : ZW(""));
    if (!prefix.empty() && prefix.back() != ZW('/') && prefix.back() != ZW('\\')) prefix += ZW('/');
    WString root(folderPath);
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        WString name = prefix + root.substr(root.find_last_of(ZW("\\/")) == WString::npos ? 0 : root.find_last_of(ZW("\\/")) + 1);
        return AddFile(folderPath, name.c_str(), level, password, false);
    }
    std::filesystem::path self = AbsolutePath(archivePath_.c_str());
    std::filesystem::path replaced;
    if (!replacedPath_.empty()) replaced = AbsolutePath(replacedPath_.c_str());
    // Folders still to walk, each with its name in the archive.
    std::vector<std::pair<WString, WString>> pending{{root, prefix}};
    while (!pending.empty()) {
        auto [folder, name] = pending.back();
        pending.pop_back();
        WIN32_FIND_DATAW data{};
        HANDLE search = FindFirstFileW((folder + ZW("\\*")).c_str(), &data);
        if (search == INVALID_HANDLE_VALUE) {
            if (GetLastError() == ERROR_FILE_NOT_FOUND) continue;
            return Fail("error in opening source file for reading.", -1);
        }
        std::vector<WIN32_FIND_DATAW> found;
        do {
            if (!zel_fs::is_dot_entry(data.cFileName, 0)) found.push_back(data);
        } while (FindNextFileW(search, &data));
        FindClose(search);
        std::sort(found.begin(), found.end(), [](const WIN32_FIND_DATAW& a, const WIN32_FIND_DATAW& b) {
            return WString(a.cFileName) > WString(b.cFileName);
        });
        std::vector<std::pair<WString, WString>> subfolders;
        for (auto entry = found.rbegin(); entry != found.rend(); ++entry) {
            WString path = folder + ZW("\\") + entry->cFileName;
            WString entryName = name + entry->cFileName;
            // Devices, FIFOs and sockets in the tree are left out, as zip does.
            if ((entry->dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0) continue;
            if ((entry->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                // A link to a folder could lead back up the tree: not followed.
                if ((entry->dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
                    subfolders.emplace_back(path, entryName + ZW('/'));
                }
                continue;
            }
            std::filesystem::path absolute = AbsolutePath(path.c_str());
            if (absolute == self || absolute == replaced) continue;
            if (!AddFile(path.c_str(), entryName.c_str(), level, password, false)) return false;
        }
        // Walked after this folder's files, in name order.
        pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
    }
    return true;
}

int CZipArchive::fileCrc(const WCHAR* path, void* buffer, std::int32_t bufferSize, unsigned long* crcOut) {
    *crcOut = 0;
    HANDLE file = path != nullptr ? zel_fs::file_open(path, zel_fs::FO_OPEN_READ) : INVALID_HANDLE_VALUE;
    if (file == INVALID_HANDLE_VALUE || buffer == nullptr || bufferSize <= 0) {
        if (file != INVALID_HANDLE_VALUE) zel_fs::file_close(file);
        return -1;
    }
    zel_text::CZelStringUtf8 shown(path);
    uLong crc = crc32(0, nullptr, 0);
    int result = 0;
    for (;;) {
        std::int32_t got = zel_fs::file_read(file, buffer, bufferSize);
        if (got < 0) {
            std::printf("error in reading %s\n", shown.GetString());
            result = -1;
            break;
        }
        if (got == 0) break;
        crc = crc32(crc, static_cast<const Bytef*>(buffer), static_cast<uInt>(got));
    }
    zel_fs::file_close(file);
    std::printf("file %s crc %lx\n", shown.GetString(), static_cast<unsigned long>(crc));
    *crcOut = crc;
    return result;
}

}  // namespace zel_zip
