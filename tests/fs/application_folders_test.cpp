// The process-wide folder register.
#include "zelutils/fs/application_folders.h"
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <string>

using namespace zel::folders;
using zel_text::CZelStringW;

namespace {
std::u16string Text(const CZelStringW& s) {
    return std::u16string(reinterpret_cast<const char16_t*>(s.GetString()), s.GetLength());
}

// Restores the builder's folders after a test that re-points them.
class FolderBuilderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ApplicationFileNameBuilder& builder = GetApplicationFileNameBuilder();
        saved_[0] = builder.ProgramFolder();
        saved_[1] = builder.DefaultProgramFolder();
        saved_[2] = builder.DataFolder();
        saved_[3] = builder.DefaultDataFolder();
        saved_[4] = builder.WorkFolder();
        saved_[5] = builder.DefaultWorkFolder();
    }
    void TearDown() override {
        ApplicationFileNameBuilder& builder = GetApplicationFileNameBuilder();
        builder.SetProgramFolder(saved_[1], 1);
        builder.SetProgramFolder(saved_[0], 0);
        builder.SetDataFolder(saved_[2], 0);
        builder.SetDataFolder(saved_[3], 1);
        builder.SetWorkFolder(saved_[4], 0);
        builder.SetWorkFolder(saved_[5], 1);
    }
    CZelStringW saved_[6];
};
}  // namespace

TEST_F(FolderBuilderTest, StartsFromTheRunningProgram) {
    WCHAR modulePath[MAX_PATH + 1] = {};
    DWORD length = GetModuleFileNameW(nullptr, modulePath, MAX_PATH);
    ASSERT_GT(length, 0u);
    std::u16string program(reinterpret_cast<const char16_t*>(modulePath), length);
    std::size_t separator = program.find_last_of(u"/\\");
    ASSERT_NE(separator, std::u16string::npos);
    std::u16string folder = program.substr(0, separator);

    EXPECT_EQ(Text(GetProgramFolder()), folder);
    EXPECT_EQ(Text(GetProgramFilePath()), folder + u"/" + program.substr(separator + 1));
    EXPECT_EQ(Text(GetApplicationFolder()), folder);
    EXPECT_EQ(Text(GetDataFolder()), folder);
    EXPECT_EQ(Text(GetWorkFolder()), folder);
    EXPECT_EQ(Text(GetGeoidsFolder()), folder + u"/geoids");
    EXPECT_EQ(Text(GetGeoFolder()), folder + u"/geo");
}

TEST_F(FolderBuilderTest, SetProgramFolderRecomputesTheDerivedFolders) {
    ApplicationFileNameBuilder& builder = GetApplicationFileNameBuilder();
    CZelStringW name = builder.ProgramFilePath().Mid(builder.ProgramFolder().GetLength() + 1);
    builder.SetProgramFolder(CZelStringW(ZW("\\Program Files\\App")), 0);
    EXPECT_EQ(Text(GetProgramFolder()), u"\\Program Files\\App");
    EXPECT_EQ(Text(GetGeoidsFolder()), u"\\Program Files\\App/geoids") << "mixed separators are kept";
    EXPECT_EQ(Text(GetGeoFolder()), u"\\Program Files\\App/geo");
    EXPECT_EQ(Text(GetProgramFilePath()), u"\\Program Files\\App/" + Text(name));

    // The default alone changes, yet the derived folders are recomputed from
    // the unchanged current program folder.
    builder.SetGeoFolder(CZelStringW(ZW("/elsewhere")));
    builder.SetProgramFolder(CZelStringW(ZW("/default")), 1);
    EXPECT_EQ(Text(builder.DefaultProgramFolder()), u"/default");
    EXPECT_EQ(Text(GetProgramFolder()), u"\\Program Files\\App");
    EXPECT_EQ(Text(GetGeoFolder()), u"\\Program Files\\App/geo");
    EXPECT_EQ(Text(GetApplicationFolder()), Text(saved_[0])) << "no operation changes it";
}

TEST_F(FolderBuilderTest, WorkAndDataFoldersHaveDefaults) {
    ApplicationFileNameBuilder& builder = GetApplicationFileNameBuilder();
    builder.SetWorkFolder(CZelStringW(ZW("/work/default")), 1);
    builder.SetWorkFolder(CZelStringW(ZW("/work/now")), 2);
    EXPECT_EQ(Text(GetWorkFolder()), u"/work/now");
    builder.ResetWorkFolder();
    EXPECT_EQ(Text(GetWorkFolder()), u"/work/default");

    builder.SetDataFolder(CZelStringW(ZW("/data")), 0);
    EXPECT_EQ(Text(GetDataFolder()), u"/data");
    EXPECT_EQ(Text(builder.DefaultDataFolder()), Text(saved_[3]));
}

TEST(ExtraFolder, ReportsWhetherTheValueChanged) {
    CZelStringW before = GetExtraFolder();
    EXPECT_TRUE(SetExtraFolder(CZelStringW(ZW("/extra"))));
    EXPECT_FALSE(SetExtraFolder(CZelStringW(ZW("/extra"))));
    EXPECT_EQ(Text(GetExtraFolder()), u"/extra");
    EXPECT_TRUE(SetExtraFolder(before));
}
