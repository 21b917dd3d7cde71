#include "zelutils/xml/xml_expat_parser.h"

#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using zel::XmlElementPtr;
using zel::XmlExpatHybridParser;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const char* utf8) { return CZelStringUtf8(utf8).ToWide(); }
std::string U(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

constexpr int kExpatTagMismatch = 7;  // XML_ERROR_TAG_MISMATCH

// A compact form of a subtree: name[attributes](text|children...).
std::string Describe(const zel::XmlElement& element) {
    std::string out = U(element.Name());
    for (const auto& [name, value] : element.Attributes()) out += "[" + U(name) + "=" + U(value) + "]";
    out += "(" + U(element.Text());
    for (const auto& child : element.Children()) out += "|" + Describe(*child);
    return out + ")";
}

class XmlFileParseTest : public zel_test::TempFolderTest {
protected:
    CZelStringW Write(const std::string& content) {
        Put("doc.xml", content);
        return W(PathOf("doc.xml").c_str());
    }
    void TearDown() override {
        std::filesystem::remove(PathOf("doc.xml"));
        TempFolderTest::TearDown();
    }
};

TEST_F(XmlFileParseTest, FileParseKeepsItsEndOfFileRules) {
    std::string doc = "<a>" + std::string(93, 'x') + "</a>";
    ASSERT_EQ(doc.size(), 100u);
    CZelStringW path = Write(doc);
    XmlExpatHybridParser parser;
    CZelStringW error;
    // The last read of a file that fills whole blocks returns 0 bytes.
    EXPECT_FALSE(parser.ParseFile(path, 100, &error));
    EXPECT_EQ(U(error), "Failed to read " + U(path));
    EXPECT_TRUE(parser.ParseFile(path, 4096, &error));
    EXPECT_TRUE(parser.ParseWholeFile(path, 100, &error));

    // Expat is never told the input ended: an unclosed element is no error.
    path = Write("<a><b>text");
    EXPECT_TRUE(parser.ParseFile(path, 4096, &error));
    EXPECT_FALSE(parser.ParseWholeFile(path, 4096, &error));
    EXPECT_EQ(parser.LastFailure().line, 1u);

    path = Write("");
    EXPECT_FALSE(parser.ParseFile(path, 4096, &error));
    EXPECT_EQ(U(error), "Failed to read " + U(path));

    path = Write("<a>\n  <b></c></a>");
    EXPECT_FALSE(parser.ParseFile(path, 4096, &error));
    EXPECT_EQ(U(error), "Failed to parse. Error code: " + std::to_string(kExpatTagMismatch));
    EXPECT_EQ(parser.LastFailure().errorCode, kExpatTagMismatch);
    EXPECT_EQ(parser.LastFailure().line, 2u);
    EXPECT_EQ(parser.LastFailure().message, "mismatched tag");

    EXPECT_FALSE(parser.ParseFile(W(PathOf("missing.xml").c_str()), 4096, &error));
    EXPECT_EQ(U(error), "Failed to open file");
    EXPECT_FALSE(parser.ParseFile(W(PathOf("missing.xml").c_str()), 4096, nullptr));
}

TEST_F(XmlFileParseTest, SmallBlocksSplitTextButNotTheResult) {
    // Multi-byte characters cut between blocks of 7 bytes.
    CZelStringW path = Write("<r a='\xC3\xA9'>\xE2\x82\xAC\xF0\x9F\x98\x80 &amp; <![CDATA[<x>]]></r>");
    zel::XmlTreeParser parser;
    ASSERT_TRUE(parser.ParseWholeFile(path, 7));
    EXPECT_EQ(Describe(*parser.Root()), "r[a=\xC3\xA9](\xE2\x82\xAC\xF0\x9F\x98\x80 & <x>)");
}

// Records the hybrid parser's calls.
class RecordingParser : public XmlExpatHybridParser {
public:
    std::vector<std::string> calls;
    void OnOuterStart(const CZelStringW& name) override { calls.push_back("start " + U(name)); }
    void OnOuterEnd(const XmlElementPtr& element) override { calls.push_back("end " + Describe(*element)); }
};

TEST(XmlHybridParser, RecordsReachTheirHandlerWholeAndOnce) {
    RecordingParser parser;
    parser.RegisterHook(W("rec"), [&](XmlExpatHybridParser& from, const XmlElementPtr& element) {
        EXPECT_EQ(&from, &parser);
        parser.calls.push_back("record " + Describe(*element));
    });
    const std::string doc =
        "<root v='1'>head<rec id='1'><x>a<y/>b</x></rec>mid"
        "<group><rec id='2'><rec id='3'/></rec></group>tail</root>";
    ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    EXPECT_EQ(parser.calls, (std::vector<std::string>{
                                "start root",
                                "record rec[id=1](|x(ab|y()))",
                                "start group",
                                "record rec[id=2](|rec[id=3]())",
                                "end group()",
                                "end root[v=1](headmidtail)",
                            }));
    EXPECT_EQ(parser.HookDepth(), 0);
}

struct CountingImporter : zel::IDomXmlHookImporter {
    int records = 0;
    void ImportElement(XmlExpatHybridParser&, const XmlElementPtr& element) override {
        records += element->GetInt(W("n"));
    }
};

TEST(XmlHybridParser, HandlerExceptionsReachTheCallerAndTheParserIsReusable) {
    XmlExpatHybridParser parser;
    CountingImporter importer;
    parser.RegisterImporter(W("r"), importer);
    const std::string bad = "<l><r/><r n='1'/></l>";
    EXPECT_THROW(parser.ParseMemory(bad.data(), bad.size()), XmlExpatHybridParser::Exception);
    const std::string good = "<l><r n='2'/><r n='3'/></l>";
    EXPECT_TRUE(parser.ParseMemory(good.data(), good.size()));
    EXPECT_EQ(importer.records, 5);
    CZelStringW error;
    EXPECT_FALSE(parser.ParseMemory("<l><r n='1'>", 12, &error));
    EXPECT_EQ(U(error), "Failed to parse. Error code: 3");  // XML_ERROR_NO_ELEMENTS: unclosed at the end
}

TEST(XmlStrParser, NamesStackAndWideText) {
    struct Parser : zel::XmlExpatStrParser {
        std::string seen;
        void OnStartElement(const CZelStringW& name, zel::XmlAttributes& attributes) override {
            seen += "<" + std::to_string(OpenElementNames().size()) + U(name);
            for (const auto& [key, value] : attributes) seen += " " + U(key) + "=" + U(value);
        }
        void OnEndElement(const CZelStringW& name) override {
            seen += ">" + std::to_string(OpenElementNames().size()) + U(name);
        }
        void OnCharacterData(const CZelStringW& text) override { seen += "'" + U(text); }
    } parser;
    const std::string doc = "<a z='&lt;' b='\xF0\x9F\x98\x80'><\xC3\xA9>\xE2\x82\xAC</\xC3\xA9></a>";
    ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    EXPECT_EQ(parser.seen, "<1a b=\xF0\x9F\x98\x80 z=<<2\xC3\xA9'\xE2\x82\xAC>2\xC3\xA9>1a");
    EXPECT_TRUE(parser.OpenElementNames().empty());
}

TEST(XmlStrParser, ExternalEntitiesAreNeverRead) {
    // The file named by the entity exists; its content must not appear.
    const std::string doc =
        "<!DOCTYPE r [<!ENTITY e SYSTEM 'file:///etc/hostname'>]><r>&e;</r>";
    zel::XmlTreeParser parser;
    if (parser.ParseMemory(doc.data(), doc.size())) {
        EXPECT_TRUE(parser.Root()->Text().IsEmpty());
    }
}

}  // namespace
