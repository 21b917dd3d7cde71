// BSTR blocks and host-registered string tables.
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <string>

using WString = std::basic_string<WCHAR>;

TEST(Bstr, AllocatesLengthPrefixedTerminatedBlocks) {
    const WCHAR text[] = ZW("ab\0cd");
    BSTR bstr = SysAllocStringLen(text, 5);
    ASSERT_NE(bstr, nullptr);
    EXPECT_EQ(SysStringLen(bstr), 5u);
    EXPECT_EQ(WString(bstr, 5), WString(text, 5));
    EXPECT_EQ(bstr[5], 0);
    EXPECT_EQ(reinterpret_cast<const std::uint32_t*>(bstr)[-1], 10u) << "byte count prefix";
    SysFreeString(bstr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    SysFreeString(nullptr);
}

TEST(Bstr, ReallocationMayReadFromTheOldBlock) {
    BSTR bstr = SysAllocString(ZW("hello world"));
    ASSERT_NE(bstr, nullptr);
    ASSERT_TRUE(SysReAllocStringLen(&bstr, bstr + 6, 5));
    EXPECT_EQ(WString(bstr), WString(ZW("world")));
    EXPECT_EQ(SysStringLen(bstr), 5u);
    SysFreeString(bstr);
}

TEST(StringTable, LoadsRegisteredStringsAndTruncates) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows modules carry their own resources";
    HMODULE module = zel_platform::LibraryModule();
    const zel_platform::StringResource entries[] = {{7, ZW("seven")}, {8, ZW("")}};
    ASSERT_TRUE(zel_platform::RegisterStringTable(module, entries, 2));
    WCHAR buffer[16];
    EXPECT_EQ(LoadStringW(module, 7, buffer, 16), 5);
    EXPECT_EQ(WString(buffer), WString(ZW("seven")));
    EXPECT_EQ(LoadStringW(module, 7, buffer, 4), 3);
    EXPECT_EQ(WString(buffer), WString(ZW("sev")));
    EXPECT_EQ(LoadStringW(module, 9, buffer, 16), 0);
    EXPECT_EQ(buffer[0], 0);
    WCHAR guarded[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    SetLastError(0);
    EXPECT_EQ(LoadStringW(module, 7, guarded + 4, -2), 0) << "a negative size writes nothing";
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(WString(guarded, 8), WString(8, 1));
    LPCWSTR direct = nullptr;
    EXPECT_EQ(LoadStringW(module, 7, reinterpret_cast<LPWSTR>(&direct), 0), 5);
    EXPECT_EQ(WString(direct), WString(ZW("seven")));
    zel_platform::UnregisterStringTable(module);
    EXPECT_EQ(LoadStringW(module, 7, buffer, 16), 0);
}
