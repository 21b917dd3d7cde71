// The process log. Each case runs in a child process (a death test that
// exits normally), because the log is process-wide and is closed, with its
// last line, only when the process ends.
#include "zelutils/diag/log_file.h"

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"
#include "zelutils/diag/checks.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string_view>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace zel_core;

namespace {

const std::string kBom = "\xEF\xBB\xBF";
// True when line begins "hh:mm:ss.mmm ; tttttttt ; " (digits, lower-case hex).
bool HasPrefix(const std::string& line) {
    static const char kShape[] = "99:99:99.999 ; xxxxxxxx ; ";
    if (line.size() < 26) return false;
    for (std::size_t i = 0; i < 26; ++i) {
        char c = line[i];
        bool ok = kShape[i] == '9'   ? (c >= '0' && c <= '9')
                  : kShape[i] == 'x' ? ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))
                                     : c == kShape[i];
        if (!ok) return false;
    }
    return true;
}

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
        lines.push_back(text.substr(start, end - start));
    }
    return lines;
}

// Text of a line after its time and thread prefix.
std::string Body(const std::string& line) { return line.size() >= 26 ? line.substr(26) : std::string(); }

// Ticks the test controls, for the batching rule.
std::atomic<DWORD> gTicks{100000};
DWORD TestTicks() { return gTicks.load(); }

class LogTest : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        zel_test::TempFolderTest::SetUp();
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    void TearDown() override {
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            std::filesystem::remove_all(entry.path());
        }
        zel_test::TempFolderTest::TearDown();
    }
    // In the child: the log goes to this test's folder.
    void UseFolder() const {
        zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
            zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide(), 0);
    }
    std::string Stem() const {
        return zel_text::CZelStringUtf8(zel::folders::GetProgramFilePath()).GetString();
    }
    std::filesystem::path LogFileNumber(int number) const {
        std::string program = Stem();
        std::string name = program.substr(program.find_last_of('/') + 1);
        return Folder() / (name.substr(0, name.rfind('.') == std::string::npos ? name.size() : name.rfind('.')) +
                           std::to_string(number) + ".log.txt");
    }
    std::string LogOfFirstRun() const { return ReadAll(LogFileNumber(1)); }
};

// Ends the child: 0 when every check held, 1 (with the reason) otherwise.
[[noreturn]] void Finish(bool ok, const std::string& reason) {
    if (!ok) std::fprintf(stderr, "check failed: %s\n", reason.c_str());
    std::exit(ok ? 0 : 1);
}

}  // namespace

TEST_F(LogTest, ElevenRunsUseTenFilesInTurnEachWholeAndClosed) {
    for (int run = 1; run <= 11; ++run) {
        EXPECT_EXIT(
            {
                UseFolder();
                logPrintf("run %d", run);
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), "");
    }
    for (int number = 1; number <= 10; ++number) {
        std::string text = ReadAll(LogFileNumber(number));
        ASSERT_EQ(text.substr(0, 3), kBom) << number;
        std::vector<std::string> lines = Lines(text.substr(3));
        ASSERT_EQ(lines.size(), 3u) << number;
        unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
        char utc[4] = {};
        std::string start = Body(lines[0]);
        EXPECT_TRUE(HasPrefix(lines[0]) && start.rfind("Program ", 0) == 0 &&
                    std::sscanf(start.c_str() + start.find(" started on "), " started on %4u/%2u/%2u %2u:%2u:%2u.%3u %3s",
                                &year, &month, &day, &hour, &minute, &second, &millisecond, utc) == 8 &&
                    std::string(utc) == "UTC" && year >= 2020 && month >= 1 && month <= 12)
            << lines[0];
        int expectedRun = number == 1 ? 11 : number;
        EXPECT_EQ(Body(lines[1]), "run " + std::to_string(expectedRun)) << "the reused file is emptied first";
        EXPECT_EQ(Body(lines[2]), "Logging finished");
    }
    EXPECT_FALSE(std::filesystem::exists(LogFileNumber(11)));
}

TEST_F(LogTest, LowLevelAndHighCategoriesWriteNothing) {
    EXPECT_EXIT(
        {
            UseFolder();
            logPrintfLow("low %d", 1);
            logPrintfLowW(ZW("low wide"));
            logPrintfCat(4, "category %d", 4);
            logPrintfCatW(99, ZW("category 99"));
            logPrintfCat(3, "category %d", 3);
            logPrintfCatW(0, ZW("category %ls"), ZW("zero"));
            logPrintfW(ZW("wide %S and %s"), "narrow", ZW("w\u00E9de"));
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(Body(lines[1]), "category 3");
    EXPECT_EQ(Body(lines[2]), "category zero");
    EXPECT_EQ(Body(lines[3]), "wide narrow and w\xC3\xA9" "de");
}

TEST_F(LogTest, BytesAreLoggedWithZerosSpelledOut) {
    auto child = [this] {
        UseFolder();
        const unsigned char data[] = {0x41, 0x00, 0x42};
        logBytes("rx ", data, 3);
        std::exit(0);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(Body(lines[1]), "rx A\\0B");
}

TEST_F(LogTest, APauseWritesAtOnceAndABurstWaitsForAKilobyte) {
    EXPECT_EXIT(
        {
            zel_platform::SetTickSource(TestTicks);
            UseFolder();
            logPrintf("first");
            std::filesystem::path file = zel_platform::FileSystemPath(logFilePath().GetString());
            Finish(std::filesystem::file_size(file) == 0, "the start of the log is held back");
            gTicks += 10;
            logPrintf("burst");
            Finish(std::filesystem::file_size(file) == 0, "a line 10 ms later is held back");
            gTicks += 6000;
            logPrintf("after a pause");
            auto size = std::filesystem::file_size(file);
            std::string text = ReadAll(file);
            Finish(size > 0 && text.find("after a pause\r\n") != std::string::npos,
                   "a line after six seconds is on disk with everything before it");
            std::string filler(100, 'x');
            std::uintmax_t grown = size;
            int lines = 0;
            while (grown == size && lines < 20) {
                gTicks += 10;
                logPrintf("%s", filler.c_str());
                ++lines;
                grown = std::filesystem::file_size(file);
            }
            Finish(lines >= 8 && grown > size + 1024, "a burst reaches the disk once past 1024 bytes");
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, DebuggerCopiesComeInPiecesOf250) {
    EXPECT_EXIT(
        {
            std::vector<std::u16string> pieces;
            zel_platform::SetDebugOutputSink(
                [&](LPCWSTR text) { pieces.emplace_back(reinterpret_cast<const char16_t*>(text)); });
            UseFolder();
            std::u16string text(600, u'a');
            text[300] = 0;
            LogFile::instance().write(kLogLevelNormal, reinterpret_cast<const WCHAR*>(text.data()), 600);
            zel_platform::SetDebugOutputSink(nullptr);
            // The start line came first; the 628 characters of the line follow.
            bool ok = pieces.size() == 4 && pieces[1].size() == 250 && pieces[2].size() == 250 &&
                      pieces[3].size() == 128 && pieces[2][300 - 250 + 26] == u'.' &&
                      pieces[3].substr(126) == u"\r\n";
            Finish(ok, "pieces of 250, 250 and 128 with the NUL shown as '.'");
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, EachLineHasItsOwnMillisecondAndThread) {
    EXPECT_EXIT(
        {
            zel_platform::SetTickSource(TestTicks);
            UseFolder();
            logPrintf("first");
            // Ten lines 100 ms apart pass at least one change of second.
            for (int i = 1; i <= 10; ++i) {
                gTicks += 100;
                logPrintf("line %d", i);
            }
            std::thread([] { logPrintf("other thread"); }).join();
            logPrintf("back");
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    ASSERT_EQ(lines.size(), 15u);
    auto millisecondOfDay = [](const std::string& line) {
        unsigned hour = 0, minute = 0, second = 0, millisecond = 0;
        EXPECT_EQ(std::sscanf(line.c_str(), "%2u:%2u:%2u.%3u", &hour, &minute, &second, &millisecond), 4) << line;
        return static_cast<long>(((hour * 60 + minute) * 60 + second) * 1000 + millisecond);
    };
    for (std::size_t i = 2; i <= 11; ++i) {
        EXPECT_EQ((millisecondOfDay(lines[i]) - millisecondOfDay(lines[i - 1]) + 86400000) % 86400000, 100)
            << lines[i - 1] << " then " << lines[i];
    }
    auto threadOf = [](const std::string& line) { return line.substr(15, 8); };
    EXPECT_NE(threadOf(lines[12]), threadOf(lines[11]));
    EXPECT_EQ(threadOf(lines[13]), threadOf(lines[11]));
}

TEST_F(LogTest, NarrowLinesReadAsTheirCodePageSaysInTheFileAndTheDebuggerCopy) {
    auto child = [this] {
        std::vector<std::u16string> copies;
        zel_platform::SetDebugOutputSink(
            [&](LPCWSTR text) { copies.emplace_back(reinterpret_cast<const char16_t*>(text)); });
        UseFolder();
        const UINT ansi = GetACP();
        const UINT oem = GetOEMCP();
        // ASCII that code page 0 keeps or (UTF-7) does not, text beyond
        // ASCII, a byte that is not UTF-8; each line logged twice, by
        // logPrintf and by writeNarrow.
        struct Case {
            UINT codePage;
            const char* text;
        } const cases[] = {{ansi, "plain 1+-1"}, {ansi, "caf\xC3\xA9 \xFF"}, {1252, "caf\xE9 1+-1"},
                           {65000, "1+-1 +AOk-"}, {1252, "1+-1"}};
        std::vector<std::u16string> expected;
        for (const Case& c : cases) {
            // Cases whose code page this platform cannot set are left out.
            if (c.codePage != GetACP() && !zel_platform::SetProcessCodePages(c.codePage, oem)) continue;
            const int length = static_cast<int>(std::strlen(c.text));
            std::u16string wide(static_cast<std::size_t>(length), u'\0');
            wide.resize(static_cast<std::size_t>(MultiByteToWideChar(
                CP_ACP, 0, c.text, length, reinterpret_cast<WCHAR*>(&wide[0]), length)));
            expected.insert(expected.end(), 2, wide);
            logPrintf("%s", c.text);
            LogFile::instance().writeNarrow(kLogLevelNormal, c.text);
        }
        zel_platform::SetProcessCodePages(ansi, oem);
        logFlush();
        zel_platform::SetDebugOutputSink(nullptr);
        std::vector<std::string> lines = Lines(ReadAll(zel_platform::FileSystemPath(logFilePath().GetString())));
        bool ok = expected.size() >= 4 && lines.size() == expected.size() + 1 && copies.size() == lines.size();
        for (std::size_t i = 0; ok && i < expected.size(); ++i) {
            const std::u16string& wide = expected[i];
            ok = Body(lines[i + 1]) ==
                     zel_text::CZelStringUtf8(reinterpret_cast<const WCHAR*>(wide.c_str())).GetString() &&
                 copies[i + 1].substr(26) == wide + u"\r\n";
        }
        Finish(ok, "each line as code page 0 converts its text");
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, ChecksAreOnDiskWhenTheCallReturns) {
    EXPECT_EXIT(
        {
            UseFolder();
            dbgCheck("F", 42, "M");
            std::string text = ReadAll(zel_platform::FileSystemPath(logFilePath().GetString()));
            Finish(text.find("DBGCHK M F @ 42\r\n") != std::string::npos, "the check line is on disk");
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, ConcurrentLinesAreWholeAndNoneIsLost) {
    constexpr int kThreads = 8;
    constexpr int kLines = 20000;
    EXPECT_EXIT(
        {
            UseFolder();
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([t] {
                    for (int i = 0; i < kLines; ++i) logPrintf("thread %d line %d end", t, i);
                });
            }
            for (auto& thread : threads) thread.join();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines + 2));
    std::vector<int> next(kThreads, 0);
    std::vector<std::set<std::string>> threadIds(kThreads);
    for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
        int thread = -1;
        int line = -1;
        char end[4] = {};
        ASSERT_TRUE(HasPrefix(lines[i]) &&
                    std::sscanf(Body(lines[i]).c_str(), "thread %d line %d %3s", &thread, &line, end) == 3 &&
                    std::string(end) == "end" && thread >= 0 && thread < kThreads)
            << "line " << i << ": " << lines[i];
        ASSERT_EQ(line, next[thread]++) << "lines of one thread keep their order";
        threadIds[thread].insert(lines[i].substr(15, 8));
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(next[t], kLines);
        EXPECT_EQ(threadIds[t].size(), 1u) << "one thread id per thread";
    }
}

TEST_F(LogTest, AFolderThatCannotBeMadeFallsBackToTheTemporaryFolder) {
    std::filesystem::create_directories(Folder() / "tmp");
    std::ofstream(Folder() / "file.txt") << "in the way";
    EXPECT_EXIT(
        {
            // The temporary folder is TMPDIR on POSIX, TMP on Windows.
            zel_test::ScopedEnvironment tmp(zel_platform::kEmulated ? "TMPDIR" : "TMP",
                                            (Folder() / "tmp").string().c_str());
            zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
                zel_text::CZelStringUtf8((Folder() / "file.txt" / "logs").string().c_str()).ToWide(), 0);
            logPrintf("where am I");
            std::string path = zel_text::CZelStringUtf8(logFilePath()).GetString();
            Finish(path.rfind((Folder() / "tmp").string() + "/", 0) == 0, "log in the temporary folder: " + path);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(LogTest, LinesPastTheCapAreCutWithAMarkerWithoutHugeBuffers) {
    const std::string marker = " [line cut]";
    EXPECT_EXIT(
        {
            UseFolder();
            logPrintfW(ZW("%*s"), 2147483640, ZW(""));  // the line size passes INT_MAX
            logPrintf("%*s|", 2147483640, "");
            logPrintf("%2147483647d%2147483647d", 1, 2);  // past INT_MAX: measured as -1
            if (zel_platform::kEmulated) {
                // A gigabyte of zero bytes, each spelled as two characters;
                // calloc's pages are not touched unless read.
                void* block = std::calloc(std::size_t{1} << 30, 1);
                logBytes("rx ", block, block != nullptr ? std::size_t{1} << 30 : 0);
                std::free(block);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    const std::size_t cutLines = zel_platform::kEmulated ? 4 : 3;
    ASSERT_EQ(lines.size(), cutLines + 2);
    for (std::size_t i = 1; i <= cutLines; ++i) {
        std::string body = Body(lines[i]);
        EXPECT_EQ(body.size(), static_cast<std::size_t>(kLogLineCap) + marker.size()) << i;
        EXPECT_EQ(body.substr(body.size() - marker.size()), marker) << i;
    }
    EXPECT_EQ(Body(lines[1]).substr(0, 4), "    ");
    if (zel_platform::kEmulated) {
        EXPECT_EQ(Body(lines[4]).substr(0, 7), "rx \\0\\0");
    }
}

TEST_F(LogTest, LinesLoggedWhileTheProcessExitsAreDroppedSafely) {
    EXPECT_EXIT(
        {
            UseFolder();
            logPrintf("first");
            for (int t = 0; t < 8; ++t) {
                std::thread([t] {
                    for (;;) logPrintf("thread %d still logging", t);
                }).detach();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            std::exit(0);  // as fatalErrorBox does, from any thread
        },
        ::testing::ExitedWithCode(0), "");
    std::vector<std::string> lines = Lines(LogOfFirstRun().substr(3));
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(Body(lines.back()), "Logging finished") << "nothing is written after the closing line";
}

TEST_F(LogTest, AFlushIsNeverLostWhileAnotherThreadHoldsTheLock) {
    EXPECT_EXIT(
        {
            UseFolder();
            std::string path;
            auto onDisk = [&path](const char* text) { return ReadAll(path).find(text) != std::string::npos; };
            std::atomic<int> stage{0};
            bool flushedAtOnce = false;
            // The debug copy of a line is sent while its thread holds the lock.
            zel_platform::SetDebugOutputSink([&](LPCWSTR text) {
                if (std::u16string_view(reinterpret_cast<const char16_t*>(text)).find(u"# hold") ==
                    std::u16string_view::npos) {
                    return;
                }
                logFlush();  // as a crash path does, on the thread that holds the lock
                flushedAtOnce = onDisk("before") && onDisk("# hold");
                logPrintf("inner line");
                stage = 1;
                while (stage != 2) std::this_thread::yield();
            });
            logPrintf("before");
            path = zel_text::CZelStringUtf8(logFilePath()).GetString();
            std::thread holder([] { logPrintf("# hold the lock"); });
            while (stage != 1) std::this_thread::yield();
            logFlush();  // the lock is busy: left as a request, without waiting
            bool notYet = !onDisk("inner line");
            stage = 2;
            holder.join();
            zel_platform::SetDebugOutputSink(nullptr);
            Finish(flushedAtOnce && notYet && onDisk("inner line"),
                   "flushed at once on the holding thread, and by the holder for the other thread");
        },
        ::testing::ExitedWithCode(0), "");
}

#ifndef _WIN32
TEST_F(LogTest, ForkedChildrenLogWithoutHangingOrRepeatingTheParentsLines) {
    constexpr int kChildren = 20;
    EXPECT_EXIT(
        {
            UseFolder();
            logPrintf("parent");
            std::atomic<bool> stop{false};
            std::thread busy([&stop] {
                while (!stop) logPrintf("busy parent thread");
            });
            int clean = 0;
            for (int i = 0; i < kChildren; ++i) {
                pid_t child = ::fork();
                if (child == 0) {
                    // A child that hangs on the log dies of SIGALRM; the time is generous
                    // because a sanitizer build on a loaded machine can take seconds
                    // to fork and exit.
                    ::alarm(60);
                    logPrintf("child %d", i);
                    std::exit(0);
                }
                int status = 0;
                if (child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                    WEXITSTATUS(status) == 0) {
                    ++clean;
                }
            }
            stop = true;
            busy.join();
            Finish(clean == kChildren, std::to_string(kChildren - clean) + " children failed");
        },
        ::testing::ExitedWithCode(0), "");
    std::string text = LogOfFirstRun();
    EXPECT_EQ(text.rfind(kBom), 0u) << "one byte-order mark, at the start";
    std::vector<std::string> lines = Lines(text.substr(3));
    int starts = 0, finished = 0, children = 0;
    for (const std::string& line : lines) {
        ASSERT_TRUE(HasPrefix(line)) << line;
        starts += Body(line).rfind("Program ", 0) == 0;
        finished += Body(line) == "Logging finished";
        children += Body(line).rfind("child ", 0) == 0;
    }
    EXPECT_EQ(starts, 1);
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(Body(lines.back()), "Logging finished");
    EXPECT_EQ(children, kChildren);
}
#endif
