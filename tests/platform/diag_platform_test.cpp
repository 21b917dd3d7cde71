// Clocks, process and thread identity, debug output, message boxes and
// memory figures: the platform calls the log and the checks are built on.
#include "zelutils/platform/win32.h"

#include "tests/support/environment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

using WideString = std::basic_string<WCHAR>;

// Installs a hook for one test and puts back whatever was there before.
template <class Hook, Hook (*Set)(Hook)>
class ScopedHook {
public:
    explicit ScopedHook(Hook hook) : previous_(Set(std::move(hook))) {}
    ~ScopedHook() { Set(std::move(previous_)); }
    ScopedHook(const ScopedHook&) = delete;
    ScopedHook& operator=(const ScopedHook&) = delete;

private:
    Hook previous_;
};

using ScopedMessageBoxHandler =
    ScopedHook<zel_platform::MessageBoxHandler, zel_platform::SetMessageBoxHandler>;
using ScopedDebugOutputSink =
    ScopedHook<zel_platform::DebugOutputSink, zel_platform::SetDebugOutputSink>;
using ScopedTickSource = ScopedHook<zel_platform::TickSource, zel_platform::SetTickSource>;

std::atomic<DWORD> gFakeTicks{0};
DWORD FakeTicks() { return gFakeTicks.load(); }

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
std::int64_t DaysFromCivil(int year, int month, int day) {
    year -= month <= 2;
    const int era = (year >= 0 ? year : year - 399) / 400;
    const int yearOfEra = year - era * 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return std::int64_t{era} * 146097 + dayOfEra - 719468;
}

}  // namespace

TEST(TickCount, ReadsTheInstalledSourceUntilItIsRemoved) {
    {
        ScopedTickSource fake(FakeTicks);
        gFakeTicks = 0xFFFFFFF0u;
        DWORD start = zel_platform::TickCount();
        EXPECT_EQ(start, 0xFFFFFFF0u);
        // Past the wrap, elapsed time is still the unsigned difference.
        gFakeTicks = 0x10;
        EXPECT_EQ(zel_platform::TickCount() - start, 0x20u);
        EXPECT_EQ(zel_platform::SetTickSource(FakeTicks), &FakeTicks);
    }
    // Removed again: TickCount is GetTickCount.
    DWORD before = GetTickCount();
    DWORD ticks = zel_platform::TickCount();
    DWORD after = GetTickCount();
    EXPECT_LE(ticks - before, after - before);
}

TEST(TickCount, IsTheMonotonicClockInMilliseconds) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows counts from boot on its own clock";
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    auto Now = [] {
        return static_cast<DWORD>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    };
    DWORD before = Now();
    DWORD ticks = GetTickCount();
    DWORD after = Now();
    EXPECT_LE(ticks - before, after - before) << "ticks " << ticks << " clock " << before;
}

TEST(SystemTime, AgreesWithTheCClock) {
    std::time_t before = std::time(nullptr);
    FILETIME fileTime{};
    GetSystemTimeAsFileTime(&fileTime);
    SYSTEMTIME fields{};
    GetSystemTime(&fields);
    std::time_t after = std::time(nullptr);

    std::uint64_t hundredNs = std::uint64_t{fileTime.dwHighDateTime} << 32 | fileTime.dwLowDateTime;
    std::int64_t fileTimeSeconds = static_cast<std::int64_t>(hundredNs / 10000000) - 11644473600;
    EXPECT_GE(fileTimeSeconds, before - 2);
    EXPECT_LE(fileTimeSeconds, after + 2);

    ASSERT_GE(fields.wMonth, 1);
    ASSERT_LE(fields.wMonth, 12);
    std::int64_t days = DaysFromCivil(fields.wYear, fields.wMonth, fields.wDay);
    std::int64_t seconds =
        days * 86400 + fields.wHour * 3600 + fields.wMinute * 60 + fields.wSecond;
    EXPECT_GE(seconds, before - 2);
    EXPECT_LE(seconds, after + 2);
    EXPECT_LT(fields.wMilliseconds, 1000);
    EXPECT_EQ(fields.wDayOfWeek, (days % 7 + 11) % 7) << "1970-01-01 was a Thursday";
}

TEST(ThreadIds, DifferBetweenThreadsAndStayWithinOne) {
    const DWORD mine = GetCurrentThreadId();
    EXPECT_EQ(GetCurrentThreadId(), mine);
    constexpr int kThreads = 4;
    std::vector<DWORD> first(kThreads), second(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            first[i] = GetCurrentThreadId();
            std::this_thread::yield();
            second[i] = GetCurrentThreadId();
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<DWORD> distinct = {mine};
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(first[i], second[i]);
        distinct.insert(first[i]);
    }
    EXPECT_EQ(distinct.size(), static_cast<std::size_t>(kThreads + 1));
    EXPECT_NE(GetCurrentProcessId(), 0u);
}

TEST(ThreadIdsDeathTest, AForkedChildAsksForItsOwnId) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "fork is a POSIX facility";
    GTEST_FLAG_SET(death_test_style, "fast");
    const DWORD parent = GetCurrentThreadId();
    EXPECT_EXIT(std::exit(GetCurrentThreadId() != parent && GetCurrentThreadId() == GetCurrentProcessId() ? 0 : 1),
                ::testing::ExitedWithCode(0), "");
}

TEST(ThreadIds, AreTheKernelIdsWhereTheMainThreadSharesThePid) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows numbers threads and processes apart";
    // GoogleTest runs tests on the main thread, whose kernel id is the pid;
    // pthread_self() values would not match it.
    EXPECT_EQ(GetCurrentThreadId(), GetCurrentProcessId());
}

TEST(CurrentProcess, IsTheAllOnesPseudoHandle) {
    EXPECT_EQ(GetCurrentProcess(), INVALID_HANDLE_VALUE);
}

TEST(TerminateProcessDeathTest, EndsAtOnceWithTheCodeAndNoCleanUp) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Exit handlers would turn the code into 99.
    EXPECT_EXIT(
        {
            std::atexit([] { std::_Exit(99); });
            TerminateProcess(GetCurrentProcess(), 3);
        },
        ::testing::ExitedWithCode(3), "");
}

TEST(TerminateProcess, RefusesAnyOtherProcess) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "other processes can be named on Windows";
    SetLastError(0);
    EXPECT_FALSE(TerminateProcess(reinterpret_cast<HANDLE>(std::uintptr_t{0x1234}), 3));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(CheckRemoteDebuggerPresent, SaysNoDebuggerDuringTheTests) {
    BOOL present = TRUE;
    ASSERT_TRUE(CheckRemoteDebuggerPresent(GetCurrentProcess(), &present));
    EXPECT_FALSE(present);
}

TEST(CheckRemoteDebuggerPresent, FailsForOtherProcessesAndNullResults) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "the system decides which failures it reports";
    BOOL present = TRUE;
    SetLastError(0);
    EXPECT_FALSE(
        CheckRemoteDebuggerPresent(reinterpret_cast<HANDLE>(std::uintptr_t{0x1234}), &present));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(present);
    EXPECT_FALSE(CheckRemoteDebuggerPresent(GetCurrentProcess(), nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(DebugOutput, ReachesTheInstalledSinkOnly) {
    std::vector<WideString> received;
    {
        ScopedDebugOutputSink sink([&](LPCWSTR text) { received.emplace_back(text); });
        zel_platform::DebugOutput(ZW("first line\r\n"));
        zel_platform::DebugOutput(nullptr);
        if (zel_platform::kEmulated) OutputDebugStringW(ZW("second"));
    }
    zel_platform::DebugOutput(ZW("after the sink was removed"));
    std::vector<WideString> expected = {ZW("first line\r\n")};
    if (zel_platform::kEmulated) expected.emplace_back(ZW("second"));
    EXPECT_EQ(received, expected);
}

// The setting is read once per process, so each case runs in a new one.
void PrintDebugOutputBetweenBrackets() {
    const WCHAR text[] = {'c', 'a', 'f', 0xE9, ' ', 0xD83D, 0xDE00, ' ', 0xD800, '\n', 0};
    std::fputs("[", stderr);
    std::fflush(stderr);
    OutputDebugStringW(text);
    std::fputs("]", stderr);
    std::exit(0);
}

TEST(DebugOutputDeathTest, DefaultWritesUtf8ToStderrOnlyWhenSwitchedOn) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows has a real debug output";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    {
        zel_test::ScopedEnvironment on("ZEL_DEBUG_OUTPUT", "1");
        EXPECT_EXIT(PrintDebugOutputBetweenBrackets(), ::testing::ExitedWithCode(0),
                    "\\[caf\xC3\xA9 \xF0\x9F\x98\x80 \xEF\xBF\xBD\n\\]");
    }
    {
        zel_test::ScopedEnvironment other("ZEL_DEBUG_OUTPUT", "yes");
        EXPECT_EXIT(PrintDebugOutputBetweenBrackets(), ::testing::ExitedWithCode(0), "\\[\\]");
    }
}

TEST(MessageBoxes, TheHandlerAnswersWithWhatItWasShown) {
    struct Seen {
        HWND owner;
        WideString text;
        WideString caption;
        UINT type;
    };
    std::vector<Seen> seen;
    ScopedMessageBoxHandler handler([&](HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
        seen.push_back({owner, text, caption, type});
        return IDRETRY;
    });
    HWND owner = GetActiveWindow();
    EXPECT_EQ(zel_platform::ShowMessageBox(owner, ZW("file.cpp\n12\n\nmessage"), ZW("ZEL ASSERT"),
                                           0x50012),
              IDRETRY);
    if (zel_platform::kEmulated) {
        EXPECT_EQ(owner, nullptr);
        EXPECT_EQ(MessageBoxW(nullptr, ZW("text"), ZW("Error"), 0x40030), IDRETRY);
    }
    ASSERT_GE(seen.size(), 1u);
    EXPECT_EQ(seen[0].owner, owner);
    EXPECT_EQ(seen[0].text, ZW("file.cpp\n12\n\nmessage"));
    EXPECT_EQ(seen[0].caption, ZW("ZEL ASSERT"));
    EXPECT_EQ(seen[0].type, 0x50012u);
    EXPECT_EQ(seen.size(), zel_platform::kEmulated ? 2u : 1u);
}

TEST(MessageBoxes, HandlersCanBeReplacedWhileBoxesAreShown) {
    const zel_platform::MessageBoxHandler Yes = [](HWND, LPCWSTR, LPCWSTR, UINT) { return IDYES; };
    const zel_platform::MessageBoxHandler No = [](HWND, LPCWSTR, LPCWSTR, UINT) { return IDNO; };
    ScopedMessageBoxHandler handler(Yes);
    std::atomic<bool> stop{false};
    std::atomic<int> unexpected{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                int answer = zel_platform::ShowMessageBox(nullptr, ZW("?"), ZW("?"), MB_YESNO);
                if (answer != IDYES && answer != IDNO) ++unexpected;
            }
        });
    }
    for (int i = 0; i < 2000; ++i) zel_platform::SetMessageBoxHandler(i % 2 ? Yes : No);
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(unexpected, 0);
}

TEST(MessageBoxes, DefaultButtonFollowsTheTypeWord) {
    struct Case {
        UINT type;
        int button;
    };
    const Case cases[] = {
        {MB_OK, IDOK},
        {MB_OKCANCEL, IDOK},
        {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
        {MB_ABORTRETRYIGNORE, IDABORT},
        {MB_ABORTRETRYIGNORE | MB_DEFBUTTON2, IDRETRY},
        {MB_ABORTRETRYIGNORE | MB_DEFBUTTON3, IDIGNORE},
        {MB_ABORTRETRYIGNORE | MB_DEFBUTTON4, IDABORT},  // no fourth button: the first
        {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
        {MB_YESNO | MB_DEFBUTTON3, IDYES},
        {MB_RETRYCANCEL | MB_DEFBUTTON2, IDCANCEL},
        {MB_CANCELTRYCONTINUE | MB_DEFBUTTON2, IDTRYAGAIN},
        {MB_CANCELTRYCONTINUE | MB_DEFBUTTON3, IDCONTINUE},
        // Icons and placement bits do not change the buttons.
        {MB_ABORTRETRYIGNORE | MB_ICONHAND | MB_SETFOREGROUND | MB_TOPMOST, IDABORT},
        {MB_ICONEXCLAMATION | MB_TOPMOST, IDOK},
        {7, 0},
        {15 | MB_DEFBUTTON2, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(zel_platform::DefaultMessageBoxButton(c.type), c.button) << std::hex << c.type;
    }
}

TEST(MessageBoxes, DefaultBoxWritesToStderrAndAnswersWithTheDefaultButton) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "the default is the system's box on Windows";
    ScopedMessageBoxHandler defaultHandler{zel_platform::MessageBoxHandler{}};
    const WCHAR caption[] = {'C', 'a', 'p', 't', 'i', 'o', 'n', ' ', 0xE9, 0};
    // stderr is captured, so no terminal can be asked.
    ::testing::internal::CaptureStderr();
    int answer = MessageBoxW(nullptr, ZW("line one\nline two"), caption,
                             MB_ABORTRETRYIGNORE | MB_DEFBUTTON3 | MB_ICONHAND);
    std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, IDIGNORE);
    EXPECT_EQ(written, "Caption \xC3\xA9\nline one\nline two\n[Abort, Retry, Ignore] -> Ignore\n");

    ::testing::internal::CaptureStderr();
    answer = MessageBoxW(nullptr, nullptr, nullptr, MB_OK);
    written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, IDOK);
    EXPECT_EQ(written, "Error\n\n[OK] -> OK\n");

    SetLastError(0);
    EXPECT_EQ(MessageBoxW(nullptr, ZW("text"), ZW("caption"), 7), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_MSGBOX_STYLE));
}

#ifndef _WIN32
// Runs a default box with stdin and stderr on a pseudo-terminal whose user
// types input; returns the answer and what the box wrote, or -1 when no
// pseudo-terminal can be had.
int AskOnPseudoTerminal(UINT type, const std::string& input, std::string* shown) {
    int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0) return -1;
    int slave = grantpt(master) == 0 && unlockpt(master) == 0
                    ? open(ptsname(master), O_RDWR | O_NOCTTY)
                    : -1;
    if (slave < 0 ||
        write(master, input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        if (slave >= 0) close(slave);
        close(master);
        return -1;
    }
    int savedIn = dup(STDIN_FILENO);
    int savedErr = dup(STDERR_FILENO);
    dup2(slave, STDIN_FILENO);
    dup2(slave, STDERR_FILENO);
    int answer = zel_platform::DefaultMessageBox(nullptr, ZW("text"), ZW("caption"), type);
    dup2(savedIn, STDIN_FILENO);
    dup2(savedErr, STDERR_FILENO);
    close(savedIn);
    close(savedErr);
    close(slave);
    fcntl(master, F_SETFL, O_NONBLOCK);
    char buffer[4096];
    ssize_t got;
    shown->clear();
    while ((got = read(master, buffer, sizeof buffer)) > 0) shown->append(buffer, got);
    close(master);
    return answer;
}

TEST(MessageBoxes, DefaultBoxAsksOnATerminal) {
    std::string shown;
    int answer = AskOnPseudoTerminal(MB_ABORTRETRYIGNORE, "r\n", &shown);
    if (answer == -1) GTEST_SKIP() << "no pseudo-terminal available";
    // The terminal echoes the typed lines; what matters is the questions.
    EXPECT_EQ(answer, IDRETRY);
    EXPECT_NE(shown.find("caption\r\ntext\r\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("Abort, Retry, Ignore [Abort]? "), std::string::npos) << shown;

    // Unknown and ambiguous answers ask again; a whole name in any case counts.
    EXPECT_EQ(AskOnPseudoTerminal(MB_CANCELTRYCONTINUE, "maybe\nc\nCONTINUE\n", &shown),
              IDCONTINUE);
    std::size_t questions = 0;
    for (std::size_t at = 0; (at = shown.find("[Cancel]? ", at)) != std::string::npos; ++at)
        ++questions;
    EXPECT_EQ(questions, 3u) << shown;

    // An empty line takes the default button.
    EXPECT_EQ(AskOnPseudoTerminal(MB_YESNOCANCEL | MB_DEFBUTTON2, "\n", &shown), IDNO);
    // A box with one button does not ask.
    EXPECT_EQ(AskOnPseudoTerminal(MB_OK, "", &shown), IDOK);
    EXPECT_NE(shown.find("[OK] -> OK"), std::string::npos) << shown;
}
#endif

TEST(GlobalMemoryStatus, GivesPlausibleFigures) {
    MEMORYSTATUS status{};
    GlobalMemoryStatus(&status);
    EXPECT_EQ(status.dwLength, sizeof(MEMORYSTATUS));
    EXPECT_LE(status.dwMemoryLoad, 100u);
    EXPECT_GE(status.dwTotalPhys, SIZE_T{16} << 20);
    EXPECT_GT(status.dwAvailPhys, 0u);
    EXPECT_LE(status.dwAvailPhys, status.dwTotalPhys);
    EXPECT_GE(status.dwTotalPageFile, status.dwTotalPhys);
    EXPECT_LE(status.dwAvailPageFile, status.dwTotalPageFile);
    EXPECT_GT(status.dwTotalVirtual, 0u);
    EXPECT_LE(status.dwAvailVirtual, status.dwTotalVirtual);
}
