// The last-error value and the errno table.
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

TEST(LastError, IsKeptPerThread) {
    // Both values are set while both threads run: starting and joining a
    // thread are system calls of their own, which may reset the value on
    // Windows.
    std::atomic<int> step{0};
    DWORD seenByOtherThread = 1234;
    DWORD keptByOtherThread = 0;
    std::thread other([&] {
        seenByOtherThread = GetLastError();
        while (step != 1) {
        }
        SetLastError(ERROR_DISK_FULL);
        step = 2;
        while (step != 3) {
        }
        keptByOtherThread = GetLastError();
    });
    SetLastError(ERROR_ACCESS_DENIED);
    step = 1;
    while (step != 2) {
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    step = 3;
    other.join();
    EXPECT_EQ(seenByOtherThread, 0u) << "a new thread starts without an error";
    EXPECT_EQ(keptByOtherThread, static_cast<DWORD>(ERROR_DISK_FULL));
}

TEST(ErrnoTable, MapsEachDeclaredErrno) {
    struct Case {
        int errnoValue;
        DWORD expected;
    };
    const Case cases[] = {
        {0, 0},
        {ENOENT, 2},
        {ENOTDIR, 3},
        {EACCES, 5},
        {EPERM, 5},
        {EROFS, 5},
        {EISDIR, 5},
        {EBADF, 6},
        {ENOMEM, 8},
        {EINVAL, 87},
        {EEXIST, 80},
        {ENOSPC, 112},
        {ENAMETOOLONG, 206},
        {EMFILE, 4},
        {ENOTEMPTY, 145},
        {EFBIG, 223},
        {EXDEV, 17},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(zel_platform::ErrorFromErrno(c.errnoValue), c.expected) << "errno " << c.errnoValue;
    }
    EXPECT_EQ(zel_platform::ErrorFromErrno(-12345), static_cast<DWORD>(ERROR_GEN_FAILURE));
    zel_platform::SetLastErrorFromErrno(ENOSPC);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
}

TEST(Handles, NullAndUnknownHandlesAreInvalid) {
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SetLastError(0);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(std::uintptr_t{0x1234})));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(Handles, ClosingAllOnesSucceedsAndLeavesTheProcessUsable) {
    // The value of a failed open is also the current process's pseudo-handle.
    EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE));
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));
    BOOL present = TRUE;
    EXPECT_TRUE(CheckRemoteDebuggerPresent(GetCurrentProcess(), &present));
}

TEST(Interlocked, ReturnTheWin32Values) {
    LONG volatile value = 5;
    EXPECT_EQ(InterlockedIncrement(&value), 6);
    EXPECT_EQ(InterlockedDecrement(&value), 5);
    EXPECT_EQ(InterlockedExchangeAdd(&value, 10), 5);
    EXPECT_EQ(value, 15);
    EXPECT_EQ(InterlockedExchange(&value, -1), 15);
    EXPECT_EQ(InterlockedCompareExchange(&value, 7, 3), -1);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(InterlockedCompareExchange(&value, 7, -1), -1);
    EXPECT_EQ(value, 7);
}

TEST(Interlocked, CountsStayExactUnderContention) {
    LONG volatile counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100000; ++i) {
                InterlockedIncrement(&counter);
                InterlockedDecrement(&counter);
                InterlockedIncrement(&counter);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(counter, 400000);
}
