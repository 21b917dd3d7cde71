#include "zelutils/fs/text_file.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_encoding.h"
#include "zelutils/text/zel_utf.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace zel_fs {
namespace {

using zel_text::CZelStringW;

constexpr char32_t kLineFeed = 0x0A;
constexpr char32_t kCarriageReturn = 0x0D;
constexpr WCHAR kReplacement = 0xFFFD;

template <typename Unit>
Unit LoadUnit(const unsigned char* bytes) {
    Unit unit;
    std::memcpy(&unit, bytes, sizeof unit);
    return unit;
}

bool HostIsBigEndian() {
    const std::uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 0;
}

// Room for extra more units at the end of line: returns where to write them
// and how many fit (fewer only at the string's length limit). Grows the
// buffer geometrically, since a long line arrives in many pieces. The caller
// ends with line.ReleaseBuffer(line.GetLength() + written).
WCHAR* AppendSpace(CZelStringW& line, int extra, int* room) {
    const int length = line.GetLength();
    const std::int64_t needed = std::int64_t{length} + extra;
    const std::int64_t limit = INT_MAX - 1;
    *room = static_cast<int>(std::min<std::int64_t>(extra, limit - length));
    std::int64_t capacity = line.GetAllocLength();
    if (needed > capacity) capacity = std::max(std::min(needed, limit), std::min(2 * capacity, limit));
    return line.GetBuffer(static_cast<int>(capacity)) + length;
}

// Converts count bytes of narrow text and appends them to line. No code
// page turns a byte into more than one UTF-16 unit, so count units suffice.
void AppendNarrow(CZelStringW& line, const char* bytes, int count, UINT codePage) {
    if (count <= 0) return;
    int room = 0;
    WCHAR* target = AppendSpace(line, count, &room);
    // The platform call itself, since the string conversions leave out a NUL
    // that ends the text, and a NUL may end any piece of a long line.
    const int written = room > 0 ? MultiByteToWideChar(codePage, 0, bytes, room, target, room) : 0;
    line.ReleaseBuffer(line.GetLength() + written);
}

}  // namespace

CTextFile::CTextFile(int bufferSize) {
    const std::int64_t size = std::clamp<std::int64_t>(bufferSize, 4, kMaxBufferSize);
    block_.resize(static_cast<std::size_t>((size + 3) / 4 * 4));
    pending_.resize(block_.size());
}

CTextFile::~CTextFile() { Close(); }

void CTextFile::Close() {
    file_close_reset(handle_);
    markCodePage_ = 0;
    markLength_ = 0;
    swapBytes_ = false;
    info_ = file_info();
    ResetReading();
    atEnd_ = true;
}

void CTextFile::ResetReading() {
    carried_ = 0;
    valid_ = 0;
    cursor_ = 0;
    pendingCount_ = 0;
    atEnd_ = false;
}

bool CTextFile::Open(const CZelStringW& path) {
    Close();
    if (!file_open_read(handle_, path.GetString())) return false;

    // The head goes where the first block will be, so that a file that
    // cannot be positioned back to it (a pipe) keeps it. Marks take at most
    // four bytes; a pipe may hand them over in pieces.
    const std::int32_t wanted = std::min<std::int32_t>(8, static_cast<std::int32_t>(block_.size()));
    std::int32_t got = 0;
    for (std::int32_t read = 0; got < wanted; got += read) {
        read = file_read(handle_, block_.data() + got, wanted - got);
        if (read <= 0) break;
    }
    std::size_t length = 0;
    const auto mark = zel_text::FindBom(block_.data(), static_cast<std::size_t>(got), &length);
    bool bigEndian = false;
    switch (mark) {
        case zel_text::BomKind::Utf8: markCodePage_ = kUtf8; break;
        case zel_text::BomKind::Utf16LE: markCodePage_ = kUtf16; break;
        case zel_text::BomKind::Utf16BE: markCodePage_ = kUtf16; bigEndian = true; break;
        case zel_text::BomKind::Utf32LE: markCodePage_ = kUtf32; break;
        case zel_text::BomKind::Utf32BE: markCodePage_ = kUtf32; bigEndian = true; break;
        default: length = 0; break;  // no mark, or one the reader does not decode
    }
    markLength_ = static_cast<std::uint32_t>(length);
    swapBytes_ = markCodePage_ != kUtf8 && markCodePage_ != 0 && bigEndian != HostIsBigEndian();
    if (!file_stat(handle_, &info_)) info_ = file_info();
    if (Rewind()) return true;
    const DWORD error = GetLastError();
    if (error == ERROR_SEEK) {
        // Not a file but a pipe or FIFO: what follows the mark is read already
        // and starts the first block.
        carried_ = got - static_cast<std::int32_t>(length);
        std::memmove(block_.data(), block_.data() + length, static_cast<std::size_t>(carried_));
        atEnd_ = false;
        return true;
    }
    Close();
    SetLastError(error);
    return false;
}

bool CTextFile::Rewind() {
    if (handle_ == INVALID_HANDLE_VALUE) return false;
    ResetReading();
    LARGE_INTEGER target;
    target.QuadPart = markLength_;
    // Reading from wherever the pointer was left would give wrong lines: a
    // file that cannot be positioned reads as ended.
    const bool moved = SetFilePointerEx(handle_, target, nullptr, FILE_BEGIN) != FALSE;
    atEnd_ = !moved;
    return moved;
}

bool CTextFile::Refill(int unitSize) {
    // Bytes kept from before (a pipe's head, or the start of a unit that a
    // pipe's short read cut) begin the block.
    std::memmove(block_.data(), block_.data() + valid_, static_cast<std::size_t>(carried_));
    std::int32_t got = carried_;
    carried_ = 0;
    valid_ = 0;
    cursor_ = 0;
    if (atEnd_) return false;
    const auto room = static_cast<std::int32_t>(block_.size()) - got;
    const std::int32_t read = room > 0 ? file_read(handle_, block_.data() + got, room) : 0;
    if (read > 0) got += read;
    if (got < unitSize) {
        atEnd_ = true;
        return false;
    }
    valid_ = got - got % unitSize;
    // At the end of the file a cut unit is dropped.
    if (read > 0) carried_ = got - valid_;
    if (swapBytes_) {
        for (int at = 0; at < valid_; at += unitSize) std::reverse(&block_[at], &block_[at] + unitSize);
    }
    return true;
}

bool CTextFile::ReadLine(CZelStringW& line, bool skipEmpty) {
    for (;;) {
        line.Empty();
        Collected collected;
        switch (GetCodePage()) {
            case kUtf16: collected = CollectLine<char16_t>(line); break;
            case kUtf32: collected = CollectLine<char32_t>(line); break;
            default: collected = CollectLine<unsigned char>(line); break;
        }
        if (collected == Collected::Nothing) return false;
        if (!skipEmpty || !line.IsEmpty()) return true;
    }
}

bool CTextFile::ReadLineTrimmed(CZelStringW& line, bool skipEmpty) {
    if (!ReadLine(line, skipEmpty)) return false;
    line.TrimRight();
    line.TrimLeft();
    return true;
}

// Gathers the units of one line into line. Nothing when the end of the file
// comes before any unit or line end of this line.
template <typename Unit>
CTextFile::Collected CTextFile::CollectLine(CZelStringW& line) {
    constexpr int kSize = sizeof(Unit);
    bool tookUnits = false;
    for (;;) {
        if (cursor_ >= valid_ && !Refill(kSize)) {
            FlushPending(line, true);
            return tookUnits ? Collected::Line : Collected::Nothing;
        }
        const unsigned char* start = block_.data() + cursor_;
        const unsigned char* end = block_.data() + valid_;
        const unsigned char* stop = end;
        if constexpr (kSize == 1) {
            // Two library scans beat one loop that tests both characters.
            const void* lineFeed = std::memchr(start, kLineFeed, end - start);
            if (lineFeed != nullptr) stop = static_cast<const unsigned char*>(lineFeed);
            const void* carriageReturn = std::memchr(start, kCarriageReturn, stop - start);
            if (carriageReturn != nullptr) stop = static_cast<const unsigned char*>(carriageReturn);
        } else {
            for (const unsigned char* at = start; at < end; at += kSize) {
                const Unit unit = LoadUnit<Unit>(at);
                if (unit == kLineFeed || unit == kCarriageReturn) {
                    stop = at;
                    break;
                }
            }
        }
        const bool lineEnds = stop != end;
        if (stop != start || lineEnds) tookUnits = true;
        TakeUnits<Unit>(start, static_cast<int>((stop - start) / kSize), lineEnds, line);
        cursor_ = static_cast<int>(stop - block_.data());
        if (!lineEnds) continue;

        const Unit ending = LoadUnit<Unit>(stop);
        cursor_ += kSize;
        // CR LF is one line end; a CR followed by anything else ends the line alone.
        if (ending == kCarriageReturn && (cursor_ < valid_ || Refill(kSize)) &&
            LoadUnit<Unit>(block_.data() + cursor_) == kLineFeed) {
            cursor_ += kSize;
        }
        return Collected::Line;
    }
}

template <typename Unit>
void CTextFile::TakeUnits(const unsigned char* units, int count, bool lineEnds, CZelStringW& line) {
    if constexpr (sizeof(Unit) == 1) {
        const char* bytes = reinterpret_cast<const char*>(units);
        // A line that lies whole in the block is converted from there.
        if (pendingCount_ == 0 && lineEnds) return AppendNarrow(line, bytes, count, GetCodePage());
        while (count > 0) {
            const int taken = std::min(count, static_cast<int>(pending_.size()) - pendingCount_);
            std::memcpy(pending_.data() + pendingCount_, bytes, taken);
            pendingCount_ += taken;
            bytes += taken;
            count -= taken;
            if (pendingCount_ == static_cast<int>(pending_.size())) FlushPending(line, false);
        }
        if (lineEnds) FlushPending(line, true);
    } else if (count == 0) {
        return;
    } else if constexpr (sizeof(Unit) == 2) {
        int room = 0;
        WCHAR* target = AppendSpace(line, count, &room);
        std::memcpy(target, units, static_cast<std::size_t>(room) * sizeof(WCHAR));
        line.ReleaseBuffer(line.GetLength() + room);
    } else {
        int room = 0;
        WCHAR* target = AppendSpace(line, 2 * count, &room);
        int written = 0;
        for (int i = 0; i < count && written + 2 <= room; ++i) {
            WCHAR second = 0;
            switch (zel_text::CodePointToUtf16(LoadUnit<char32_t>(units + 4 * i), target[written], second)) {
                case 0: target[written++] = kReplacement; break;
                case 1: ++written; break;
                default: target[written + 1] = second; written += 2; break;
            }
        }
        line.ReleaseBuffer(line.GetLength() + written);
    }
}

// Converts the gathered narrow bytes into line. Before the line ends, a UTF-8
// or double-byte character cut at the end of the buffer stays behind, so
// that it is converted whole with the bytes that follow.
void CTextFile::FlushPending(CZelStringW& line, bool lineEnds) {
    const UINT codePage = GetCodePage();
    const int whole =
        lineEnds ? pendingCount_ : zel_text::WholeCharactersLength(pending_.data(), pendingCount_, codePage);
    AppendNarrow(line, pending_.data(), whole, codePage);
    std::memmove(pending_.data(), pending_.data() + whole, pendingCount_ - whole);
    pendingCount_ -= whole;
}

}  // namespace zel_fs
