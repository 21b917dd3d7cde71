#include "zelutils/zip/unzip_archive.h"

#include "zelutils/fs/file_utils.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/zip_crypto.h"
#include "zelutils/zip/zip_io.h"

#include <minizip/unzip.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

namespace zel_zip {
namespace {

using detail::TraditionalCipher;

constexpr unsigned kTransferSize = 16384;
constexpr uLong kNameBufferSize = 260;
constexpr std::uint32_t kEncryptedFlag = 0x1;
constexpr std::uint32_t kDataDescriptorFlag = 0x8;
constexpr std::uint32_t kUtf8NameFlag = 0x800;

unzFile Archive(void* handle) { return static_cast<unzFile>(handle); }

bool IsSeparator(WCHAR c) { return c == ZW('\\') || c == ZW('/'); }

// Whether an entry's sizes need ZIP64. minizip 1.1 reads the ZIP64 sizes of
// the central directory only where long is 32 bits, so on LP64 systems it
// cannot read such entries itself.
bool IsLarge(const ZipEntryInfo& info) {
    return info.compressedSize >= 0xFFFFFFFFu || info.uncompressedSize >= 0xFFFFFFFFu;
}

// One entry opened for reading. Plain entries are read through minizip.
// Encrypted ones are read raw, decrypted here and inflated with zlib, since
// the minizip the library is built with may lack decryption; entries over
// 4 GB are read the same way, straight from the archive file.
class EntryReader {
public:
    explicit EntryReader(void* archive) : archive_(Archive(archive)) {}
    ~EntryReader() { Close(); }
    EntryReader(const EntryReader&) = delete;
    EntryReader& operator=(const EntryReader&) = delete;

    // UNZ_OK or the failure's code; a missing or wrong password gives
    // UNZ_PARAMERROR, as minizip does for passwords it cannot use.
    int Open(const ZipEntryInfo& info, const char* password, const WString& archivePath) {
        expectedCrc_ = info.crc;
        // minizip hands out bzip2 data undecoded, as if stored: only the
        // methods read here are opened.
        if (info.compressionMethod != 0 && info.compressionMethod != Z_DEFLATED) return UNZ_BADZIPFILE;
        bool encrypted = (info.flags & kEncryptedFlag) != 0;
        if (!encrypted && !IsLarge(info)) {
            int result = unzOpenCurrentFilePassword(archive_, nullptr);
            opened_ = result == UNZ_OK;
            return result;
        }
        if (encrypted && password == nullptr) return UNZ_PARAMERROR;
        int method = 0;
        int result = unzOpenCurrentFile2(archive_, &method, nullptr, 1);
        if (result != UNZ_OK) return result;
        opened_ = true;
        decoding_ = true;
        if (method != 0 && method != Z_DEFLATED) return CloseWith(UNZ_BADZIPFILE);
        if (IsLarge(info)) {
            direct_ = zel_fs::file_open(archivePath.c_str(), zel_fs::FO_OPEN_READ);
            std::uint64_t start = unzGetCurrentFileZStreamPos64(archive_);
            if (direct_ == INVALID_HANDLE_VALUE ||
                zel_fs::file_seek(direct_, 0, static_cast<std::int64_t>(start)) != start) {
                return CloseWith(UNZ_ERRNO);
            }
            directRemaining_ = info.compressedSize;
        }
        if (encrypted) {
            unsigned char header[detail::kEncryptionHeaderSize];
            if (ReadRaw(header, sizeof header) != static_cast<int>(sizeof header)) return CloseWith(UNZ_BADZIPFILE);
            cipher_.emplace(password);  // from here on ReadRaw decrypts
            // Entries written with a data descriptor check against the time, as
            // their CRC was not known when the header was made.
            unsigned char check = (info.flags & kDataDescriptorFlag) != 0 ? static_cast<unsigned char>(info.dosDate >> 8)
                                                                          : static_cast<unsigned char>(info.crc >> 24);
            if (!detail::CheckEncryptionHeader(*cipher_, check, header)) return CloseWith(UNZ_PARAMERROR);
        }
        if (method == Z_DEFLATED) {
            if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) return CloseWith(UNZ_INTERNALERROR);
            inflating_ = true;
        }
        return UNZ_OK;
    }

    // The bytes read (up to size), 0 at the end, or a negative code.
    int Read(unsigned char* out, unsigned size) {
        if (!decoding_) return unzReadCurrentFile(archive_, out, size);
        if (!inflating_) {
            int got = ReadRaw(out, size);
            if (got > 0) crc_ = crc32(crc_, out, static_cast<uInt>(got));
            return got;
        }
        stream_.next_out = out;
        stream_.avail_out = size;
        while (stream_.avail_out > 0 && !streamEnded_) {
            if (stream_.avail_in == 0) {
                int got = ReadRaw(input_, sizeof input_);
                if (got < 0) return got;
                if (got == 0) break;  // the data end before the stream does: the size check tells
                stream_.next_in = input_;
                stream_.avail_in = static_cast<uInt>(got);
            }
            int result = inflate(&stream_, Z_NO_FLUSH);
            if (result == Z_STREAM_END) {
                streamEnded_ = true;
            } else if (result != Z_OK) {
                return Z_DATA_ERROR;
            }
        }
        unsigned produced = size - stream_.avail_out;
        crc_ = crc32(crc_, out, produced);
        return static_cast<int>(produced);
    }

    // UNZ_OK, or the code of closing; an entry decoded here whose data do
    // not match its CRC gives UNZ_CRCERROR, as minizip does for plain ones.
    int Close() {
        if (!opened_) return UNZ_OK;
        opened_ = false;
        if (inflating_) inflateEnd(&stream_);
        inflating_ = false;
        if (direct_ != INVALID_HANDLE_VALUE) zel_fs::file_close(direct_);
        direct_ = INVALID_HANDLE_VALUE;
        int result = unzCloseCurrentFile(archive_);
        if (result == UNZ_OK && decoding_ && crc_ != expectedCrc_) result = UNZ_CRCERROR;
        return result;
    }

private:
    // The entry's stored bytes (decrypted): through minizip's raw mode, or
    // straight from the archive file for entries minizip cannot size.
    int ReadRaw(unsigned char* buffer, unsigned size) {
        int got = 0;
        if (direct_ == INVALID_HANDLE_VALUE) {
            got = unzReadCurrentFile(archive_, buffer, size);
        } else {
            std::int32_t wanted = static_cast<std::int32_t>(std::min<std::uint64_t>(size, directRemaining_));
            got = wanted == 0 ? 0 : zel_fs::file_read(direct_, buffer, wanted);
            if (got < 0) return UNZ_ERRNO;
            directRemaining_ -= static_cast<std::uint64_t>(got);
        }
        if (got > 0 && cipher_) cipher_->Decrypt(buffer, static_cast<std::size_t>(got));
        return got;
    }

    int CloseWith(int code) {
        decoding_ = false;
        Close();
        return code;
    }

    unzFile archive_;
    bool opened_ = false;
    bool decoding_ = false;
    bool inflating_ = false;
    bool streamEnded_ = false;
    std::optional<TraditionalCipher> cipher_;
    HANDLE direct_ = INVALID_HANDLE_VALUE;
    std::uint64_t directRemaining_ = 0;
    z_stream stream_{};
    uLong crc_ = crc32(0, nullptr, 0);
    uLong expectedCrc_ = 0;
    unsigned char input_[kTransferSize];
};

// The file an entry is written to before it takes its destination's name:
// created exclusively beside the destination, removed unless committed.
class PendingFile {
public:
    ~PendingFile() {
        if (handle_ != INVALID_HANDLE_VALUE) zel_fs::file_close(handle_);
        if (!path_.IsEmpty()) DeleteFileW(path_.GetString());
    }

    bool Create(const WString& destination) {
        static unsigned counter = 0;
        for (int attempt = 0; attempt < 100; ++attempt) {
            zel_text::CZelStringW candidate(destination.c_str());
            zel_text::CZelStringW suffix;
            suffix.Format(ZW(".zel%04x~"), (++counter + GetCurrentProcessId()) & 0xFFFF);
            candidate += suffix;
            int error = 0;
            handle_ = zel_fs::file_open(candidate.GetString(), zel_fs::FO_CREATE_NEW | zel_fs::FO_WRITE, nullptr, &error);
            if (handle_ != INVALID_HANDLE_VALUE) {
                path_ = candidate;
                return true;
            }
            if (error != zel_fs::FOE_FILE_EXISTS) return false;
        }
        return false;
    }

    HANDLE Handle() const { return handle_; }

    // Closes the file and renames it over destination.
    bool Commit(const WString& destination) {
        bool closed = zel_fs::file_close(handle_);
        handle_ = INVALID_HANDLE_VALUE;
        if (!closed || !MoveFileExW(path_.GetString(), destination.c_str(), MOVEFILE_REPLACE_EXISTING)) return false;
        path_.Empty();
        return true;
    }

private:
    zel_text::CZelStringW path_;
    HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// The entry's DOS date and time (local time) as the file's times.
void SetTimesFromDosDate(HANDLE file, std::uint32_t dosDate) {
    SYSTEMTIME local{};
    local.wYear = static_cast<WORD>(1980 + ((dosDate >> 25) & 0x7F));
    local.wMonth = static_cast<WORD>((dosDate >> 21) & 0x0F);
    local.wDay = static_cast<WORD>((dosDate >> 16) & 0x1F);
    local.wHour = static_cast<WORD>((dosDate >> 11) & 0x1F);
    local.wMinute = static_cast<WORD>((dosDate >> 5) & 0x3F);
    local.wSecond = static_cast<WORD>((dosDate & 0x1F) * 2);
    FILETIME localTime{};
    FILETIME utc{};
    if (SystemTimeToFileTime(&local, &localTime) && LocalFileTimeToFileTime(&localTime, &utc)) {
        SetFileTime(file, &utc, nullptr, &utc);
    }
}

// Whether an entry name would leave the folder it is extracted into: an
// absolute name, a drive letter (or any colon, which on Windows also names a
// file's alternate stream) or a ".." component, with either separator.
bool LeavesFolder(const WString& name) {
    if (!name.empty() && IsSeparator(name[0])) return true;
    if (name.find(ZW(':')) != WString::npos) return true;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= name.size(); ++i) {
        if (i == name.size() || IsSeparator(name[i])) {
            if (name.compare(start, i - start, ZW("..")) == 0) return true;
            start = i + 1;
        }
    }
    return false;
}

// Whether an entry made on a Unix host is a regular file someone may
// execute: a program or a script keeps that permission, the only one taken
// from the archive.
bool IsUnixExecutable(const ZipEntryInfo& info) {
    constexpr std::uint32_t kUnixHost = 3;
    std::uint32_t mode = info.externalAttributes >> 16;
    std::uint32_t type = mode & 0170000u;
    return (info.versionMadeBy >> 8) == kUnixHost && (type == 0 || type == 0100000u) && (mode & 0111u) != 0;
}

// Whether something other than a folder is at path.
bool IsFile(const WString& path) {
    DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool EndsWithSeparator(const WString& path) { return !path.empty() && IsSeparator(path.back()); }

WString Normalised(WString path) {
    std::replace(path.begin(), path.end(), ZW('/'), ZW('\\'));
    return path;
}

ZipEntryInfo EntryInfoOf(const unz_file_info64& raw) {
    ZipEntryInfo info;
    info.versionMadeBy = static_cast<std::uint32_t>(raw.version);
    info.versionNeeded = static_cast<std::uint32_t>(raw.version_needed);
    info.flags = static_cast<std::uint32_t>(raw.flag);
    info.compressionMethod = static_cast<std::uint32_t>(raw.compression_method);
    info.dosDate = static_cast<std::uint32_t>(raw.dosDate);
    info.crc = static_cast<std::uint32_t>(raw.crc);
    info.compressedSize = raw.compressed_size;
    info.uncompressedSize = raw.uncompressed_size;
    info.nameLength = static_cast<std::uint32_t>(raw.size_filename);
    info.extraLength = static_cast<std::uint32_t>(raw.size_file_extra);
    info.commentLength = static_cast<std::uint32_t>(raw.size_file_comment);
    info.diskNumber = static_cast<std::uint32_t>(raw.disk_num_start);
    info.internalAttributes = static_cast<std::uint32_t>(raw.internal_fa);
    info.externalAttributes = static_cast<std::uint32_t>(raw.external_fa);
    return info;
}

// Takes the 64-bit sizes from the ZIP64 block of a central record's extra
// field where the 32-bit fields say "see ZIP64" and minizip left them so.
void ApplyZip64Sizes(const unsigned char* extra, std::size_t length, ZipEntryInfo& info) {
    auto little64 = [](const unsigned char* p) {
        std::uint64_t value = 0;
        for (int i = 7; i >= 0; --i) value = (value << 8) | p[i];
        return value;
    };
    for (std::size_t at = 0; at + 4 <= length;) {
        std::size_t id = extra[at] | (extra[at + 1] << 8u);
        std::size_t size = extra[at + 2] | (extra[at + 3] << 8u);
        const unsigned char* data = extra + at + 4;
        if (at + 4 + size > length) return;
        if (id == 0x0001) {
            std::size_t used = 0;
            for (std::uint64_t* field : {&info.uncompressedSize, &info.compressedSize}) {
                if (*field != 0xFFFFFFFFu) continue;
                if (used + 8 > size) return;
                *field = little64(data + used);
                used += 8;
            }
            return;
        }
        at += 4 + size;
    }
}

// Reads the current entry's record with a 260-byte name buffer and decodes
// the name: UTF-8 when flag bit 11 says so, else the system code page.
int ReadCurrentEntry(unzFile archive, ZipEntry& entry) {
    unz_file_info64 raw{};
    char name[kNameBufferSize] = {};
    static thread_local std::vector<unsigned char> extra(0xFFFF);
    int result = unzGetCurrentFileInfo64(archive, &raw, name, sizeof name, extra.data(),
                                         static_cast<uLong>(extra.size()), nullptr, 0);
    if (result != UNZ_OK) return result;
    entry.info = EntryInfoOf(raw);
    ApplyZip64Sizes(extra.data(), std::min<std::size_t>(raw.size_file_extra, extra.size()), entry.info);
    int length = static_cast<int>(std::min<uLong>(raw.size_filename, kNameBufferSize));
    UINT codePage = (raw.flag & kUtf8NameFlag) != 0 ? CP_UTF8 : CP_ACP;
    zel_text::CZelStringW wide(name, length, codePage);
    entry.name.assign(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
    return UNZ_OK;
}

// The nearest folder of path that exists, for the free-space query.
std::uint64_t FreeSpaceFor(WString folder) {
    for (;;) {
        ULARGE_INTEGER available{};
        if (GetDiskFreeSpaceExW(folder.empty() ? nullptr : folder.c_str(), &available, nullptr, nullptr)) {
            return available.QuadPart;
        }
        while (EndsWithSeparator(folder)) folder.pop_back();
        std::size_t separator = folder.find_last_of(ZW("\\/"));
        if (separator == WString::npos) {
            if (folder.empty()) return 0;
            folder.clear();
        } else {
            folder.resize(separator + 1);
        }
    }
}

}  // namespace

CUnZipArchive::~CUnZipArchive() { Close(); }

bool CUnZipArchive::Open(const WCHAR* path) {
    Close();
    ClearError();
    archivePath_ = path != nullptr ? path : ZW("");
    entries_.clear();
    index_.clear();
    current_ = 0;
    zlib_filefunc64_def functions = detail::PlatformFileFunctions();
    handle_ = path != nullptr ? unzOpen2_64(path, &functions) : nullptr;
    if (handle_ != nullptr) return true;
    if (path != nullptr && detail::IsEmptyArchive(path)) {
        emptyArchive_ = true;
        return true;
    }
    return Fail("error opening archive", -1);
}

bool CUnZipArchive::Close() {
    emptyArchive_ = false;
    if (handle_ == nullptr) return true;
    ClearError();
    int result = unzClose(Archive(handle_));
    handle_ = nullptr;
    return result == UNZ_OK || Fail("error closing archive", result);
}

bool CUnZipArchive::ReadContent() {
    ClearError();
    entries_.clear();
    index_.clear();
    if (emptyArchive_) return true;
    if (handle_ == nullptr) return Fail("error at reading archive header", UNZ_PARAMERROR);
    unzFile archive = Archive(handle_);
    unz_global_info64 global{};
    int result = unzGetGlobalInfo64(archive, &global);
    if (result != UNZ_OK) return Fail("error at reading archive header", result);
    // The count comes from the archive: reserve no more than a sane amount.
    entries_.reserve(static_cast<std::size_t>(std::min<ZPOS64_T>(global.number_entry, 1u << 16)));
    if (global.number_entry == 0) return true;
    result = unzGoToFirstFile(archive);
    current_ = 0;
    std::vector<std::uint64_t> dataOffsets;
    for (ZPOS64_T position = 0; result == UNZ_OK; ++position) {
        ZipEntry entry;
        result = ReadCurrentEntry(archive, entry);
        if (result != UNZ_OK) break;
        // Where the entry's data start, to find entries sharing their data.
        int method = 0;
        bool rawOpen = unzOpenCurrentFile2(archive, &method, nullptr, 1) == UNZ_OK;
        dataOffsets.push_back(rawOpen ? unzGetCurrentFileZStreamPos64(archive) : UINT64_MAX);
        if (rawOpen) unzCloseCurrentFile(archive);
        index_.insert({entry.name, entries_.size()});
        entries_.push_back(std::move(entry));
        if (position + 1 >= global.number_entry) break;
        result = unzGoToNextFile(archive);
        if (result == UNZ_OK) current_ = entries_.size();
    }
    if (result != UNZ_OK) return Fail("error at reading archive content", result);
    return CheckOverlaps(dataOffsets);
}

// An archive whose entries share or overlap their data (the non-recursive
// zip bomb: many entries inflating one block) is refused.
bool CUnZipArchive::CheckOverlaps(const std::vector<std::uint64_t>& dataOffsets) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < dataOffsets.size(); ++i) {
        if (dataOffsets[i] != UINT64_MAX) order.push_back(i);
    }
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return dataOffsets[a] < dataOffsets[b]; });
    for (std::size_t i = 1; i < order.size(); ++i) {
        std::size_t before = order[i - 1];
        std::uint64_t end = dataOffsets[before] + entries_[before].info.compressedSize;
        if (dataOffsets[order[i]] < end || dataOffsets[order[i]] == dataOffsets[before]) {
            Refuse("entries overlap one another in the archive", entries_[order[i]].name, UNZ_BADZIPFILE);
            // No entry of such an archive stays listed for extraction.
            entries_.clear();
            index_.clear();
            return false;
        }
    }
    return true;
}

bool CUnZipArchive::GoToEntry(std::size_t position) {
    if (handle_ == nullptr || position >= entries_.size()) return false;
    if (current_ == position) return true;
    unzFile archive = Archive(handle_);
    if (position < current_) {
        int result = unzGoToFirstFile(archive);
        if (result != UNZ_OK) return Fail("failed to locate file by index in archive", result);
        current_ = 0;
    }
    while (current_ < position) {
        int result = unzGoToNextFile(archive);
        if (result != UNZ_OK) return Fail("failed to locate file by index in archive", result);
        ++current_;
    }
    return true;
}

bool CUnZipArchive::MakeDestination(const WString& name, const WCHAR* destinationPath, bool keepFolders,
                                    WString& destination) {
    if (destinationPath != nullptr && destinationPath[0] != 0) {
        destination = destinationPath;
        return true;
    }
    if (LeavesFolder(name)) return Refuse("entry name leaves the destination folder", name, -1);
    WString relative = Normalised(name);
    if (!keepFolders) relative.erase(0, relative.find_last_of(ZW('\\')) + 1);
    WString folder = Normalised(destinationFolder_);
    if (!folder.empty() && !EndsWithSeparator(folder)) folder += ZW('\\');
    // No folder on the way may be a link: it could lead anywhere.
    for (std::size_t separator = relative.find(ZW('\\')); separator != WString::npos;
         separator = relative.find(ZW('\\'), separator + 1)) {
        DWORD attributes = GetFileAttributesW((folder + relative.substr(0, separator)).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            return Refuse("entry path runs through a symbolic link", name, -1);
        }
    }
    destination = folder + relative;
    return true;
}

bool CUnZipArchive::ExtractCurrent(const WString& name, const ZipEntryInfo& info, const WCHAR* destinationPath,
                                   bool overwrite, bool keepFolders, const char* password) {
    ClearError();
    WString destination;
    if (!MakeDestination(name, destinationPath, keepFolders, destination)) return false;
    if (handle_ == nullptr) return Fail("error opening password protected file", UNZ_PARAMERROR);
    std::vector<unsigned char> buffer(kTransferSize);
    EntryReader reader(handle_);
    int result = reader.Open(info, password, archivePath_);
    if (result != UNZ_OK) return Fail("error opening password protected file", result);
    if (!overwrite && IsFile(destination)) return Fail("filepath for extraction already exists", -1);
    if (EndsWithSeparator(destination)) {
        return zel_fs::CreateFolderTree(destination.c_str()) || Fail("error opening destination file", -1);
    }
    PendingFile pending;
    if (!pending.Create(destination)) {
        std::size_t separator = destination.find_last_of(ZW("\\/"));
        if (separator == WString::npos || !zel_fs::CreateFolderTree(destination.substr(0, separator).c_str()) ||
            !pending.Create(destination)) {
            return Fail("error opening destination file", -1);
        }
    }
    std::uint64_t total = 0;
    for (;;) {
        int got = reader.Read(buffer.data(), kTransferSize);
        if (got < 0) return Fail("error on unzipping source file", got);
        if (got == 0) break;
        total += static_cast<unsigned>(got);
        if (zel_fs::file_write(pending.Handle(), buffer.data(), got) != got) {
            return Fail("error on writing extracted data to destination file", -1);
        }
    }
    if (total != info.uncompressedSize) {
        // A wrong password passes the encryption header's one-byte check once
        // in 256 tries and then decrypts to noise: for an encrypted entry that
        // is the likely cause, not a hostile archive.
        if ((info.flags & kEncryptedFlag) != 0) return Fail("error on unzipping source file", UNZ_BADZIPFILE);
        return Refuse("entry data differ from the size the archive declares", name, UNZ_BADZIPFILE);
    }
    result = reader.Close();
    if (result != UNZ_OK) return Fail("error on closing compressed file in archive", result);
    if (IsUnixExecutable(info) && !zel_platform::MakeExecutable(pending.Handle())) {
        return Fail("error on writing extracted data to destination file", -1);
    }
    SetTimesFromDosDate(pending.Handle(), info.dosDate);
    return pending.Commit(destination) || Fail("error on writing extracted data to destination file", -1);
}

bool CUnZipArchive::Extract(const WString& name, const WCHAR* destinationPath, bool overwrite, bool keepFolders,
                            const char* password) {
    ClearError();
    auto found = index_.find(name);
    if (found != index_.end() && found->second < entries_.size()) {
        if (!GoToEntry(found->second)) return false;
        const ZipEntry& entry = entries_[found->second];
        return ExtractCurrent(entry.name, entry.info, destinationPath, overwrite, keepFolders, password);
    }
    if (entries_.empty()) return Fail("attempt to unpack an empty archive", 0);
    unzFile archive = Archive(handle_);
    int result = unzLocateFile(archive, zel_text::CZelStringUtf8(name.c_str()).GetString(), 2);
    current_ = SIZE_MAX;  // minizip moved; the next GoToEntry starts over
    if (result != UNZ_OK) return Fail("unable to locate file position in archive", result);
    ZipEntry entry;
    result = ReadCurrentEntry(archive, entry);
    if (result != UNZ_OK) return Fail("error at reading archive content", result);
    return ExtractCurrent(entry.name, entry.info, destinationPath, overwrite, keepFolders, password);
}

bool CUnZipArchive::ExtractAll(bool overwrite, bool keepFolders, const char* password) {
    ClearError();
    if (emptyArchive_) return true;
    if (entries_.empty() && !ReadContent()) return false;
    std::uint64_t needed = 0;
    for (const ZipEntry& entry : entries_) {
        // A name leaving the folder, or without overwrite a file in the way,
        // stops the archive before any entry is written.
        WString destination;
        if (!MakeDestination(entry.name, nullptr, keepFolders, destination)) return false;
        if (!overwrite && IsFile(destination)) return Fail("filepath for extraction already exists", -1);
        needed += std::min<std::uint64_t>(entry.info.uncompressedSize, UINT64_MAX - needed);
    }
    std::uint64_t available = FreeSpaceFor(destinationFolder_);
    if (needed > available) {
        char numbers[96];
        std::snprintf(numbers, sizeof numbers, "%llu bytes needed, %llu available",
                      static_cast<unsigned long long>(needed), static_cast<unsigned long long>(available));
        zel_text::CZelStringW detail(numbers, CP_UTF8);
        return Refuse("entries declare more than the destination can hold", detail.GetString(), -1);
    }
    for (std::size_t position = 0; position < entries_.size(); ++position) {
        if (!GoToEntry(position)) {
            if (GetErrorText().empty()) Fail("failed to locate file by index in archive", -1);
            return false;
        }
        const ZipEntry& entry = entries_[position];
        if (!ExtractCurrent(entry.name, entry.info, nullptr, overwrite, keepFolders, password)) return false;
    }
    return true;
}

}  // namespace zel_zip
