// A fresh folder per test, which must be empty again when the test ends.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/environment.h"

#include <filesystem>
#include <optional>
#include <string>

namespace zel_test {

/// Test fixture base: Folder() is a new empty folder made for this test. At
/// teardown the test fails if anything is left in it; the folder is removed
/// either way. A death-test child that runs the test again in a new process
/// gets its parent's folder (passed down in ZEL_TEST_FOLDER), so both sides
/// see the same files.
class TempFolderTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    const std::filesystem::path& Folder() const { return folder_; }
    /// Folder() / name (name in UTF-8), as a path and as a UTF-8 string.
    std::filesystem::path Under(const std::string& name) const;
    std::string PathOf(const std::string& name) const;
    /// Writes content as the whole file name in Folder().
    void Put(const std::string& name, const std::string& content) const;
    /// The whole content of the file name in Folder() ("" when missing).
    std::string Get(const std::string& name) const;

private:
    std::filesystem::path folder_;
    std::optional<ScopedEnvironment> inheritedByChildren_;
};

}  // namespace zel_test
