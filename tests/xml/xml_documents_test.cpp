// Documents the library did not write itself: generated ones compared
// between the parsers and through the writer, and large files shipped by
// other software compared with Python's xml.etree.
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_writer.h"

#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using zel::XmlElement;
using zel::XmlElementPtr;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const std::string& utf8) { return CZelStringUtf8(utf8.c_str()).ToWide(); }
std::string U(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

// A subtree as text; whitespace-only text of elements with children is left
// out when ignoreIndentation is set.
std::string Describe(const XmlElement& element, bool ignoreIndentation = false) {
    std::string out = "<" + U(element.Name());
    for (const auto& [name, value] : element.Attributes()) out += " " + U(name) + "='" + U(value) + "'";
    std::string text = U(element.Text());
    bool indentation = text.find_first_not_of(" \t\r\n") == std::string::npos && !element.Children().empty();
    out += ">" + (ignoreIndentation && indentation ? std::string() : text);
    for (const auto& child : element.Children()) out += Describe(*child, ignoreIndentation);
    return out + "</>";
}

// Random documents: nesting, mixed content, attributes, entities, CDATA and
// characters beyond the Basic Multilingual Plane.
class DocumentGenerator {
public:
    explicit DocumentGenerator(unsigned seed) : random_(seed) {}

    std::string Document() {
        std::string doc = "<?xml version='1.0' encoding='UTF-8'?>";
        Element(doc, 0);
        return doc;
    }

private:
    int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

    std::string Text() {
        static const char* const pieces[] = {"a", " ", "\n", "&amp;", "&lt;", "&gt;", "&quot;", "&apos;",
                                             "&#x1F600;", "\xF0\x9F\x98\x80", "\xC3\xA9", "&#65;", "\t",
                                             "<![CDATA[<&]]>", "text"};
        std::string text;
        for (int n = Pick(5); n > 0; --n) text += pieces[Pick(15)];
        return text;
    }

    void Element(std::string& doc, int depth) {
        static const char* const names[] = {"r", "a", "b", "\xC3\xA9l", "x-y"};
        std::string name = names[Pick(5)];
        doc += "<" + name;
        for (int i = 0, n = Pick(4); i < n; ++i) {
            std::string value = Text();
            if (value.find("CDATA") != std::string::npos) value = "v";
            doc += " at" + std::to_string(i) + "=\"" + value + "\"";
        }
        doc += ">";
        for (int n = depth < 6 ? Pick(5) : 0; n > 0; --n) {
            if (Pick(2) == 0) doc += Text();
            Element(doc, depth + 1);
        }
        doc += Text() + "</" + name + ">";
    }

    std::mt19937 random_;
};

// The outermost elements named name, in document order.
void OutermostNamed(const XmlElementPtr& element, const CZelStringW& name, std::vector<XmlElementPtr>& found) {
    if (element->Name() == name) {
        found.push_back(element);
        return;
    }
    for (const auto& child : element->Children()) OutermostNamed(child, name, found);
}

TEST(XmlDifferential, HybridSubtreesEqualTheWholeTreeOnGeneratedDocuments) {
    for (unsigned seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        std::string doc = DocumentGenerator(seed).Document();
        zel::XmlTreeParser tree;
        ASSERT_TRUE(tree.ParseMemory(doc.data(), doc.size())) << doc;
        std::vector<XmlElementPtr> expected;
        OutermostNamed(tree.Root(), W("r"), expected);

        zel::XmlExpatHybridParser hybrid;
        std::vector<XmlElementPtr> handed;
        hybrid.RegisterHook(W("r"), [&](zel::XmlExpatHybridParser&, const XmlElementPtr& element) {
            handed.push_back(element);
        });
        ASSERT_TRUE(hybrid.ParseMemory(doc.data(), doc.size()));
        ASSERT_EQ(handed.size(), expected.size());
        for (std::size_t i = 0; i < handed.size(); ++i) {
            EXPECT_EQ(Describe(*handed[i]), Describe(*expected[i]));
        }
    }
}

// Writes element as the writer's users do: a leaf with text on one line, a
// leaf without text as an empty element, a parent with its children indented.
void WriteTree(zel::XmlWriter& writer, const XmlElement& element) {
    writer.WriteStartTag(element.Name(), zel::XmlWriter::kOpenForAttributes);
    for (const auto& [name, value] : element.Attributes()) writer.WriteAttribute(name, value);
    if (element.Children().empty() && element.Text().IsEmpty()) {
        writer.CloseEmptyTag();
        return;
    }
    if (element.Children().empty()) {
        writer.EndStartTag(zel::XmlWriter::kSameLine);
        writer.WriteText(element.Text());
        writer.WriteEndTag(element.Name(), zel::XmlWriter::kSameLine);
        return;
    }
    writer.EndStartTag();
    for (const auto& child : element.Children()) WriteTree(writer, *child);
    writer.WriteEndTag(element.Name());
}

// Random trees the writer can express: no empty attribute values, no mixed
// content, no C0 control characters.
XmlElementPtr RandomTree(std::mt19937& random, int depth) {
    auto pick = [&](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    static const char* const texts[] = {"a", " b ", "<&>\"'", "\xF0\x9F\x98\x80", "\xC3\xA9t\xC3\xA9", "&amp;lt;"};
    static const char* const names[] = {"r", "\xC3\xA9l", "x-y", "n.1"};
    auto element = std::make_shared<XmlElement>(W(names[pick(4)]));
    for (int i = 0, n = pick(3); i < n; ++i) element->SetAttribute(W("k" + std::to_string(i)), W(texts[pick(6)]));
    int children = depth < 5 ? pick(4) : 0;
    for (int i = 0; i < children; ++i) element->AppendChild(RandomTree(random, depth + 1));
    if (children == 0 && pick(3) != 0) {
        CZelStringW text = W(texts[pick(6)]);
        element->AppendText(text, text.GetLength());
    }
    return element;
}

class XmlWriterRoundTrip : public zel_test::TempFolderTest {};

TEST_F(XmlWriterRoundTrip, WrittenTreesParseBackEqual) {
    std::mt19937 random(7);
    const std::string path = PathOf("tree.xml");
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        XmlElementPtr tree = RandomTree(random, 0);
        zel::XmlWriter::SetDepth(0);
        zel::XmlWriter writer(W(path));
        ASSERT_TRUE(writer.Open());
        WriteTree(writer, *tree);
        ASSERT_TRUE(writer.Close());
        zel::XmlTreeParser parser;
        ASSERT_TRUE(parser.ParseWholeFile(W(path))) << parser.LastFailure().message;
        EXPECT_EQ(Describe(*parser.Root(), true), Describe(*tree, true));
    }
    std::filesystem::remove(path);
}

// A file that Python rejects is summarised as "error LINE COLUMN". Otherwise:
// element count, attribute count (namespace declarations included), UTF-8
// bytes of all text, and the middle element's name and attributes, with
// namespace prefixes left out.
struct Summary {
    long long elements = 0, attributes = 0, textBytes = 0;
    std::string middle;
};

std::string LocalName(const std::string& name) {
    std::size_t colon = name.rfind(':');
    return colon == std::string::npos ? name : name.substr(colon + 1);
}

Summary Summarize(const XmlElementPtr& root) {
    Summary summary;
    std::vector<const XmlElement*> order, pending{root.get()};
    while (!pending.empty()) {
        const XmlElement* element = pending.back();
        pending.pop_back();
        order.push_back(element);
        summary.attributes += static_cast<long long>(element->Attributes().size());
        summary.textBytes += CZelStringUtf8(element->Text()).GetLength();
        for (auto child = element->Children().rbegin(); child != element->Children().rend(); ++child) {
            pending.push_back(child->get());
        }
    }
    summary.elements = static_cast<long long>(order.size());
    const XmlElement& middle = *order[order.size() / 2];
    std::vector<std::string> attributes;
    for (const auto& [name, value] : middle.Attributes()) {
        if (U(name).rfind("xmlns", 0) != 0) attributes.push_back(LocalName(U(name)) + "=" + U(value));
    }
    std::sort(attributes.begin(), attributes.end());
    summary.middle = LocalName(U(middle.Name()));
    for (const auto& attribute : attributes) summary.middle += " " + attribute;
    return summary;
}

const char kEtreeSummary[] = R"(import sys, xml.etree.ElementTree as ET
def local(name): return name.rsplit('}', 1)[-1]
for path in sys.argv[1:]:
    namespaces, root = 0, None
    try:
        for event, item in ET.iterparse(path, events=('start-ns', 'start')):
            if event == 'start-ns': namespaces += 1
            elif root is None: root = item
    except ET.ParseError as error:
        print('error', *error.position)
        continue
    order = list(root.iter())
    attributes = sum(len(e.attrib) for e in order) + namespaces
    text = sum(len((e.text or '').encode()) + sum(len((c.tail or '').encode()) for c in e) for e in order)
    middle = order[len(order) // 2]
    described = ' '.join([local(middle.tag)] + sorted(local(k) + '=' + v for k, v in middle.attrib.items()))
    print(len(order), attributes, text, described)
)";

class XmlRealDocuments : public zel_test::TempFolderTest {};

TEST_F(XmlRealDocuments, LargeInstalledFilesMatchPythonsParser) {
    const char* const candidates[] = {
        "/usr/share/mime/packages/freedesktop.org.xml", "/usr/share/X11/xkb/rules/evdev.xml",
        "/usr/share/xml/iso-codes/iso_639-3.xml",
        "/usr/share/xml/iso-codes/iso_3166-2.xml"};
    std::vector<std::string> files;
    for (const char* file : candidates) {
        if (std::filesystem::exists(file)) files.push_back(file);
    }
    const std::string script = PathOf("summary.py"), output = PathOf("summary.txt");
    Put("summary.py", kEtreeSummary);
    std::string command = "python3 \"" + script + "\"";
    for (const auto& file : files) command += " \"" + file + "\"";
    bool ran = !files.empty() && std::system((command + " > \"" + output + "\"").c_str()) == 0;
    std::istringstream expected(Get("summary.txt"));
    std::filesystem::remove(script);
    std::filesystem::remove(output);
    if (!ran) GTEST_SKIP() << "none of the documents, or no python3, on this machine";

    for (const auto& file : files) {
        SCOPED_TRACE(file);
        std::string line;
        std::getline(expected, line);
        std::istringstream fields(line);
        zel::XmlTreeParser parser;
        bool parsed = parser.ParseWholeFile(W(file));
        if (line.rfind("error ", 0) == 0) {
            // Some shipped files are not well formed (a bare "&"): both
            // parsers must reject them at the same place.
            EXPECT_FALSE(parsed);
            const auto& failure = parser.LastFailure();
            EXPECT_EQ(line, "error " + std::to_string(failure.line) + " " + std::to_string(failure.column));
            continue;
        }
        ASSERT_TRUE(parsed) << parser.LastFailure().message;
        Summary summary = Summarize(parser.Root());
        long long elements = 0, attributes = 0, textBytes = 0;
        std::string middle;
        fields >> elements >> attributes >> textBytes;
        std::getline(fields >> std::ws, middle);
        EXPECT_GT(summary.elements, 1000);
        EXPECT_EQ(summary.elements, elements);
        EXPECT_EQ(summary.attributes, attributes);
        EXPECT_EQ(summary.textBytes, textBytes);
        EXPECT_EQ(summary.middle, middle);
    }
}

}  // namespace

// Documents declared in code pages Expat does not know itself, encoded by
// Python's codecs: names, attributes and text read as the original text. A
// byte the code page leaves undefined is malformed; a name without a code
// page stays an unknown encoding.
TEST_F(XmlRealDocuments, DeclaredCodePagesReadAsPythonWroteThem) {
    const std::vector<std::pair<std::string, std::string>> samples = {
        {"windows-1252", "Zo\xC3\xAB M\xC3\xBCller \xE2\x80\x93 5 \xE2\x82\xAC"},
        {"Windows-1251", "\xD0\x9C\xD0\xBE\xD1\x81\xD0\xBA\xD0\xB2\xD0\xB0"},
        {"ISO-8859-2", "\xC5\x81\xC3\xB3\x64\xC5\xBA \xC5\x90"},
        {"koi8-r", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},
        {"IBM866", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},
        {"Shift_JIS", "\xE6\x9D\xB1\xE4\xBA\xAC\xE3\x82\xBF\xE3\x83\xAF\xE3\x83\xBC"},
        {"big5", "\xE8\x87\xBA\xE5\x8C\x97"},
        {"EUC-KR", "\xEC\x84\x9C\xEC\x9A\xB8"},
        {"gb2312", "\xE5\x8C\x97\xE4\xBA\xAC"},
        // Kanji, half-width katakana (8E) and a JIS X 0212 kanji (8F, three bytes).
        {"EUC-JP", "\xE6\x9D\xB1\xE4\xBA\xAC\xEF\xBD\xB1\xE4\xB8\x82"},
    };
    std::string script = "import sys\nfor i, (enc, text) in enumerate(zip(sys.argv[1::2], sys.argv[2::2])):\n"
                         "    doc = '<?xml version=\"1.0\" encoding=\"%s\"?>\\n<%s a=\"%s\">%s</%s>'\n"
                         "    doc = doc % (enc, text[0], text, text, text[0])\n"
                         "    open('doc%d.xml' % i, 'wb').write(doc.encode(enc))\n";
    Put("write.py", script);
    std::string command = "cd \"" + Folder().string() + "\" && python3 write.py";
    for (const auto& [encoding, text] : samples) command += " " + encoding + " '" + text + "'";
    bool written = std::system(command.c_str()) == 0;
    std::filesystem::remove(Folder() / "write.py");
    for (std::size_t i = 0; written && i < samples.size(); ++i) {
        SCOPED_TRACE(samples[i].first);
        zel::XmlTreeParser parser;
        std::string file = PathOf("doc" + std::to_string(i) + ".xml");
        ASSERT_TRUE(parser.ParseWholeFile(W(file))) << parser.LastFailure().message;
        CZelStringW text = W(samples[i].second);
        EXPECT_EQ(U(parser.Root()->Text()), samples[i].second);
        EXPECT_EQ(parser.Root()->GetString(W("a")), text);
        EXPECT_EQ(parser.Root()->Name(), text.Left(1));
        std::filesystem::remove(file);
    }
    if (!written) GTEST_SKIP() << "no python3 on this machine";

    const std::pair<std::string, std::string> refused[] = {
        {"<?xml version='1.0' encoding='windows-1253'?><d>\xAA</d>", "not well-formed (invalid token)"},
        {"<?xml version='1.0' encoding='Shift_JIS'?><d>\x81\x7F</d>", "not well-formed (invalid token)"},
        {"<?xml version='1.0' encoding='EUC-JP'?><d>\xA1\x7F</d>", "not well-formed (invalid token)"},
        {"<?xml version='1.0' encoding='EUC-JP'?><d>\x8F\xA1</d>", "not well-formed (invalid token)"},
        {"<?xml version='1.0' encoding='x-no-such-code-page'?><d/>", "unknown encoding"},
    };
    for (const auto& [document, reason] : refused) {
        zel::XmlTreeParser parser;
        EXPECT_FALSE(parser.ParseMemory(document.data(), document.size())) << document;
        EXPECT_EQ(parser.LastFailure().message, reason) << document;
    }
}
