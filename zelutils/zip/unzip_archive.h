/// @file
/// Reading zip archives: open, list, and extract single entries or all of
/// them. Extraction is safe against hostile archives: an entry whose name
/// leaves the destination folder (absolute, a drive letter, "..") or runs
/// through a symbolic link is refused before anything is written; entries
/// that overlap one another are refused when the content is read; data that
/// do not match the declared size or CRC fail the entry. Each entry is
/// written to a temporary file beside its destination and renamed over it
/// only when complete, so a failure leaves neither a corrupt file nor, with
/// overwrite, a destroyed old one. A file an entry made on a Unix host lets
/// someone execute can be executed by whoever may read the extracted file;
/// no other permission is taken from the archive. An entry recorded as a
/// symbolic link is extracted as a plain file that holds the link's target,
/// as on Windows: a link made by an archive could lead later entries, or
/// the host's own writes, out of the destination folder.
///
/// Entries encrypted with the traditional zip encryption are decrypted by
/// the library itself.
#pragma once

#include "zelutils/zip/zip_base.h"

#include <cstdint>
#include <map>
#include <vector>

namespace zel_zip {

/// What the central directory says about an entry.
struct ZipEntryInfo {
    std::uint32_t versionMadeBy = 0;  ///< host in the high byte (0 MS-DOS, 3 Unix, 10 NTFS)
    /// The zip version needed to extract, times 10 (20 for deflate).
    std::uint32_t versionNeeded = 0;
    std::uint32_t flags = 0;  ///< bit 0 encrypted, bit 3 data descriptor, bit 11 UTF-8 name
    std::uint32_t compressionMethod = 0;  ///< 0 stored, 8 deflated
    std::uint32_t dosDate = 0;            ///< DOS date in the high word, time in the low word
    /// CRC-32 of the uncompressed data.
    std::uint32_t crc = 0;
    ///@{
    /// Sizes of the stored data and of the extracted data, in bytes.
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    ///@}
    ///@{
    /// Lengths in bytes of the entry's name, extra field and comment.
    std::uint32_t nameLength = 0;
    std::uint32_t extraLength = 0;
    std::uint32_t commentLength = 0;
    ///@}
    /// The disk the entry starts on (0 in a single-file archive).
    std::uint32_t diskNumber = 0;
    /// Bit 0: the entry is text.
    std::uint32_t internalAttributes = 0;
    std::uint32_t externalAttributes = 0;  ///< Unix mode in the high word for Unix hosts
};

/// One entry: its record and its decoded name.
struct ZipEntry {
    /// The central directory's record.
    ZipEntryInfo info;
    /// The name, decoded as UTF-8 when flag bit 11 is set, else in the ANSI code page.
    WString name;
};

/// A zip archive opened for reading.
class ZEL_API CUnZipArchive : public CZipBase {
public:
    CUnZipArchive() = default;
    ~CUnZipArchive() override;

    /// Opens the archive at path (closing one that is open). An archive
    /// without entries (the 22-byte end record alone) opens and lists empty.
    /// Fails with "error opening archive", code -1.
    bool Open(const WCHAR* path);
    /// Closes the archive; true when none was open. Fails with "error
    /// closing archive".
    bool Close() override;

    /// Reads the entry list; fails with "error at reading archive header" or
    /// "error at reading archive content" (entries read before stay), or
    /// refuses overlapping entries.
    bool ReadContent();
    /// Makes the entry at position current; false without a message when the
    /// archive is closed or the position is past the list.
    bool GoToEntry(std::size_t position);

    /// Extracts the current entry. The destination is destinationPath when
    /// given, else the destination folder joined with the entry name (its
    /// folders kept with keepFolders, else only its last component). A name
    /// ending in a separator makes a folder. password may be null. An entry
    /// compressed with a method other than stored or deflated fails to open,
    /// as a wrong password does.
    bool ExtractCurrent(const WString& name, const ZipEntryInfo& info, const WCHAR* destinationPath,
                        bool overwrite, bool keepFolders, const char* password);
    /// Finds the entry name (in the list read, else case-insensitively in the
    /// archive) and extracts it as ExtractCurrent does.
    bool Extract(const WString& name, const WCHAR* destinationPath, bool overwrite, bool keepFolders,
                 const char* password);
    /// Extracts every entry in order into the destination folder, reading the
    /// content first when the list is empty; stops at the first failure.
    /// Writes nothing when an entry's name leaves the folder, when without
    /// overwrite a file is in an entry's way, or when the declared sizes
    /// exceed the free space there.
    bool ExtractAll(bool overwrite, bool keepFolders, const char* password);

    /// The folder entries go to when no destination path is given.
    void SetDestinationFolder(const WString& folder) { destinationFolder_ = folder; }
    /// The folder entries go to when no destination path is given.
    const WString& GetDestinationFolder() const { return destinationFolder_; }
    /// The number of entries ReadContent read.
    std::size_t GetEntryCount() const { return entries_.size(); }
    /// The entries ReadContent read, in archive order.
    const std::vector<ZipEntry>& GetEntries() const { return entries_; }

private:
    bool CheckOverlaps(const std::vector<std::uint64_t>& localOffsets);
    bool MakeDestination(const WString& name, const WCHAR* destinationPath, bool keepFolders,
                         WString& destination);

    std::vector<ZipEntry> entries_;
    std::map<WString, std::size_t> index_;
    WString destinationFolder_;
    std::size_t current_ = 0;
    bool emptyArchive_ = false;  // opened without minizip: no entries at all
};

}  // namespace zel_zip
