// Fuzz target: the writer's escaping round trip. Any text XML can carry,
// escaped as the writer escapes it, must come back unchanged from Expat as
// element content and as an attribute value; text without an ampersand must
// also survive the library's own unescaping. The input's bytes, read as
// UTF-16 units (NUL and lone surrogates included), must reach the writer's
// file as the escaped pieces converted whole to UTF-8.
#include "tests/support/xml_piece_bytes.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_writer.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

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

// The writer's file, removed after each input: a file truncated and closed
// again would make the file system write it out each time.
const std::filesystem::path& WriterFile() {
    static const std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        ("zel-xml-escape-fuzz-" + std::to_string(std::random_device{}()) + ".xml");
    return path;
}

void CheckWriterBytes(const std::uint8_t* data, std::size_t size) {
    std::vector<WCHAR> units(size / sizeof(WCHAR));
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * sizeof(WCHAR));
    const CZelStringW text(units.data(), static_cast<int>(units.size()));
    const CZelStringW escaped = zel::XmlEscape(text);

    zel::XmlWriter::SetDepth(0);
    zel::XmlWriter writer(CZelStringUtf8(WriterFile().string().c_str()).ToWide());
    if (!writer.Open()) std::abort();
    writer.WriteText(text);
    writer.WriteElement(text, text);
    if (!writer.Close()) std::abort();

    const CZelStringW element =
        CZelStringW(ZW("<")) + escaped + ZW(">") + escaped + ZW("</") + escaped + ZW(">\r\n");
    const std::string expected = "\xEF\xBB\xBF<?xml version=\"1.1\" encoding=\"UTF-8\"?>\r\n" +
                                 zel_test::PieceBytes(escaped) + zel_test::PieceBytes(element);
    std::ifstream in(WriterFile(), std::ios::binary);
    const std::string written(std::istreambuf_iterator<char>(in), {});
    in.close();
    std::filesystem::remove(WriterFile());
    if (written != expected) std::abort();
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

    CheckWriterBytes(data, size);
    return 0;
}
