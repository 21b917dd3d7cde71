#include "zelutils/xml/xml_expat_parser.h"

#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
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

// A name seen unregistered and registered later by a handler counts from
// its next start tag on (the parser must not keep its earlier answer).
TEST(XmlHybridParser, AHookRegisteredByAHandlerCountsFromTheNextStartTag) {
    XmlExpatHybridParser parser;
    std::vector<int> seen;
    auto record = [&](XmlExpatHybridParser&, const XmlElementPtr& element) { seen.push_back(element->GetInt(W("n"))); };
    parser.RegisterHook(W("r"), [&](XmlExpatHybridParser& from, const XmlElementPtr& element) {
        record(from, element);
        from.RegisterHook(W("s"), record);
    });
    const std::string doc = "<l><s n='1'/><r n='2'><s n='3'/></r><s n='4'/></l>";
    ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    EXPECT_EQ(seen, (std::vector<int>{2, 4}));
    EXPECT_EQ(parser.HookDepth(), 0);
}

// The elements of a record share one block of memory: what a handler keeps
// must survive the record, later records of the same parser (which reuse the
// block only once it is free) and a release on another thread.
TEST(XmlHybridParser, ElementsKeptAfterTheirRecordStayWhole) {
    XmlExpatHybridParser parser;
    std::vector<XmlElementPtr> kept;
    std::vector<std::weak_ptr<zel::XmlElement>> watched;
    parser.RegisterHook(W("r"), [&](XmlExpatHybridParser&, const XmlElementPtr& record) {
        int id = record->GetInt(W("id"));
        if (id % 3 == 0) kept.push_back(record->Children()[1]);
        watched.push_back(record);
        EXPECT_EQ(record->Children()[0]->shared_from_this(), record->Children()[0]);
    });
    std::string doc = "<l>";
    for (int id = 0; id < 40; ++id) {
        std::string text(static_cast<std::size_t>(id * 7), 'x');  // records of growing size
        doc += "<r id='" + std::to_string(id) + "'><a>" + text + "</a><b n='" + std::to_string(id) + "'>" +
               std::to_string(id) + "<c/></b></r>";
    }
    doc += "</l>";
    for (int round = 0; round < 2; ++round) ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    ASSERT_EQ(kept.size(), 28u);
    for (std::size_t at = 0; at < kept.size(); ++at) {
        int id = static_cast<int>(at % 14) * 3;
        EXPECT_EQ(Describe(*kept[at]), "b[n=" + std::to_string(id) + "](" + std::to_string(id) + "|c())");
    }
    for (const auto& record : watched) EXPECT_TRUE(record.expired());  // a kept child keeps only itself alive
    std::thread([released = std::move(kept)]() mutable { released.clear(); }).join();
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

// Names and short texts are converted once and shared between the elements
// that repeat them; texts alike in their first and last bytes must still be
// told apart, and a change to one element's copy must reach no other.
TEST(XmlStrParser, RepeatedTextsAreSharedButStayApart) {
    const std::string longName(40, 'n'), otherLong = std::string(20, 'n') + "X" + std::string(19, 'n');
    const std::string value16 = "abcdefghXjklmnop", other16 = "abcdefghYjklmnop";
    const std::string wide = std::string(70, 'w') + "\xF0\x9F\x98\x80\xC3\xA9";  // past the short path
    std::string doc = "<l>";
    for (int round = 0; round < 2; ++round) {
        doc += "<r v='" + value16 + "' w='" + wide + "'><" + longName + ">1</" + longName + "><" + otherLong +
               ">1</" + otherLong + "></r>";
        doc += "<r v='" + other16 + "' w='\xC3\xA9'><" + longName + ">" + value16 + "</" + longName + "></r>";
    }
    doc += "</l>";
    zel::XmlTreeParser parser;
    ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    const auto& records = parser.Root()->Children();
    ASSERT_EQ(records.size(), 4u);
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        const auto& first = records[2 * round];
        const auto& second = records[2 * round + 1];
        EXPECT_EQ(U(first->GetString(W("v"))), value16);
        EXPECT_EQ(U(first->GetString(W("w"))), wide);
        EXPECT_EQ(U(second->GetString(W("v"))), other16);
        EXPECT_EQ(U(second->GetString(W("w"))), "\xC3\xA9");
        ASSERT_EQ(first->Children().size(), 2u);
        EXPECT_EQ(U(first->Children()[0]->Name()), longName);
        EXPECT_EQ(U(first->Children()[1]->Name()), otherLong);
        EXPECT_EQ(U(second->Children()[0]->Text()), value16);
    }
    records[0]->Children()[0]->AppendText(W("2"));
    records[0]->SetAttribute(W("v"), W("changed"));
    EXPECT_EQ(U(records[0]->Children()[0]->Text()), "12");
    EXPECT_EQ(U(records[0]->Children()[1]->Text()), "1");
    EXPECT_EQ(U(records[2]->Children()[0]->Text()), "1");
    EXPECT_EQ(U(records[2]->GetString(W("v"))), value16);
    ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
    EXPECT_EQ(U(parser.Root()->Children()[0]->Children()[0]->Text()), "1");
}

// Attributes come out in code-unit order and findable, however many there
// are and in whatever order the document gives them.
TEST(XmlStrParser, AttributesAreSortedWhateverTheirNumber) {
    for (int count : {2, 3, 33, 300}) {
        SCOPED_TRACE(count);
        std::string doc = "<e";
        for (int i = count; i > 0; --i) doc += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
        doc += "/>";
        zel::XmlTreeParser parser;
        ASSERT_TRUE(parser.ParseMemory(doc.data(), doc.size()));
        const zel::XmlAttributes& attributes = parser.Root()->Attributes();
        ASSERT_EQ(attributes.size(), static_cast<std::size_t>(count));
        for (auto at = attributes.begin(); at + 1 != attributes.end(); ++at) {
            EXPECT_LT(at->first.Compare(at[1].first), 0);
        }
        for (int i = 1; i <= count; ++i) EXPECT_EQ(parser.Root()->GetInt(W(("a" + std::to_string(i)).c_str())), i);
        EXPECT_EQ(attributes.count(W("a0")), 0u);
    }
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

// An XHTML page's &nbsp; is declared in a DTD that is never read: its text
// must not vanish without a word. The internal subset's entities expand.
TEST(XmlStrParser, EntitiesOnlyAnExternalDtdDeclaresFailTheParse) {
    const std::string xhtml = "<!DOCTYPE html PUBLIC '-//W3C//DTD XHTML 1.0 Strict//EN' "
                              "'http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd'>\n<html><p>a&nbsp;b</p></html>";
    zel::XmlTreeParser parser;
    EXPECT_FALSE(parser.ParseMemory(xhtml.data(), xhtml.size()));
    EXPECT_EQ(parser.LastFailure().message, "undefined entity &nbsp;");
    EXPECT_EQ(parser.LastFailure().line, 2u);
    const std::string declared = "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY co 'ACME'><!ENTITY % p SYSTEM 'p.ent'> %p;]>"
                                 "<r>&co;</r>";
    ASSERT_TRUE(parser.ParseMemory(declared.data(), declared.size())) << parser.LastFailure().message;
    EXPECT_EQ(parser.Root()->Text(), W("ACME"));

    // The same in attribute values, which Expat passes over in silence.
    const std::string inAttribute = "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY co 'ACME'>]>\n<r a='&co;&amp;&#65;'>"
                                    "<s b=\"x\" c='1 &nbsp; \"2\"'/></r>";
    EXPECT_FALSE(parser.ParseMemory(inAttribute.data(), inAttribute.size()));
    EXPECT_EQ(parser.LastFailure().message, "undefined entity &nbsp;");
    EXPECT_EQ(parser.LastFailure().line, 2u);
    std::u16string wide = u"<?xml version='1.0' encoding='UTF-16'?><!DOCTYPE r SYSTEM 'r.dtd'><r a='&\u00E9;&nbsp;'/>";
    std::string utf16le = "\xFF\xFE";
    for (char16_t unit : wide) utf16le += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    EXPECT_FALSE(parser.ParseMemory(utf16le.data(), utf16le.size()));
    EXPECT_EQ(parser.LastFailure().message, "undefined entity &nbsp;");
    const std::string kept = "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY co 'ACME'>]><r a='&co;&amp;&#65;'/>";
    ASSERT_TRUE(parser.ParseMemory(kept.data(), kept.size())) << parser.LastFailure().message;
    EXPECT_EQ(parser.Root()->GetString(W("a")), W("ACME&A"));
}

}  // namespace
