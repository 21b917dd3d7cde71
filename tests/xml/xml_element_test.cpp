#include "zelutils/xml/xml_element.h"

#include "zelutils/text/zel_utf.h"
#include "zelutils/xml/xml_expat_parser.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using zel::XmlElement;
using zel::XmlElementPtr;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW W(const char* utf8) { return CZelStringUtf8(utf8).ToWide(); }

XmlElementPtr WithAttribute(const char* value) {
    auto element = std::make_shared<XmlElement>(W("e"));
    element->SetAttribute(W("a"), W(value));
    return element;
}

void ExpectGenericError(const std::function<void()>& call) {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const zel::XmlExpatHybridParser::Exception& error) {
        EXPECT_STREQ(error.what(), "Generic Error");
    }
}

TEST(XmlElementValues, ConversionsFollowTheirRules) {
    struct Case {
        const char* text;
        bool asBool;
        int asInt;
        unsigned asUnsigned;
        double asDouble;
    };
    const Case cases[] = {
        {"true", true, 0, 0, 0.0},
        {"True", false, 0, 0, 0.0},
        {"1", false, 1, 1, 1.0},
        {"", false, 0, 0, 0.0},
        {"12abc", false, 12, 12, 12.0},
        {"  -7", false, -7, static_cast<unsigned>(-7), -7.0},
        {"99999999999", false, INT_MAX, 1215752191u, 99999999999.0},
        {"-99999999999", false, INT_MIN, 3079215105u, -99999999999.0},
        {"abc", false, 0, 0, 0.0},
        {"1.5e2x", false, 1, 1, 150.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        auto element = WithAttribute(c.text);
        EXPECT_EQ(element->GetBool(W("a")), c.asBool);
        EXPECT_EQ(element->GetInt(W("a")), c.asInt);
        EXPECT_EQ(element->GetUnsigned(W("a")), c.asUnsigned);
        EXPECT_DOUBLE_EQ(element->GetDouble(W("a")), c.asDouble);
        EXPECT_FLOAT_EQ(element->GetFloat(W("a")), static_cast<float>(c.asDouble));
        EXPECT_TRUE(element->GetString(W("a")) == W(c.text));
    }
}

TEST(XmlElementValues, ShapesDifferOnlyForAMissingAttribute) {
    auto element = WithAttribute("5");
    int value = 42;
    EXPECT_FALSE(element->TryGetInt(W("missing"), value));
    EXPECT_EQ(value, 42);
    EXPECT_EQ(element->GetInt(W("missing"), 9), 9);
    EXPECT_TRUE(element->GetBool(W("missing"), true));
    EXPECT_TRUE(element->GetString(W("missing"), W("d")) == W("d"));
    ExpectGenericError([&] { element->GetInt(W("missing")); });
    ExpectGenericError([&] { element->GetString(W("missing")); });
    EXPECT_TRUE(element->TryGetInt(W("a"), value));
    EXPECT_EQ(value, 5);
    EXPECT_EQ(element->GetInt(W("a"), 9), 5);
}

TEST(XmlElementValues, DatesNeedTheirFieldsInEveryShape) {
    auto element = WithAttribute("2024-05-06T07:08:09");
    SYSTEMTIME time = element->GetDateTime(W("a"));
    EXPECT_EQ(time.wYear, 2024);
    EXPECT_EQ(time.wMonth, 5);
    EXPECT_EQ(time.wDay, 6);
    EXPECT_EQ(time.wHour, 7);
    EXPECT_EQ(time.wSecond, 9);
    EXPECT_EQ(time.wMilliseconds, 0);
    EXPECT_EQ(time.wDayOfWeek, 0);
    EXPECT_EQ(WithAttribute("2024-05-06T07:08:09.125")->GetDateTime(W("a")).wMilliseconds, 125);
    // Exactly three fields convert when a full date-time is read as a date.
    EXPECT_EQ(element->GetDate(W("a")).wDay, 6);

    auto cut = WithAttribute("2024-05-06T07:08");
    SYSTEMTIME fallback{};
    ExpectGenericError([&] { cut->GetDateTime(W("a")); });
    ExpectGenericError([&] { cut->TryGetDateTime(W("a"), fallback); });
    ExpectGenericError([&] { cut->GetDateTime(W("a"), fallback); });
    ExpectGenericError([&] { WithAttribute("2024-05")->GetDate(W("a"), fallback); });
    EXPECT_EQ(element->GetDate(W("missing"), fallback).wYear, 0);
}

TEST(XmlElementValues, AttributesAreOrderedByCodeUnit) {
    XmlElement element(W("e"));
    for (const char* name : {"b", "a", "\xC3\xA9", "Z", "\xF0\x9F\x98\x80", "\xEF\xBC\xA1"}) {
        element.SetAttribute(W(name), W("v"));
    }
    std::string order;
    for (const auto& attribute : element.Attributes()) order += CZelStringUtf8(attribute.first).GetString() + std::string(" ");
    // U+1F600 is a surrogate pair (D83D ...), below U+FF21 in code units.
    EXPECT_EQ(order, "Z a b \xC3\xA9 \xF0\x9F\x98\x80 \xEF\xBC\xA1 ");
}

TEST(XmlElementValues, AttributeSetsCopyAndReplaceByName) {
    XmlElement element(W("e"));
    element.SetAttribute(W("b"), W("1"));
    element.SetAttribute(W("a"), W("2"));
    element.SetAttribute(W("b"), W("3"));  // replaces, keeps one "b"
    zel::XmlAttributes copy = element.Attributes();
    copy.Set(W("a"), W("changed"));
    copy.Set(W("c"), W("4"));
    EXPECT_EQ(element.Attributes().size(), 2u);
    EXPECT_EQ(element.GetString(W("a")), W("2"));
    EXPECT_EQ(element.GetString(W("b")), W("3"));
    element.SetAttributes(std::move(copy));
    EXPECT_TRUE(copy.empty());  // NOLINT(bugprone-use-after-move): taken over, as documented
    EXPECT_EQ(element.GetString(W("a")), W("changed"));
    EXPECT_EQ(element.GetString(W("c")), W("4"));
    copy = element.Attributes();
    copy.clear();
    EXPECT_EQ(element.Attributes().size(), 3u);
}

TEST(XmlElementChildren, FindIterateAndReadChildAttributes) {
    auto parent = std::make_shared<XmlElement>(W("p"));
    for (const char* name : {"x", "", "y", "x"}) {
        auto child = std::make_shared<XmlElement>(W(name));
        child->SetAttribute(W("n"), W(std::to_string(parent->Children().size()).c_str()));
        parent->AppendChild(child);
    }
    XmlElementPtr found;
    EXPECT_FALSE(parent->FindChild(W(""), found));
    ASSERT_TRUE(parent->FindChild(W("x"), found));
    EXPECT_TRUE(found == parent->Children()[0]);
    EXPECT_EQ(parent->GetChildInt(W("x"), W("n")), 0);  // the first "x" wins
    EXPECT_EQ(parent->GetChildInt(W("y"), W("missing"), 7), 7);
    int untouched = 1;
    EXPECT_FALSE(parent->TryGetChildInt(W("y"), W("missing"), untouched));
    ExpectGenericError([&] { parent->GetChildInt(W("z"), W("n"), 7); });
    ExpectGenericError([&] { parent->TryGetChildInt(W("z"), W("n"), untouched); });
    ExpectGenericError([&] { parent->GetChildString(W("y"), W("missing")); });

    zel::XmlChildIterator all(parent), onlyX(parent, W("x"));
    parent->AppendChild(std::make_shared<XmlElement>(W("x")));  // after the snapshot
    int count = 0;
    for (XmlElementPtr child; all.Next(child);) ++count;
    EXPECT_EQ(count, 4);
    std::string numbers;
    for (XmlElementPtr child; onlyX.Next(child);) numbers += CZelStringUtf8(child->GetString(W("n"))).GetString();
    EXPECT_EQ(numbers, "03");
}

TEST(XmlElementText, TextAccessors) {
    XmlElement element(W("e"));
    ExpectGenericError([&] { element.GetTextInt(); });
    ExpectGenericError([&] { element.GetTextBool(); });
    ExpectGenericError([&] { element.GetTextColor(); });
    ExpectGenericError([&] { element.GetTextDateTime(); });
    EXPECT_EQ(element.GetTextInt(3), 3);
    EXPECT_TRUE(element.GetTextBinary().empty());

    struct Colour {
        const char* text;
        DWORD value;
    };
    for (const Colour& c : {Colour{"ff0000", 0x0000FF}, Colour{"FF0000", 0x0000FF}, Colour{"123456", 0x563412},
                            Colour{"12", 0x12}, Colour{"zz", 0}}) {
        XmlElement colour(W("c"));
        colour.AppendText(W(c.text), W(c.text).GetLength());
        EXPECT_EQ(colour.GetTextColor(), c.value) << c.text;
    }

    struct Binary {
        const char* text;
        std::string bytes;
    };
    for (const Binary& b : {Binary{"SGVsbG8=", "Hello"}, Binary{"QQ==", "A"}, Binary{"QUI", "AB"},
                            Binary{"QQ", ""}, Binary{"SGVsbG8hQQ", "Hello!"}}) {
        XmlElement binary(W("b"));
        binary.AppendText(W(b.text), W(b.text).GetLength());
        auto bytes = binary.GetTextBinary();
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), b.bytes) << b.text;
    }

    XmlElement when(W("t"));
    CZelStringW text = W("2024-05-06T07:08:09");
    when.AppendText(text, text.GetLength());
    EXPECT_TRUE(when.GetTextTime() == zel::ZelTime(2024, 5, 6, 7, 8, 9));
    EXPECT_EQ(when.GetTextInt(), 2024);
}

}  // namespace
