// Structured exceptions under a guarded call, the crash report the POSIX
// fault handler captures, threads, the system-settings store and the exit
// status of a terminated process.
#include "zelutils/platform/win32.h"

#include "tests/support/crash.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

using zel_test::DivideByZero;
using zel_test::WriteThroughNull;

DWORD ReturnArgument(void* argument) { return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(argument)); }

struct Seen {
    int calls = 0;
    DWORD code = 0;
    ULONG_PTR address = 0;
    LONG answer = EXCEPTION_EXECUTE_HANDLER;
};

LONG Record(EXCEPTION_POINTERS* fault, void* context) {
    auto* seen = static_cast<Seen*>(context);
    ++seen->calls;
    seen->code = fault->ExceptionRecord->ExceptionCode;
    seen->address = fault->ExceptionRecord->NumberParameters >= 2 ? fault->ExceptionRecord->ExceptionInformation[1] : 0;
    return seen->answer;
}

// A filter that faults on its first call: the second call sees the fault
// inside the filter.
LONG FaultOnce(EXCEPTION_POINTERS* fault, void* context) {
    if (Record(fault, context) == EXCEPTION_EXECUTE_HANDLER && static_cast<Seen*>(context)->calls == 1) {
        WriteThroughNull(nullptr);
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

DWORD GuardedInner(void* seen) {
    return zel_platform::RunGuarded(WriteThroughNull, nullptr, Record, seen, nullptr) ? 1 : 2;
}

DWORD Throw(void*) { throw std::runtime_error("thrown through a guard"); }

// An inner guard left by a C++ exception, then a fault: the outer guard's.
DWORD FaultAfterAnExceptionLeftAnInnerGuard(void* inner) {
    try {
        zel_platform::RunGuarded(Throw, nullptr, Record, inner, nullptr);
    } catch (const std::runtime_error&) {
    }
    return WriteThroughNull(nullptr);
}

}  // namespace

TEST(Guard, ReturnsTheResultOrTheFaultsWin32Code) {
    DWORD result = 0;
    Seen seen;
    EXPECT_TRUE(zel_platform::RunGuarded(ReturnArgument, reinterpret_cast<void*>(42), Record, &seen, &result));
    EXPECT_EQ(result, 42u);
    EXPECT_EQ(seen.calls, 0);

    struct {
        DWORD (*body)(void*);
        DWORD code;
    } const cases[] = {{WriteThroughNull, EXCEPTION_ACCESS_VIOLATION}, {DivideByZero, EXCEPTION_INT_DIVIDE_BY_ZERO}};
    for (const auto& c : cases) {
        seen = Seen();
        result = 7;
        EXPECT_FALSE(zel_platform::RunGuarded(c.body, nullptr, Record, &seen, &result));
        EXPECT_EQ(seen.calls, 1);
        EXPECT_EQ(seen.code, c.code);
        EXPECT_EQ(result, 7u) << "untouched after a fault";
    }
    EXPECT_EQ(seen.address, 0u) << "not asked: the last case is no access violation";
}

TEST(Guard, TheInnermostGuardTakesTheFaultAndAFaultInTheFilterComesBack) {
    Seen inner;
    Seen outer;
    DWORD result = 0;
    EXPECT_TRUE(zel_platform::RunGuarded(GuardedInner, &inner, Record, &outer, &result));
    EXPECT_EQ(result, 2u);
    EXPECT_EQ(inner.calls, 1);
    EXPECT_EQ(outer.calls, 0);

    Seen twice;
    EXPECT_FALSE(zel_platform::RunGuarded(WriteThroughNull, nullptr, FaultOnce, &twice, nullptr));
    EXPECT_EQ(twice.calls, 2);

    // A guard an exception left is gone: a later fault does not jump back
    // into its frame.
    inner = Seen();
    outer = Seen();
    EXPECT_FALSE(zel_platform::RunGuarded(FaultAfterAnExceptionLeftAnInnerGuard, &inner, Record, &outer, nullptr));
    EXPECT_EQ(inner.calls, 0);
    EXPECT_EQ(outer.calls, 1);
}

TEST(GuardDeathTest, FaultsOutsideAGuardOrPassedOnEndTheProcessAsWithoutTheLibrary) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Without the library a fault would reach AddressSanitizer's handler,
    // which reports and exits 1; the children run without it, so the signal
    // itself is what they end by.
    zel_test::ScopedEnvironment noSanitizerHandlers("ASAN_OPTIONS",
                                                    "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0");
    EXPECT_EXIT(
        {
            zel_platform::PrepareThreadForFaults();
            WriteThroughNull(nullptr);
        },
        ZEL_KILLED_BY(SIGSEGV, EXCEPTION_ACCESS_VIOLATION), "");
    EXPECT_EXIT(
        {
            Seen seen;
            seen.answer = EXCEPTION_CONTINUE_SEARCH;
            zel_platform::RunGuarded(DivideByZero, nullptr, Record, &seen, nullptr);
        },
        ZEL_KILLED_BY(SIGFPE, EXCEPTION_INT_DIVIDE_BY_ZERO), "");
}

TEST(TerminateProcessDeathTest, ACodeWhoseLowByteIsZeroNeverReadsAsSuccess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Windows passes the whole code on; POSIX keeps 8 bits and must not say 0.
    int expected = zel_platform::kEmulated ? 255 : static_cast<int>(0xBADEE000);
    EXPECT_EXIT(TerminateProcess(GetCurrentProcess(), 0xBADEE000), ::testing::ExitedWithCode(expected), "");
    EXPECT_EXIT(TerminateProcess(GetCurrentProcess(), 0x103),
                ::testing::ExitedWithCode(zel_platform::kEmulated ? 3 : 0x103), "");
}

TEST(SystemValues, DumpDirectoryHasADefaultAndValuesCanBeReplacedAndDeleted) {
    const WCHAR* key = ZW("System\\ErrorReporting\\DumpSettings");
    WCHAR buffer[MAX_PATH + 1];
    DWORD length = zel_platform::ReadSystemValue(key, ZW("DumpDirectory"), buffer, MAX_PATH + 1);
    ASSERT_GT(length, 0u);
    std::basic_string<WCHAR> original(buffer, length);
    EXPECT_NE(original.find(ZW("zelutils-dumps")), std::basic_string<WCHAR>::npos);
#ifndef _WIN32
    // The temporary folder is shared: each user has a dump folder of his own.
    std::string uid = "-" + std::to_string(getuid());
    EXPECT_EQ(original.substr(original.size() - uid.size()), std::basic_string<WCHAR>(uid.begin(), uid.end()));
#endif

    EXPECT_EQ(zel_platform::ReadSystemValue(key, ZW("DumpDirectory"), buffer, length), length + 1)
        << "no room for the terminator: the size needed";
    ASSERT_TRUE(zel_platform::WriteSystemValue(key, ZW("DumpDirectory"), nullptr));
    SetLastError(0);
    EXPECT_EQ(zel_platform::ReadSystemValue(key, ZW("DumpDirectory"), buffer, MAX_PATH + 1), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    ASSERT_TRUE(zel_platform::WriteSystemValue(key, ZW("DumpDirectory"), original.c_str()));
    EXPECT_EQ(zel_platform::ReadSystemValue(key, ZW("DumpDirectory"), buffer, MAX_PATH + 1), length);
    EXPECT_FALSE(zel_platform::WriteSystemValue(nullptr, ZW("x"), ZW("y")));
}

namespace {

DWORD WaitForGo(void* go) {
    while (!static_cast<std::atomic<bool>*>(go)->load()) Sleep(1);
    return 77;
}

class DumpCaptureTest : public zel_test::TempFolderTest {};

struct CaptureResult {
    BOOL captured = FALSE;
    BOOL otherThread = TRUE;
};

LONG CaptureIntoTestFolder(EXCEPTION_POINTERS*, void* context) {
    auto* result = static_cast<CaptureResult*>(context);
    zel_platform::DumpCapture capture = zel_platform::FindDumpCapture();
    std::string folder = std::getenv("ZEL_TEST_FOLDER");
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8((folder + "/dumps").c_str()).ToWide();
    result->otherThread = capture(GetCurrentProcessId(), GetCurrentThreadId() + 1, wide.GetString());
    result->captured = capture(GetCurrentProcessId(), GetCurrentThreadId(), wide.GetString());
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

TEST(Threads, SuspendedStartExitCodeAndWaits) {
    std::atomic<bool> go{false};
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, WaitForGo, &go, CREATE_SUSPENDED, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_NE(id, 0u);
    DWORD code = 0;
    ASSERT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(WaitForSingleObject(thread, 10), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(ResumeThread(thread), 1u);
    EXPECT_EQ(ResumeThread(thread), 0u);
    go = true;
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
    ASSERT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 77u);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_FAILED) << "a closed handle";
}

TEST_F(DumpCaptureTest, TheDumpOfAGuardedFaultIsWrittenOnlyForTheFaultingThread) {
    ASSERT_NE(zel_platform::FindDumpCapture(), nullptr);
    CaptureResult result;
    EXPECT_FALSE(zel_platform::RunGuarded(WriteThroughNull, nullptr, CaptureIntoTestFolder, &result, nullptr));
    EXPECT_FALSE(result.otherThread);
    ASSERT_TRUE(result.captured);
    std::string content;
    for (const auto& entry : std::filesystem::directory_iterator(Folder() / "dumps")) {
        content = Get("dumps/" + entry.path().filename().string());
    }
    std::filesystem::remove_all(Folder() / "dumps");
    if (!zel_platform::kEmulated) {
        EXPECT_EQ(content.substr(0, 4), "MDMP");
        return;
    }
    EXPECT_EQ(content.rfind("zelutils crash report 1\nsignal 11 SIGSEGV\n", 0), 0u) << content.substr(0, 200);
    for (const char* line : {"\nexception-code 0x00000000c0000005\n", "\nfault-address 0x0000000000000000\n",
                             "\nthread " , "\nregisters\n", "\nbacktrace\nframe 0x", "\nmemory-map\n"}) {
        EXPECT_NE(content.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(content.substr(content.size() - 4), "end\n");
}
