// Fuzz target: the writer's escaping round trip. Any text XML can carry,
// escaped as the writer escapes it, must come back unchanged from Expat as
// element content and as an attribute value; text without an ampersand must
// also survive the library's own unescaping.
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_writer.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

// The characters of text that XML 1.0 allows in content, with line ends and
// TABs left out (Expat normalises them; the writer cannot express them).
CZelStringW Expressible(const CZelStringW& text) {
    CZelStringW kept;
    for (int i = 0; i < text.GetLength(); ++i) {
        WCHAR unit = text.GetAt(i);
        bool high = unit >= 0xD800 && unit <= 0xDBFF;
        if (high && i + 1 < text.GetLength() && text.GetAt(i + 1) >= 0xDC00 && text.GetAt(i + 1) <= 0xDFFF) {
            kept += unit;
            kept += text.GetAt(++i);
            continue;
        }
        if (unit < 0x20 || (unit >= 0xD800 && unit <= 0xDFFF) || unit == 0xFFFE || unit == 0xFFFF) continue;
        kept += unit;
    }
    return kept;
}

const CZelStringW& Parsed(zel::XmlTreeParser& parser, const CZelStringUtf8& doc) {
    if (!parser.ParseMemory(doc.GetString(), static_cast<std::size_t>(doc.GetLength()))) std::abort();
    return parser.Root()->Text();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CZelStringW text = Expressible(
        CZelStringUtf8(reinterpret_cast<const char*>(data), static_cast<int>(size)).ToWide());
    CZelStringW escaped = zel::XmlEscape(text);
    zel::XmlTreeParser parser;

    CZelStringUtf8 content(CZelStringW(ZW("<a>")) + escaped + ZW("</a>"));
    if (Parsed(parser, content) != text) std::abort();

    CZelStringUtf8 attribute(CZelStringW(ZW("<a v=\"")) + escaped + ZW("\"/>"));
    Parsed(parser, attribute);
    if (parser.Root()->GetString(ZW("v")) != text) std::abort();

    if (text.Find(static_cast<WCHAR>('&')) < 0 && zel::XmlUnescape(escaped) != text) std::abort();
    return 0;
}
