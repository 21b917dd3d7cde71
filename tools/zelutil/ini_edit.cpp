#include "tools/zelutil/ini_edit.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_encoding.h"

#include <map>

namespace zelutil {
namespace {

using zel_settings::IniLineKind;
using zel_text::BomKind;
using zel_text::CZelStringW;
using zel_text::TextEncoding;

const char* MarkName(BomKind kind) {
    switch (kind) {
    case BomKind::Utf16BE: return "UTF-16BE";
    case BomKind::Utf32BE: return "UTF-32BE";
    case BomKind::Utf32LE: return "UTF-32LE";
    case BomKind::Scsu: return "SCSU";
    case BomKind::Utf7: return "UTF-7";
    case BomKind::UtfEbcdic: return "UTF-EBCDIC";
    case BomKind::Bocu1: return "BOCU-1";
    default: return nullptr;
    }
}

bool Fail(std::string* reason, std::string text) {
    *reason = std::move(text);
    return false;
}

}  // namespace

bool IniFileText::Load(std::string bytes, std::string* reason) {
    bytes_ = std::move(bytes);
    markLength_ = 0;
    TextEncoding encoding = zel_text::DetectTextEncoding(bytes_.data(), bytes_.size(), &markLength_);
    // The loader reads what it cannot tell apart (fewer than two bytes) as narrow text.
    if (bytes_.size() < 2) encoding = TextEncoding::Narrow;
    if (encoding == TextEncoding::Unsupported) {
        const char* name = MarkName(zel_text::FindBom(bytes_.data(), bytes_.size()));
        return Fail(reason, name != nullptr ? std::string(name) + " text, which the INI loader does not read"
                                            : "zero bytes that fit no encoding the INI loader reads");
    }
    unit_ = encoding == TextEncoding::Utf16LE ? 2 : 1;
    // The ANSI code page by its number: UTF-8 takes no question about lost characters.
    codePage_ = encoding == TextEncoding::Utf8 ? CP_UTF8 : GetACP();
    if ((bytes_.size() - markLength_) % unit_ != 0) return Fail(reason, "UTF-16 text with an odd number of bytes");
    for (std::size_t at = markLength_; at < bytes_.size(); at += unit_) {
        if (UnitAt(at) == 0) return Fail(reason, "a NUL character at byte " + std::to_string(at));
    }
    const std::vector<Line> lines = SplitLines();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        CZelStringW text;
        if (!Decode(lines[i], &text)) {
            std::string codePage = codePage_ == CP_UTF8 ? "UTF-8" : "in code page " + std::to_string(codePage_);
            return Fail(reason, "line " + std::to_string(i + 1) + ": bytes that are not valid " + codePage);
        }
    }
    zel_settings::IniSyntaxError error;
    if (!zel_settings::ParseIniText(bytes_.data(), bytes_.size(), table_, &error)) {
        return Fail(reason, "not a valid INI file: line " + std::to_string(error.line) + ": " + error.reason);
    }
    return true;
}

void IniFileText::StartNew() {
    bytes_ = "\xEF\xBB\xBF";
    markLength_ = 3;
    unit_ = 1;
    codePage_ = CP_UTF8;
    table_.clear();
}

unsigned IniFileText::UnitAt(std::size_t offset) const {
    const auto* bytes = reinterpret_cast<const unsigned char*>(bytes_.data());
    return unit_ == 1 ? bytes[offset] : bytes[offset] | static_cast<unsigned>(bytes[offset + 1]) << 8;
}

std::vector<IniFileText::Line> IniFileText::SplitLines() const {
    std::vector<Line> lines;
    std::size_t at = markLength_;
    while (at < bytes_.size()) {
        Line line{at, at, at};
        while (line.end < bytes_.size() && UnitAt(line.end) != '\r' && UnitAt(line.end) != '\n') line.end += unit_;
        line.next = line.end;
        if (line.next < bytes_.size() && UnitAt(line.next) == '\r') line.next += unit_;
        if (line.next < bytes_.size() && UnitAt(line.next) == '\n') line.next += unit_;
        lines.push_back(line);
        at = line.next;
    }
    return lines;
}

// False when the bytes do not come back from their decoded text: the loader
// would read something else than the file holds.
bool IniFileText::Decode(const Line& line, CZelStringW* text) const {
    const int bytes = static_cast<int>(line.end - line.begin);
    if (unit_ == 2) {
        WCHAR* units = text->GetBufferSetLength(bytes / 2);
        for (int i = 0; i < bytes / 2; ++i) units[i] = static_cast<WCHAR>(UnitAt(line.begin + 2 * i));
        return true;
    }
    if (bytes == 0) {
        text->Empty();
        return true;
    }
    const char* source = bytes_.data() + line.begin;
    int needed = MultiByteToWideChar(codePage_, 0, source, bytes, nullptr, 0);
    if (needed <= 0 || MultiByteToWideChar(codePage_, 0, source, bytes, text->GetBufferSetLength(needed), needed) !=
                           needed) {
        return false;
    }
    std::string back;
    return Encode(*text, &back) && back.compare(0, std::string::npos, source, static_cast<std::size_t>(bytes)) == 0;
}

bool IniFileText::Encode(const CZelStringW& text, std::string* bytes) const {
    bytes->clear();
    const int length = text.GetLength();
    if (unit_ == 2) {
        for (int i = 0; i < length; ++i) {
            bytes->push_back(static_cast<char>(text[i] & 0xFF));
            bytes->push_back(static_cast<char>(text[i] >> 8));
        }
        return true;
    }
    if (length == 0) return true;
    BOOL usedDefault = FALSE;
    BOOL* lossy = codePage_ == CP_UTF8 ? nullptr : &usedDefault;
    int needed = WideCharToMultiByte(codePage_, 0, text, length, nullptr, 0, nullptr, lossy);
    if (needed <= 0) return false;
    bytes->resize(static_cast<std::size_t>(needed));
    return WideCharToMultiByte(codePage_, 0, text, length, &(*bytes)[0], needed, nullptr, lossy) == needed &&
           !usedDefault;
}

std::string IniFileText::LineEnd(const std::vector<Line>& lines) const {
    for (const Line& line : lines) {
        if (line.next > line.end) return bytes_.substr(line.end, line.next - line.end);
    }
    std::string crlf;
    Encode(CZelStringW(ZW("\r\n")), &crlf);
    return crlf;
}

bool IniFileText::Set(const CZelStringW& section, const CZelStringW& key, const CZelStringW& value,
                      std::string* reason) {
    // Walks the lines as the loader does, noting where the key's value and
    // the end of each section are.
    const std::vector<Line> lines = SplitLines();
    std::map<CZelStringW, std::size_t, zel_settings::CodeUnitLess> lastLineOf;  // header or key line
    const Line* keyLine = nullptr;
    CZelStringW current;
    for (const Line& line : lines) {
        if (line.end == line.begin) continue;  // the loader passes over empty lines
        CZelStringW text;
        CZelStringW name;
        CZelStringW found;
        if (!Decode(line, &text)) return Fail(reason, "the file does not decode");
        switch (zel_settings::ClassifyIniLine(text, &name, &found)) {
        case IniLineKind::kBlank: current.Empty(); break;
        case IniLineKind::kComment: break;
        case IniLineKind::kSection:
            current = name;
            lastLineOf[current] = static_cast<std::size_t>(&line - lines.data());
            break;
        case IniLineKind::kKey:
            lastLineOf[current] = static_cast<std::size_t>(&line - lines.data());
            if (current == section && name == key) keyLine = &line;
            break;
        case IniLineKind::kInvalid: return Fail(reason, "the file breaks the INI grammar");
        }
    }

    std::string encodedValue;
    std::string encodedKeyLine;
    if (!Encode(value, &encodedValue) || !Encode(key + CZelStringW(ZW("=")) + value, &encodedKeyLine)) {
        return Fail(reason, "the value cannot be stored in the file's code page");
    }
    const std::string lineEnd = LineEnd(lines);
    std::string edited = bytes_;
    if (keyLine != nullptr) {
        std::size_t equals = keyLine->begin;
        while (UnitAt(equals) != '=') equals += unit_;
        edited.replace(equals + unit_, keyLine->end - equals - unit_, encodedValue);
    } else if (auto last = lastLineOf.find(section); last != lastLineOf.end()) {
        const Line& after = lines[last->second];
        edited.insert(after.next, after.next == after.end ? lineEnd + encodedKeyLine : encodedKeyLine + lineEnd);
    } else if (section.IsEmpty()) {
        edited.insert(markLength_, encodedKeyLine + lineEnd);
    } else {
        std::string header;
        if (!Encode(CZelStringW(ZW("[")) + section + CZelStringW(ZW("]")), &header)) {
            return Fail(reason, "the section cannot be stored in the file's code page");
        }
        std::string added;
        if (!lines.empty()) {
            // Ends an unterminated last line, and keeps a blank line before the new section.
            if (lines.back().next == lines.back().end) added += lineEnd;
            if (lines.back().end > lines.back().begin) added += lineEnd;
        }
        edited += added + header + lineEnd + encodedKeyLine + lineEnd;
    }

    zel_settings::IniSections expected = table_;
    expected[section][key] = value;
    zel_settings::IniSections readBack;
    if (!zel_settings::ParseIniText(edited.data(), edited.size(), readBack) || readBack != expected) {
        return Fail(reason, "the changed file would not read back as the old one with the new value");
    }
    bytes_ = std::move(edited);
    table_ = std::move(readBack);
    return true;
}

}  // namespace zelutil
