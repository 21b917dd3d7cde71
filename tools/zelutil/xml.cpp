// zelutil xml: XML documents from the command line. Every Expat parse here
// ends with Expat's final flag, so a document cut short is an error; tags
// reads with the light pull parser, which checks nothing.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_parser.h"
#include "zelutils/xml/xml_writer.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace zelutil {
namespace {

using zel::XmlElement;
using zel::XmlElementPtr;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW Wide(const std::string& utf8) { return CZelStringUtf8(utf8.c_str()).ToWide(); }

std::string Utf8(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

// Parses file with parser; prints the file, Expat's line and column and the
// reason when that fails (for a file that could not be read, why, where the
// file system tells).
bool Parse(zel::XmlExpatParser& parser, const std::string& file) {
    if (parser.ParseWholeFile(PathArgument(file))) return true;
    const zel::XmlParseFailure& failure = parser.LastFailure();
    if (failure.line == 0) {
        std::string why = WhyNoFile(PathArgument(file));
        std::fprintf(stderr, "zelutil xml: '%s': %s%s\n", file.c_str(), failure.message.c_str(),
                     why.empty() ? "" : (" (" + why + ")").c_str());
    } else {
        std::fprintf(stderr, "zelutil xml: '%s':%lu:%lu: %s\n", file.c_str(), failure.line, failure.column,
                     failure.message.c_str());
    }
    return false;
}

// Text with its surrounding white space removed.
std::string Trimmed(const CZelStringW& text) {
    std::string utf8 = Utf8(text);
    std::size_t first = utf8.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::string();
    return utf8.substr(first, utf8.find_last_not_of(" \t\r\n") - first + 1);
}

// One line per element, indented by two spaces a level: the name, the
// attributes and the trimmed text. Walks without recursion: a document may
// be nested as deep as Expat allows.
void Dump(const XmlElementPtr& root) {
    std::vector<std::pair<const XmlElement*, std::size_t>> pending{{root.get(), 0}};
    while (!pending.empty()) {
        auto [element, level] = pending.back();
        pending.pop_back();
        std::string line(level * 2, ' ');
        line += Utf8(element->Name());
        for (const auto& [name, value] : element->Attributes()) line += " " + Utf8(name) + "=\"" + Utf8(value) + "\"";
        std::string text = Trimmed(element->Text());
        if (!text.empty()) line += ": " + text;
        std::printf("%s\n", line.c_str());
        for (auto child = element->Children().rbegin(); child != element->Children().rend(); ++child) {
            pending.emplace_back(child->get(), level + 1);
        }
    }
}

// The subtree as compact XML on one line: the text before the children, as
// the tree keeps it, except the indentation between children; escaped as the
// writer escapes. Without recursion.
std::string AsXml(const XmlElementPtr& root) {
    std::string out;
    std::vector<std::pair<const XmlElement*, bool>> pending{{root.get(), false}};
    while (!pending.empty()) {
        auto [element, closing] = pending.back();
        pending.pop_back();
        std::string name = Utf8(zel::XmlEscape(element->Name()));
        if (closing) {
            out += "</" + name + ">";
            continue;
        }
        out += "<" + name;
        for (const auto& [key, value] : element->Attributes()) {
            out += " " + Utf8(zel::XmlEscape(key)) + "=\"" + Utf8(zel::XmlEscape(value)) + "\"";
        }
        out += ">";
        if (element->Children().empty() || !Trimmed(element->Text()).empty()) {
            out += Utf8(zel::XmlEscape(element->Text()));
        }
        pending.emplace_back(element, true);
        for (auto child = element->Children().rbegin(); child != element->Children().rend(); ++child) {
            pending.emplace_back(child->get(), false);
        }
    }
    return out;
}

int DumpCommand(const Args& args) {
    if (args.size() != 2) return UsageError("xml", "dump takes one FILE");
    zel::XmlTreeParser parser;
    if (!Parse(parser, args[1])) return kExitUsage;
    Dump(parser.Root());
    return kExitOk;
}

// The hybrid parser without the text between records: the records command
// keeps no more than one record, whatever the size of the file.
class RecordStream : public zel::XmlExpatHybridParser {
public:
    void OnCharacterData(const CZelStringW& text) override {
        if (HookDepth() > 0) XmlExpatHybridParser::OnCharacterData(text);
    }
};

int RecordsCommand(const Args& args) {
    long long limit = 10;
    if (args.size() == 5 && args[3] == "--count") {
        char* end = nullptr;
        limit = std::strtoll(args[4].c_str(), &end, 10);
        if (args[4].empty() || *end != 0 || limit < 0) return UsageError("xml", "--count takes a number");
    } else if (args.size() != 3) {
        return UsageError("xml", "records takes FILE NAME [--count N]");
    }
    RecordStream parser;
    long long total = 0;
    parser.RegisterHook(Wide(args[2]), [&](zel::XmlExpatHybridParser&, const XmlElementPtr& record) {
        if (total++ < limit) std::printf("%s\n", AsXml(record).c_str());
    });
    if (!Parse(parser, args[1])) return kExitUsage;
    std::printf("records: %lld\n", total);
    return kExitOk;
}

// Follows path ("root/child/@attribute", or ".../child" for its text) from
// the document element; false when a step is missing.
bool Lookup(const XmlElementPtr& root, const std::string& path, std::string& value) {
    std::vector<std::string> steps;
    for (std::size_t start = 0;;) {
        std::size_t slash = path.find('/', start);
        steps.push_back(path.substr(start, slash - start));
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    if (steps[0] != Utf8(root->Name())) return false;
    XmlElementPtr element = root;
    for (std::size_t i = 1; i < steps.size(); ++i) {
        if (i + 1 == steps.size() && !steps[i].empty() && steps[i][0] == '@') {
            CZelStringW attribute;
            if (!element->TryGetString(Wide(steps[i].substr(1)), attribute)) return false;
            value = Utf8(attribute);
            return true;
        }
        XmlElementPtr child;
        if (!element->FindChild(Wide(steps[i]), child)) return false;
        element = child;
    }
    value = Utf8(element->Text());
    return true;
}

int GetCommand(const Args& args) {
    if (args.size() != 3) return UsageError("xml", "get takes FILE PATH");
    zel::XmlTreeParser parser;
    if (!Parse(parser, args[1])) return kExitUsage;
    std::string value;
    if (!Lookup(parser.Root(), args[2], value)) {
        std::fprintf(stderr, "zelutil xml: '%s' has no %s\n", args[1].c_str(), args[2].c_str());
        return kExitFailure;
    }
    std::printf("%s\n", value.c_str());
    return kExitOk;
}

void WriteSample(zel::XmlWriter& writer) {
    SYSTEMTIME surveyed{2024, 5, 0, 6, 7, 8, 9, 250};
    writer.WriteStartTag(Wide("survey"), zel::XmlWriter::kOpenForAttributes);
    writer.WriteAttribute(Wide("name"), Wide("Quarry <north> & \"east\""));
    writer.WriteAttribute(Wide("note"), Wide(""));  // empty: left out
    writer.EndStartTag();
    writer.WriteDateTime(Wide("surveyed"), surveyed);
    writer.WriteBool(Wide("checked"), true);
    writer.WriteColor(Wide("colour"), 0x563412);
    for (int id = 1; id <= 3; ++id) {
        writer.WriteStartTag(Wide("point"), zel::XmlWriter::kOpenForAttributes);
        writer.WriteAttribute(Wide("id"), Wide(std::to_string(id)));
        writer.EndStartTag();
        writer.WriteNumber(Wide("east"), 2600000.125 + id, 3);
        writer.WriteNumber(Wide("north"), 1200000.5 - id);
        writer.WriteNumber(Wide("height"), std::int64_t{400 + id});
        writer.WriteEndTag(Wide("point"));
    }
    writer.WriteStartTag(Wide("empty"), zel::XmlWriter::kEmptyElement);
    writer.WriteEndTag(Wide("survey"));
}

// text as UTF-8 with a backslash, TAB, CR and LF written as \\, \t, \r and \n,
// so that a tags line always has exactly two TABs.
std::string Escaped(const CZelStringW& text) {
    std::string out;
    for (char ch : Utf8(text)) {
        switch (ch) {
            case '\\': out += "\\\\"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            case '\n': out += "\\n"; break;
            default: out += ch; break;
        }
    }
    return out;
}

// The light pull parser's reports, one line each: name, attribute text and
// following text, TAB-separated.
int TagsCommand(const Args& args) {
    if (args.size() != 2) return UsageError("xml", "tags takes one FILE");
    std::unique_ptr<zel::CXmlParser> parser;
    switch (zel::CXmlParser::Open(PathArgument(args[1]), parser)) {
        case zel::CXmlParser::kOpened: break;
        case zel::CXmlParser::kNotXml:
            return UsageError("xml", "'" + args[1] + "' is not XML: its first line has no \"xml\"");
        default: return UsageError("xml", "cannot read '" + args[1] + "': " + Reason(GetLastError()));
    }
    CZelStringW name, attributes, text;
    while (parser->ReadNextTag(name, attributes, text)) {
        const std::string line = Escaped(name) + '\t' + Escaped(attributes) + '\t' + Escaped(text) + '\n';
        if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size()) break;
    }
    return kExitOk;
}

// Writes the sample next to file, reads it back whole, then puts it in
// file's place: file is never left torn.
int WriteSampleCommand(const Args& args) {
    if (args.size() != 2) return UsageError("xml", "write-sample takes one FILE");
    const CZelStringW target = PathArgument(args[1]);
    const CZelStringW temporary = PathArgument(args[1] + ".zelutil-tmp");
    zel::XmlWriter::SetDepth(0);
    zel::XmlWriter writer(temporary);
    bool written = false;
    DWORD error = ERROR_SUCCESS;
    if (writer.Open()) {
        try {
            WriteSample(writer);
            written = writer.Close();
        } catch (const zel::XmlWriter::Exception&) {
            writer.Close();
        }
    }
    if (!written) error = GetLastError();
    zel::XmlTreeParser check;
    if (written && !check.ParseWholeFile(temporary)) {
        written = false;
        error = ERROR_INVALID_DATA;
    }
    if (written && !MoveFileExW(temporary, target, MOVEFILE_REPLACE_EXISTING)) {
        written = false;
        error = GetLastError();
    }
    if (!written) {
        DeleteFileW(temporary);
        std::fprintf(stderr, "zelutil xml: cannot write '%s': %s\n", args[1].c_str(), Reason(error).c_str());
        return kExitUsage;
    }
    return kExitOk;
}

}  // namespace

int RunXml(const Args& args) {
    if (args.empty()) return UsageError("xml", "missing subcommand (dump, records, get, tags, write-sample)");
    if (args[0] == "dump") return DumpCommand(args);
    if (args[0] == "records") return RecordsCommand(args);
    if (args[0] == "get") return GetCommand(args);
    if (args[0] == "tags") return TagsCommand(args);
    if (args[0] == "write-sample") return WriteSampleCommand(args);
    return UsageError("xml", "unknown subcommand '" + args[0] + "' (dump, records, get, tags, write-sample)");
}

}  // namespace zelutil
