// zelutil demo: the typical request end to end, with its worker thread.
#include "tests/tool/tool_test.h"

namespace {
class DemoTest : public zel_test::ToolTest {};
}  // namespace

TEST_F(DemoTest, RunsEndToEndShowingTheWorkersLinesTheXmlRecordsAndTheZip) {
    ASSERT_EQ(Run("demo"), 0) << Errors();
    std::size_t start = Output().find(" ; THR_S #");
    std::size_t finish = Output().find(" ; THR_F #");
    ASSERT_NE(start, std::string::npos) << Output();
    ASSERT_NE(finish, std::string::npos);
    std::string startId = Output().substr(start + 10, Output().find(' ', start + 10) - start - 10);
    EXPECT_EQ(Output().substr(finish + 10, startId.size() + 13), startId + " demo worker\n");
    EXPECT_NE(Output().find("worker thread: exit code 0"), std::string::npos);
    EXPECT_NE(Output().find("3 point records streamed back, heights sum to 615.75"), std::string::npos);
    EXPECT_NE(Output().find("support.zip, 3 entries:\n  log.txt\n  job-settings.ini\n  points.xml\n"),
              std::string::npos);
}
