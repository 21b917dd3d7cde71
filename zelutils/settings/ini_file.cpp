#include "zelutils/settings/ini_file.h"

#include "zelutils/fs/atomic_file.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_encoding.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <initializer_list>
#include <utility>

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
constexpr std::size_t kWriteBlock = 64 * 1024;

bool IsLineEnd(unsigned unit) { return unit == '\r' || unit == '\n'; }

// The scratch line, converted to wide text.
CZelStringW ToWide(const CZelStringW& line, UINT) { return line; }
CZelStringW ToWide(const CZelStringUtf8& line, UINT) { return line.ToWide(); }
CZelStringW ToWide(const CZelStringA& line, UINT codePage) {
    return CZelStringW(line.GetString(), line.GetLength(), codePage);
}

// Wide text in the writer's encoding, as bytes.
void AppendEncoded(std::vector<char>& out, const CZelStringW& text, int) {
    const char* bytes = reinterpret_cast<const char*>(text.GetString());
    out.insert(out.end(), bytes, bytes + text.GetLength() * sizeof(WCHAR));
}

// False, with the last error, when the text cannot be converted.
bool AppendConverted(std::vector<char>& out, const CZelStringW& text, UINT codePage) {
    if (codePage == CP_UTF8) {
        // Three bytes per unit always suffice, so one call converts without
        // measuring first; a lone surrogate becomes U+FFFD in three bytes too.
        std::size_t start = out.size();
        std::size_t room = static_cast<std::size_t>(text.GetLength()) * 3;
        out.resize(start + room);
        int written = WideCharToMultiByte(CP_UTF8, 0, text.GetString(), text.GetLength(), out.data() + start,
                                          static_cast<int>(std::min<std::size_t>(room, INT_MAX)), nullptr, nullptr);
        out.resize(start + static_cast<std::size_t>(std::max(written, 0)));
        return written > 0;
    }
    int needed = WideCharToMultiByte(codePage, 0, text.GetString(), text.GetLength(), nullptr, 0, nullptr, nullptr);
    if (needed <= 0) return false;
    std::size_t start = out.size();
    out.resize(start + static_cast<std::size_t>(needed));
    int written = WideCharToMultiByte(codePage, 0, text.GetString(), text.GetLength(), out.data() + start,
                                      needed, nullptr, nullptr);
    out.resize(start + static_cast<std::size_t>(std::max(written, 0)));
    return written == needed;
}

template <class String>
struct WriterEncoding;
template <>
struct WriterEncoding<CZelStringW> {
    static bool Append(std::vector<char>& out, const CZelStringW& text, int encoding) {
        AppendEncoded(out, text, encoding);
        return true;
    }
};
template <>
struct WriterEncoding<CZelStringUtf8> {
    static bool Append(std::vector<char>& out, const CZelStringW& text, int) {
        return AppendConverted(out, text, CP_UTF8);
    }
};
template <>
struct WriterEncoding<CZelStringA> {
    static bool Append(std::vector<char>& out, const CZelStringW& text, int encoding) {
        return AppendConverted(out, text, static_cast<UINT>(encoding));
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

// Makes line the pieces put together, reusing its buffer.
void SetPieces(CZelStringW& line, std::initializer_list<std::pair<const WCHAR*, int>> pieces) {
    int total = 0;
    for (const auto& piece : pieces) total += piece.second;
    WCHAR* out = line.GetBuffer(total);
    for (const auto& piece : pieces) out = std::copy(piece.first, piece.first + piece.second, out);
    line.ReleaseBuffer(total);
}

// Each line is put together first and handed to the writer whole: one
// conversion per line instead of one per piece, with the same bytes.
bool WriteTable(IZelIniFileWriterImpl& writer, const IniSections& table) {
    CZelStringW line;
    for (const auto& [name, keys] : table) {
        SetPieces(line, {{ZW("["), 1}, {name.GetString(), name.GetLength()}, {ZW("]\r\n"), 3}});
        if (!writer.Write(line)) return false;
        for (const auto& [key, value] : keys) {
            SetPieces(line, {{key.GetString(), key.GetLength()},
                             {ZW("="), 1},
                             {value.GetString(), value.GetLength()},
                             {ZW("\r\n"), 2}});
            if (!writer.Write(line)) return false;
        }
        if (!writer.WriteLine(CZelStringW())) return false;
    }
    return true;
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
        pending_.insert(pending_.end(), mark, mark + markLength);
    }
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Append(const CZelStringW& text) {
    if (text.IsEmpty()) return true;
    // A failed conversion is remembered for Commit; the plain save, as in
    // earlier versions, goes on with what could be converted.
    if (!WriterEncoding<String>::Append(pending_, text, encoding_) && firstError_ == 0) {
        firstError_ = GetLastError();
    }
    return pending_.size() < kWriteBlock || Flush();
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Write(const CZelStringW& text) {
    return Append(text);
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::WriteLine(const CZelStringW& text) {
    return Append(text) && Append(CZelStringW(ZW("\r\n")));
}

template <class String, class Char>
bool TZelIniFileWriterImpl<String, Char>::Flush() {
    if (pending_.empty() || handle_ == INVALID_HANDLE_VALUE) return !transferredNothing_;
    std::int32_t written = zel_fs::file_write(handle_, pending_.data(), static_cast<std::uint32_t>(pending_.size()));
    if (written != static_cast<std::int32_t>(pending_.size())) {
        if (!writeFailed_ && firstError_ == 0) firstError_ = GetLastError();
        writeFailed_ = true;
    }
    // Only a write that moved nothing fails the plain save; a failed write
    // (-1) is not seen there, as in earlier versions.
    if (written == 0) transferredNothing_ = true;
    pending_.clear();
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
