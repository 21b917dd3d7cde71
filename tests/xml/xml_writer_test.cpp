#include "zelutils/xml/xml_writer.h"

#include "tests/support/temp_folder.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using zel::XmlWriter;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const char* utf8) { return CZelStringUtf8(utf8).ToWide(); }
std::string U(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

const std::string kHead = "\xEF\xBB\xBF<?xml version=\"1.1\" encoding=\"UTF-8\"?>\r\n";

class XmlWriterTest : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        XmlWriter::SetDepth(0);
    }
    CZelStringW Path() const { return W(PathOf("out.xml").c_str()); }
    std::string Finish(XmlWriter& writer) {
        EXPECT_TRUE(writer.Close());
        std::string bytes = Get("out.xml");
        std::filesystem::remove(PathOf("out.xml"));
        return bytes;
    }
};

TEST_F(XmlWriterTest, DocumentHasMarkDeclarationTabsAndCrLf) {
    XmlWriter writer(Path());
    ASSERT_TRUE(writer.Open());
    writer.WriteStartTag(W("root"));
    writer.WriteStartTag(W("item"), XmlWriter::kOpenForAttributes);
    writer.WriteAttribute(W("b"), W("x\"y"));
    writer.WriteAttribute(W("empty"), W(""));
    writer.WriteAttribute(W("forced"), W(""), true);
    writer.EndStartTag();
    writer.WriteElement(W("v"), W("<b&"));
    writer.WriteElement(W("none"), W(""));
    writer.WriteStartTag(W("leaf"), XmlWriter::kOpenForAttributes);
    writer.WriteAttribute(W("k"), W("1"));
    writer.CloseEmptyTag();
    writer.WriteStartTag(W("e"), XmlWriter::kEmptyElement);
    writer.WriteEndTag(W("item"));
    writer.WriteEndTag(W("root"));
    EXPECT_EQ(XmlWriter::Depth(), 0);
    EXPECT_EQ(Finish(writer), kHead +
                                  "<root>\r\n"
                                  "\t<item b=\"x&quot;y\" forced=\"\">\r\n"
                                  "\t\t<v>&lt;b&amp;</v>\r\n"
                                  "\t\t<none></none>\r\n"
                                  "\t\t<leaf k=\"1\" />\r\n"
                                  "\t\t<e/>\r\n"
                                  "\t</item>\r\n"
                                  "</root>\r\n");
}

TEST_F(XmlWriterTest, AttributesOnlyWhileStartTagIsOpenAndDepthIsShared) {
    XmlWriter first(Path());
    ASSERT_TRUE(first.Open());
    first.WriteStartTag(W("a"));
    first.WriteAttribute(W("ignored"), W("1"));  // the start tag is closed already
    // A second writer in the same process indents by the first one's depth.
    EXPECT_EQ(XmlWriter::Depth(), 1);
    first.WriteEndTag(W("a"), XmlWriter::kSameLine | XmlWriter::kOpenForAttributes);
    first.WriteEndTag(W("b"), XmlWriter::kIndentEndTagToo);  // depth -1 indents by nothing
    EXPECT_EQ(Finish(first), kHead + "<a>\r\n</a/>\r\n</b>\r\n");
}

TEST_F(XmlWriterTest, TypedValuesUseTheReadableForms) {
    SYSTEMTIME whole{2024, 5, 0, 6, 7, 8, 9, 0};
    SYSTEMTIME fraction = whole;
    fraction.wMilliseconds = 5;
    XmlWriter writer(Path());
    ASSERT_TRUE(writer.Open());
    writer.WriteColor(W("c"), 0x563412);
    writer.WriteBool(W("t"), true);
    writer.WriteBool(W("f"), false);
    writer.WriteDateTime(W("d"), whole);
    writer.WriteDateTime(W("m"), fraction);
    writer.WriteNumber(W("i"), std::int64_t{-9000000000});
    writer.WriteNumber(W("x"), 1.5);
    writer.WriteNumber(W("p"), 2.345, 2);
    writer.WriteNumber(W("n"), zel_text::kNoValueDouble);
    EXPECT_EQ(Finish(writer), kHead +
                                  "<c>123456</c>\r\n<t>true</t>\r\n<f>false</f>\r\n"
                                  "<d>2024-05-06T07:08:09</d>\r\n<m>2024-05-06T07:08:09.005</m>\r\n"
                                  "<i>-9000000000</i>\r\n<x>1.5</x>\r\n<p>2.35</p>\r\n<n></n>\r\n");
}

TEST(XmlEscaping, EscapesInOrderAndUnescapesTwiceOverAnEscapedAmpersand) {
    EXPECT_EQ(U(zel::XmlEscape(W("a&b<c>d'e\"f\xF0\x9F\x98\x80"))),
              "a&amp;b&lt;c&gt;d&apos;e&quot;f\xF0\x9F\x98\x80");
    EXPECT_EQ(U(zel::XmlUnescape(W("a&amp;b&lt;c&gt;d&apos;e&quot;f"))), "a&b<c>d'e\"f");
    // "&amp;" is replaced first, so an escaped entity unescapes to its character.
    EXPECT_EQ(U(zel::XmlUnescape(W("&amp;lt;"))), "<");
    EXPECT_EQ(U(zel::XmlUnescape(W("&unknown; & &amp"))), "&unknown; & &amp");
}

TEST_F(XmlWriterTest, OpenFailsWithoutWritingAndAFullDiskThrows) {
    XmlWriter missing(W((PathOf("no-such-folder") + "/out.xml").c_str()));
    EXPECT_FALSE(missing.Open());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(missing.Close());

    if (!zel_platform::SetFileSizeLimit(4096)) GTEST_SKIP() << "no file size limit on this platform";
    XmlWriter writer(Path());
    ASSERT_TRUE(writer.Open());
    bool thrown = false;
    try {
        for (int i = 0; i < 100000; ++i) writer.WriteElement(W("value"), W("0123456789"));
        writer.Close();
    } catch (const XmlWriter::Exception& error) {
        thrown = true;
        EXPECT_EQ(U(error.Text()), "<value>0123456789</value>\r\n");
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_TOO_LARGE));
    }
    zel_platform::RestoreFileSizeLimit();
    EXPECT_TRUE(thrown);
    writer.Close();
    std::filesystem::remove(PathOf("out.xml"));
}

}  // namespace
