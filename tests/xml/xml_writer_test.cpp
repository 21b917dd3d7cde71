#include "zelutils/xml/xml_writer.h"

#include "tests/support/temp_folder.h"
#include "tests/support/xml_piece_bytes.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

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

// Texts that cross the writer's 4- and 8-unit blocks at every offset: plain
// runs broken by entities, NUL, other BMP characters, surrogate pairs and lone
// halves.
CZelStringW RandomText(std::mt19937& random, int length) {
    static const WCHAR kOdd[] = {'&', '<', '>', '\'', '"', 0, '\t', 0x7F, 0x80, 0xE9, 0x7FF, 0x800,
                                 0x4E2D, 0xFFFD, 0xFFFF, 0xD83D, 0xDE00};
    std::uniform_int_distribution<int> percent(0, 99), odd(0, sizeof kOdd / sizeof kOdd[0] - 1), letter('0', 'z');
    const int oddShare = percent(random) / 4;
    std::basic_string<WCHAR> text;
    while (static_cast<int>(text.size()) < length) {
        if (percent(random) >= oddShare) {
            text += static_cast<WCHAR>(letter(random));
        } else if (percent(random) < 10) {
            text += {0xD83D, 0xDE00};
        } else {
            text += kOdd[odd(random)];
        }
    }
    return CZelStringW(text.data(), static_cast<int>(text.size()));
}

TEST_F(XmlWriterTest, BytesEqualThePiecesConvertedWholeAndExceptionsCarryThem) {
    std::mt19937 random(12);
    std::uniform_int_distribution<int> length(0, 40);
    std::vector<CZelStringW> texts;
    for (int i = 0; i < 4000; ++i) texts.push_back(RandomText(random, length(random)));
    texts.push_back(RandomText(random, 1 << 20));  // larger than the writer's buffer

    XmlWriter writer(Path());
    XmlWriter closed(Path());
    ASSERT_TRUE(writer.Open());
    std::string expected = kHead;
    // Each piece is written, and its UTF-16 text is what a writer with no file
    // open throws.
    auto check = [&](const CZelStringW& piece, auto write) {
        const int depth = XmlWriter::Depth();
        write(writer);
        expected += zel_test::PieceBytes(piece);
        const int next = XmlWriter::Depth();
        XmlWriter::SetDepth(depth);
        try {
            write(closed);
            ADD_FAILURE() << "no exception";
        } catch (const XmlWriter::Exception& error) {
            EXPECT_TRUE(error.Text() == piece) << U(piece);
        }
        XmlWriter::SetDepth(next);
    };
    for (std::size_t i = 0; i + 1 < texts.size(); ++i) {
        const CZelStringW& a = texts[i];
        const CZelStringW& b = texts[i + 1];
        CZelStringW lt(ZW("<")), quote(ZW("\"")), crLf(ZW("\r\n"));
        check(zel::XmlEscape(a), [&](XmlWriter& w) { w.WriteText(a); });
        check(lt + zel::XmlEscape(a) + ZW(">") + zel::XmlEscape(b) + ZW("</") + zel::XmlEscape(a) + ZW(">") + crLf,
              [&](XmlWriter& w) { w.WriteElement(a, b); });
        check(lt + zel::XmlEscape(b), [&](XmlWriter& w) { w.WriteStartTag(b, XmlWriter::kOpenForAttributes); });
        check(CZelStringW(ZW(" ")) + zel::XmlEscape(a) + ZW("=") + quote + zel::XmlEscape(b) + quote,
              [&](XmlWriter& w) { w.WriteAttribute(a, b, true); });
        check(CZelStringW(ZW(" />")) + crLf, [&](XmlWriter& w) { w.CloseEmptyTag(); });
    }
    EXPECT_EQ(XmlWriter::Depth(), 0);
    const std::string written = Finish(writer);
    ASSERT_EQ(written.size(), expected.size());
    const auto mismatch = std::mismatch(written.begin(), written.end(), expected.begin());
    EXPECT_TRUE(mismatch.first == written.end()) << "first difference at byte " << mismatch.first - written.begin();
}

TEST_F(XmlWriterTest, ColoursAndDateTimesMatchTheirPrintfFormsOverTheWholeRange) {
    std::mt19937 random(7);
    std::uniform_int_distribution<unsigned> word(0, 0xFFFF);
    XmlWriter writer(Path());
    ASSERT_TRUE(writer.Open());
    std::string expected = kHead;
    for (int i = 0; i < 2000; ++i) {
        // Small fields half of the time, any WORD otherwise.
        auto field = [&] { return static_cast<WORD>(i % 2 == 0 ? word(random) % 100 : word(random)); };
        SYSTEMTIME time{field(), field(), 0, field(), field(), field(), field(), 0};
        if (i % 3 != 0) time.wMilliseconds = field();
        CZelStringW text;
        text.Format(ZW("%d-%02d-%02dT%02d:%02d:%02d"), time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                    time.wSecond);
        if (time.wMilliseconds != 0) {
            CZelStringW fraction;
            fraction.Format(ZW(".%03d"), time.wMilliseconds);
            text += fraction;
        }
        writer.WriteDateTime(W("d"), time);
        expected += "<d>" + U(text) + "</d>\r\n";

        const DWORD color = word(random) << 16 | word(random);
        text.Format(ZW("%02x%02x%02x"), color & 0xFF, (color >> 8) & 0xFF, (color >> 16) & 0xFF);
        writer.WriteColor(W("c"), color);
        expected += "<c>" + U(text) + "</c>\r\n";
    }
    EXPECT_EQ(Finish(writer), expected);
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
