// The crash guard: what a report logs, where it files the dump and the log
// copy, and how a process ends that faults inside its own report. Every
// crash happens in a child process; the parent reads what it left.
#include "zelutils/diag/crash_handler.h"

#include "tests/support/crash.h"
#include "zelutils/diag/log_file.h"
#include "zelutils/zelsys/zel_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace zel_core;
using zel_test::CrashTest;
using zel_test::FinishChild;

namespace {

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class CrashReportTest : public CrashTest {
protected:
    std::string DumpsIni() const { return Get("SupportInfo/Dumps/dumps.ini"); }
    // dumps.ini is UTF-16: its text with every other byte dropped.
    std::string LastDumpIndexLine() const {
        std::string narrow;
        std::string wide = DumpsIni();
        for (std::size_t i = 2; i < wide.size(); i += 2) narrow += wide[i];
        std::size_t at = narrow.find("LastDumpIndex=");
        return at == std::string::npos ? "" : narrow.substr(at, narrow.find('\r', at) - at);
    }
};

class FaultingHandler : public zel::IZelCrashHandler {
public:
    void handleCrash(DWORD) override { zel_test::WriteThroughNull(nullptr); }
};

}  // namespace

TEST_F(CrashReportTest, AFaultIsLoggedAndFiledWithTheLogCopyInTheNextSlot) {
    EXPECT_EXIT(
        {
            UseFolder();
            zel::ZelCrashHandlerImpl handler;
            zel::SetCrashHandler(&handler);
            DWORD result = 0;
            bool first = guardedCall("host.cpp", 42, zel_test::WriteThroughNull, nullptr, &result);
            bool accessViolation = result == EXCEPTION_ACCESS_VIOLATION;
            bool second = guardedCall("host.cpp", 43, zel_test::DivideByZero, nullptr, &result);
            logPrintf("still running");
            logFlush();
            FinishChild(!first && accessViolation && !second && result == EXCEPTION_INT_DIVIDE_BY_ZERO &&
                            !isHandlingCrash(),
                        "guardedCall's results");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    EXPECT_TRUE(Has(log, "APPCRASH (C0000005 in THR#")) << log;
    EXPECT_TRUE(Has(log, ") at host.cpp@42\r\n"));
    EXPECT_TRUE(Has(log, "APPCRASH (C0000094 in THR#"));
    EXPECT_TRUE(Has(log, ") at host.cpp@43\r\n"));
    EXPECT_TRUE(Has(log, "Free Memory: ")) << "with the memory status";
    EXPECT_TRUE(Has(log, "handleCrash: code -1073741819\r\n")) << "the registered handler, told the code";
    EXPECT_TRUE(Has(log, "still running"));
    EXPECT_FALSE(Has(log, "APPCRASH: ")) << "no step failed";
    EXPECT_EQ(LastDumpIndexLine(), "LastDumpIndex=1");
    for (int slot : {0, 1}) {
        EXPECT_EQ(SlotEntries(slot), 2) << "the log copy and the dump, slot " << slot;
        std::string copy = SlotFile(slot, ".log.txt");
        EXPECT_TRUE(Has(copy, slot == 0 ? "host.cpp@42" : "host.cpp@43")) << "copied after the flush";
        std::string dump = SlotFile(slot, zel_platform::kEmulated ? ".crash.txt" : ".dmp");
        EXPECT_EQ(dump.substr(0, DumpSignature().size()), DumpSignature());
    }
    if (zel_platform::kEmulated) {
        EXPECT_TRUE(Has(SlotFile(1, ".crash.txt"), "\nexception-code 0x00000000c0000094\n"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(Folder() / "system-dumps")) << "emptied once copied";
}

TEST_F(CrashReportTest, ElevenCrashesUseSlotsZeroToNineThenZeroAgainEmptiedFirst) {
    EXPECT_EXIT(
        {
            UseFolder();
            for (int i = 0; i < 10; ++i) guardedCall("host.cpp", i, zel_test::WriteThroughNull, nullptr, nullptr);
            Put("SupportInfo/Dumps/0/stale.txt", "from the first crash");
            guardedCall("host.cpp", 10, zel_test::WriteThroughNull, nullptr, nullptr);
            FinishChild(true);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(LastDumpIndexLine(), "LastDumpIndex=0");
    for (int slot = 0; slot < 10; ++slot) EXPECT_EQ(SlotEntries(slot), 2) << slot;
    EXPECT_TRUE(Has(SlotFile(0, ".log.txt"), "host.cpp@10\r\n")) << "the eleventh crash";
    EXPECT_TRUE(Has(SlotFile(9, ".log.txt"), "host.cpp@9\r\n"));
    EXPECT_EQ(SlotEntries(10), -1);
}

// An index edited by hand, with a key before its first header: the slots go
// on from it, and the file stays one the next report can read.
TEST_F(CrashReportTest, AnIndexWithAKeyBeforeItsFirstHeaderIsContinuedAndStaysReadable) {
    EXPECT_EXIT(
        {
            UseFolder();
            std::filesystem::create_directories(Folder() / "SupportInfo" / "Dumps");
            Put("SupportInfo/Dumps/dumps.ini", "LastDumpIndex=9\r\n[Settings]\r\nLastDumpIndex=2\r\n");
            for (int i = 0; i < 2; ++i) guardedCall("host.cpp", i, zel_test::WriteThroughNull, nullptr, nullptr);
            FinishChild(true);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(LastDumpIndexLine(), "LastDumpIndex=4");
    EXPECT_EQ(SlotEntries(3), 2);
    EXPECT_EQ(SlotEntries(4), 2);
    EXPECT_EQ(SlotEntries(0), -1);
}

#ifndef _WIN32
// A link where the system's dump folder should be, as another user of the
// shared temporary folder could plant it: what it points to is not emptied.
TEST_F(CrashReportTest, ASystemDumpFolderThatIsALinkIsNotEmptied) {
    EXPECT_EXIT(
        {
            UseFolder();
            std::filesystem::create_directory(Folder() / "elsewhere");
            Put("elsewhere/notes.txt", "not a dump");
            std::filesystem::create_directory_symlink(Folder() / "elsewhere", Folder() / "system-dumps");
            FinishChild(!guardedCall("host.cpp", 1, zel_test::WriteThroughNull, nullptr, nullptr));
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(Get("elsewhere/notes.txt"), "not a dump");
}
#endif

TEST_F(CrashReportTest, WithoutDumpDirectoryTheLogCopyIsStillMade) {
    EXPECT_EXIT(
        {
            UseFolder();
            zel_platform::WriteSystemValue(ZW("System\\ErrorReporting\\DumpSettings"), ZW("DumpDirectory"), nullptr);
            FinishChild(!guardedCall("host.cpp", 1, zel_test::WriteThroughNull, nullptr, nullptr));
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_TRUE(Has(LogText(), "APPCRASH: could not get DumpSettings\r\n"));
    EXPECT_EQ(SlotEntries(0), 1);
    EXPECT_TRUE(Has(SlotFile(0, ".log.txt"), "host.cpp@1\r\n"));
}

TEST_F(CrashReportTest, FilterResultsAndAFailingCaptureOutsideAGuard) {
    EXPECT_EXIT(
        {
            UseFolder();
            EXCEPTION_RECORD record{};
            EXCEPTION_POINTERS fault{};
            fault.ExceptionRecord = &record;
            bool ok = reportCrash(nullptr, "a.cpp", 1, kCrashHandle) == EXCEPTION_CONTINUE_SEARCH;
            record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
            ok = ok && reportCrash(&fault, "a.cpp", 2, kCrashHandle) == EXCEPTION_EXECUTE_HANDLER;
            ok = ok && reportCrash(&fault, "a.cpp", 3, kCrashReportOnly) == EXCEPTION_CONTINUE_SEARCH;
            record.ExceptionCode = EXCEPTION_STACK_OVERFLOW;
            ok = ok && reportCrash(&fault, nullptr, 4, kCrashHandle) == EXCEPTION_CONTINUE_SEARCH;
            FinishChild(ok, "filter results");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    // No fault is being filtered, so the capture refuses (ERROR_INVALID_PARAMETER).
    EXPECT_TRUE(Has(log, "APPCRASH: CaptureDumpFileOnDevice failed: 0x57\r\n")) << log;
    EXPECT_TRUE(Has(log, "APPCRASH: could not copy crashdump\r\n"));
    EXPECT_TRUE(Has(log, "STACKOVERFLOW at @4\r\n"));
    EXPECT_TRUE(Has(log, "APPCRASH (C00000FD in THR#"));
    EXPECT_EQ(LastDumpIndexLine(), "LastDumpIndex=2") << "the slot advances when later steps fail";
}

TEST_F(CrashReportTest, AStackOverflowIsReportedAndThenEndsTheProcess) {
    EXPECT_EXIT(
        {
            UseFolder();
            guardedCall("host.cpp", 7, zel_test::RecurseForever, nullptr, nullptr);
            FinishChild(false, "the overflow returned");
        },
        ZEL_KILLED_BY(SIGSEGV, EXCEPTION_STACK_OVERFLOW), "");
    std::string log = LogText();
    EXPECT_TRUE(Has(log, "STACKOVERFLOW at host.cpp@7\r\n")) << log;
    EXPECT_TRUE(Has(log, "APPCRASH (C00000FD in THR#"));
    EXPECT_EQ(SlotEntries(0), 2);
}

TEST_F(CrashReportTest, AFaultInsideTheReportEndsTheProcessAtOnceWithAFailureStatus) {
    // POSIX keeps 8 bits of 0xBADEE000, which would read as success: 255.
    int expected = zel_platform::kEmulated ? 255 : static_cast<int>(kFaultInsideReportExitCode);
    EXPECT_EXIT(
        {
            UseFolder();
            FaultingHandler handler;
            zel::SetCrashHandler(&handler);
            guardedCall("host.cpp", 5, zel_test::WriteThroughNull, nullptr, nullptr);
            FinishChild(false, "the report's fault returned");
        },
        ::testing::ExitedWithCode(expected), "");
    EXPECT_TRUE(Has(LogText(), ") at host.cpp@5\r\n"));
    EXPECT_EQ(SlotEntries(0), 2) << "the report was filed before the handler faulted";
}

namespace {

// Two workers fault together: the first reporter lets the second go on
// while it still holds the report, so the second must wait for it. Both
// are past the line a worker logs as it starts before the first faults: a
// report holds the log's lock, so that line would wait for the report.
std::atomic<int> gStarted{0};
std::atomic<int> gStage{0};

void StartTogether() {
    ++gStarted;
    while (gStarted.load() != 2) Sleep(1);
}

class HoldingHandler : public zel::IZelCrashHandler {
public:
    void handleCrash(DWORD) override {
        if (gStage.exchange(1) != 0) return;
        while (gStage.load() != 2) Sleep(1);
        Sleep(50);  // the second thread is on its way into the lock
    }
};

DWORD FaultFirst(void*) {
    StartTogether();
    return zel_test::WriteThroughNull(nullptr);
}

void WaitForTheFirstReport() {
    StartTogether();
    while (gStage.load() != 1) Sleep(1);
    gStage = 2;
}

DWORD FaultWhenTheFirstReports(void*) {
    WaitForTheFirstReport();
    return zel_test::WriteThroughNull(nullptr);
}

}  // namespace

TEST_F(CrashReportTest, TwoThreadsFaultingAtOnceReportOneAfterTheOtherIntoTwoSlots) {
    EXPECT_EXIT(
        {
            UseFolder();
            HoldingHandler handler;
            zel::SetCrashHandler(&handler);
            HANDLE second = zel::thread::CreateWorkerThread("t.cpp", 1, "second", FaultWhenTheFirstReports, nullptr,
                                                            0, 0);
            HANDLE first = zel::thread::CreateWorkerThread("t.cpp", 2, "first", FaultFirst, nullptr, 0, 0);
            bool ok = zel::thread::WaitForWorkerThread(first) && zel::thread::WaitForWorkerThread(second);
            CloseHandle(first);
            CloseHandle(second);
            FinishChild(ok, "the workers did not end");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    std::size_t firstReport = log.find("APPCRASH (");
    ASSERT_NE(firstReport, std::string::npos);
    EXPECT_NE(log.find("APPCRASH (", firstReport + 1), std::string::npos) << log;
    EXPECT_EQ(LastDumpIndexLine(), "LastDumpIndex=1");
    EXPECT_EQ(SlotEntries(0), 2);
    EXPECT_EQ(SlotEntries(1), 2);
}

namespace {

// A child that deadlocks ends with status 2 instead of hanging the suite.
void EndTheChildIfItHangs() {
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::seconds(60));
        std::fputs("the child hung\n", stderr);
        std::_Exit(2);
    }).detach();
}

// The first reporter logs once the second thread is inside a log line
// that faults, holding the log's lock.
class LoggingHandler : public HoldingHandler {
public:
    void handleCrash(DWORD code) override {
        bool first = gStage.load() == 0;
        HoldingHandler::handleCrash(code);
        if (first) logPrintf("the first report logs on");
    }
};

DWORD FaultInsideALogLine(void*) {
    WaitForTheFirstReport();
    logPrintf("%s", reinterpret_cast<const char*>(static_cast<std::uintptr_t>(8)));
    return 0;
}

}  // namespace

// A fault inside a log line leaves its thread holding the log's lock. It
// waits for a report that another thread is writing, and that report logs:
// both must land, and the hold must be let go once the guard handled it.
TEST_F(CrashReportTest, AFaultInsideALogLineWhileAnotherThreadReportsIsReportedAfterIt) {
    EXPECT_EXIT(
        {
            EndTheChildIfItHangs();
            UseFolder();
            LoggingHandler handler;
            zel::SetCrashHandler(&handler);
            HANDLE inLine = zel::thread::CreateWorkerThread("t.cpp", 1, "in line", FaultInsideALogLine, nullptr, 0, 0);
            HANDLE first = zel::thread::CreateWorkerThread("t.cpp", 2, "first", FaultFirst, nullptr, 0, 0);
            bool ok = zel::thread::WaitForWorkerThread(first) && zel::thread::WaitForWorkerThread(inLine);
            DWORD inLineCode = 0;
            ok = ok && GetExitCodeThread(inLine, &inLineCode) && inLineCode == EXCEPTION_ACCESS_VIOLATION;
            CloseHandle(first);
            CloseHandle(inLine);
            logPrintf("main thread logs on");
            FinishChild(ok, "the workers' results");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    std::size_t firstReport = log.find("APPCRASH (");
    std::size_t logsOn = log.find("the first report logs on\r\n");
    EXPECT_LT(firstReport, logsOn) << log;
    EXPECT_NE(log.find("APPCRASH (", logsOn), std::string::npos) << "the line's fault, reported after the first";
    EXPECT_TRUE(Has(log, "main thread logs on\r\n")) << "the faulted line's hold on the log is let go";
    EXPECT_TRUE(Has(log, "Logging finished\r\n"));
    EXPECT_EQ(SlotEntries(0), 2);
    EXPECT_EQ(SlotEntries(1), 2);
}

#ifndef _WIN32
namespace {

// Starts a program from inside the report, as a host's uploader would.
class ForkingHandler : public zel::IZelCrashHandler {
public:
    void handleCrash(DWORD) override {
        pid_t child = ::fork();
        if (child == 0) {
            logPrintf("forked from the report");
            std::exit(0);
        }
        int status = 0;
        forkedCleanly = child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                        WEXITSTATUS(status) == 0;
    }
    bool forkedCleanly = false;
};

}  // namespace

TEST_F(CrashReportTest, AHandlerThatForksGetsAChildThatLogsAndAParentThatGoesOn) {
    EXPECT_EXIT(
        {
            EndTheChildIfItHangs();
            UseFolder();
            ForkingHandler handler;
            zel::SetCrashHandler(&handler);
            bool handled = !guardedCall("host.cpp", 9, zel_test::WriteThroughNull, nullptr, nullptr);
            logPrintf("parent logs on");
            FinishChild(handled && handler.forkedCleanly, "the fork inside the report");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    EXPECT_TRUE(Has(log, "forked from the report\r\n")) << log;
    EXPECT_TRUE(Has(log, "parent logs on\r\n"));
    EXPECT_EQ(SlotEntries(0), 2);
}
#endif
