// Documents at the edges: very deep, hostile, and very long.
#include "zelutils/xml/xml_expat_parser.h"

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using zel::XmlElementPtr;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const char* utf8) { return CZelStringUtf8(utf8).ToWide(); }

constexpr int kExpatAborted = 35;              // XML_ERROR_ABORTED
constexpr int kExpatAmplificationLimit = 43;   // XML_ERROR_AMPLIFICATION_LIMIT_BREACH

// The growth of the process's peak resident memory since the last call, in
// bytes, or -1 where the system does not tell (Linux resets the peak on
// request; other systems and sanitizer builds are skipped).
long long PeakGrowthSinceLastCall() {
    if (zel_test::kAddressSanitized) return -1;
    std::ofstream("/proc/self/clear_refs") << "5";
    std::ifstream status("/proc/self/status");
    static long long before = -1;
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            long long peak = std::stoll(line.substr(6)) * 1024;
            long long growth = before < 0 ? 0 : peak - before;
            before = peak;
            return growth;
        }
    }
    return -1;
}

TEST(XmlLimits, AMillionLevelsParseAndFreeWithoutRecursion) {
    constexpr int kDepth = 1000000;
    std::string doc;
    doc.reserve(kDepth * 7);
    for (int i = 0; i < kDepth; ++i) doc += "<a>";
    doc += "x";
    for (int i = 0; i < kDepth; ++i) doc += "</a>";
    {
        zel::XmlTreeParser tree;
        ASSERT_TRUE(tree.ParseMemory(doc.data(), doc.size()));
        int depth = 1;
        const zel::XmlElement* node = tree.Root().get();
        for (; !node->Children().empty(); node = node->Children()[0].get()) ++depth;
        EXPECT_EQ(depth, kDepth);
        EXPECT_TRUE(node->Text() == W("x"));
    }
    // Cut short: the open elements are left on the parser's stacks.
    zel::XmlExpatHybridParser hybrid;
    int records = 0;
    hybrid.RegisterHook(W("a"), [&](zel::XmlExpatHybridParser&, const XmlElementPtr&) { ++records; });
    EXPECT_FALSE(hybrid.ParseMemory(doc.data(), doc.size() / 2));
    EXPECT_TRUE(hybrid.ParseMemory(doc.data(), doc.size()));
    EXPECT_EQ(records, 1);
}

TEST(XmlLimits, HostileDocumentsFailWithBoundedMemory) {
    std::string laughs = "<?xml version='1.0'?><!DOCTYPE l [<!ENTITY l0 'ha'>";
    for (int i = 1; i < 10; ++i) {
        laughs += "<!ENTITY l" + std::to_string(i) + " '";
        for (int j = 0; j < 10; ++j) laughs += "&l" + std::to_string(i - 1) + ";";
        laughs += "'>";
    }
    laughs += "]><l>&l9;</l>";

    std::string longValue = "<a v='";
    longValue.append(100 * 1024 * 1024, 'v');
    longValue += "'/>";

    std::string manyAttributes = "<a";
    for (int i = 0; i < 1000000; ++i) manyAttributes += " a" + std::to_string(i) + "=''";
    manyAttributes += "/>";

    struct Case {
        const char* what;
        const std::string* doc;
        int errorCode;
        const char* message;
    };
    for (const Case& c : {Case{"billion laughs", &laughs, kExpatAmplificationLimit, nullptr},
                          Case{"100 MB attribute", &longValue, kExpatAborted, "attribute value too long"},
                          Case{"a million attributes", &manyAttributes, kExpatAborted, "too many attributes"}}) {
        SCOPED_TRACE(c.what);
        PeakGrowthSinceLastCall();
        zel::XmlTreeParser parser;
        EXPECT_FALSE(parser.ParseMemory(c.doc->data(), c.doc->size()));
        EXPECT_EQ(parser.LastFailure().errorCode, c.errorCode);
        if (c.message != nullptr) {
            EXPECT_EQ(parser.LastFailure().message, c.message);
        }
        long long growth = PeakGrowthSinceLastCall();
        // Expat holds the input it has not parsed yet; nothing may multiply it.
        if (growth >= 0) {
            EXPECT_LT(growth, 4 * static_cast<long long>(c.doc->size()) + (64 << 20));
        }
    }
}

// Streams the records of path; 0 when all were seen and the peak memory
// grew by less than 16 MB.
int StreamRecords(const std::string& path, long long fileSize) {
    zel::XmlExpatHybridParser parser;
    long long records = 0, idSum = 0;
    parser.RegisterHook(W("rec"), [&](zel::XmlExpatHybridParser&, const XmlElementPtr& record) {
        ++records;
        idSum += record->GetInt(W("id"));
    });
    PeakGrowthSinceLastCall();
    bool parsed = parser.ParseWholeFile(W(path.c_str()));
    long long growth = PeakGrowthSinceLastCall();
    std::fprintf(stderr, "peak memory growth for %lld bytes of records: %lld bytes\n", fileSize, growth);
    // A whole tree of this file takes hundreds of megabytes; the stream keeps
    // one record and the document element's text (its line ends).
    return parsed && records == 1000000 && idSum == 999999LL * 1000000 / 2 && growth < (16 << 20) ? 0 : 1;
}

class XmlRecordStreamTest : public zel_test::TempFolderTest {};

TEST_F(XmlRecordStreamTest, AMillionRecordsHoldOneRecordAtATime) {
    const std::string path = PathOf("records.xml");
    {
        std::ofstream out(path, std::ios::binary);
        out << "<records>\n";
        for (int i = 0; i < 1000000; ++i) {
            out << "<rec id=\"" << i << "\"><name>item " << i << "</name><v>3.5</v></rec>\n";
        }
        out << "</records>\n";
    }
    const auto fileSize = static_cast<long long>(std::filesystem::file_size(path));
    // In a fresh process, so that memory freed by earlier tests cannot hide
    // growth.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(StreamRecords(path, fileSize)), ::testing::ExitedWithCode(0), "");
    std::filesystem::remove(path);
}

}  // namespace
