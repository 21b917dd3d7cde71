// A fresh folder per test, which must be empty again when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace zel_test {

/// Test fixture base: Folder() is a new empty folder made for this test. At
/// teardown the test fails if anything is left in it; the folder is removed
/// either way.
class TempFolderTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    const std::filesystem::path& Folder() const { return folder_; }
    /// Folder() / name as a UTF-8 string.
    std::string PathOf(const std::string& name) const;

private:
    std::filesystem::path folder_;
};

}  // namespace zel_test
