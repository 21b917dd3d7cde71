// XML on a generated file of 280,000 small records (about 50 MB): the hybrid
// parser with the record element registered against raw Expat with no-op
// callbacks on the same bytes; the whole tree against pugixml (with the
// memory each node takes); the writer writing 1 million elements against
// fwrite of the same bytes; and the light pull parser against the whole tree
// on a file of about 100 MB that the writer wrote.
#include "bench/ratio_reporter.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"
#include "zelutils/xml/xml_parser.h"
#include "zelutils/xml/xml_writer.h"

#include <expat.h>
#include <malloc.h>
#include <pugixml.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kRecords = 280000;
constexpr int kWrittenElements = 1000000;
constexpr int kWrittenRecords = 475000;

std::filesystem::path Folder() {
    static std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() / "zel-xml-bench";
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

zel_text::CZelStringW Wide(const std::filesystem::path& path) {
    return zel_text::CZelStringUtf8(path.string().c_str()).ToWide();
}

// The records file, generated once; its size in bytes.
const std::filesystem::path& RecordsFile() {
    static std::filesystem::path path = [] {
        auto file = Folder() / "records.xml";
        std::ofstream out(file, std::ios::binary);
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<survey>\n";
        for (int i = 0; i < kRecords; ++i) {
            out << "<rec id=\"" << i << "\" kind=\"point\" code=\"PT" << i % 1000 << "\"><name>Point " << i
                << " \xC3\xA9</name><east>2600" << i << ".125</east><north>1200" << i
                << ".5</north><height>401.25</height><flags a=\"1\" b=\"0\"/></rec>\n";
        }
        out << "</survey>\n";
        return file;
    }();
    return path;
}

std::int64_t RecordsBytes() { return static_cast<std::int64_t>(std::filesystem::file_size(RecordsFile())); }

void BM_HybridRecords(benchmark::State& state) {
    zel_text::CZelStringW path = Wide(RecordsFile());
    zel::XmlExpatHybridParser parser;
    long long records = 0;
    parser.RegisterHook(ZW("rec"), [&](zel::XmlExpatHybridParser&, const zel::XmlElementPtr&) { ++records; });
    for (auto _ : state) {
        records = 0;
        if (!parser.ParseWholeFile(path) || records != kRecords) state.SkipWithError("parse failed");
    }
    state.SetBytesProcessed(state.iterations() * RecordsBytes());
}
BENCHMARK(BM_HybridRecords)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_RawExpat(benchmark::State& state) {
    std::string path = RecordsFile().string();
    std::vector<char> block(zel::XmlExpatParser::kDefaultBlockSize);
    for (auto _ : state) {
        XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetElementHandler(parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
        std::FILE* file = std::fopen(path.c_str(), "rb");
        for (;;) {
            std::size_t count = std::fread(block.data(), 1, block.size(), file);
            if (XML_Parse(parser, block.data(), static_cast<int>(count), count < block.size()) != XML_STATUS_OK) {
                state.SkipWithError("expat failed");
            }
            if (count < block.size()) break;
        }
        std::fclose(file);
        XML_ParserFree(parser);
    }
    state.SetBytesProcessed(state.iterations() * RecordsBytes());
}
BENCHMARK(BM_RawExpat)->Unit(benchmark::kMillisecond)->Iterations(3);

// Heap bytes in use now (glibc's count).
double HeapInUse() { return static_cast<double>(mallinfo2().uordblks); }

void BM_FullTree(benchmark::State& state) {
    zel_text::CZelStringW path = Wide(RecordsFile());
    double nodes = 0, bytes = 0;
    for (auto _ : state) {
        double before = HeapInUse();
        zel::XmlTreeParser parser;
        if (!parser.ParseWholeFile(path)) state.SkipWithError("parse failed");
        bytes = HeapInUse() - before;
        nodes = 1 + static_cast<double>(parser.Root()->Children().size()) * 6;
    }
    state.SetBytesProcessed(state.iterations() * RecordsBytes());
    state.counters["bytes_per_node"] = bytes / nodes;
}
BENCHMARK(BM_FullTree)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Pugixml(benchmark::State& state) {
    std::string path = RecordsFile().string();
    double nodes = 0, bytes = 0;
    for (auto _ : state) {
        double before = HeapInUse();
        pugi::xml_document document;
        if (!document.load_file(path.c_str())) state.SkipWithError("pugixml failed");
        bytes = HeapInUse() - before;
        nodes = static_cast<double>(std::distance(document.first_child().begin(), document.first_child().end())) * 6 + 1;
    }
    state.SetBytesProcessed(state.iterations() * RecordsBytes());
    state.counters["bytes_per_node"] = bytes / nodes;
}
BENCHMARK(BM_Pugixml)->Unit(benchmark::kMillisecond)->Iterations(3);

void WriteElements(const std::filesystem::path& path) {
    zel::XmlWriter::SetDepth(0);
    zel::XmlWriter writer(Wide(path));
    writer.Open();
    writer.WriteStartTag(ZW("values"));
    zel_text::CZelStringW name(ZW("value")), text(ZW("Point 12345 & more"));
    for (int i = 0; i < kWrittenElements; ++i) writer.WriteElement(name, text);
    writer.WriteEndTag(ZW("values"));
    writer.Close();
}

std::int64_t WrittenBytes() {
    static std::int64_t bytes = [] {
        WriteElements(Folder() / "written.xml");
        return static_cast<std::int64_t>(std::filesystem::file_size(Folder() / "written.xml"));
    }();
    return bytes;
}

void BM_Writer(benchmark::State& state) {
    for (auto _ : state) WriteElements(Folder() / "written.xml");
    state.SetBytesProcessed(state.iterations() * WrittenBytes());
}
BENCHMARK(BM_Writer)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FwriteSameBytes(benchmark::State& state) {
    WrittenBytes();
    std::ifstream in(Folder() / "written.xml", std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    std::string path = (Folder() / "fwrite.xml").string();
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_FwriteSameBytes)->Unit(benchmark::kMillisecond)->Iterations(3);

// About 100 MB the writer wrote, generated once: records of a start tag with
// attributes, five elements and an empty one; its path and size in bytes.
const std::filesystem::path& WrittenRecordsFile() {
    static std::filesystem::path path = [] {
        auto file = Folder() / "written-records.xml";
        zel::XmlWriter::SetDepth(0);
        zel::XmlWriter writer(Wide(file));
        writer.Open();
        writer.WriteStartTag(ZW("survey"));
        for (int i = 0; i < kWrittenRecords; ++i) {
            writer.WriteStartTag(ZW("point"), zel::XmlWriter::kOpenForAttributes);
            writer.WriteAttribute(ZW("id"), zel_text::CZelStringUtf8(std::to_string(i).c_str()).ToWide());
            writer.WriteAttribute(ZW("code"), ZW("PT & \u00e9"));
            writer.EndStartTag();
            writer.WriteNumber(ZW("east"), 2600000.125 + i, 3);
            writer.WriteNumber(ZW("north"), 1200000.5 - i, 3);
            writer.WriteNumber(ZW("height"), std::int64_t{400 + i % 100});
            writer.WriteElement(ZW("name"), ZW("Point <north> \u00e9"));
            writer.WriteBool(ZW("checked"), i % 2 == 0);
            writer.WriteStartTag(ZW("flags"), zel::XmlWriter::kEmptyElement);
            writer.WriteEndTag(ZW("point"));
        }
        writer.WriteEndTag(ZW("survey"));
        writer.Close();
        return file;
    }();
    return path;
}

std::int64_t WrittenRecordsBytes() {
    return static_cast<std::int64_t>(std::filesystem::file_size(WrittenRecordsFile()));
}

void BM_LightParser(benchmark::State& state) {
    zel_text::CZelStringW path = Wide(WrittenRecordsFile());
    const zel_text::CZelStringW point(ZW("point")), id(ZW("id"));
    for (auto _ : state) {
        std::unique_ptr<zel::CXmlParser> parser;
        if (zel::CXmlParser::Open(path, parser) != zel::CXmlParser::kOpened) state.SkipWithError("open failed");
        zel_text::CZelStringW name, attributes, text;
        long long points = 0;
        while (parser->ReadNextTag(name, attributes, text)) {
            if (name == point && !zel::CXmlParser::GetAttribute(attributes, id).IsEmpty()) ++points;
        }
        if (points != kWrittenRecords) state.SkipWithError("parse failed");
    }
    state.SetBytesProcessed(state.iterations() * WrittenRecordsBytes());
}
BENCHMARK(BM_LightParser)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_TreeOfWrittenFile(benchmark::State& state) {
    zel_text::CZelStringW path = Wide(WrittenRecordsFile());
    for (auto _ : state) {
        zel::XmlTreeParser parser;
        if (!parser.ParseWholeFile(path) || parser.Root()->Children().size() != kWrittenRecords) {
            state.SkipWithError("parse failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * WrittenRecordsBytes());
}
BENCHMARK(BM_TreeOfWrittenFile)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
    int result = zel_bench::RunWithRatios(argc, argv,
                                          {{"BM_HybridRecords", "BM_RawExpat"},
                                           {"BM_FullTree", "BM_Pugixml"},
                                           {"BM_Writer", "BM_FwriteSameBytes"},
                                           {"BM_LightParser", "BM_TreeOfWrittenFile"}});
    std::error_code error;
    std::filesystem::remove_all(Folder(), error);
    return result;
}
