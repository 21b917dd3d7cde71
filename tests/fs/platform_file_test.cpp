// The plain and checked file tiers: open modes, end of file, 64-bit
// positions, path building and the checked tier's error texts.
#include "zelutils/fs/platform_file.h"

#include "zelutils/platform/win32.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"
#include "tests/support/wine.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

namespace {

using zel_text::CZelStringW;
using namespace zel_fs;

std::string Narrow(const WCHAR* text) {
    std::string out;
    for (; *text != 0; ++text) out += static_cast<char>(*text);
    return out;
}

CZelStringW Widen(const std::string& ascii) {
    CZelStringW out;
    for (char c : ascii) out += static_cast<WCHAR>(c);
    return out;
}

// The what() of the std::runtime_error that action throws, or "no error".
std::string ErrorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

// Expects "[zelutils/fs/platform_file:<line>] <call>: <error>".
void ExpectError(const std::string& text, const std::string& call, DWORD error) {
    const std::string head = "[zelutils/fs/platform_file:";
    const std::string tail = "] " + call + ": " + std::to_string(error);
    bool shaped = text.size() > head.size() + tail.size() &&
                  text.compare(0, head.size(), head) == 0 &&
                  text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
    std::string line =
        shaped ? text.substr(head.size(), text.size() - head.size() - tail.size()) : "";
    bool numbered = !line.empty() && line.find_first_not_of("0123456789") == std::string::npos;
    EXPECT_TRUE(shaped && numbered) << text;
}

class PlatformFile : public zel_test::TempFolderTest {
protected:
    void TearDown() override {
        zel_platform::ResetSystemCalls();
        zel_test::TempFolderTest::TearDown();
    }

    CZelStringW P(const std::string& name) const { return Widen(PathOf(name)); }

    void Remove(const std::string& name) const { std::filesystem::remove(Folder() / name); }
};

TEST_F(PlatformFile, ModeWordsChooseDispositionAndReportCreation) {
    struct Case {
        UINT mode;
        bool existing;
        bool opens;
        bool created;
        int error;
        const char* contentAfter;  // null: no file afterwards
    };
    const Case cases[] = {
        {FO_CREATE_NEW | FO_WRITE, false, true, true, 0, ""},
        {FO_CREATE_NEW | FO_WRITE, true, false, false, FOE_FILE_EXISTS, "old"},
        {FO_CREATE_WRITE, false, true, true, 0, ""},
        {FO_CREATE_WRITE, true, true, true, 0, ""},
        {FO_OPEN_ALWAYS | FO_WRITE, false, true, true, 0, ""},
        {FO_OPEN_ALWAYS | FO_WRITE, true, true, false, 0, "old"},
        {FO_OPEN_READ, false, false, false, FOE_NOT_FOUND, nullptr},
        {FO_OPEN_READ, true, true, false, 0, "old"},
        {FO_TRUNCATE_EXISTING | FO_WRITE, true, true, false, 0, ""},
        // The first of 0x10, 0x08, 0x04, 0x02, 0x01 decides.
        {FO_OPEN_EXISTING | FO_CREATE_NEW | FO_READ, true, false, false, FOE_FILE_EXISTS, "old"},
        {FO_OPEN_ALWAYS | FO_TRUNCATE_EXISTING | FO_WRITE, false, false, false, FOE_NOT_FOUND,
         nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "mode 0x" << std::hex << c.mode << (c.existing ? " existing" : " missing"));
        if (c.existing) Put("f", "old");
        bool created = !c.created;
        int error = 99;
        HANDLE file = file_open(P("f"), c.mode, &created, &error);
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, c.opens);
        EXPECT_EQ(created, c.created);
        EXPECT_EQ(error, c.error);
        file_close_reset(file);
        EXPECT_EQ(file, INVALID_HANDLE_VALUE);
        ASSERT_EQ(std::filesystem::exists(Folder() / "f"), c.contentAfter != nullptr);
        if (c.contentAfter != nullptr) {
            EXPECT_EQ(Get("f"), c.contentAfter);
        }
        Remove("f");
    }
}

TEST_F(PlatformFile, ModeWithoutDispositionReturnsZero) {
    bool created = true;
    int error = 77;
    EXPECT_EQ(file_open(P("f"), FO_READ | FO_WRITE, &created, &error), nullptr);
    EXPECT_FALSE(created) << "cleared first";
    EXPECT_EQ(error, 77) << "left alone";
    HANDLE handle = INVALID_HANDLE_VALUE;
    EXPECT_TRUE(file_open_into(handle, P("f"), FO_READ)) << "0 is not the invalid value";
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(std::filesystem::exists(Folder() / "f"));
}

TEST_F(PlatformFile, MissingPathsAndFoldersFailWithTheirCodes) {
    int error = 0;
    EXPECT_EQ(file_open(P("nowhere/f"), FO_CREATE_WRITE, nullptr, &error), INVALID_HANDLE_VALUE);
    EXPECT_EQ(error, FOE_OTHER);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));

    std::filesystem::create_directory(Folder() / "sub");
    EXPECT_EQ(file_open(P("sub"), FO_OPEN_READ, nullptr, &error), INVALID_HANDLE_VALUE);
    EXPECT_EQ(error, FOE_ACCESS_DENIED) << "a folder is not a file";
    HANDLE folder = file_open(P("sub"), FO_OPEN_READ | FO_BACKUP_SEMANTICS, nullptr, &error);
    ASSERT_NE(folder, INVALID_HANDLE_VALUE);
    file_info info;
    ASSERT_TRUE(file_stat(folder, &info));
    EXPECT_TRUE(info.isDirectory);
    EXPECT_FALSE(info.reserved);
    file_close_reset(folder);

    bool isDirectory = false;
    EXPECT_TRUE(file_exists(P("sub"), &isDirectory));
    EXPECT_TRUE(isDirectory);
    Put("sub/x", "12345");
    EXPECT_TRUE(file_exists(P("sub\\x"), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_EQ(file_size_by_name(P("sub/x")), 5);
    EXPECT_TRUE(path_exists(P("sub/*")));
    EXPECT_FALSE(path_exists(P("sub/y")));
    EXPECT_EQ(file_size_by_name(P("sub/y")), -1);
    EXPECT_FALSE(file_exists(nullptr));
    EXPECT_FALSE(file_exists(ZW("")));
    EXPECT_EQ(file_size_by_name(ZW("")), -1);
    Remove("sub/x");
    Remove("sub");
}

TEST_F(PlatformFile, EndOfFileReadsZeroBytesInBothTiers) {
    Put("f", "abc");
    CheckedFile file;
    ASSERT_TRUE(file_open_read(file.handle, P("f")));
    char buffer[8];
    EXPECT_EQ(file_read(file.handle, buffer, 8), 3);
    EXPECT_EQ(file_read(file.handle, buffer, 8), 0);
    EXPECT_EQ(file.Read(buffer, 8), 0);
    file.SeekToBegin();
    EXPECT_EQ(file.Read(buffer, 2), 2);
    file_close_reset(file.handle);
    Remove("f");
}

TEST_F(PlatformFile, PositionsPastFourGigabytes) {
    CheckedFile file;
    ASSERT_TRUE(file_open_into(file.handle, P("sparse"), FO_CREATE_NEW | FO_READ | FO_WRITE));
    EXPECT_EQ(file_seek(file.handle, 0, 0x1FFFFFFFFLL), 0x1FFFFFFFFu);
    EXPECT_EQ(file_write(file.handle, "z", 1), 1);
    EXPECT_EQ(file.GetSize(), 0x200000000u);
    file_info info;
    ASSERT_TRUE(file_stat(file.handle, &info));
    EXPECT_EQ(info.size, 0x200000000u);

    // An all-ones low word is a position, not an error.
    EXPECT_EQ(file.Seek(0xFFFFFFFFLL, 0), 0xFFFFFFFFu);
    EXPECT_EQ(file.Tell(), 0xFFFFFFFFu);
    EXPECT_EQ(file.Seek(-1, 2), 0x1FFFFFFFFu);
    EXPECT_EQ(file.SeekToEnd(), 0x200000000u);
    EXPECT_EQ(file_seek(file.handle, 1, -0x100000000LL), 0x100000000u);

    EXPECT_TRUE(file_truncate(file.handle, 10));
    EXPECT_EQ(file.Tell(), 0x100000000u) << "file_truncate keeps the pointer";
    EXPECT_EQ(file.GetSize(), 10u);
    file.SetSize(5);
    EXPECT_EQ(file.Tell(), 5u) << "SetSize leaves it at the new end";
    EXPECT_EQ(file.GetSize(), 5u);
    EXPECT_TRUE(file_truncate(file.handle, 0x100000000LL)) << "truncation may grow the file";
    EXPECT_EQ(file.GetSize(), 0x100000000u);

    EXPECT_EQ(file_seek(file.handle, 0, -1), 0u) << "a failed move";
    EXPECT_EQ(file_seek(file.handle, 3, 0), 0u) << "a bad origin";
    file_close_reset(file.handle);
    Remove("sparse");
}

TEST_F(PlatformFile, InvalidHandlesNeverReachThePlatformAndSayWhy) {
    const HANDLE invalid = INVALID_HANDLE_VALUE;
    char byte = 0;
    auto refused = [](bool failed) { return failed && GetLastError() == ERROR_INVALID_HANDLE; };
    SetLastError(ERROR_HANDLE_EOF);
    EXPECT_TRUE(refused(file_read(invalid, &byte, 1) == -1));
    SetLastError(0);
    EXPECT_TRUE(refused(file_write(invalid, &byte, 1) == -1));
    SetLastError(0);
    EXPECT_TRUE(refused(file_seek(invalid, 0, 0) == ~std::uint64_t{0}));
    SetLastError(0);
    EXPECT_TRUE(refused(!file_truncate(invalid, 0)));
    SetLastError(0);
    EXPECT_TRUE(refused(!file_flush(invalid)));
    file_info info;
    SetLastError(0);
    EXPECT_TRUE(refused(!file_stat(invalid, &info)));
    SetLastError(0);
    EXPECT_TRUE(refused(!file_set_times(invalid, 0, 0)));
    int failed = 0;
    SetLastError(0);
    EXPECT_TRUE(refused(file_duplicate(invalid, &failed) == INVALID_HANDLE_VALUE));
    EXPECT_EQ(failed, -1);
    HANDLE handle = invalid;
    file_close_reset(handle);
    EXPECT_EQ(handle, invalid);

    // The checked tier names the same reason, not an older error.
    CheckedFile closed;
    SetLastError(ERROR_HANDLE_EOF);
    EXPECT_THROW(closed.Read(&byte, 1), std::runtime_error) << "a stale end-of-file error must not hide the refusal";
}

TEST_F(PlatformFile, DuplicateSharesThePointerAndStatReportsTimes) {
    HANDLE file = INVALID_HANDLE_VALUE;
    ASSERT_TRUE(file_open_into(file, P("f"), FO_CREATE_WRITE | FO_READ));
    int failed = 1;
    HANDLE copy = file_duplicate(file, &failed);
    ASSERT_NE(copy, INVALID_HANDLE_VALUE);
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(file_write(file, "abcdef", 6), 6);
    EXPECT_EQ(file_seek(copy, 1, 0), 6u);
    EXPECT_TRUE(file_flush(copy));

    EXPECT_TRUE(file_set_times(file, 1000000000, 1234567890));
    file_info info;
    ASSERT_TRUE(file_stat(copy, &info));
    EXPECT_EQ(info.size, 6u);
    EXPECT_FALSE(info.isDirectory);
    EXPECT_EQ(info.lastAccessTime, 1000000000);
    EXPECT_EQ(info.lastWriteTime, 1234567890);
    EXPECT_FALSE(file_stat(copy, nullptr));
    EXPECT_TRUE(file_close(file));
    EXPECT_TRUE(file_close(copy));
    EXPECT_FALSE(file_close(copy));
    Remove("f");
}

TEST(PlatformFileTime, SecondsAndFileTimesConvert) {
    FILETIME epoch = seconds_to_filetime(0);
    EXPECT_EQ((ULONGLONG{epoch.dwHighDateTime} << 32) | epoch.dwLowDateTime, 116444736000000000ULL);
    EXPECT_EQ(filetime_to_seconds(seconds_to_filetime(1234567890)), 1234567890);
    EXPECT_EQ(filetime_to_seconds(seconds_to_filetime(-86400)), -86400);
    // Ticks short of a whole second truncate toward zero on both sides of 1970.
    const ULONGLONG before = 116444736000000000ULL - 5;
    FILETIME justBefore{static_cast<DWORD>(before), static_cast<DWORD>(before >> 32)};
    EXPECT_EQ(filetime_to_seconds(justBefore), 0);
    FILETIME justAfter = seconds_to_filetime(1);
    justAfter.dwLowDateTime += 5;
    EXPECT_EQ(filetime_to_seconds(justAfter), 1);
}

TEST(BuildPath, JoinsNormalisesAndAddsTheExtension) {
    struct Case {
        const WCHAR* parts[3];
        const WCHAR* extension;
        const char* expected;
    };
    const Case cases[] = {
        {{ZW("C:/a//b"), ZW("c"), nullptr}, ZW("txt"), "C:\\a\\b\\c.txt"},
        {{ZW("C:/a//b"), ZW("c"), nullptr}, ZW(".txt"), "C:\\a\\b\\c.txt"},
        {{nullptr, ZW("x"), ZW("y")}, nullptr, "x\\y"},
        {{ZW(""), ZW("x"), nullptr}, ZW(""), "x"},
        {{ZW("a\\"), ZW("\\b"), ZW("/c/")}, nullptr, "a\\b\\c\\"},
        {{ZW("//server/share"), nullptr, ZW("f")}, ZW("log.txt"), "\\server\\share\\f.log.txt"},
        {{ZW("a"), ZW(""), nullptr}, nullptr, "a\\"},
        {{ZW("a\\\\\\\\\\b"), nullptr, nullptr}, nullptr, "a\\b"},
        {{nullptr, nullptr, nullptr}, ZW("ext"), ".ext"},
    };
    for (const Case& c : cases) {
        CZelStringW out = ZW("stale");
        build_path(out, c.parts[0], c.parts[1], c.parts[2], c.extension);
        EXPECT_EQ(Narrow(out), c.expected);
    }
}

TEST(DotEntries, ParentIsKeptOnlyOnRequest) {
    EXPECT_TRUE(is_dot_entry(ZW("."), 0));
    EXPECT_TRUE(is_dot_entry(ZW("."), LIST_INCLUDE_PARENT));
    EXPECT_TRUE(is_dot_entry(ZW(".."), 0));
    EXPECT_FALSE(is_dot_entry(ZW(".."), LIST_INCLUDE_PARENT));
    EXPECT_FALSE(is_dot_entry(ZW("..."), 0));
    EXPECT_FALSE(is_dot_entry(ZW(".x"), 0));
    EXPECT_FALSE(is_dot_entry(ZW(""), 0));
    EXPECT_FALSE(is_dot_entry(nullptr, 0));
}

TEST_F(PlatformFile, CheckedFailuresNameTheModuleCallAndError) {
    Put("f", "data");
    CheckedFile reader;
    ASSERT_TRUE(file_open_read(reader.handle, P("f")));
    char buffer[4];
    ExpectError(ErrorText([&] { reader.Write("x", 1); }), "Write", ERROR_ACCESS_DENIED);
    ExpectError(ErrorText([&] { reader.Flush(); }), "FlushFileBuffers", ERROR_ACCESS_DENIED);
    // Wine reports cutting a read-only handle as a bad parameter.
    ExpectError(ErrorText([&] { reader.SetSize(1); }), "SetEndOfFile",
                zel_test::RunningUnderWine() ? ERROR_INVALID_PARAMETER : ERROR_ACCESS_DENIED);
    ExpectError(ErrorText([&] { reader.Seek(-1, 0); }), "SetFilePointer", ERROR_NEGATIVE_SEEK);
    HANDLE open = reader.handle;
    file_close(open);
    ExpectError(ErrorText([&] { reader.Tell(); }), "SetFilePointer", ERROR_INVALID_HANDLE);
    ExpectError(ErrorText([&] { reader.GetSize(); }), "GetFileSize", ERROR_INVALID_HANDLE);
    ExpectError(ErrorText([&] { reader.Read(buffer, 4); }), "Read", ERROR_INVALID_HANDLE);
    EXPECT_EQ(reader.handle, open) << "a failure leaves the handle";

    CheckedFile unopened;
    ExpectError(ErrorText([&] { unopened.Flush(); }), "FlushFileBuffers", ERROR_INVALID_HANDLE);

    ExpectError(ErrorText([&] { MoveFileChecked(P("missing"), P("g")); }), "MoveFile",
                ERROR_FILE_NOT_FOUND);
    ExpectError(ErrorText([&] { DeleteFileChecked(P("missing")); }), "DeleteFile",
                ERROR_FILE_NOT_FOUND);
    CZelStringW out = ZW("stale");
    ExpectError(ErrorText([&] { GetTempFileNameChecked(P("nowhere"), ZW("t"), 0, out); }),
                "GetTempFileName",
                ERROR_DIRECTORY);
    EXPECT_TRUE(out.IsEmpty());
    static int notAModule;
    ExpectError(ErrorText([&] {
                    GetModuleFileNameChecked(reinterpret_cast<HMODULE>(&notAModule), out, true);
                }),
                "GetModuleFileName", ERROR_MOD_NOT_FOUND);

    Put("g", "replaced");
    MoveFileChecked(P("f"), P("g"));
    EXPECT_EQ(Get("g"), "data");
    if (zel_platform::kEmulated) {
        // The rename goes through the platform layer, where faults reach it.
        Put("f", "data");
        ASSERT_TRUE(zel_platform::FailSystemCall(zel_platform::SystemCall::Rename, 1, EXDEV));
        ExpectError(ErrorText([&] { MoveFileChecked(P("f"), P("g")); }), "MoveFile", ERROR_NOT_SAME_DEVICE);
        zel_platform::ResetSystemCalls();
        DeleteFileChecked(P("f"));
    }
    DeleteFileChecked(P("g"));
    EXPECT_FALSE(std::filesystem::exists(Folder() / "g"));
}

TEST_F(PlatformFile, CheckedWriteFailureRaisesAndKeepsTheHandle) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "faults are injected into the emulation only";
    CheckedFile file;
    ASSERT_TRUE(file_open_write(file.handle, P("f")));
    HANDLE handle = file.handle;
    ASSERT_TRUE(zel_platform::FailSystemCall(zel_platform::SystemCall::Write, 1, ENOSPC));
    ExpectError(ErrorText([&] { file.Write("abc", 3); }), "Write", ERROR_DISK_FULL);
    ASSERT_TRUE(zel_platform::ShortenWrite(1, 2, ENOSPC));
    ExpectError(ErrorText([&] { file.Write("abc", 3); }), "Write", ERROR_DISK_FULL);
    EXPECT_EQ(file.handle, handle);
    EXPECT_EQ(file.Write("def", 3), 3) << "the handle still works";
    EXPECT_EQ(file.Tell(), 5u);

    ASSERT_TRUE(zel_platform::SetFileSizeLimit(8));
    std::string text = ErrorText([&] { file.Write("ghijkl", 6); });
    zel_platform::RestoreFileSizeLimit();
    ExpectError(text, "Write", ERROR_FILE_TOO_LARGE);
    file_close_reset(file.handle);
    EXPECT_EQ(Get("f"), "abdefghi");
    Remove("f");
}

TEST_F(PlatformFile, TempNamesAndModuleNames) {
    CZelStringW path;
    GetTempPathChecked(path);
    ASSERT_FALSE(path.IsEmpty());
    WCHAR last = path.GetAt(path.GetLength() - 1);
    EXPECT_TRUE(last == ZW('/') || last == ZW('\\'));

    CZelStringW name;
    UINT unique = GetTempFileNameChecked(Widen(Folder().string()), ZW("zel"), 0, name);
    EXPECT_NE(unique, 0u);
    EXPECT_TRUE(file_exists(name));
    DeleteFileChecked(name);

    CZelStringW program;
    GetModuleFileNameChecked(nullptr, program, true);
    EXPECT_EQ(zel_platform::FileSystemPath(program).stem(), "zel_fs_tests");
    GetModuleFileNameChecked(nullptr, program, false);
    EXPECT_EQ(Narrow(program), "zel_fs_tests");

    CZelStringW library;
    GetModuleFileNameChecked(zel_platform::LibraryModule(), library, true);
    std::string stem = zel_platform::FileSystemPath(library).stem().string();
    GetModuleFileNameChecked(zel_platform::LibraryModule(), library, false);
    EXPECT_EQ(Narrow(library), stem) << "the name without folder and last extension";
}

TEST_F(PlatformFile, TempPathTooLongForItsBufferRaises) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "the temporary folder comes from TMPDIR on POSIX";
    zel_test::ScopedEnvironment folder("TMPDIR", ("/" + std::string(300, 't')).c_str());
    CZelStringW out = ZW("stale");
    std::string text = ErrorText([&] { GetTempPathChecked(out); });
    ExpectError(text, "GetTempPath", ERROR_INSUFFICIENT_BUFFER);
    EXPECT_TRUE(out.IsEmpty());
}

}  // namespace
