#include "zelutils/xml/xml_parser.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/xml/xml_writer.h"

#include <algorithm>
#include <climits>
#include <string>

namespace zel {
namespace {

using zel_text::CZelStringW;
using WideText = std::basic_string<WCHAR>;

// The longest text a string holds; a tag that would pass it ends the reading.
constexpr std::size_t kMaxTextLength = INT_MAX;

bool IsSpace(WCHAR ch) { return zel_text::chars::IsSpace(ch); }

// The three parts of a piece, raw: see ReadNextTag.
void SplitPiece(const CZelStringW& piece, CZelStringW& name, CZelStringW& attributes, CZelStringW& text) {
    if (piece.GetAt(0) != '<') {
        name.Empty();
        attributes.Empty();
        text = piece;
        return;
    }
    const int length = piece.GetLength();
    const int close = piece.Find(static_cast<WCHAR>('>'));
    const int end = close < 0 ? length : close;
    const int space = piece.Find(static_cast<WCHAR>(' '));
    // A space after the ">" can only come from joined lines, which always
    // put one before it: the name never runs past the ">".
    const int nameEnd = space >= 0 && space < end ? space : end;
    name = piece.Mid(1, nameEnd - 1);
    attributes = piece.Mid(nameEnd, end - nameEnd);
    text = close < 0 ? CZelStringW() : piece.Mid(close + 1);
}

}  // namespace

int CXmlParserBase::BufferSizeFor(std::int64_t fileSize) {
    if (fileSize <= 0) return kMinBufferSize;
    const std::int64_t size = fileSize / 16 / kMinBufferSize * kMinBufferSize;
    return static_cast<int>(std::clamp<std::int64_t>(size, kMinBufferSize, kMaxBufferSize));
}

int CXmlParserBase::Open(const CZelStringW& path, std::unique_ptr<CXmlParser>& parser) {
    parser.reset();
    // Measured by name rather than by a second open, which would take the
    // head of a FIFO's stream or wait for its writer.
    auto candidate = std::make_unique<CXmlParser>(OpenKey(), BufferSizeFor(zel_fs::file_size_by_name(path)));
    zel_fs::CTextFile& file = static_cast<CXmlParserBase&>(*candidate).file_;
    if (!file.Open(path)) {
        const DWORD error = GetLastError();
        candidate.reset();
        SetLastError(error);
        return kCannotOpen;
    }
    CZelStringW first;
    file.ReadLine(first);
    if (first.Find(ZW("xml version=")) < 0) {
        file.Rewind();
    } else if (!file.HasByteOrderMark() && file.GetCodePage() != zel_fs::CTextFile::kUtf8 &&
               (first.Find(ZW("encoding=\"utf-8\"")) >= 0 || first.Find(ZW("encoding=\"UTF-8\"")) >= 0)) {
        file.SetNarrowCodePage(zel_fs::CTextFile::kUtf8);
    }
    if (first.Find(ZW("xml")) < 0) return kNotXml;
    parser = std::move(candidate);
    return kOpened;
}

CXmlParserBase::CXmlParserBase(OpenKey, int bufferSize) : file_(bufferSize) {}

CXmlParserBase::~CXmlParserBase() = default;

// Reads lines up to one that holds a ">" and queues its pieces, the lines
// before it (trimmed, the empty ones left out, joined by one space) in front
// of its first piece. At the end of the file what was gathered is cut as a
// last line. False when nothing more is left, or when the gathered text
// would be longer than a string can hold (the file is closed then).
bool CXmlParserBase::ReadPieces() {
    WideText gathered;
    CZelStringW line;
    while (file_.ReadLine(line)) {
        if (gathered.size() + 1 + static_cast<std::size_t>(line.GetLength()) > kMaxTextLength) {
            file_.Close();
            return false;
        }
        // A ">" always lies in a piece, so the line queues at least one.
        if (line.Find(static_cast<WCHAR>('>')) >= 0) {
            CutIntoPieces(line, gathered);
            return true;
        }
        line.TrimRight();
        line.TrimLeft();
        if (line.IsEmpty()) continue;
        if (!gathered.empty()) gathered += static_cast<WCHAR>(' ');
        gathered.append(line.GetString(), static_cast<std::size_t>(line.GetLength()));
    }
    if (gathered.empty()) return false;
    WideText none;
    CutIntoPieces(CZelStringW(gathered.data(), static_cast<int>(gathered.size())), none);
    return true;
}

// Queues the pieces of line: tags from "<" to the next ">", the text between
// them, and the rest of the line when no further "<" or ">" comes. Lines
// arrive without CR and LF (the text file ends lines at both), so pieces
// hold none.
void CXmlParserBase::CutIntoPieces(const CZelStringW& line, WideText& gathered) {
    const int length = line.GetLength();
    for (int at = 0; at < length;) {
        const int open = line.Find(static_cast<WCHAR>('<'), at);
        if (open < 0) return QueuePiece(line, at, length, gathered);
        QueuePiece(line, at, open, gathered);
        const int close = line.Find(static_cast<WCHAR>('>'), open);
        if (close < 0) return QueuePiece(line, open, length, gathered);
        QueuePiece(line, open, close + 1, gathered);
        at = close + 1;
    }
}

// Queues [first, end) of line trimmed, unless that is empty; the first piece
// queued takes gathered (and a space) in front of it.
void CXmlParserBase::QueuePiece(const CZelStringW& line, int first, int end, WideText& gathered) {
    while (first < end && IsSpace(line[first])) ++first;
    while (end > first && IsSpace(line[end - 1])) --end;
    if (first == end) return;
    if (gathered.empty()) {
        pieces_.push_back(line.Mid(first, end - first));
        return;
    }
    gathered += static_cast<WCHAR>(' ');
    gathered.append(line.GetString() + first, static_cast<std::size_t>(end - first));
    pieces_.emplace_back(gathered.data(), static_cast<int>(gathered.size()));
    gathered.clear();
}

bool CXmlParserBase::ReadNextTag(CZelStringW& name, CZelStringW& attributes, CZelStringW& text) {
    CZelStringW rawName, rawAttributes, rawText;
    bool inComment = false;
    for (;;) {
        if (pieces_.empty() && !ReadPieces()) return false;
        const CZelStringW piece = std::move(pieces_.front());
        pieces_.pop_front();
        SplitPiece(piece, rawName, rawAttributes, rawText);
        if (inComment) {
            inComment = rawText != ZW("-->");
            continue;
        }
        if (rawName.IsEmpty()) {
            rawName = lastName_;
        } else {
            lastName_ = rawName;
        }
        CZelStringW unescapedName = XmlUnescape(rawName);
        if (unescapedName.Find(ZW("!--")) == 0) {
            inComment = true;
            continue;
        }
        name = std::move(unescapedName);
        attributes = XmlUnescape(rawAttributes);
        text = XmlUnescape(rawText);
        beforeFirstTag_ = false;
        return true;
    }
}

CZelStringW CXmlParserBase::GetAttribute(const CZelStringW& attributes, const CZelStringW& name) {
    if (name.IsEmpty()) return CZelStringW();
    const CZelStringW key = name + static_cast<WCHAR>('=');
    int at = attributes.Find(key);
    while (at > 0 && attributes[at - 1] != ' ') at = attributes.Find(key, at + 1);
    if (at < 0) return CZelStringW();
    const int open = attributes.Find(static_cast<WCHAR>('"'), at + key.GetLength());
    if (open < 0) return CZelStringW();
    int close = attributes.Find(static_cast<WCHAR>('"'), open + 1);
    if (close < 0) return CZelStringW();
    while (attributes.GetAt(close + 1) == '"') ++close;
    return XmlUnescape(attributes.Mid(open + 1, close - open - 1));
}

bool CXmlParserBase::ReadValueList(WCHAR delimiter, const CZelStringW& stops, std::vector<CZelStringW>& values) {
    if (pieces_.empty() && !ReadPieces()) return false;
    CZelStringW& piece = pieces_.front();
    const int open = piece.Find(static_cast<WCHAR>('<'));
    CZelStringW text = open < 0 ? piece : piece.Left(open);
    if (open < 0) {
        pieces_.pop_front();
    } else if (open > 0) {
        piece = piece.Mid(open);
    }
    text.TrimRight();
    text.TrimLeft();
    if (text.IsEmpty()) return true;
    const int length = text.GetLength();
    for (int first = 0; first <= length;) {
        int end = first;
        while (end < length && text[end] != delimiter) ++end;
        CZelStringW value = text.Mid(first, end - first);
        value.TrimRight();
        value.TrimLeft();
        if (!stops.IsEmpty() && value.FindOneOf(stops) >= 0) return false;
        values.push_back(std::move(value));
        first = end + 1;
    }
    return true;
}

CXmlParser::CXmlParser(OpenKey key, int bufferSize) : CXmlParserBase(key, bufferSize) {}

CXmlParser::~CXmlParser() = default;

}  // namespace zel
