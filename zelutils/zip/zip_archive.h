/// @file
/// Writing zip archives: create one (or add to an existing one), add files
/// and folder trees, close with an optional comment. Data are deflated with
/// zlib (stored at level 0). Names are stored as UTF-8, with the UTF-8 flag
/// when they hold anything beyond ASCII, and entries record a Unix host with
/// a mode (0644, 0444 for a read-only file, with 0111 for one its owner may
/// execute) so that other tools read both right. Entries over 4 GB
/// and archives with more than 65,535 entries are written in ZIP64 form.
///
/// A password encrypts an entry with the traditional zip encryption (done
/// by the library itself), which any zip tool reads; it is weak and keeps
/// out only the casual reader.
#pragma once

#include "zelutils/zip/zip_base.h"

#include <cstdint>

namespace zel_zip {

/// A zip archive opened for writing.
class ZEL_API CZipArchive : public CZipBase {
public:
    /// The Open mode that adds to an existing archive.
    static constexpr int kAddToArchive = 2;

    CZipArchive() = default;
    /// Closes an open archive without a comment.
    ~CZipArchive() override;

    /// Creates the archive at path, or with mode kAddToArchive opens the
    /// existing one to add entries (an empty archive is simply rewritten).
    /// Fails with "error opening archive", code -1.
    bool Open(const WCHAR* path, int mode);
    /// Close(nullptr).
    bool Close() override;
    /// Writes the central directory with comment (UTF-8, may be null) and
    /// closes; true when none was open. Fails with "error in closing
    /// archive." (the archive is closed all the same, as minizip frees it)
    /// or refuses a comment longer than 65,535 bytes (the archive stays open).
    bool Close(const char* comment);

    /// Adds the file sourcePath as nameInArchive (leading separators
    /// dropped, `\` made `/`; with junkFolders only the last component) at
    /// the zlib level (0 stores), encrypted when password is not null. The
    /// entry takes the file's last-write time (as local time). Fails with
    /// "error in opening source file for reading." (-1; also for a device
    /// or FIFO, which is not read), "error in reading
    /// source file." (-1), "error in opening file inside archive.", "error
    /// in writing file in the archive" or "error in closing file in the
    /// archive"; refuses names longer than 65,535 bytes.
    bool AddFile(const WCHAR* sourcePath, const WCHAR* nameInArchive, int level, const char* password,
                 bool junkFolders);
    /// Adds every file under folderPath (recursively, in name order, skipping
    /// the archive itself, the one it replaces, links to folders, devices,
    /// FIFOs and sockets), each named prefixInArchive (when given) joined
    /// with its path below folderPath. A plain file path is added as that one
    /// file. Stops at the first failure.
    bool AddFolder(const WCHAR* folderPath, const WCHAR* prefixInArchive, int level,
                   const char* password = nullptr);

    /// Names the archive this one replaces once complete (written under a
    /// temporary name and renamed over it, so that a failure leaves the old
    /// one), which AddFolder must not take in either; null for none.
    void SetReplacedArchive(const WCHAR* path) { replacedPath_ = path != nullptr ? path : ZW(""); }

    /// The CRC-32 of the file at path, read in blocks of bufferSize bytes of
    /// buffer: 0 with *crcOut set, or -1 (and *crcOut 0 when the file cannot
    /// be opened). Writes "file <path> crc <hex>" to standard output, or
    /// "error in reading <path>" when a read fails.
    static int fileCrc(const WCHAR* path, void* buffer, std::int32_t bufferSize, unsigned long* crcOut);

private:
    WString replacedPath_;
};

}  // namespace zel_zip
