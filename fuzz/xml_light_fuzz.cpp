// Fuzz target: any bytes, as a file, read to the end by the light pull
// parser with attributes looked up and value lists taken between tags:
// nothing may crash, and no report may hold a line end (lines are cut
// before they are parsed).
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_parser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

const zel_text::CZelStringW& FilePath() {
    static const zel_text::CZelStringW path = zel_text::CZelStringUtf8(
        (std::filesystem::temp_directory_path() / ("zel-xml-light-fuzz-" + std::to_string(std::random_device()())))
            .string()
            .c_str())
        .ToWide();
    return path;
}

void CheckNoLineEnd(const zel_text::CZelStringW& text) {
    if (text.FindOneOf(ZW("\r\n")) >= 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        std::ofstream out(zel_text::CZelStringUtf8(FilePath()).GetString(), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    std::unique_ptr<zel::CXmlParser> parser;
    const int result = zel::CXmlParser::Open(FilePath(), parser);
    if ((result == 0) != (parser != nullptr) || result < 0 || result > 2) std::abort();
    if (!parser) return 0;
    zel_text::CZelStringW name, attributes, text;
    std::vector<zel_text::CZelStringW> values;
    for (int tag = 0; parser->ReadNextTag(name, attributes, text); ++tag) {
        CheckNoLineEnd(name);
        CheckNoLineEnd(attributes);
        CheckNoLineEnd(text);
        if (parser->IsBeforeFirstTag()) std::abort();
        // The tag's own name, a one-letter name and the start of the text
        // as the attribute wanted.
        zel::CXmlParser::GetAttribute(attributes, name);
        zel::CXmlParser::GetAttribute(attributes, ZW("a"));
        zel::CXmlParser::GetAttribute(attributes, attributes.Mid(1, 3));
        if (tag % 3 == 0) {
            values.clear();
            parser->ReadValueList(static_cast<WCHAR>(tag % 2 == 0 ? ',' : ' '), ZW("x;"), values);
            for (const auto& value : values) CheckNoLineEnd(value);
        }
    }
    return 0;
}
