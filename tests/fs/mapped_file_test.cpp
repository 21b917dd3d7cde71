// Memory-mapped files: the one-call open with its kept oddities, the holder,
// and the platform's mapping calls beneath it (protection, alignment,
// lifetimes, names shared across processes or kept within one).
#include "zelutils/fs/mapped_file.h"

#include "zelutils/platform/win32.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using zel_fs::MappedFile;
using zel_fs::MappedFileRequest;
using zel_fs::MappedFileResult;
using zel_fs::OpenMappedFile;
using zel_text::CZelStringW;

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

CZelStringW Widen(const std::string& ascii) {
    CZelStringW out;
    for (char c : ascii) out += static_cast<WCHAR>(c);
    return out;
}

class MappedFileTest : public zel_test::TempFolderTest {
protected:
    // The files mapped here are the tests' own; mapping leaves nothing else.
    void TearDown() override {
        for (const char* name : {"data", "empty", "sparse"}) DeleteFileW(Widen(PathOf(name)));
        TempFolderTest::TearDown();
    }
    MappedFileRequest Request(const std::string& name, DWORD access) const {
        MappedFileRequest request;
        request.path = Widen(PathOf(name));
        request.desiredAccess = access;
        request.shareMode = FILE_SHARE_READ | FILE_SHARE_WRITE;
        request.creationDisposition = OPEN_EXISTING;
        return request;
    }
    // A name no other test run uses at the same time.
    CZelStringW UniqueName(const std::string& purpose) const {
        return Widen("zel-test-" + purpose + "-" + Folder().filename().string());
    }
};

std::string Text(const void* view, std::size_t length) {
    return std::string(static_cast<const char*>(view), length);
}

TEST_F(MappedFileTest, ReadWriteViewWritesTheFile) {
    Put("data", "hello world");
    MappedFileResult result = OpenMappedFile(Request("data", kReadWrite));
    ASSERT_EQ(result.error, 0u);
    EXPECT_NE(result.fileHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(result.size, 11u);
    EXPECT_EQ(Text(result.view, 11), "hello world");
    std::memcpy(result.view, "HELLO", 5);
    MappedFile file(result);
    EXPECT_TRUE(file.IsValid());
    EXPECT_TRUE(file.Owned());
    file.Close();
    EXPECT_EQ(Get("data"), "HELLO world");
}

TEST_F(MappedFileTest, AccessWithoutReadOrWriteOpensNothing) {
    Put("data", "x");
    for (DWORD access : {0u, 0x3FFFFFFFu}) {
        MappedFileResult result = OpenMappedFile(Request("data", access));
        EXPECT_EQ(result.error, 87u);
        EXPECT_EQ(result.fileHandle, INVALID_HANDLE_VALUE);
        EXPECT_EQ(result.mappingHandle, nullptr);
        EXPECT_EQ(result.view, nullptr);
    }
    // Not even the path is looked at.
    EXPECT_EQ(OpenMappedFile(Request("missing", 0)).error, 87u);
}

TEST_F(MappedFileTest, MissingFileReportsTheOpenError) {
    MappedFileResult result = OpenMappedFile(Request("missing", GENERIC_READ));
    EXPECT_EQ(result.error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(result.fileHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(result.mappingHandle, nullptr);
    EXPECT_EQ(result.view, nullptr);
}

// Ends the process at an unhandled fault before Wine would start its
// debugger for it (which can hang without a display).
void DieQuietlyOnFaults() {
#ifdef _WIN32
    SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG {
        TerminateProcess(GetCurrentProcess(), 3);
        return EXCEPTION_EXECUTE_HANDLER;
    });
#endif
}

// Write-only access maps read-only: the view reads, and a write through it
// faults (in a child process).
TEST_F(MappedFileTest, WriteOnlyAccessGivesAReadOnlyView) {
    Put("data", "abc");
    MappedFileResult result = OpenMappedFile(Request("data", GENERIC_WRITE));
    ASSERT_EQ(result.error, 0u);
    EXPECT_EQ(Text(result.view, 3), "abc");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            DieQuietlyOnFaults();
            static_cast<volatile char*>(result.view)[0] = 'X';
        },
        "");
    MappedFile(result).Close();
    EXPECT_EQ(Get("data"), "abc");
}

// A mapping that cannot be made still goes on to the view, whose error is
// the one reported; every handle is closed.
TEST_F(MappedFileTest, FailedMappingReportsTheViewError) {
    Put("empty", "");
    MappedFileResult result = OpenMappedFile(Request("empty", GENERIC_READ));
    EXPECT_EQ(result.error, static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(result.fileHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(result.mappingHandle, nullptr);
    EXPECT_EQ(result.view, nullptr);
}

TEST_F(MappedFileTest, PagingFileMappingReportsFileHandleZero) {
    MappedFileRequest request;
    request.desiredAccess = kReadWrite;
    request.maximumSizeLow = 4096;
    MappedFileResult result = OpenMappedFile(request);
    ASSERT_EQ(result.error, 0u);
    EXPECT_EQ(result.fileHandle, nullptr);
    EXPECT_EQ(result.size, 4096u);
    static_cast<char*>(result.view)[4095] = 1;
    MappedFile file(result);
    EXPECT_TRUE(file.IsValid());
    file.Close();
    EXPECT_FALSE(file.IsValid());
}

TEST_F(MappedFileTest, MaximumSizeGrowsTheFileAndIsTheReportedSize) {
    Put("data", "ab");
    MappedFileRequest request = Request("data", kReadWrite);
    request.maximumSizeLow = 10;
    MappedFileResult result = OpenMappedFile(request);
    ASSERT_EQ(result.error, 0u);
    EXPECT_EQ(result.size, 10u);
    static_cast<char*>(result.view)[9] = 'z';
    MappedFile(result).Close();
    EXPECT_EQ(Get("data"), std::string("ab\0\0\0\0\0\0\0z", 10));
}

// Each open without a name makes its own mapping, named after its own file
// handle in a space no other process sees.
TEST_F(MappedFileTest, DefaultNamesFollowTheFileHandleWithinTheProcess) {
    Put("data", "shared bytes");
    MappedFileResult first = OpenMappedFile(Request("data", GENERIC_READ));
    MappedFileResult second = OpenMappedFile(Request("data", GENERIC_READ));
    ASSERT_EQ(first.error, 0u);
    ASSERT_EQ(second.error, 0u);
    EXPECT_NE(first.view, second.view);
    CZelStringW name;
    name.Format(ZW("hfile_%d"), static_cast<int>(reinterpret_cast<std::intptr_t>(first.fileHandle)));
    HANDLE again = zel_platform::CreateProcessFileMapping(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                          0, 4096, name);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    CloseHandle(again);
    HANDLE global = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
    EXPECT_EQ(GetLastError(), 0u) << "a default name must not be visible to other processes";
    CloseHandle(global);
    MappedFile(first).Close();
    MappedFile(second).Close();
}

TEST_F(MappedFileTest, ExplicitNameIsSharedAndReportsNoError) {
    Put("data", "0123456789");
    MappedFileRequest request = Request("data", kReadWrite);
    request.mappingName = UniqueName("explicit");
    MappedFileResult first = OpenMappedFile(request);
    MappedFileResult second = OpenMappedFile(request);
    ASSERT_EQ(first.error, 0u);
    ASSERT_EQ(second.error, 0u);
    static_cast<char*>(first.view)[0] = '#';
    EXPECT_EQ(static_cast<char*>(second.view)[0], '#');
    MappedFile(first).Close();
    MappedFile(second).Close();
}

TEST_F(MappedFileTest, CloseReleasesOwnedHandlesOnly) {
    Put("data", "abc");
    MappedFileResult result = OpenMappedFile(Request("data", GENERIC_READ));
    ASSERT_EQ(result.error, 0u);

    MappedFile borrowed(result, false);
    borrowed.SetModified(true);
    borrowed.Close();
    EXPECT_FALSE(borrowed.IsValid());
    EXPECT_EQ(borrowed.View(), nullptr);
    EXPECT_EQ(borrowed.MappingHandle(), nullptr);
    EXPECT_FALSE(borrowed.Modified());
    EXPECT_EQ(Text(result.view, 3), "abc") << "a borrowed view stays mapped";

    MappedFile owned(result);
    owned.Close();
    EXPECT_FALSE(owned.Owned());
    EXPECT_FALSE(UnmapViewOfFile(result.view));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS));
    EXPECT_FALSE(CloseHandle(result.mappingHandle));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(CloseHandle(result.fileHandle));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

// A view 64 KB past 4 GB into a sparse file, through the 64-bit offset words.
TEST_F(MappedFileTest, ViewPastFourGigabytesOfASparseFile) {
    const LONGLONG offset = (LONGLONG{1} << 32) + 0x10000;
    HANDLE file = CreateFileW(Widen(PathOf("sparse")), kReadWrite, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    LARGE_INTEGER position;
    position.QuadPart = offset;
    DWORD written = 0;
    bool ready = SetFilePointerEx(file, position, nullptr, FILE_BEGIN) &&
                 WriteFile(file, "far away", 8, &written, nullptr);
    CloseHandle(file);
    if (!ready) {
        DeleteFileW(Widen(PathOf("sparse")));
        GTEST_SKIP() << "the file system holds no 4 GB file";
    }
    MappedFileRequest request = Request("sparse", GENERIC_READ);
    request.viewOffsetHigh = 1;
    request.viewOffsetLow = 0x10000;
    request.viewBytes = 8;
    MappedFileResult result = OpenMappedFile(request);
    ASSERT_EQ(result.error, 0u);
    EXPECT_EQ(result.size, 0x10008u) << "the low 32 bits of the size";
    EXPECT_EQ(Text(result.view, 8), "far away");
    MappedFile(result).Close();
    DeleteFileW(Widen(PathOf("sparse")));
}

// The child runs this test again from the start in a new process: its first
// open finds the parent's mapping, sees the parent's mark and leaves its own.
TEST_F(MappedFileTest, NamedMappingIsSharedWithAnotherProcess) {
    MappedFileRequest request;
    request.desiredAccess = kReadWrite;
    request.maximumSizeLow = 4096;
    request.mappingName = UniqueName("processes");
    MappedFileResult result = OpenMappedFile(request);
    ASSERT_EQ(result.error, 0u);
    char* bytes = static_cast<char*>(result.view);
    bool created = bytes[0] == 0;
    if (created) std::memcpy(bytes, "parent", 7);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            bool seen = !created && std::strcmp(bytes, "parent") == 0;
            std::memcpy(bytes + 100, "child", 6);
            std::exit(seen ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_STREQ(bytes + 100, "child");
    MappedFile(result).Close();
}

// A process that ends without closing leaves its name behind only until the
// next creator finds it stale: that one makes a new mapping.
TEST_F(MappedFileTest, NameOfAnEndedProcessIsFree) {
    CZelStringW name = UniqueName("ended");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
            std::exit(mapping != nullptr && GetLastError() == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(GetLastError(), 0u);
    CloseHandle(mapping);
}

// --- The platform calls ---------------------------------------------------

class MappingCalls : public MappedFileTest {
protected:
    HANDLE OpenFile(const std::string& name, DWORD access) {
        return CreateFileW(Widen(PathOf(name)), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, 0, nullptr);
    }
};

TEST_F(MappingCalls, ViewsCheckProtectionAlignmentAndRange) {
    HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, 0x20000, nullptr);
    ASSERT_NE(mapping, nullptr);
    struct Case {
        DWORD access;
        DWORD offset;
        SIZE_T bytes;
        DWORD error;
    };
    for (const Case& c : {Case{FILE_MAP_WRITE, 0, 0, ERROR_ACCESS_DENIED},
                          Case{FILE_MAP_READ, 0x1000, 0, ERROR_MAPPED_ALIGNMENT},
                          Case{FILE_MAP_READ, 0x10000, 0x10001, ERROR_ACCESS_DENIED},
                          Case{FILE_MAP_READ, 0x20000, 0, ERROR_INVALID_PARAMETER},
                          Case{FILE_MAP_READ, 0x30000, 1, ERROR_INVALID_PARAMETER}}) {
        SetLastError(0);
        EXPECT_EQ(MapViewOfFile(mapping, c.access, 0, c.offset, c.bytes), nullptr);
        EXPECT_EQ(GetLastError(), c.error) << c.access << " at " << c.offset << " for " << c.bytes;
    }
    void* tail = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0x10000, 0);
    ASSERT_NE(tail, nullptr);
    EXPECT_EQ(static_cast<char*>(tail)[0xFFFF], 0);
    EXPECT_TRUE(UnmapViewOfFile(tail));
    EXPECT_FALSE(UnmapViewOfFile(tail));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS));
    EXPECT_TRUE(CloseHandle(mapping));
}

TEST_F(MappingCalls, MappingNeedsTheFileAccessItsProtectionUses) {
    Put("data", "abc");
    HANDLE readOnly = OpenFile("data", GENERIC_READ);
    HANDLE writeOnly = OpenFile("data", GENERIC_WRITE);
    EXPECT_EQ(CreateFileMappingW(readOnly, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(CreateFileMappingW(writeOnly, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(CreateFileMappingW(readOnly, nullptr, PAGE_READONLY, 0, 8, nullptr), nullptr)
        << "a read-only mapping cannot grow its file";
    EXPECT_EQ(GetFileSize(readOnly, nullptr), 3u);
    CloseHandle(readOnly);
    CloseHandle(writeOnly);
    EXPECT_EQ(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// The file handle, then the mapping handle, may go while a view remains.
TEST_F(MappingCalls, ViewOutlivesItsHandles) {
    Put("data", "kept alive");
    HANDLE file = OpenFile("data", kReadWrite);
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    EXPECT_TRUE(CloseHandle(file));
    void* view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(CloseHandle(mapping));
    std::memcpy(view, "KEPT", 4);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_EQ(Get("data"), "KEPT alive");
}

TEST_F(MappingCalls, CopyOnWriteViewLeavesTheFileAlone) {
    Put("data", "original");
    HANDLE file = OpenFile("data", GENERIC_READ);
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_WRITECOPY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    char* view = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_COPY, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    view[0] = 'O';
    EXPECT_EQ(view[0], 'O');
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    CloseHandle(file);
    EXPECT_EQ(Get("data"), "original");
}

}  // namespace
