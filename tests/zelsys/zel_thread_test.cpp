// Worker threads: their start and finish lines, waiting, identity, and a
// fault in a worker's body. Each case runs in a child process, whose log is
// its own.
#include "zelutils/zelsys/zel_thread.h"

#include "tests/support/crash.h"
#include "zelutils/diag/log_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

using zel::thread::CreateWorkerThread;
using zel::thread::WaitForWorkerThread;
using zel_test::CrashTest;
using zel_test::FinishChild;

namespace {

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

DWORD ReturnArgument(void* argument) { return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(argument)); }

// "THR_S"/"THR_F" lines by "<id> <name>", each checked against the thread
// id in its own prefix.
std::map<std::string, int> ThreadLines(const std::string& log, const std::string& kind, bool* prefixesMatch) {
    std::map<std::string, int> lines;
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);) {
        std::size_t at = line.find("; " + kind + " #");
        if (at == std::string::npos) continue;
        std::string rest = line.substr(at + kind.size() + 4);
        if (!rest.empty() && rest.back() == '\r') rest.pop_back();
        ++lines[rest];
        unsigned prefixId = 0;
        unsigned lineId = 0;
        std::sscanf(line.c_str() + 15, "%x", &prefixId);
        std::sscanf(rest.c_str(), "%x", &lineId);
        if (prefixId != lineId) *prefixesMatch = false;
    }
    return lines;
}

class WorkerThreadTest : public CrashTest {};

}  // namespace

TEST_F(WorkerThreadTest, EveryThreadLeavesOneStartAndOneFinishLineWithItsIdAndItsResult) {
    EXPECT_EXIT(
        {
            UseFolder();
            constexpr int kThreads = 8;
            HANDLE threads[kThreads];
            for (int i = 0; i < kThreads; ++i) {
                std::string name = "worker" + std::to_string(i);
                threads[i] = CreateWorkerThread("test.cpp", 10, i == 0 ? nullptr : name.c_str(), ReturnArgument,
                                                reinterpret_cast<void*>(static_cast<std::uintptr_t>(100 + i)),
                                                i == 1 ? CREATE_SUSPENDED : 0, i == 2 ? 64 * 1024 : 0);
            }
            bool ok = ResumeThread(threads[1]) == 1;
            for (int i = 0; i < kThreads; ++i) {
                DWORD code = 0;
                ok = ok && WaitForWorkerThread(threads[i]) && GetExitCodeThread(threads[i], &code) &&
                     code == static_cast<DWORD>(100 + i);
                CloseHandle(threads[i]);
            }
            ok = ok && CreateWorkerThread("test.cpp", 11, "none", nullptr, nullptr, 0, 0) == nullptr &&
                 GetLastError() == ERROR_INVALID_PARAMETER;
            zel_core::logFlush();
            FinishChild(ok, "results");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    bool prefixesMatch = true;
    auto started = ThreadLines(log, "THR_S", &prefixesMatch);
    auto finished = ThreadLines(log, "THR_F", &prefixesMatch);
    EXPECT_TRUE(prefixesMatch) << "each line names the thread that logged it";
    EXPECT_EQ(started.size(), 8u) << log;
    EXPECT_EQ(started, finished);
    for (const auto& entry : started) EXPECT_EQ(entry.second, 1) << entry.first;
    EXPECT_EQ(std::count_if(started.begin(), started.end(), [](const auto& entry) { return entry.first.back() == ' '; }), 1)
        << "a null name logs an empty name";
}

#ifndef _WIN32
namespace {

// The name the system keeps for the calling thread.
DWORD ReadSystemName(void* name) {
    std::ifstream comm("/proc/thread-self/comm");
    std::getline(comm, *static_cast<std::string*>(name));
    return 0;
}

// The names three workers see: a long one, a short one, an empty one.
void CheckSystemNames() {
    const char* names[] = {"xx\u65e5\u672c\u8a9e\u30b9\u30ec\u30c3\u30c9", "gps-reader", ""};
    std::string seen[3];
    bool ok = true;
    for (int i = 0; i < 3; ++i) {
        HANDLE thread = CreateWorkerThread("test.cpp", 40, names[i], ReadSystemName, &seen[i], 0, 0);
        ok = ok && WaitForWorkerThread(thread);
        CloseHandle(thread);
    }
    std::string process;
    ReadSystemName(&process);
    FinishChild(ok && seen[0] == "xx\u65e5\u672c\u8a9e\u30b9" && seen[1] == "gps-reader" && seen[2] == process,
                seen[0] + "|" + seen[1] + "|" + seen[2]);
}

}  // namespace

// Linux keeps 15 bytes of a thread's name: a longer one is cut after its
// last whole UTF-8 character, an empty one leaves the process's name.
TEST_F(WorkerThreadTest, TheSystemShowsTheNameCutToWholeCharacters) {
    EXPECT_EXIT(
        {
            UseFolder();
            CheckSystemNames();
        },
        ::testing::ExitedWithCode(0), "");
}
#endif

TEST(WorkerThread, PseudoHandlesAreRefusedAndIdentityIsTheCallingThreads) {
    EXPECT_FALSE(WaitForWorkerThread(reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1))));
    EXPECT_FALSE(WaitForWorkerThread(reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2))));
    EXPECT_FALSE(WaitForWorkerThread(nullptr));
    EXPECT_EQ(zel::thread::CurrentThreadId(), GetCurrentThreadId());

    EXPECT_FALSE(zel::thread::IsCurrentThread(nullptr));
    std::atomic<bool> started{false};
    std::atomic<bool> insideSeesItself{false};
    std::thread* self = nullptr;
    std::thread worker([&] {
        while (!started) std::this_thread::yield();
        insideSeesItself = zel::thread::IsCurrentThread(self);
    });
    self = &worker;
    started = true;
    EXPECT_FALSE(zel::thread::IsCurrentThread(&worker));
    worker.join();
    EXPECT_TRUE(insideSeesItself);
}

TEST_F(WorkerThreadTest, AFaultInAWorkerIsReportedAtTheWrappersPositionAndTheProcessGoesOn) {
    unsigned id = 0;
    EXPECT_EXIT(
        {
            UseFolder();
            HANDLE thread = CreateWorkerThread("test.cpp", 20, "faulty", zel_test::WriteThroughNull, nullptr, 0, 0);
            DWORD code = 0;
            bool ok = WaitForWorkerThread(thread) && GetExitCodeThread(thread, &code) &&
                      code == EXCEPTION_ACCESS_VIOLATION;
            CloseHandle(thread);
            zel_core::logPrintf("main goes on");
            zel_core::logFlush();
            FinishChild(ok, "the worker's exit code");
        },
        ::testing::ExitedWithCode(0), "");
    std::string log = LogText();
    std::size_t start = log.find("THR_S #");
    ASSERT_NE(start, std::string::npos) << log;
    std::sscanf(log.c_str() + start + 7, "%x", &id);
    char crash[80];
    std::snprintf(crash, sizeof crash, "APPCRASH (C0000005 in THR#%X) at zelutils/zelsys/zel_thread@106\r\n",
                  id);
    std::size_t report = log.find(crash);
    std::size_t finish = log.find("THR_F #");
    EXPECT_LT(start, report) << log;
    EXPECT_NE(report, std::string::npos);
    EXPECT_LT(report, finish);
    EXPECT_NE(finish, std::string::npos);
    EXPECT_LT(finish, log.find("main goes on"));
    EXPECT_EQ(SlotEntries(0), 2);
}

TEST_F(WorkerThreadTest, AStackOverflowInAWorkerIsReportedBeforeTheProcessEnds) {
    EXPECT_EXIT(
        {
            UseFolder();
            HANDLE thread =
                CreateWorkerThread("test.cpp", 30, "deep", zel_test::RecurseForever, nullptr, 0, 256 * 1024);
            WaitForWorkerThread(thread);
            FinishChild(false, "the overflow returned");
        },
        ZEL_KILLED_BY(SIGSEGV, EXCEPTION_STACK_OVERFLOW), "");
    std::string log = LogText();
    EXPECT_TRUE(Has(log, "STACKOVERFLOW at zelutils/zelsys/zel_thread@106\r\n")) << log;
    EXPECT_TRUE(Has(log, "APPCRASH (C00000FD in THR#"));
    EXPECT_EQ(SlotEntries(0), 2);
}
