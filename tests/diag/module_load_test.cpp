// Loading a module and a function with the failure logged and explained:
// a real module built with the tests, a missing one, a file that is not a
// module and a missing function, with a recording message service and a
// translation service that tags every text it is given.
#include "zelutils/diag/module_load.h"

#include "tests/support/temp_folder.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/ui/ui_services.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using zel_text::CZelStringW;

std::string Utf8(const WCHAR* text) { return zel_text::CZelStringUtf8(text).GetString(); }

CZelStringW Wide(const std::string& text) { return zel_text::CZelStringUtf8(text.c_str()).ToWide(); }

class RecordingMsg : public zel_ui::IZelUiMsg {
public:
    int ShowError(const CZelStringW& text, const CZelStringW&) override {
        shown.push_back(Utf8(text));
        return 0;
    }
    std::vector<std::string> shown;
};

class TaggingTranslate : public zel_ui::IZelUiTranslate {
public:
    CZelStringW Translate(const WCHAR* text) override { return CZelStringW(ZW("[")) + text + ZW("]"); }
};

class ModuleLoad : public zel_test::TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        zel_ui::SetUiMsg(&msg_);
        zel_ui::SetUiTranslate(&translate_);
        zel_platform::SetDebugOutputSink([this](LPCWSTR text) { log_ += Utf8(text); });
    }
    void TearDown() override {
        zel_platform::SetDebugOutputSink(nullptr);
        zel_ui::SetUiMsg(nullptr);
        zel_ui::SetUiTranslate(nullptr);
        if (!savedProgramFolder_.IsEmpty()) {
            zel::folders::GetApplicationFileNameBuilder().SetProgramFolder(savedProgramFolder_, 0);
        }
        std::filesystem::remove(Folder() / "broken.dll");
        TempFolderTest::TearDown();
    }
    // Makes the test's folder the program folder, where modules are looked for.
    void LoadFromTestFolder() {
        savedProgramFolder_ = zel::folders::GetProgramFolder();
        zel::folders::GetApplicationFileNameBuilder().SetProgramFolder(Wide(Folder().string()), 0);
    }
    bool Logged(const std::string& text) const { return log_.find(text) != std::string::npos; }

    RecordingMsg msg_;
    TaggingTranslate translate_;
    std::string log_;
    CZelStringW savedProgramFolder_;
};

const std::string kTail = "[If the problem persists, collect application log files and contact support.]";

TEST_F(ModuleLoad, PresentModuleAndFunction) {
    HMODULE module = nullptr;
    FARPROC function = nullptr;
    ASSERT_TRUE(zel_core::loadModuleFunction(&module, &function, ZW("ZelTestModuleAnswer"),
                                             Wide(ZEL_TEST_MODULE_NAME), true, true));
    ASSERT_NE(module, nullptr);
    ASSERT_NE(function, nullptr);
    // Through void (*)(), the generic function pointer type.
    EXPECT_EQ(reinterpret_cast<int (*)()>(reinterpret_cast<void (*)()>(function))(), 42);
    EXPECT_TRUE(msg_.shown.empty());
    EXPECT_TRUE(FreeLibrary(module));
    // Without a function wanted, the module alone is the result.
    ASSERT_TRUE(zel_core::loadModuleFunction(&module, nullptr, nullptr, Wide(ZEL_TEST_MODULE_NAME),
                                             true, true));
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(ModuleLoad, MissingModuleAdvisesAReinstall) {
    LoadFromTestFolder();
    HMODULE module = reinterpret_cast<HMODULE>(1);
    FARPROC function = reinterpret_cast<FARPROC>(1);
    EXPECT_FALSE(zel_core::loadModuleFunction(&module, &function, ZW("F"), ZW("missing.dll"), true, true));
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(function, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    EXPECT_TRUE(Logged("Could not load library " + Folder().string() + "/missing.dll err code = 126")) << log_;
    EXPECT_TRUE(Logged("Total Memory: ")) << log_;
    EXPECT_TRUE(Logged(" bytes, Free VM: ")) << log_;
    ASSERT_EQ(msg_.shown.size(), 1u);
    EXPECT_EQ(msg_.shown[0], "[Could not load module ]missing.dll.\r\n\r\n"
                             "[Application reinstall may be needed. ]" + kTail);
}

TEST_F(ModuleLoad, FileThatIsNoModuleAdvisesARestart) {
    LoadFromTestFolder();
    Put("broken.dll", "not a module at all");
    HMODULE module = nullptr;
    EXPECT_FALSE(zel_core::loadModuleFunction(&module, nullptr, nullptr, ZW("broken.dll"), true, true));
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_EXE_FORMAT));
    EXPECT_TRUE(Logged("broken.dll err code = 193")) << log_;
    ASSERT_EQ(msg_.shown.size(), 1u);
    EXPECT_EQ(msg_.shown[0], "[Could not load module ]broken.dll.\r\n\r\n"
                             "[Save your work and quit application. Restarting device may be needed as well. ]" +
                                 kTail);
}

// The module is released again: the caller gets neither handle nor function.
TEST_F(ModuleLoad, MissingFunctionIsLoggedAndReleasesTheModule) {
    HMODULE module = nullptr;
    FARPROC function = nullptr;
    EXPECT_FALSE(zel_core::loadModuleFunction(&module, &function, ZW("NoSuchFunction"),
                                              Wide(ZEL_TEST_MODULE_NAME), true, true));
    EXPECT_EQ(module, nullptr);
    EXPECT_EQ(function, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    EXPECT_TRUE(Logged(std::string("Missing function 'NoSuchFunction' in ") + ZEL_TEST_MODULE_NAME +
                       ". Error code: 127"))
        << log_;
    EXPECT_TRUE(msg_.shown.empty()) << "a missing function is logged only";
}

TEST_F(ModuleLoad, WithBothFlagsOffAFailureIsSilent) {
    LoadFromTestFolder();
    HMODULE module = nullptr;
    FARPROC function = nullptr;
    EXPECT_FALSE(zel_core::loadModuleFunction(&module, &function, ZW("F"), ZW("missing.dll"), false, false));
    EXPECT_FALSE(zel_core::loadModuleFunction(&module, &function, ZW("NoSuchFunction"),
                                              Wide(ZEL_TEST_MODULE_NAME), false, false));
    EXPECT_EQ(module, nullptr);
    EXPECT_TRUE(msg_.shown.empty());
    EXPECT_EQ(log_, "");
}

#ifndef _WIN32
// Modules made by the system's C compiler: one whose library is gone, which
// is a missing module (reinstall) also when the host runs in a language
// whose loader messages are translated (German where it is installed), and
// one that calls a function nothing defines.
TEST_F(ModuleLoad, ALibraryThatIsGoneAdvisesAReinstallInAnyLanguage) {
    LoadFromTestFolder();
    Put("dep.c", "int dep(void) { return 1; }\n");
    Put("needs.c", "int dep(void);\nint needs(void) { return dep(); }\n");
    Put("unres.c", "int nowhere(void);\nint unres(void) { return nowhere(); }\n");
    const std::string build = "cd '" + Folder().string() +
                              "' && cc -shared -fPIC dep.c -o libdep.so && cc -shared -fPIC needs.c -o needs.so "
                              "-L. -ldep && cc -shared -fPIC unres.c -o unres.so";
    const bool built = std::system((build + " 2>/dev/null").c_str()) == 0;
    std::filesystem::remove(Folder() / "libdep.so");
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    HMODULE module = nullptr;
    const bool neededLoaded = zel_core::loadModuleFunction(&module, nullptr, nullptr, ZW("needs.so"), true, true);
    const DWORD neededError = GetLastError();
    const bool unresolvedLoaded = zel_core::loadModuleFunction(&module, nullptr, nullptr, ZW("unres.so"), true, true);
    const DWORD unresolvedError = GetLastError();
    std::setlocale(LC_ALL, saved.c_str());
    for (const char* name : {"dep.c", "needs.c", "unres.c", "needs.so", "unres.so"}) {
        std::filesystem::remove(Folder() / name);
    }
    if (!built) GTEST_SKIP() << "no C compiler";

    EXPECT_FALSE(neededLoaded);
    EXPECT_EQ(neededError, static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    EXPECT_FALSE(unresolvedLoaded);
    EXPECT_EQ(unresolvedError, static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    EXPECT_TRUE(Logged("needs.so err code = 126")) << log_;
    ASSERT_EQ(msg_.shown.size(), 2u);
    EXPECT_NE(msg_.shown[0].find("[Application reinstall may be needed. ]"), std::string::npos) << msg_.shown[0];
    EXPECT_NE(msg_.shown[1].find("[Save your work and quit application."), std::string::npos) << msg_.shown[1];
}
#endif

// The emulation's own contract beyond what the loader above needs.
TEST(LibraryCalls, HandlesCountUsesAndFailWhenStale) {
    CZelStringW path = zel::folders::GetProgramFolder() + ZW("\\") + Wide(ZEL_TEST_MODULE_NAME);
    HMODULE first = LoadLibraryW(path);
    HMODULE second = LoadLibraryW(path);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_NE(GetProcAddressW(second, ZW("ZelTestModuleAnswer")), nullptr) << "one use is left";
    EXPECT_EQ(GetProcAddressW(second, ZW("Zel\u00e9")), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
    EXPECT_TRUE(FreeLibrary(second));
    if (zel_platform::kEmulated) {
        EXPECT_FALSE(FreeLibrary(second));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_EQ(GetProcAddressW(second, ZW("ZelTestModuleAnswer")), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    }
}

}  // namespace
