#include "zelutils/settings/ini_file.h"

#include "zelutils/fs/atomic_file.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_encoding.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>

namespace zel_settings {

using zel_text::CZelStringA;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

bool CodeUnitLess::operator()(const CZelStringW& left, const CZelStringW& right) const {
    return std::lexicographical_compare(left.GetString(), left.GetString() + left.GetLength(),
                                        right.GetString(), right.GetString() + right.GetLength());
}

IZelIniFileReaderImpl::~IZelIniFileReaderImpl() = default;
IZelIniFileWriterImpl::~IZelIniFileWriterImpl() = default;

namespace {

constexpr UINT kCreateReadWrite = zel_fs::FO_CREATE_ALWAYS | zel_fs::FO_READ | zel_fs::FO_WRITE;
// Output is written in blocks of about kWriteBlock bytes (each write call
// costs the file system a few microseconds of its own); lines are converted
// in blocks of about kConvertBlock units.
constexpr std::size_t kWriteBlock = 1024 * 1024;
constexpr std::size_t kConvertBlock = 8 * 1024;

bool IsLineEnd(unsigned unit) { return unit == '\r' || unit == '\n'; }

// The scratch line, converted to wide text.
CZelStringW ToWide(const CZelStringW& line, UINT) { return line; }
CZelStringW ToWide(const CZelStringUtf8& line, UINT) { return line.ToWide(); }
CZelStringW ToWide(const CZelStringA& line, UINT codePage) {
    return CZelStringW(line.GetString(), line.GetLength(), codePage);
}

// Room for count more items after the used ones of store, whose size is its
// capacity: it grows and never shrinks, so it is zero-filled once, not on
// every use.
template <class T>
T* RoomFor(std::vector<T>& store, std::size_t used, std::size_t count) {
    if (store.size() - used < count) store.resize(std::max(used + count, store.size() * 2));
    return store.data() + used;
}

// UTF-16LE: the units as they are.
void AppendUnits(std::vector<char>& out, std::size_t& used, const WCHAR* units, std::size_t count) {
    std::size_t bytes = count * sizeof(WCHAR);
    std::memcpy(RoomFor(out, used, bytes), units, bytes);
    used += bytes;
}

// The units converted to codePage, after the used bytes of out; false, with
// the last error, when they cannot be converted.
bool AppendConverted(std::vector<char>& out, std::size_t& used, const WCHAR* units, std::size_t count,
                     UINT codePage) {
    if (count > INT_MAX) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    int length = static_cast<int>(count);
    if (codePage == CP_UTF8) {
        // Three bytes per unit always suffice, so one call converts without
        // measuring first; a lone surrogate becomes U+FFFD in three bytes too.
        std::size_t room = count * 3;
        char* target = RoomFor(out, used, room);
        int written = WideCharToMultiByte(CP_UTF8, 0, units, length, target,
                                          static_cast<int>(std::min<std::size_t>(room, INT_MAX)), nullptr, nullptr);
        used += static_cast<std::size_t>(std::max(written, 0));
        return written > 0;
    }
    int needed = WideCharToMultiByte(codePage, 0, units, length, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return false;
    char* target = RoomFor(out, used, static_cast<std::size_t>(needed));
    int written = WideCharToMultiByte(codePage, 0, units, length, target, needed, nullptr, nullptr);
    used += static_cast<std::size_t>(std::max(written, 0));
    return written == needed;
}

template <class String>
struct WriterEncoding;
template <>
struct WriterEncoding<CZelStringW> {
    static bool Append(std::vector<char>& out, std::size_t& used, const WCHAR* units, std::size_t count, int) {
        AppendUnits(out, used, units, count);
        return true;
    }
};
template <>
struct WriterEncoding<CZelStringUtf8> {
    static bool Append(std::vector<char>& out, std::size_t& used, const WCHAR* units, std::size_t count, int) {
        return AppendConverted(out, used, units, count, CP_UTF8);
    }
};
template <>
struct WriterEncoding<CZelStringA> {
    static bool Append(std::vector<char>& out, std::size_t& used, const WCHAR* units, std::size_t count,
                       int encoding) {
        return AppendConverted(out, used, units, count, static_cast<UINT>(encoding));
    }
};

// A key line starts with a letter or digit of the single-byte classification,
// or an underscore.
bool StartsKey(WCHAR first) {
    return first == ZW('_') || (first < 0x100 && std::isalnum(static_cast<unsigned char>(first)) != 0);
}

// Applies the grammar to the lines of source; a line that breaks it fills
// *error (when given) and ends the load.
bool ParseLines(IZelIniFileReaderImpl& source, IniSections& table, IniSyntaxError* error) {
    table.clear();
    CZelStringW section;
    CZelStringW name;
    CZelStringW value;
    while (!source.AtEnd()) {
        const char* reason = "";
        switch (ClassifyIniLine(source.ReadLine(), &name, &value, &reason)) {
        case IniLineKind::kBlank: section.Empty(); break;
        case IniLineKind::kComment: break;
        case IniLineKind::kSection: section = name; break;
        case IniLineKind::kKey: table[section][name] = value; break;
        case IniLineKind::kInvalid:
            if (error != nullptr) *error = IniSyntaxError{source.LineNumber(), reason};
            return false;
        }
    }
    return true;
}

// The whole file, or false when it cannot be read. The buffer is made of
// 16-bit units so UTF-16 text behind a two-byte mark is aligned.
bool ReadWholeFile(const CZelStringW& path, std::vector<char16_t>& units, std::size_t& size) {
    HANDLE file = INVALID_HANDLE_VALUE;
    if (!zel_fs::file_open_read(file, path.GetString())) return false;
    std::uint64_t length = zel_fs::file_seek(file, 2, 0);
    bool ok = length < 0x7FFFFFFF;
    size = 0;
    if (ok) {
        zel_fs::file_seek(file, 0, 0);
        units.assign(static_cast<std::size_t>(length) / 2 + 1, 0);
        char* bytes = reinterpret_cast<char*>(units.data());
        while (size < length) {
            std::int32_t got = zel_fs::file_read(file, bytes + size, static_cast<std::uint32_t>(length - size));
            if (got <= 0) {
                ok = got == 0;
                break;
            }
            size += static_cast<std::size_t>(got);
        }
    }
    zel_fs::file_close_reset(file);
    return ok;
}

// Runs action on a writer for encoding; the writer closes its file when
// action returns.
template <class Action>
bool WithWriter(int encoding, Action action) {
    if (encoding == kIniUtf16LE) {
        TZelIniFileWriterImpl<CZelStringW, WCHAR> writer(encoding);
        return action(writer);
    }
    if (encoding == kIniUtf8) {
        TZelIniFileWriterImpl<CZelStringUtf8, char> writer(encoding);
        return action(writer);
    }
    TZelIniFileWriterImpl<CZelStringA, char> writer(encoding);
    return action(writer);
}

// Walking a tree waits for each node's memory in turn; walking the trees of
// several sections side by side lets those waits overlap. A section walked
// ahead of its turn keeps at most kKeysWalkedAhead keys, so memory stays
// small whatever the sections' sizes.
constexpr std::size_t kSectionsWalked = 4;
constexpr std::size_t kKeysWalkedAhead = 4096;
// How far ahead of the key being written its successors' memory is asked for.
constexpr std::size_t kPrefetchDistance = 16;

// One section's keys, walked and not yet written.
class SectionWalk {
public:
    void Start(IniSections::const_iterator section) {
        section_ = section;
        next_ = section->second.begin();
        walked_.clear();
    }
    const CZelStringW& Name() const { return section_->first; }
    bool Done() const { return next_ == section_->second.end(); }
    bool CanWalk() const { return !Done() && walked_.size() < kKeysWalkedAhead; }
    void Walk() {
        if (!CanWalk()) return;
        walked_.push_back(&*next_);
        ++next_;
    }
    // The walked keys, in order; the caller writes them and calls Clear.
    const std::vector<const IniKeys::value_type*>& Walked() const { return walked_; }
    void Clear() { walked_.clear(); }

private:
    IniSections::const_iterator section_;
    IniKeys::const_iterator next_;
    std::vector<const IniKeys::value_type*> walked_;
};

// Sections and keys in table order, each line handed to the writer whole.
template <class Writer>
bool WriteTable(Writer& writer, const IniSections& table) {
    // walks[first] is the section being written, the next open - 1 follow it.
    SectionWalk walks[kSectionsWalked];
    std::size_t first = 0;
    std::size_t open = 0;
    auto unopened = table.begin();
    for (;;) {
        for (; open < kSectionsWalked && unopened != table.end(); ++open) {
            walks[(first + open) % kSectionsWalked].Start(unopened++);
        }
        if (open == 0) return true;
        SectionWalk& current = walks[first];
        const CZelStringW& name = current.Name();
        if (!writer.WriteLineOf({{ZW("["), 1}, {name.GetString(), name.GetLength()}, {ZW("]"), 1}})) return false;
        do {
            while (current.CanWalk()) {
                for (std::size_t i = 0; i < open; ++i) walks[(first + i) % kSectionsWalked].Walk();
            }
            const auto& walked = current.Walked();
            for (std::size_t i = 0; i < walked.size(); ++i) {
#if defined(__GNUC__)
                // The strings of the key kPrefetchDistance ahead are asked
                // for, and that key twice as far ahead. Written here, not in
                // a helper: GCC drops calls to a function that only
                // prefetches, since it has no effect it can see.
                if (i + 2 * kPrefetchDistance < walked.size()) __builtin_prefetch(walked[i + 2 * kPrefetchDistance]);
                if (i + kPrefetchDistance < walked.size()) {
                    __builtin_prefetch(walked[i + kPrefetchDistance]->first.GetString());
                    __builtin_prefetch(walked[i + kPrefetchDistance]->second.GetString());
                }
#endif
                const auto& [key, value] = *walked[i];
                if (!writer.WriteLineOf({{key.GetString(), key.GetLength()},
                                         {ZW("="), 1},
                                         {value.GetString(), value.GetLength()}})) {
                    return false;
                }
            }
            current.Clear();
        } while (!current.Done());
        if (!writer.WriteLineOf({})) return false;
        first = (first + 1) % kSectionsWalked;
        --open;
    }
}

// The folder part of path (up to the last separator), or empty.
CZelStringW FolderOf(const CZelStringW& path) {
    int separator = zel_fs::LastPathSeparator(path);
    return separator > 0 ? path.Left(separator) : CZelStringW();
}

bool EnsureFolder(const CZelStringW& path) { return zel_fs::CreateFolderPath(FolderOf(path)); }

}  // namespace

IniLineKind ClassifyIniLine(const CZelStringW& text, CZelStringW* name, CZelStringW* value, const char** reason) {
    auto invalid = [reason](const char* why) {
        if (reason != nullptr) *reason = why;
        return IniLineKind::kInvalid;
    };
    WCHAR first = text.GetAt(0);
    if (text.IsEmpty()) return IniLineKind::kBlank;
    if (first == ZW('\t') || first == ZW(' ')) {
        CZelStringW line = text;
        line.TrimRight();
        line.TrimLeft();
        return line.IsEmpty() ? IniLineKind::kBlank : invalid("an indented line that is not blank");
    }
    if (first == ZW('#') || first == ZW('/') || first == ZW(';')) return IniLineKind::kComment;
    if (first == ZW('[')) {
        CZelStringW line = text;
        line.TrimRight();
        line.TrimLeft();
        int length = line.GetLength();
        if (length < 3 || line.GetAt(length - 1) != ZW(']')) return invalid("a section header without a name or ']'");
        *name = line.Mid(1, length - 2);
        return IniLineKind::kSection;
    }
    if (!StartsKey(first)) return invalid("a line that starts no key, comment or section");
    int equals = text.Find(ZW('='));
    if (equals < 0) return invalid("a key without '='");
    *name = text.Left(equals);
    *value = text.Mid(equals + 1);
    return IniLineKind::kKey;
}

// --- Line sources -----------------------------------------------------------

template <class String, class Char>
bool TZelIniFileReaderImpl<String, Char>::AtEnd() {
    return text_ == nullptr || position_ >= count_ || text_[position_] == 0;
}

template <class String, class Char>
void TZelIniFileReaderImpl<String, Char>::SkipLineEnds() {
    while (position_ < count_ && IsLineEnd(static_cast<unsigned>(text_[position_]))) {
        // CR LF is one line end.
        if (!(text_[position_] == '\n' && position_ > 0 && text_[position_ - 1] == '\r')) ++nextLineNumber_;
        ++position_;
    }
}

template <class String, class Char>
CZelStringW TZelIniFileReaderImpl<String, Char>::ReadLine() {
    SkipLineEnds();
    lineNumber_ = nextLineNumber_;
    if (AtEnd()) return CZelStringW();
    std::size_t start = position_;
    while (position_ < count_ && text_[position_] != 0 && !IsLineEnd(static_cast<unsigned>(text_[position_]))) {
        ++position_;
    }
    line_ = String(text_ + start, static_cast<int>(position_ - start));
    // Passed over at once so that AtEnd sees the end of a text ending in line ends.
    SkipLineEnds();
    return ToWide(line_, codePage_);
}

template class TZelIniFileReaderImpl<CZelStringW, WCHAR>;
template class TZelIniFileReaderImpl<CZelStringUtf8, char>;
template class TZelIniFileReaderImpl<CZelStringA, char>;

// --- Line sinks -------------------------------------------------------------

template <class String, class Char>
TZelIniFileWriterImpl<String, Char>::~TZelIniFileWriterImpl() {
    Flush();
    if (ownsHandle_) zel_fs::file_close_reset(handle_);
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Open(const CZelStringW& path) {
    if (ownsHandle_) zel_fs::file_close_reset(handle_);
    ownsHandle_ = true;
    if (!zel_fs::file_open_into(handle_, path.GetString(), kCreateReadWrite, nullptr, nullptr)) return false;
    StartWithMark();
    return true;
}

template <class String, class Char>
void TZelIniFileWriterImpl<String, Char>::Attach(HANDLE file) {
    if (ownsHandle_) zel_fs::file_close_reset(handle_);
    ownsHandle_ = false;
    handle_ = file;
    StartWithMark();
}

template <class String, class Char>
void TZelIniFileWriterImpl<String, Char>::StartWithMark() {
    unsigned char mark[zel_text::kMaxBomLength];
    std::size_t markLength = 0;
    zel_text::BomKind kind = encoding_ == kIniUtf16LE ? zel_text::BomKind::Utf16LE
                             : encoding_ == kIniUtf8  ? zel_text::BomKind::Utf8
                                                      : zel_text::BomKind::None;
    if (kind != zel_text::BomKind::None && zel_text::GetBom(kind, mark, &markLength)) {
        std::memcpy(RoomFor(pending_, pendingBytes_, markLength), mark, markLength);
        pendingBytes_ += markLength;
    }
}

template <class String, class Char>
void TZelIniFileWriterImpl<String, Char>::Gather(const WCHAR* units, std::size_t count) {
    if (count == 0) return;
    std::memcpy(RoomFor(lines_, lineUnits_, count), units, count * sizeof(WCHAR));
    lineUnits_ += count;
}

template <class String, class Char>
void TZelIniFileWriterImpl<String, Char>::ConvertGathered() {
    if (lineUnits_ == 0) return;
    // A failed conversion is remembered for Commit; the plain save, as in
    // earlier versions, goes on with what could be converted.
    if (!WriterEncoding<String>::Append(pending_, pendingBytes_, lines_.data(), lineUnits_, encoding_) &&
        firstError_ == 0) {
        firstError_ = GetLastError();
    }
    lineUnits_ = 0;
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::WriteWhenFull() {
    ConvertGathered();
    return pendingBytes_ < kWriteBlock || Flush();
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Write(const CZelStringW& text) {
    Gather(text.GetString(), static_cast<std::size_t>(text.GetLength()));
    return WriteWhenFull();
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::WriteLine(const CZelStringW& text) {
    return WriteLineOf({{text.GetString(), text.GetLength()}});
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::WriteLineOf(std::initializer_list<IniTextPiece> pieces) {
    for (const IniTextPiece& piece : pieces) Gather(piece.units, static_cast<std::size_t>(piece.count));
    Gather(ZW("\r\n"), 2);
    return lineUnits_ < kConvertBlock || WriteWhenFull();
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Flush() {
    ConvertGathered();
    if (pendingBytes_ == 0 || handle_ == INVALID_HANDLE_VALUE) return !transferredNothing_;
    std::int32_t written = zel_fs::file_write(handle_, pending_.data(), static_cast<std::uint32_t>(pendingBytes_));
    if (written != static_cast<std::int32_t>(pendingBytes_)) {
        if (!writeFailed_ && firstError_ == 0) firstError_ = GetLastError();
        writeFailed_ = true;
    }
    // Only a write that moved nothing fails the plain save; a failed write
    // (-1) is not seen there, as in earlier versions.
    if (written == 0) transferredNothing_ = true;
    pendingBytes_ = 0;
    return !transferredNothing_;
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Commit() {
    Flush();
    bool ok = firstError_ == 0 && !writeFailed_ && handle_ != INVALID_HANDLE_VALUE;
    if (ownsHandle_) {
        ok = ok && zel_fs::file_flush(handle_);
        zel_platform::LastErrorGuard keep;
        ok = zel_fs::file_close(handle_) && ok;
    }
    handle_ = INVALID_HANDLE_VALUE;
    if (firstError_ != 0) SetLastError(firstError_);
    return ok;
}

template class TZelIniFileWriterImpl<CZelStringW, WCHAR>;
template class TZelIniFileWriterImpl<CZelStringUtf8, char>;
template class TZelIniFileWriterImpl<CZelStringA, char>;

// --- Load and save ----------------------------------------------------------

bool ParseIniText(const void* bytes, std::size_t count, IniSections& table) {
    return ParseIniText(bytes, count, table, nullptr);
}

bool ParseIniText(const void* bytes, std::size_t count, IniSections& table, IniSyntaxError* error) {
    std::size_t markLength = 0;
    auto encoding = zel_text::DetectTextEncoding(bytes, count, &markLength);
    const char* text = static_cast<const char*>(bytes) + markLength;
    std::size_t rest = count - std::min(markLength, count);
    if (encoding == zel_text::TextEncoding::Utf16LE) {
        // Copied when misaligned: the units are read in place otherwise.
        std::vector<char16_t> aligned;
        const WCHAR* units = reinterpret_cast<const WCHAR*>(text);
        if (reinterpret_cast<std::uintptr_t>(text) % alignof(WCHAR) != 0) {
            aligned.resize(rest / 2);
            std::memcpy(aligned.data(), text, aligned.size() * 2);
            units = reinterpret_cast<const WCHAR*>(aligned.data());
        }
        TZelIniFileReaderImpl<CZelStringW, WCHAR> source(units, rest / 2, CP_UTF8);
        return ParseLines(source, table, error);
    }
    if (encoding == zel_text::TextEncoding::Utf8) {
        TZelIniFileReaderImpl<CZelStringUtf8, char> source(text, rest, CP_UTF8);
        return ParseLines(source, table, error);
    }
    TZelIniFileReaderImpl<CZelStringA, char> source(text, rest, CP_ACP);
    return ParseLines(source, table, error);
}

bool LoadIniFile(const CZelStringW& path, IniSections& table) {
    std::vector<char16_t> units;
    std::size_t size = 0;
    if (!ReadWholeFile(path, units, size)) return false;
    return ParseIniText(units.data(), size, table);
}

bool SaveIniFile(const CZelStringW& path, const IniSections& table, int encoding) {
    if (!EnsureFolder(path)) return false;
    return WithWriter(encoding, [&](auto& writer) {
        if (!writer.Open(path)) return false;
        bool ok = WriteTable(writer, table);
        return writer.Flush() && ok;
    });
}

bool SaveIniFileAtomic(const CZelStringW& path, const IniSections& table, int encoding) {
    CPINFO codePage{};
    if (encoding != kIniUtf16LE && encoding != kIniUtf8 &&
        (encoding < 0 || !GetCPInfo(static_cast<UINT>(encoding), &codePage))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (!EnsureFolder(path)) return false;
    return zel_fs::ReplaceFileAtomically(path, [&](HANDLE file) {
        return WithWriter(encoding, [&](auto& writer) {
            writer.Attach(file);
            bool written = WriteTable(writer, table);
            return writer.Commit() && written;
        });
    });
}

}  // namespace zel_settings
