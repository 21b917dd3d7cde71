/// @file
/// Writes an XML document straight to a file, one tag at a time, without
/// building a tree: UTF-8 with a byte-order mark, a version 1.1 declaration,
/// one tag per line indented by TABs, CR LF line ends, and the five
/// predefined entities for escaping. The typed writers produce the text
/// forms that the element accessors (xml_element.h) read back.
///
/// Output is buffered: the bytes reach the file in blocks of about 256 KB,
/// and the rest at Close (or when the writer is destroyed).
///
/// Failure: Open returns false when the file cannot be created; a write
/// whose block cannot be written throws XmlWriter::Exception holding the
/// text of that call's piece (the tag, attribute or text it was writing).
/// Nothing is rolled back: what was written stays in the file.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>

namespace zel {

/// text with "&", "<", ">", "'" and the double quote replaced by their
/// entities, the ampersand first so that the entities made later are not
/// escaped again.
ZEL_API zel_text::CZelStringW XmlEscape(const zel_text::CZelStringW& text);

/// Replaces "&amp;" by "&" in all of text first, then "&lt;", "&gt;",
/// "&apos;" and "&quot;". Because the ampersand goes first, an escaped
/// entity such as "&amp;lt;" comes out as a bare "<": files written by
/// older versions rely on that double unescaping, so it is kept.
ZEL_API zel_text::CZelStringW XmlUnescape(const zel_text::CZelStringW& text);

/// The writer. The indentation depth is one counter for the whole process,
/// shared by every writer: two writers used at once, or one abandoned in the
/// middle of a document, disturb each other's indentation. Files written by
/// older versions were made that way and the behaviour is kept.
class ZEL_API XmlWriter {
public:
    /// Thrown when a piece of the document cannot be written.
    class ZEL_API Exception : public std::exception {
    public:
        /// An exception about text, whose writing failed.
        explicit Exception(const zel_text::CZelStringW& text) : text_(text) {}
        /// The text whose writing failed.
        const zel_text::CZelStringW& Text() const { return text_; }
        /// Returns "XML write failed".
        const char* what() const noexcept override { return "XML write failed"; }

    private:
        zel_text::CZelStringW text_;
    };

    /// Tag flags: bit values that shape a start or an end tag.
    enum TagFlags : unsigned {
        /// Start tag: closed at once as "/>" and a line end; the depth stays.
        kEmptyElement = 1,
        /// End tag: indented.
        kIndentEndTag = 2,
        /// Start tag: left open (no ">", no line end) so that attributes can
        /// follow. End tag: a "/" before the closing ">".
        kOpenForAttributes = 4,
        /// Start tag: no line end after ">". End tag: not indented.
        kSameLine = 8,
        /// End tag: indented (as kIndentEndTag).
        kIndentEndTagToo = 16,
    };

    /// A writer for path; nothing happens until Open.
    explicit XmlWriter(const zel_text::CZelStringW& path);
    /// Closes the file if it is open, ignoring errors (call Close to see them).
    ~XmlWriter();
    XmlWriter(const XmlWriter&) = delete;
    XmlWriter& operator=(const XmlWriter&) = delete;

    /// Creates or empties the file (binary) and writes the UTF-8 byte-order
    /// mark and the declaration line (buffered, as all output). False,
    /// writing nothing, when the file cannot be opened (the last error tells
    /// why).
    bool Open();
    /// Writes what is buffered and closes the file; false when either fails
    /// (the last error tells why; the file is closed all the same) or
    /// nothing was open.
    bool Close();

    /// The process-wide indentation depth.
    static int Depth();
    /// Sets the process-wide depth; 0 starts over after an abandoned document.
    static void SetDepth(int depth);

    /// A start tag: the indentation, "<" and name, then as flags say (see
    /// TagFlags); raises the depth unless kEmptyElement closes it at once.
    void WriteStartTag(const zel_text::CZelStringW& name, unsigned flags = 0);
    /// " name="value"" while the last start tag is open for attributes;
    /// otherwise does nothing. An empty value is left out unless forced.
    void WriteAttribute(const zel_text::CZelStringW& name, const zel_text::CZelStringW& value,
                        bool forced = false);
    /// Ends a start tag left open for attributes with ">" and a line end
    /// (none with kSameLine); the depth stays raised for the content.
    void EndStartTag(unsigned flags = 0);
    /// Closes a start tag left open that got no content: " />", a line end,
    /// and the depth is lowered.
    void CloseEmptyTag();
    /// Lowers the depth, then writes the indentation (with kIndentEndTag or
    /// kIndentEndTagToo and not kSameLine; a negative depth indents by
    /// nothing), "</", name, ">" and a line end.
    void WriteEndTag(const zel_text::CZelStringW& name, unsigned flags = kIndentEndTag);

    /// The escaped text alone, without indentation or line end: the content
    /// of an element whose start tag ended with kSameLine.
    void WriteText(const zel_text::CZelStringW& text);
    /// One line: the indentation, the start tag, the escaped value and the
    /// end tag. An empty value gives no content between the tags.
    void WriteElement(const zel_text::CZelStringW& name, const zel_text::CZelStringW& value);
    /// A colour (0x00BBGGRR, red in the low byte) as six lower-case
    /// hexadecimal digits, red first.
    void WriteColor(const zel_text::CZelStringW& name, COLORREF color);
    /// "true" or "false".
    void WriteBool(const zel_text::CZelStringW& name, bool value);
    /// "YYYY-MM-DDThh:mm:ss", with ".mmm" when the millisecond is not 0.
    void WriteDateTime(const zel_text::CZelStringW& name, const SYSTEMTIME& time);
    /// The decimal text of an integer.
    void WriteNumber(const zel_text::CZelStringW& name, std::int64_t value);
    /// The number without trailing zeros ("1.5", "2"); empty for the
    /// no-value double.
    void WriteNumber(const zel_text::CZelStringW& name, double value);
    /// The number rounded to digits decimals, as the number formatting
    /// prints it.
    void WriteNumber(const zel_text::CZelStringW& name, double value, int digits);

private:
    class Utf8Output;
    template <typename Emit>
    void Put(const Emit& emit);
    template <typename Value>
    void WriteValue(const zel_text::CZelStringW& name, const Value& value);
    bool WriteBuffered();

    zel_text::CZelStringW path_;
    std::FILE* file_ = nullptr;
    bool startTagOpen_ = false;
    std::unique_ptr<char[]> buffer_;  // UTF-8 bytes not yet handed to file_
    std::size_t buffered_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace zel
