#include "zelutils/xml/xml_parser.h"

#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_writer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using zel::CXmlParser;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const std::string& utf8) { return CZelStringUtf8(utf8.c_str()).ToWide(); }
std::string U(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

class XmlLightParserTest : public zel_test::TempFolderTest {
protected:
    // Opens name in the folder; the parser is null unless the result is 0.
    int Open(const std::string& name) { return CXmlParser::Open(W(PathOf(name)), parser_); }

    // Every report of the parser on content as "name|attributes|text".
    std::vector<std::string> Reports(const std::string& content) {
        Put("t.xml", content);
        EXPECT_EQ(Open("t.xml"), 0);
        std::vector<std::string> tags;
        CZelStringW name, attributes, text;
        while (parser_ && parser_->ReadNextTag(name, attributes, text)) {
            tags.push_back(U(name) + "|" + U(attributes) + "|" + U(text));
        }
        parser_.reset();
        std::filesystem::remove(PathOf("t.xml"));
        return tags;
    }

    std::unique_ptr<CXmlParser> parser_;
};

using Tags = std::vector<std::string>;

TEST(XmlLightParser, BufferIsASixteenthOfTheFileInBlocksOf512UpTo1Mb) {
    EXPECT_EQ(CXmlParser::BufferSizeFor(20000), 1024);
    EXPECT_EQ(CXmlParser::BufferSizeFor(16 * 1536 - 1), 1024);
    EXPECT_EQ(CXmlParser::BufferSizeFor(100), 512);
    EXPECT_EQ(CXmlParser::BufferSizeFor(0), 512);
    EXPECT_EQ(CXmlParser::BufferSizeFor(-1), 512);
    EXPECT_EQ(CXmlParser::BufferSizeFor(5LL << 30), 1024 * 1024);
}

TEST_F(XmlLightParserTest, OpenMeasuresTheFileAndChecksItsFirstLine) {
    Put("small.xml", kDeclaration + std::string(100 - kDeclaration.size(), ' '));
    ASSERT_EQ(Open("small.xml"), 0);
    EXPECT_EQ(parser_->GetBufferSize(), 512);
    Put("small.xml", kDeclaration + std::string(20000 - kDeclaration.size(), ' '));
    ASSERT_EQ(Open("small.xml"), 0);
    EXPECT_EQ(parser_->GetBufferSize(), 1024);
    // Sparse files: 100 MB, and one past 4 GB whose size cut to 32 bits would be 20,000.
    for (std::uintmax_t size : {std::uintmax_t{100} << 20, (std::uintmax_t{1} << 32) + 20000}) {
        std::filesystem::resize_file(Under("small.xml"), size);
        ASSERT_EQ(Open("small.xml"), 0);
        EXPECT_EQ(parser_->GetBufferSize(), 1024 * 1024) << size;
    }
    parser_.reset();
    std::filesystem::remove(Under("small.xml"));

    EXPECT_EQ(Open("missing.xml"), 1);
    EXPECT_EQ(parser_, nullptr);
    Put("tag.xml", "<root a=\"1\">\n</root>\n");
    EXPECT_EQ(Open("tag.xml"), 2);
    EXPECT_EQ(parser_, nullptr);
    Put("tag.xml", "");
    EXPECT_EQ(Open("tag.xml"), 2);
    std::filesystem::remove(Under("tag.xml"));
}

TEST_F(XmlLightParserTest, OnlyTheTwoUtf8SpellingsSwitchAFileWithoutMarkToUtf8) {
    const std::string body = "<a v=\"\xC3\xA9\"/>\n";
    for (const char* spelling : {"utf-8", "UTF-8", "Utf-8"}) {
        Put("d.xml", std::string("<?xml version=\"1.0\" encoding=\"") + spelling + "\"?>\n" + body);
        ASSERT_EQ(Open("d.xml"), 0);
        const bool switched = std::string(spelling) != "Utf-8";
        EXPECT_EQ(parser_->GetCodePage(), switched ? 65001u : 0u) << spelling;
        CZelStringW name, attributes, text;
        ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));  // the declaration line is passed over
        EXPECT_EQ(U(name), "a");
        if (switched) {
            EXPECT_EQ(U(CXmlParser::GetAttribute(attributes, W("v"))), "\xC3\xA9");
        }
    }
    // A byte-order mark keeps its encoding; a first line that is not the
    // declaration is read again as a tag.
    const CZelStringW utf16 = W("<root xmlns=\"x\">\n<b>\xE2\x82\xAC</b>\n</root>");
    std::string bytes = "\xFF\xFE";
    for (int i = 0; i < utf16.GetLength(); ++i) {
        bytes += static_cast<char>(utf16[i] & 0xFF);
        bytes += static_cast<char>(utf16[i] >> 8);
    }
    Put("d.xml", bytes);
    ASSERT_EQ(Open("d.xml"), 0);
    EXPECT_EQ(parser_->GetCodePage(), 1200u);
    parser_.reset();
    std::filesystem::remove(Under("d.xml"));
    EXPECT_EQ(Reports(bytes), (Tags{"root| xmlns=\"x\"|", "b||", "b||\xE2\x82\xAC", "/b||", "/root||"}));
}

TEST_F(XmlLightParserTest, PiecesJoinLinesAndTextTakesTheLastName) {
    EXPECT_EQ(Reports(kDeclaration + "<point\n\t id=\"7\"\n\tname=\"a &amp; b\" >\n\n<e>1 &lt; 2</e><f/>\n</point>\n"),
              (Tags{"point| id=\"7\" name=\"a & b\" |", "e||", "e||1 < 2", "/e||", "f/||", "/point||"}));
    // Lines without ">" go in front of the next line's first piece, which
    // may be text after a tag: that text is the tag's own.
    EXPECT_EQ(Reports(kDeclaration + "<a\nb=\"1\"> t <c>\nno close <d\n"), (Tags{"a| b=\"1\"| t", "c||", "c||no close", "d||"}));
    // Unescaping replaces "&amp;" first, so an escaped entity comes out bare.
    EXPECT_EQ(Reports(kDeclaration + "<x&amp;y k=\"&amp;lt;\">&amp;gt;&apos;&quot;\n"),
              (Tags{"x&y| k=\"<\"|", "x&y||>'\""}));
}

TEST_F(XmlLightParserTest, CommentsEndAtATextPieceThatIsExactlyTheCloser) {
    EXPECT_EQ(Reports(kDeclaration + "<r>\n<!-- <old a=\"1\"/> -->\n<new/>\n<!--\n<b>\n-->\n</r>\n"),
              (Tags{"r||", "new/||", "/r||"}));
    // A comment without a ">" in it hides everything up to such a piece.
    EXPECT_EQ(Reports(kDeclaration + "<r>\n<!-- note -->\n<lost/>\n<x> -->\n<kept/>\n"), (Tags{"r||", "kept/||"}));
    EXPECT_EQ(Reports(kDeclaration + "<r>\n<!-- note -->\n<lost/>\n"), (Tags{"r||"}));
}

TEST(XmlLightParser, AttributeIsTheFirstWholeNameAndRunsOverAQuoteRun) {
    const CZelStringW attributes = W(" a=\"1\" ba=\"2\" q=\"x\"\" e=\"\" t=\"&lt;&amp;\" open=\"no end");
    const auto get = [&](const char* name) { return U(CXmlParser::GetAttribute(attributes, W(name))); };
    EXPECT_EQ(get("a"), "1");
    EXPECT_EQ(get("ba"), "2");
    EXPECT_EQ(get("q"), "x\"");
    EXPECT_EQ(get("e"), "");
    EXPECT_EQ(get("t"), "<&");
    EXPECT_EQ(get("open"), "");
    EXPECT_EQ(get("b"), "");
    EXPECT_EQ(U(CXmlParser::GetAttribute(W("ba=\"2\" a=\"1\""), W("a"))), "1");
}

TEST_F(XmlLightParserTest, ValueListsSplitTheTextBeforeTheNextTag) {
    Put("v.xml", kDeclaration + "<v>1, 2 ,,3</v>\n<w>\n4 5\n6\n</w>\n<s>7;8;x9;10</s>\n");
    ASSERT_EQ(Open("v.xml"), 0);
    CZelStringW name, attributes, text;
    std::vector<CZelStringW> values;
    const auto taken = [&] {
        std::string all;
        for (const CZelStringW& value : values) all += U(value) + "|";
        values.clear();
        return all;
    };
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    EXPECT_TRUE(parser_->ReadValueList(',', CZelStringW(), values));
    EXPECT_EQ(taken(), "1|2||3|");
    EXPECT_TRUE(parser_->ReadValueList(',', CZelStringW(), values));  // the next piece is a tag
    EXPECT_EQ(taken(), "");
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    EXPECT_EQ(U(name), "w");
    EXPECT_TRUE(parser_->ReadValueList(' ', CZelStringW(), values));  // lines joined up to "</w>"
    EXPECT_EQ(taken(), "4|5|6|");
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    EXPECT_EQ(U(name), "/w");
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    EXPECT_FALSE(parser_->ReadValueList(';', W("xy"), values));
    EXPECT_EQ(taken(), "7|8|");
    ASSERT_TRUE(parser_->ReadNextTag(name, attributes, text));
    EXPECT_EQ(U(name), "/s");
    EXPECT_FALSE(parser_->ReadValueList(';', CZelStringW(), values));  // the end of the file
    EXPECT_FALSE(parser_->ReadNextTag(name, attributes, text));
    parser_.reset();
    std::filesystem::remove(Under("v.xml"));
}

// Machine-written files read through this parser and through Expat give the
// same elements in the same order, with the same attribute values.
class XmlLightParserAgainstExpat : public XmlLightParserTest {
protected:
    void Compare(const CZelStringW& path, bool compareValues) {
        zel::XmlTreeParser tree;
        ASSERT_TRUE(tree.ParseWholeFile(path)) << tree.LastFailure().message;
        std::vector<const zel::XmlElement*> elements{tree.Root().get()};
        for (std::size_t i = 0; i < elements.size(); ++i) {
            const auto& children = elements[i]->Children();
            std::vector<const zel::XmlElement*> inner;
            for (const auto& child : children) inner.push_back(child.get());
            elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(i) + 1, inner.begin(), inner.end());
        }
        ASSERT_EQ(CXmlParser::Open(path, parser_), 0);
        CZelStringW name, attributes, text;
        std::size_t next = 0;
        while (parser_->ReadNextTag(name, attributes, text)) {
            // Text pieces are the reports without attributes but with text;
            // end tags, the declaration, the document type are not elements.
            if ((attributes.IsEmpty() && !text.IsEmpty()) || name.FindOneOf(ZW("/?!")) == 0) continue;
            if (name.GetAt(name.GetLength() - 1) == '/') name.Delete(name.GetLength() - 1);
            ASSERT_LT(next, elements.size()) << U(name);
            const zel::XmlElement& element = *elements[next++];
            ASSERT_EQ(U(name), U(element.Name())) << next;
            for (const auto& [key, value] : element.Attributes()) {
                if (compareValues) {
                    EXPECT_EQ(U(CXmlParser::GetAttribute(attributes, key)), U(value)) << U(key);
                }
            }
        }
        EXPECT_EQ(next, elements.size());
        parser_.reset();
    }
};

TEST_F(XmlLightParserAgainstExpat, FilesTheWriterWrote) {
    const CZelStringW path = W(PathOf("w.xml"));
    zel::XmlWriter::SetDepth(0);
    zel::XmlWriter writer(path);
    ASSERT_TRUE(writer.Open());
    writer.WriteStartTag(W("survey"), zel::XmlWriter::kOpenForAttributes);
    writer.WriteAttribute(W("name"), W("Quarry <north> & 'east' Zo\xC3\xAB \xF0\x9F\x98\x80"));
    writer.EndStartTag();
    for (int i = 0; i < 300; ++i) {
        writer.WriteStartTag(W("point"), zel::XmlWriter::kOpenForAttributes);
        writer.WriteAttribute(W("id"), W(std::to_string(i)));
        writer.WriteAttribute(W("code"), W("PT" + std::to_string(i % 7) + " a=b"));
        writer.EndStartTag();
        writer.WriteNumber(W("east"), 2600000.125 + i, 3);
        writer.WriteElement(W("note"), W(i % 3 == 0 ? "" : "<b> & c"));
        writer.WriteStartTag(W("mark"), zel::XmlWriter::kOpenForAttributes);
        writer.WriteAttribute(W("k"), W("v" + std::to_string(i)));
        writer.CloseEmptyTag();
        writer.WriteStartTag(W("empty"), zel::XmlWriter::kEmptyElement);
        writer.WriteEndTag(W("point"));
    }
    writer.WriteEndTag(W("survey"));
    ASSERT_TRUE(writer.Close());
    Compare(path, true);
    std::filesystem::remove(Under("w.xml"));
}

TEST_F(XmlLightParserAgainstExpat, FilesOtherSoftwareWrote) {
    // Generated one tag (or one attribute) per line, start tags over
    // several lines, a document type with an internal subset, a comment
    // holding ">".
    int compared = 0;
    for (const char* file : {"/usr/share/xml/iso-codes/iso_3166-1.xml", "/usr/share/xml/iso-codes/iso_4217.xml",
                             "/usr/share/xml/iso-codes/iso_639-2.xml", "/usr/share/xml/iso-codes/iso_15924.xml"}) {
        if (!std::filesystem::exists(file)) continue;
        SCOPED_TRACE(file);
        Compare(W(file), true);
        ++compared;
    }
    if (compared == 0) GTEST_SKIP() << "the iso-codes package is not installed";
}

}  // namespace
