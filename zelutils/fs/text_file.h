/// @file
/// CTextFile reads a text file line by line into UTF-16 strings. The encoding
/// comes from the byte-order mark (UTF-8, UTF-16 and UTF-32 in either byte
/// order); a file without one is narrow text in a code page the owner chooses
/// (the system code page by default). LF, CR LF and a lone CR all end a line.
///
/// Failures: Open returns false when the file cannot be opened; after that
/// nothing fails loudly. A read error counts as the end of the file, and
/// bytes that do not decode become U+FFFD. Nothing throws or logs.
#pragma once

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>
#include <vector>

namespace zel_fs {

/// A read-only text file consumed line by line. One object serves one thread.
class ZEL_API CTextFile {
public:
    ///@{
    /// The code pages GetCodePage reports for a file with a byte-order mark.
    static constexpr UINT kUtf8 = 65001;
    static constexpr UINT kUtf16 = 1200;
    static constexpr UINT kUtf32 = 12000;
    ///@}
    /// The block buffer's size when none is given.
    static constexpr int kDefaultBufferSize = 512;
    /// The largest block buffer; larger sizes are taken as this.
    static constexpr int kMaxBufferSize = 16 * 1024 * 1024;

    /// A closed text file whose block buffer holds bufferSize bytes rounded up
    /// to a multiple of 4 (at least 4, at most kMaxBufferSize). A line longer
    /// than the buffer is still returned whole.
    explicit CTextFile(int bufferSize = kDefaultBufferSize);
    /// Closes the file.
    virtual ~CTextFile();
    CTextFile(const CTextFile&) = delete;
    CTextFile& operator=(const CTextFile&) = delete;

    /// Opens an existing file for reading (closing one already open), finds
    /// its encoding from the byte-order mark and positions the reading just
    /// after the mark. Marks other than the five Unicode ones leave the file
    /// as narrow text from its first byte. A pipe or FIFO, which cannot be
    /// positioned, is read on from the bytes after the mark (and cannot be
    /// rewound). False, with the platform's last error, when the file cannot
    /// be opened or positioned.
    bool Open(const zel_text::CZelStringW& path);
    /// Closes the file; reading then reports the end at once.
    void Close();
    /// Starts reading again just after the byte-order mark. False when no
    /// file is open or the platform cannot move the file pointer (the file
    /// then reads as ended).
    bool Rewind();

    /// The next line, without its line end, replaces line. With skipEmpty,
    /// empty lines are passed over. False, with line empty, only when the end
    /// of the file comes before anything of a line; a last line without a
    /// line end is returned. A UTF-16 or UTF-32 file's incomplete last unit
    /// is ignored; UTF-32 units that are surrogates or beyond U+10FFFF
    /// become U+FFFD. A line longer than a string can hold is cut there.
    bool ReadLine(zel_text::CZelStringW& line, bool skipEmpty = false);
    /// ReadLine, then white space is trimmed at both ends of the line (a line
    /// of blanks is returned as an empty line even with skipEmpty).
    bool ReadLineTrimmed(zel_text::CZelStringW& line, bool skipEmpty = false);
    /// True once a read found the end of the file (or failed).
    bool IsEnd() const { return atEnd_; }

    /// kUtf8, kUtf16 or kUtf32 for a file with a byte-order mark, else the
    /// narrow code page.
    UINT GetCodePage() const { return markCodePage_ != 0 ? markCodePage_ : narrowCodePage_; }
    /// True when the open file began with one of the five byte-order marks.
    bool HasByteOrderMark() const { return markCodePage_ != 0; }
    /// The code page of a file without a byte-order mark (CP_ACP unless set).
    /// May be changed at any time; it applies from the next line read.
    void SetNarrowCodePage(UINT codePage) { narrowCodePage_ = codePage; }
    /// The code page of a file without a byte-order mark (see SetNarrowCodePage).
    UINT GetNarrowCodePage() const { return narrowCodePage_; }
    /// Size and times of the open file, taken at Open (all zero when the
    /// platform could not tell).
    const file_info& GetFileInfo() const { return info_; }
    /// The block buffer's size in bytes.
    int GetBufferSize() const { return static_cast<int>(block_.size()); }

private:
    enum class Collected { Nothing, Line };

    template <typename Unit>
    Collected CollectLine(zel_text::CZelStringW& line);
    template <typename Unit>
    void TakeUnits(const unsigned char* units, int count, bool lineEnds, zel_text::CZelStringW& line);
    bool Refill(int unitSize);
    void FlushPending(zel_text::CZelStringW& line, bool lineEnds);
    void ResetReading();

    HANDLE handle_ = INVALID_HANDLE_VALUE;
    std::vector<unsigned char> block_;
    int valid_ = 0;   ///< bytes of block_ read from the file, a whole number of units
    int cursor_ = 0;  ///< the next unread byte of block_
    /// Bytes after the valid ones (at the start of block_ before the first
    /// refill) that the next refill keeps: a pipe's head or a cut unit.
    int carried_ = 0;
    bool atEnd_ = true;
    /// Bytes of a narrow line gathered across refills, converted when the line
    /// ends or the buffer fills.
    std::vector<char> pending_;
    int pendingCount_ = 0;
    UINT markCodePage_ = 0;  ///< from the byte-order mark; 0 without one
    UINT narrowCodePage_ = 0;  ///< CP_ACP, the system code page
    bool swapBytes_ = false;     ///< the file's byte order differs from this machine's
    std::uint32_t markLength_ = 0;
    file_info info_;
};

}  // namespace zel_fs
