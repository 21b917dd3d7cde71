#include "tests/tool/tool_test.h"

namespace {

using zel_test::ToolTest;

class XmlCommandTest : public ToolTest {};

TEST_F(XmlCommandTest, WrittenSampleReadsBack) {
    ASSERT_EQ(Run("xml write-sample " + Quoted("s.xml")), 0) << Errors();
    EXPECT_EQ(Run("xml get " + Quoted("s.xml") + " survey/@name"), 0);
    EXPECT_EQ(Output(), "Quarry <north> & \"east\"\n");
    EXPECT_EQ(Run("xml get " + Quoted("s.xml") + " survey/point/east"), 0);
    EXPECT_EQ(Output(), "2600001.125\n");
    EXPECT_EQ(Run("xml get " + Quoted("s.xml") + " survey/point/@missing"), 1);
    EXPECT_EQ(Run("xml records " + Quoted("s.xml") + " point --count 1"), 0);
    EXPECT_EQ(Output(), "<point id=\"1\"><east>2600001.125</east><north>1199999.5</north>"
                        "<height>401</height></point>\nrecords: 3\n");
    EXPECT_EQ(Run("xml dump " + Quoted("s.xml")), 0);
    EXPECT_NE(Output().find("\n  point id=\"2\"\n    east: 2600002.125\n"), std::string::npos) << Output();
    std::filesystem::remove(PathOf("s.xml"));
}

TEST_F(XmlCommandTest, FailuresNameTheFileAndThePlace) {
    Put("cut.xml", "<a>\n<b>");
    EXPECT_EQ(Run("xml dump " + Quoted("cut.xml")), 2);
    EXPECT_NE(Errors().find("cut.xml':2:3: no element found"), std::string::npos) << Errors();
    EXPECT_EQ(Run("xml records " + Quoted("missing.xml") + " r"), 2);
    EXPECT_NE(Errors().find("missing.xml': cannot open the file (file not found)"), std::string::npos) << Errors();
    std::filesystem::create_directory(PathOf("folder.xml"));
    EXPECT_EQ(Run("xml dump " + Quoted("folder.xml")), 2);
    EXPECT_NE(Errors().find("(is a directory)"), std::string::npos) << Errors();
    std::filesystem::remove(PathOf("folder.xml"));
    EXPECT_EQ(Run("xml records " + Quoted("cut.xml") + " r --count x"), 2);
    EXPECT_EQ(Run("xml frobnicate"), 2);
    EXPECT_EQ(Run("xml write-sample " + Quoted("no-folder/s.xml")), 2);
    std::filesystem::remove(PathOf("cut.xml"));
}

TEST_F(XmlCommandTest, TagsListsTheLightParsersReportsOnePerLine) {
    Put("t.xml", "<?xml version=\"1.0\"?>\n<a k=\"&lt;v\"\n  j=\"2\">\n<b>x\ty\\z</b>\n</a>\n");
    ASSERT_EQ(Run("xml tags " + Quoted("t.xml")), 0) << Errors();
    EXPECT_EQ(Output(), "a\t k=\"<v\" j=\"2\"\t\nb\t\t\nb\t\tx\\ty\\\\z\n/b\t\t\n/a\t\t\n");
    Put("t.xml", "<a>\n</a>\n");
    EXPECT_EQ(Run("xml tags " + Quoted("t.xml")), 2);
    EXPECT_NE(Errors().find("t.xml' is not XML"), std::string::npos) << Errors();
    EXPECT_EQ(Run("xml tags " + Quoted("missing.xml")), 2);
    EXPECT_NE(Errors().find("cannot read '" + PathOf("missing.xml")), std::string::npos) << Errors();
    std::filesystem::remove(PathOf("t.xml"));
}

}  // namespace
