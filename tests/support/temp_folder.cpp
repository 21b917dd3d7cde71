#include "tests/support/temp_folder.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace zel_test {

namespace {
constexpr const char* kFolderVariable = "ZEL_TEST_FOLDER";
}  // namespace

void TempFolderTest::SetUp() {
    if (const char* inherited = std::getenv(kFolderVariable)) {
        // A death-test child: the parent made the folder and cleans it up.
        folder_ = inherited;
        return;
    }
    static std::atomic<unsigned> counter{0};
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string("zel-") + info->test_suite_name() + "-" + info->name() + "-" +
                       std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) +
                       "-" + std::to_string(counter++);
    for (char& c : name) {
        if (c == '/' || c == '\\') c = '_';
    }
    folder_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::create_directories(folder_);
    inheritedByChildren_.emplace(kFolderVariable, folder_.string().c_str());
}

void TempFolderTest::TearDown() {
    if (!inheritedByChildren_) return;
    inheritedByChildren_.reset();
    std::error_code error;
    bool empty = std::filesystem::is_empty(folder_, error);
    std::string leftovers;
    if (!error && !empty) {
        for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
            leftovers += " " + entry.path().filename().u8string();
        }
    }
    // Read-only files and folders a test made go too (Windows refuses to
    // delete a read-only file).
    std::filesystem::permissions(folder_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, error);
    for (std::filesystem::recursive_directory_iterator entry(folder_, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (!entry->is_symlink(ignored)) {
            std::filesystem::permissions(entry->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
        }
    }
    std::filesystem::remove_all(folder_, error);
    EXPECT_TRUE(empty) << "the test left files behind:" << leftovers;
}

// Names are UTF-8 on every platform: a plain std::string would be taken in
// the ANSI code page on Windows.
std::filesystem::path TempFolderTest::Under(const std::string& name) const {
    return folder_ / std::filesystem::u8path(name);
}

std::string TempFolderTest::PathOf(const std::string& name) const { return Under(name).u8string(); }

void TempFolderTest::Put(const std::string& name, const std::string& content) const {
    std::ofstream(Under(name), std::ios::binary) << content;
}

std::string TempFolderTest::Get(const std::string& name) const {
    std::ifstream in(Under(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace zel_test
