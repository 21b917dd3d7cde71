// The library's own module and its unload handlers.
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

TEST(LibraryUnloadDeathTest, HandlersRunAtExitLastRegisteredFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::setvbuf(stderr, nullptr, _IONBF, 0);
            bool registered =
                zel_platform::AtLibraryUnload([] { std::fputs("first\n", stderr); }) &&
                zel_platform::AtLibraryUnload([] { std::fputs("second ", stderr); });
            std::exit(registered ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "second first");
}

TEST(LibraryUnload, RefusesANullHandler) {
    EXPECT_FALSE(zel_platform::AtLibraryUnload(nullptr));
}

TEST(LibraryModule, IsTheSameForEveryCaller) {
    HMODULE module = zel_platform::LibraryModule();
    EXPECT_NE(module, nullptr);
    HMODULE fromThread = nullptr;
    std::thread([&] { fromThread = zel_platform::LibraryModule(); }).join();
    EXPECT_EQ(fromThread, module);
}
