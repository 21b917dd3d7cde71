#include "zelutils/xml/xml_writer.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace zel {

using zel_text::CZelStringW;

namespace {

std::atomic<int> g_depth{0};

// The buffered bytes go to the file once a piece leaves at least this many:
// large writes, since each write also updates the file's times.
constexpr std::size_t kBlock = 256 * 1024;
// The buffer's first size: a block and room for the piece that completes it.
constexpr std::size_t kFirstCapacity = kBlock + kBlock / 4;
// A buffer that a large piece made grow past this is released once written.
constexpr std::size_t kLargestKept = 4 * kBlock;
// The most bytes one UTF-16 unit escapes to ("&quot;"; UTF-8 takes at most 3).
constexpr std::size_t kMostBytesPerUnit = 6;
// Entities are copied 8 bytes at a time, whatever their length.
constexpr std::size_t kEntityCopy = 8;

struct Entity {
    WCHAR character;
    char text[kEntityCopy];
    std::size_t length;
};
// The order is the escaping order: the ampersand first.
constexpr Entity kEntities[] = {
    {'&', "&amp;", 5}, {'<', "&lt;", 4}, {'>', "&gt;", 4}, {'\'', "&apos;", 6}, {'"', "&quot;", 6}};

// For each ASCII unit, 0 when it stands for itself, otherwise 1 + the index
// of its entity in kEntities.
struct EntityIndex {
    unsigned char of[0x80] = {};
    constexpr EntityIndex() {
        for (std::size_t i = 0; i < std::size(kEntities); ++i) {
            of[kEntities[i].character] = static_cast<unsigned char>(i + 1);
        }
    }
};
constexpr EntityIndex kEntityIndex;

#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define ZEL_XML_VECTORS 1
// Blocks of UTF-16 units and of their bytes, in the compiler's vector types
// (SSE2 registers on x86).
typedef std::uint16_t Units8 __attribute__((vector_size(16)));
typedef std::uint16_t Units4 __attribute__((vector_size(8)));
typedef std::uint8_t Bytes8 __attribute__((vector_size(8)));
typedef std::uint8_t Bytes4 __attribute__((vector_size(4)));
inline Bytes8 LowBytes(Units8 units) { return __builtin_convertvector(units, Bytes8); }
inline Bytes4 LowBytes(Units4 units) { return __builtin_convertvector(units, Bytes4); }

// Writes the low bytes of a block of units at at and returns how many units
// come before the first that is not ASCII or has an entity (all of them when
// none). '&' and '\'' differ in bit 0 only, '<' and '>' in bit 1 only.
template <typename Units>
int CopyPlain(char* at, const WCHAR* in) {
    constexpr std::size_t kWords = sizeof(Units) / sizeof(std::uint64_t);
    Units units;
    std::memcpy(&units, in, sizeof units);
    const auto bytes = LowBytes(units);
    std::memcpy(at, &bytes, sizeof bytes);
    const Units special = (units > 0x7F) | (units == '"') | ((units | 1) == '\'') | ((units | 2) == '>');
    std::uint64_t words[kWords];
    std::memcpy(words, &special, sizeof words);
    for (std::size_t i = 0; i < kWords; ++i) {
        if (words[i] != 0) return static_cast<int>(4 * i) + __builtin_ctzll(words[i]) / 16;
    }
    return static_cast<int>(sizeof(Units) / sizeof(WCHAR));
}
#else
#define ZEL_XML_VECTORS 0
#endif

// A piece as UTF-16: the text an exception carries, and XmlEscape's result.
// The string grows once per call (its capacity is exact, never geometric).
class WideOutput {
public:
    template <std::size_t N>
    void Literal(const char (&ascii)[N]) {
        Ascii(ascii, N - 1);
    }
    void Ascii(const char* ascii, std::size_t length) {
        Append(static_cast<std::int64_t>(length), [&](WCHAR* at) { std::copy_n(ascii, length, at); });
    }
    void ByteOrderMark() {
        Append(1, [](WCHAR* at) { *at = 0xFEFF; });
    }
    void Indent(int depth) {
        if (depth > 0) Append(depth, [&](WCHAR* at) { std::fill_n(at, depth, static_cast<WCHAR>('\t')); });
    }
    // Returns what Repeat takes. Every entity starts with "&", so replacing
    // all five in one pass gives what the five replacements in order give.
    const CZelStringW* Escaped(const CZelStringW& text, bool /*endsPiece*/) {
        std::int64_t length = text.GetLength();
        for (const WCHAR* in = text.GetString(); in != text.GetEnd(); ++in) {
            const WCHAR unit = *in;
            if (unit < 0x80 && kEntityIndex.of[unit] != 0) {
                length += static_cast<std::int64_t>(kEntities[kEntityIndex.of[unit] - 1].length) - 1;
            }
        }
        Append(length, [&](WCHAR* at) {
            for (const WCHAR* in = text.GetString(); in != text.GetEnd(); ++in) {
                const WCHAR unit = *in;
                if (unit >= 0x80 || kEntityIndex.of[unit] == 0) {
                    *at++ = unit;
                    continue;
                }
                const Entity& entity = kEntities[kEntityIndex.of[unit] - 1];
                at = std::copy_n(entity.text, entity.length, at);
            }
        });
        return &text;
    }
    void Repeat(const CZelStringW* text) { Escaped(*text, false); }
    const CZelStringW& Text() const { return text_; }

private:
    // Appends count units, which fill writes; refuses a string longer than
    // its 32-bit length allows.
    template <typename Fill>
    void Append(std::int64_t count, const Fill& fill) {
        const int length = text_.GetLength();
        if (count > std::numeric_limits<int>::max() - length) throw zel_text::bad_alloc();
        const int newLength = length + static_cast<int>(count);
        fill(text_.GetBuffer(newLength) + length);
        text_.ReleaseBuffer(newLength);
    }

    CZelStringW text_;
};

// The text of a typed value: ASCII characters that need no entity (digits,
// letters, "-", ":", "."), made without a string.
class AsciiValue {
public:
    explicit AsciiValue(const char* text) {
        for (; *text != 0; ++text) Add(*text);
    }
    AsciiValue() = default;
    void Add(char character) { text_[length_++] = character; }
    // value in decimal, with leading zeros up to minDigits ("%0*d").
    void AddDecimal(unsigned value, std::size_t minDigits) {
        char digits[10];
        std::size_t count = 0;
        do {
            digits[count++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        for (; minDigits > count; --minDigits) Add('0');
        while (count != 0) Add(digits[--count]);
    }
    // byte as two lower-case hexadecimal digits ("%02x").
    void AddHexByte(unsigned byte) {
        Add(zel_text::chars::kHexDigitsLower[(byte >> 4) & 0xF]);
        Add(zel_text::chars::kHexDigitsLower[byte & 0xF]);
    }
    const char* Text() const { return text_; }
    std::size_t Length() const { return length_; }

private:
    char text_[48];  // a date-time of 7 five-digit fields and its separators
    std::size_t length_ = 0;
};

// The pieces of a document, each written to an output (WideOutput or the
// writer's UTF-8 buffer) by one call.

template <typename Output>
void Declaration(Output& out) {
    // The attribute texts of version (1.1 on purpose) and encoding.
    out.ByteOrderMark();
    out.Literal("<?xml version=\"1.1\" encoding=\"UTF-8\"?>\r\n");
}

template <typename Output>
void StartTag(Output& out, int depth, const CZelStringW& name, unsigned flags) {
    const bool open = (flags & XmlWriter::kOpenForAttributes) != 0;
    out.Indent(depth);
    out.Literal("<");
    out.Escaped(name, open);
    if (open) return;
    if ((flags & XmlWriter::kEmptyElement) != 0) {
        out.Literal("/>\r\n");
        return;
    }
    out.Literal(">");
    if ((flags & XmlWriter::kSameLine) == 0) out.Literal("\r\n");
}

// depth: the depth once lowered for this tag.
template <typename Output>
void EndTag(Output& out, int depth, const CZelStringW& name, unsigned flags) {
    if ((flags & (XmlWriter::kIndentEndTag | XmlWriter::kIndentEndTagToo)) != 0 &&
        (flags & XmlWriter::kSameLine) == 0) {
        out.Indent(depth);
    }
    out.Literal("</");
    out.Escaped(name, false);
    if ((flags & XmlWriter::kOpenForAttributes) != 0) out.Literal("/");
    out.Literal(">\r\n");
}

// ' name="value"', both escaped; callers leave out an empty value unless forced.
template <typename Output>
void Attribute(Output& out, const CZelStringW& name, const CZelStringW& value) {
    out.Literal(" ");
    out.Escaped(name, false);
    out.Literal("=\"");
    out.Escaped(value, false);
    out.Literal("\"");
}

template <typename Output>
void Content(Output& out, const CZelStringW& value) {
    out.Escaped(value, false);
}
template <typename Output>
void Content(Output& out, const AsciiValue& value) {
    out.Ascii(value.Text(), value.Length());
}

template <typename Output, typename Value>
void Element(Output& out, int depth, const CZelStringW& name, const Value& value) {
    out.Indent(depth);
    out.Literal("<");
    const auto escapedName = out.Escaped(name, false);
    out.Literal(">");
    Content(out, value);
    out.Literal("</");
    out.Repeat(escapedName);
    out.Literal(">\r\n");
}

}  // namespace

// A piece as UTF-8, appended to the writer's buffer; Finish hands the
// bytes over.
class XmlWriter::Utf8Output {
public:
    explicit Utf8Output(XmlWriter& writer)
        : writer_(writer),
          at_(writer.buffer_.get() + writer.buffered_),
          limit_(writer.buffer_.get() + writer.capacity_) {}

    template <std::size_t N>
    void Literal(const char (&ascii)[N]) {
        std::memcpy(Room(N - 1), ascii, N - 1);
        at_ += N - 1;
    }
    void Ascii(const char* ascii, std::size_t length) {
        std::memcpy(Room(length), ascii, length);
        at_ += length;
    }
    void ByteOrderMark() { Literal("\xEF\xBB\xBF"); }
    void Indent(int depth) {
        if (depth <= 0) return;
        const auto tabs = static_cast<std::size_t>(depth);
        static constexpr char kTabs[] = "\t\t\t\t\t\t\t\t";
        // The common few levels are one 8-byte copy.
        if (tabs < sizeof kTabs) {
            std::memcpy(Room(sizeof kTabs), kTabs, sizeof kTabs);
        } else {
            std::memset(Room(tabs), '\t', tabs);
        }
        at_ += tabs;
    }

    // Where an escaped text went in the buffer, for Repeat.
    struct Escape {
        std::size_t offset;
        std::size_t length;
    };

    // ASCII is copied, in blocks where the compiler has vectors, or replaced
    // by its entity; each run of other units is converted by the UTF-8 codec,
    // which gives what converting the whole piece gives, since a surrogate
    // pair never straddles an ASCII unit.
    Escape Escaped(const CZelStringW& text, bool endsPiece) {
        const WCHAR* in = text.GetString();
        const WCHAR* const end = text.GetEnd();
        char* const start = Room(kMostBytesPerUnit * static_cast<std::size_t>(end - in) + kEntityCopy);
        char* at = start;
        bool converted = false;
        while (in != end) {
#if ZEL_XML_VECTORS
            // A block writes all its bytes (the room reserved covers them) and
            // moves on by those before the first unit that needs more.
            if (end - in >= 8) {
                const int plain = CopyPlain<Units8>(at, in);
                in += plain;
                at += plain;
                if (plain == 8) continue;
            } else if (end - in >= 4) {
                const int plain = CopyPlain<Units4>(at, in);
                in += plain;
                at += plain;
                if (plain == 4) continue;
            }
#endif
            const WCHAR unit = *in;
            if (unit < 0x80) {
                ++in;
                const unsigned entity = kEntityIndex.of[unit];
                if (entity == 0) {
                    *at++ = static_cast<char>(unit);
                    continue;
                }
                std::memcpy(at, kEntities[entity - 1].text, kEntityCopy);
                at += kEntities[entity - 1].length;
                continue;
            }
            const WCHAR* const run = in;
            while (++in != end && *in >= 0x80) {
            }
            const int units = static_cast<int>(in - run);
            const int bytes = zel_text::ConvertWideToNarrow(at, 3 * units, run, units, CP_UTF8);
            if (bytes <= 0) {
                failed_ = true;
                return {0, 0};
            }
            at += bytes;
            converted = true;
        }
        // A piece holding other than ASCII used to be converted whole, and
        // the conversion drops a NUL in last position: files written by
        // older versions lack that NUL, so it is still left out.
        if (converted && endsPiece && end[-1] == 0) --at;
        at_ = at;
        return {static_cast<std::size_t>(start - writer_.buffer_.get()), static_cast<std::size_t>(at - start)};
    }

    // The bytes of an earlier Escaped of this piece once more.
    void Repeat(const Escape& escape) {
        // Copied 8 bytes at a time: names are short. The bytes read past the
        // earlier text lie in this piece, and those written past the copy in
        // the room reserved.
        char* const at = Room(escape.length + 8);
        const char* const from = writer_.buffer_.get() + escape.offset;
        for (std::size_t i = 0; i < escape.length; i += 8) std::memmove(at + i, from + i, 8);
        at_ = at + escape.length;
    }

    // Makes the piece part of the buffer; false, leaving the buffer as it
    // was, when a conversion failed.
    bool Finish() {
        if (failed_) return false;
        writer_.buffered_ = static_cast<std::size_t>(at_ - writer_.buffer_.get());
        return true;
    }

private:
    // Where the next bytes go, with room for at least bytes of them.
    char* Room(std::size_t bytes) {
        if (static_cast<std::size_t>(limit_ - at_) < bytes) Grow(bytes);
        return at_;
    }
    void Grow(std::size_t bytes) {
        const auto used = static_cast<std::size_t>(at_ - writer_.buffer_.get());
        const std::size_t capacity = std::max({kFirstCapacity, 2 * writer_.capacity_, used + bytes});
        std::unique_ptr<char[]> grown(new char[capacity]);
        if (used != 0) std::memcpy(grown.get(), writer_.buffer_.get(), used);
        writer_.buffer_ = std::move(grown);
        writer_.capacity_ = capacity;
        at_ = writer_.buffer_.get() + used;
        limit_ = writer_.buffer_.get() + capacity;
    }

    XmlWriter& writer_;
    char* at_;
    char* limit_;
    bool failed_ = false;
};

CZelStringW XmlEscape(const CZelStringW& text) {
    WideOutput out;
    out.Escaped(text, false);
    return out.Text();
}

CZelStringW XmlUnescape(const CZelStringW& text) {
    CZelStringW out = text;
    if (out.Find(static_cast<WCHAR>('&')) < 0) return out;
    for (const Entity& entity : kEntities) {
        WideOutput name;
        name.Ascii(entity.text, entity.length);
        const WCHAR replacement[] = {entity.character, 0};
        out.Replace(name.Text(), replacement);
    }
    return out;
}

XmlWriter::XmlWriter(const CZelStringW& path) : path_(path) {}

XmlWriter::~XmlWriter() {
    if (file_ == nullptr) return;
    zel_platform::LastErrorGuard keep;
    Close();
}

bool XmlWriter::Open() {
    if (file_ != nullptr) Close();
    file_ = zel_platform::OpenStdioFile(path_, "wb+");
    if (file_ == nullptr) {
        zel_platform::SetLastErrorFromErrno(errno);
        return false;
    }
    std::setvbuf(file_, nullptr, _IONBF, 0);  // the writer buffers: one write per block
    startTagOpen_ = false;
    Put([](auto& out) { Declaration(out); });
    return true;
}

bool XmlWriter::Close() {
    if (file_ == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    const bool written = buffered_ == 0 || WriteBuffered();
    errno = 0;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    buffer_.reset();  // with what could not be written
    buffered_ = 0;
    capacity_ = 0;
    if (written && !closed) zel_platform::SetLastErrorFromErrno(errno != 0 ? errno : EIO);
    return written && closed;
}

int XmlWriter::Depth() { return g_depth.load(); }

void XmlWriter::SetDepth(int depth) { g_depth.store(depth); }

// Appends the piece emit writes to the buffer, and writes the buffer once it
// holds a block. Throws, with the piece's text, when no file is open or the
// block cannot be written.
template <typename Emit>
void XmlWriter::Put(const Emit& emit) {
    if (file_ == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    } else {
        Utf8Output output(*this);
        emit(output);
        if (output.Finish() && (buffered_ < kBlock || WriteBuffered())) return;
    }
    zel_platform::LastErrorGuard keep;
    WideOutput piece;
    emit(piece);
    throw Exception(piece.Text());
}

// Hands the buffer to the file; on failure keeps what the file did not take
// for a later attempt and sets the last error.
bool XmlWriter::WriteBuffered() {
    errno = 0;
    const std::size_t written = std::fwrite(buffer_.get(), 1, buffered_, file_);
    if (written != buffered_) {
        zel_platform::SetLastErrorFromErrno(errno != 0 ? errno : EIO);
        std::memmove(buffer_.get(), buffer_.get() + written, buffered_ - written);
        buffered_ -= written;
        return false;
    }
    buffered_ = 0;
    if (capacity_ > kLargestKept) {
        buffer_.reset();
        capacity_ = 0;
    }
    return true;
}

void XmlWriter::WriteStartTag(const CZelStringW& name, unsigned flags) {
    const int depth = g_depth.load();
    if ((flags & kEmptyElement) == 0 || (flags & kOpenForAttributes) != 0) ++g_depth;
    startTagOpen_ = (flags & kOpenForAttributes) != 0;
    Put([&](auto& out) { StartTag(out, depth, name, flags); });
}

void XmlWriter::WriteAttribute(const CZelStringW& name, const CZelStringW& value, bool forced) {
    if (!startTagOpen_ || (value.IsEmpty() && !forced)) return;
    Put([&](auto& out) { Attribute(out, name, value); });
}

void XmlWriter::EndStartTag(unsigned flags) {
    if (!startTagOpen_) return;
    startTagOpen_ = false;
    Put([&](auto& out) {
        out.Literal(">");
        if ((flags & kSameLine) == 0) out.Literal("\r\n");
    });
}

void XmlWriter::CloseEmptyTag() {
    startTagOpen_ = false;
    --g_depth;
    Put([](auto& out) { out.Literal(" />\r\n"); });
}

void XmlWriter::WriteEndTag(const CZelStringW& name, unsigned flags) {
    startTagOpen_ = false;
    const int depth = --g_depth;
    Put([&](auto& out) { EndTag(out, depth, name, flags); });
}

void XmlWriter::WriteText(const CZelStringW& text) {
    startTagOpen_ = false;
    Put([&](auto& out) { out.Escaped(text, true); });
}

// The start tag's raising of the depth and the end tag's lowering cancel out:
// the line is indented by the depth as it is.
template <typename Value>
void XmlWriter::WriteValue(const CZelStringW& name, const Value& value) {
    startTagOpen_ = false;
    const int depth = g_depth.load();
    Put([&](auto& out) { Element(out, depth, name, value); });
}

void XmlWriter::WriteElement(const CZelStringW& name, const CZelStringW& value) { WriteValue(name, value); }

void XmlWriter::WriteColor(const CZelStringW& name, COLORREF color) {
    // "%02x%02x%02x" of red, green and blue.
    AsciiValue text;
    text.AddHexByte(color);
    text.AddHexByte(color >> 8);
    text.AddHexByte(color >> 16);
    WriteValue(name, text);
}

void XmlWriter::WriteBool(const CZelStringW& name, bool value) {
    WriteValue(name, AsciiValue(value ? "true" : "false"));
}

void XmlWriter::WriteDateTime(const CZelStringW& name, const SYSTEMTIME& time) {
    // "%d-%02d-%02dT%02d:%02d:%02d", and ".%03d" when the millisecond is not 0.
    AsciiValue text;
    text.AddDecimal(time.wYear, 1);
    text.Add('-');
    text.AddDecimal(time.wMonth, 2);
    text.Add('-');
    text.AddDecimal(time.wDay, 2);
    text.Add('T');
    text.AddDecimal(time.wHour, 2);
    text.Add(':');
    text.AddDecimal(time.wMinute, 2);
    text.Add(':');
    text.AddDecimal(time.wSecond, 2);
    if (time.wMilliseconds >= 1) {
        text.Add('.');
        text.AddDecimal(time.wMilliseconds, 3);
    }
    WriteValue(name, text);
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
