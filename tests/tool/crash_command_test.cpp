// zelutil crash: a report captured from a real fault, symbolised.
#include "tests/support/crash.h"
#include "tests/tool/tool_test.h"
#include "zelutils/text/zel_utf.h"

#include <cstdlib>
#include <filesystem>

namespace {

class CrashCommandTest : public zel_test::ToolTest {};

LONG CaptureIntoTestFolder(EXCEPTION_POINTERS*, void*) {
    std::string folder = std::string(std::getenv("ZEL_TEST_FOLDER")) + "/dumps";
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8(folder.c_str()).ToWide();
    BOOL captured = zel_platform::FindDumpCapture()(GetCurrentProcessId(), GetCurrentThreadId(), wide.GetString());
    zel_test::FinishChild(captured != FALSE, "no capture");
}

}  // namespace

TEST_F(CrashCommandTest, PrintsTheFaultAndTheBacktraceWithFunctionsAndSourceLines) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows dumps are minidumps, read with a debugger";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(zel_platform::RunGuarded(zel_test::WriteThroughNull, nullptr, CaptureIntoTestFolder, nullptr, nullptr),
                ::testing::ExitedWithCode(0), "");
    std::filesystem::path report = std::filesystem::directory_iterator(Folder() / "dumps")->path();
    EXPECT_EQ(Run("crash " + report.string()), 0) << Errors();
    std::filesystem::remove_all(Folder() / "dumps");
    EXPECT_EQ(Output().rfind("signal 11 SIGSEGV, exception code 0x00000000c0000005 (access violation)", 0), 0u)
        << Output();
    EXPECT_NE(Output().find("  #0  0x"), std::string::npos);
    // The faulting frame, then the guard that called it.
    std::size_t fault = Output().find("zel_test::WriteThroughNull(void*)+0x");
    EXPECT_NE(fault, std::string::npos) << Output();
    EXPECT_NE(Output().find("crash.cpp:", fault), std::string::npos) << "with its source line";
    EXPECT_NE(Output().find("zel_platform::RunGuarded(", fault), std::string::npos);

    Put("other.txt", "zelutils crash report 1\nsignal 11 SIGSEGV\n");
    EXPECT_EQ(Run("crash " + PathOf("other.txt")), 2) << "cut short";
    EXPECT_NE(Errors().find("is not a whole zelutils crash report"), std::string::npos);
    EXPECT_EQ(Run("crash " + PathOf("missing.txt")), 2);
    EXPECT_NE(Errors().find("missing.txt': file not found"), std::string::npos) << Errors();
    EXPECT_EQ(Run("crash " + Folder().string()), 2) << "a folder, which the stream library threw on";
    EXPECT_NE(Errors().find("': is a directory"), std::string::npos) << Errors();
    std::filesystem::remove(PathOf("other.txt"));
}
