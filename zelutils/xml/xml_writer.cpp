#include "zelutils/xml/xml_writer.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <atomic>
#include <cerrno>

namespace zel {

using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

namespace {

std::atomic<int> g_depth{0};

const WCHAR kLineEnd[] = {'\r', '\n', 0};

struct Entity {
    WCHAR character;
    const char* text;
};
// The order is the escaping order: the ampersand first.
const Entity kEntities[] = {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'\'', "&apos;"}, {'"', "&quot;"}};

const char* EntityOf(WCHAR character) {
    for (const Entity& entity : kEntities) {
        if (entity.character == character) return entity.text;
    }
    return nullptr;
}

CZelStringW Widen(const char* ascii) {
    CZelStringW text;
    for (; *ascii != 0; ++ascii) text += static_cast<WCHAR>(*ascii);
    return text;
}

void AppendEscaped(CZelStringW& out, const CZelStringW& text) {
    // Every entity starts with "&", so replacing all five in one pass gives
    // what the five replacements in order give.
    const WCHAR* run = text.GetString();
    for (const WCHAR* at = run; at != text.GetEnd(); ++at) {
        const char* entity = EntityOf(*at);
        if (entity == nullptr) continue;
        out.Append(run, static_cast<int>(at - run));
        for (; *entity != 0; ++entity) out += static_cast<WCHAR>(*entity);
        run = at + 1;
    }
    out.Append(run, static_cast<int>(text.GetEnd() - run));
}

void AppendIndent(CZelStringW& out, int depth) {
    for (int level = 0; level < depth; ++level) out += static_cast<WCHAR>('\t');
}

// The attribute text: empty for an empty value unless forced, otherwise
// ' name="value"', both escaped.
void AppendAttribute(CZelStringW& out, const CZelStringW& name, const CZelStringW& value, bool forced) {
    if (value.IsEmpty() && !forced) return;
    out += static_cast<WCHAR>(' ');
    AppendEscaped(out, name);
    out += static_cast<WCHAR>('=');
    out += static_cast<WCHAR>('"');
    AppendEscaped(out, value);
    out += static_cast<WCHAR>('"');
}

}  // namespace

CZelStringW XmlEscape(const CZelStringW& text) {
    CZelStringW out;
    AppendEscaped(out, text);
    return out;
}

CZelStringW XmlUnescape(const CZelStringW& text) {
    CZelStringW out = text;
    if (out.Find(static_cast<WCHAR>('&')) < 0) return out;
    for (const Entity& entity : kEntities) {
        const WCHAR replacement[] = {entity.character, 0};
        out.Replace(Widen(entity.text), replacement);
    }
    return out;
}

// Builds the text of one tag; the writer writes it as one piece.
class XmlWriter::TagBuilder {
public:
    TagBuilder(const CZelStringW& name, unsigned flags) : name_(name), flags_(flags) {
        // Room for a typical tag, so that appending does not reallocate.
        text_.GetBuffer(128);
        text_.ReleaseBuffer(0);
    }

    // The start tag; raises the depth unless the element is empty.
    void Start() {
        AppendIndent(text_, g_depth.load());
        text_ += static_cast<WCHAR>('<');
        AppendEscaped(text_, name_);
        if ((flags_ & kEmptyElement) != 0 && (flags_ & kOpenForAttributes) == 0) {
            text_ += static_cast<WCHAR>('/');
            text_ += static_cast<WCHAR>('>');
            text_ += kLineEnd;
            return;
        }
        if ((flags_ & kOpenForAttributes) == 0) text_ += static_cast<WCHAR>('>');
        if ((flags_ & (kSameLine | kOpenForAttributes)) == 0) text_ += kLineEnd;
        ++g_depth;
    }

    // The end tag; lowers the depth first.
    void End() {
        int depth = --g_depth;
        if ((flags_ & (kIndentEndTag | kIndentEndTagToo)) != 0 && (flags_ & kSameLine) == 0) {
            AppendIndent(text_, depth);
        }
        text_ += static_cast<WCHAR>('<');
        text_ += static_cast<WCHAR>('/');
        AppendEscaped(text_, name_);
        if ((flags_ & kOpenForAttributes) != 0) text_ += static_cast<WCHAR>('/');
        text_ += static_cast<WCHAR>('>');
        text_ += kLineEnd;
    }

    CZelStringW& Text() { return text_; }

private:
    const CZelStringW& name_;
    unsigned flags_;
    CZelStringW text_;
};

XmlWriter::XmlWriter(const CZelStringW& path) : path_(path) {}

XmlWriter::~XmlWriter() {
    if (file_ != nullptr) std::fclose(file_);
}

bool XmlWriter::Open() {
    if (file_ != nullptr) Close();
    file_ = zel_platform::OpenStdioFile(path_, "wb+");
    if (file_ == nullptr) {
        zel_platform::SetLastErrorFromErrno(errno);
        return false;
    }
    startTagOpen_ = false;
    CZelStringW head;
    head += static_cast<WCHAR>(0xFEFF);  // the byte-order mark, EF BB BF in UTF-8
    head += Widen("<?xml");
    AppendAttribute(head, Widen("version"), Widen("1.1"), false);
    AppendAttribute(head, Widen("encoding"), Widen("UTF-8"), false);
    head += static_cast<WCHAR>('?');
    head += static_cast<WCHAR>('>');
    head += kLineEnd;
    Write(head);
    return true;
}

bool XmlWriter::Close() {
    if (file_ == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    errno = 0;
    bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!closed) zel_platform::SetLastErrorFromErrno(errno != 0 ? errno : EIO);
    return closed;
}

int XmlWriter::Depth() { return g_depth.load(); }

void XmlWriter::SetDepth(int depth) { g_depth.store(depth); }

void XmlWriter::Write(const CZelStringW& piece) {
    if (file_ == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        throw Exception(piece);
    }
    // ASCII, the common case, is copied; other text goes through the codec.
    bytes_.clear();
    for (const WCHAR* at = piece.GetString(); at != piece.GetEnd(); ++at) {
        if (*at >= 0x80) {
            CZelStringUtf8 utf8(piece);
            bytes_.assign(utf8.GetString(), static_cast<std::size_t>(utf8.GetLength()));
            break;
        }
        bytes_ += static_cast<char>(*at);
    }
    errno = 0;
    if (std::fwrite(bytes_.data(), 1, bytes_.size(), file_) != bytes_.size()) {
        zel_platform::SetLastErrorFromErrno(errno != 0 ? errno : EIO);
        throw Exception(piece);
    }
}

void XmlWriter::WriteStartTag(const CZelStringW& name, unsigned flags) {
    TagBuilder tag(name, flags);
    tag.Start();
    startTagOpen_ = (flags & kOpenForAttributes) != 0;
    Write(tag.Text());
}

void XmlWriter::WriteAttribute(const CZelStringW& name, const CZelStringW& value, bool forced) {
    if (!startTagOpen_) return;
    CZelStringW text;
    AppendAttribute(text, name, value, forced);
    if (!text.IsEmpty()) Write(text);
}

void XmlWriter::EndStartTag(unsigned flags) {
    if (!startTagOpen_) return;
    startTagOpen_ = false;
    CZelStringW text(static_cast<WCHAR>('>'));
    if ((flags & kSameLine) == 0) text += kLineEnd;
    Write(text);
}

void XmlWriter::CloseEmptyTag() {
    startTagOpen_ = false;
    --g_depth;
    CZelStringW text = Widen(" />");
    text += kLineEnd;
    Write(text);
}

void XmlWriter::WriteEndTag(const CZelStringW& name, unsigned flags) {
    startTagOpen_ = false;
    TagBuilder tag(name, flags);
    tag.End();
    Write(tag.Text());
}

void XmlWriter::WriteText(const CZelStringW& text) {
    startTagOpen_ = false;
    Write(XmlEscape(text));
}

void XmlWriter::WriteElement(const CZelStringW& name, const CZelStringW& value) {
    startTagOpen_ = false;
    TagBuilder tag(name, kIndentEndTag | kSameLine);
    tag.Start();
    AppendEscaped(tag.Text(), value);
    tag.End();
    Write(tag.Text());
}

void XmlWriter::WriteColor(const CZelStringW& name, DWORD color) {
    CZelStringW text;
    text.Format(ZW("%02x%02x%02x"), color & 0xFF, (color >> 8) & 0xFF, (color >> 16) & 0xFF);
    WriteElement(name, text);
}

void XmlWriter::WriteBool(const CZelStringW& name, bool value) {
    WriteElement(name, Widen(value ? "true" : "false"));
}

void XmlWriter::WriteDateTime(const CZelStringW& name, const SYSTEMTIME& time) {
    CZelStringW text;
    if (time.wMilliseconds < 1) {
        text.Format(ZW("%d-%02d-%02dT%02d:%02d:%02d"), time.wYear, time.wMonth, time.wDay, time.wHour,
                    time.wMinute, time.wSecond);
    } else {
        text.Format(ZW("%d-%02d-%02dT%02d:%02d:%02d.%03d"), time.wYear, time.wMonth, time.wDay,
                    time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    }
    WriteElement(name, text);
}

void XmlWriter::WriteNumber(const CZelStringW& name, std::int64_t value) {
    WriteElement(name, zel_text::FormatInt64(value));
}

void XmlWriter::WriteNumber(const CZelStringW& name, double value) {
    WriteElement(name, zel_text::FormatWithoutTrailingZeros(value));
}

void XmlWriter::WriteNumber(const CZelStringW& name, double value, int digits) {
    WriteElement(name, zel_text::FormatWithPrecision(value, digits));
}

}  // namespace zel
