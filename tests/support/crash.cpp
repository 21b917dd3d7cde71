#include "tests/support/crash.h"

#include "zelutils/fs/application_folders.h"
#include "zelutils/text/zel_utf.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#define ZEL_FAULTS_ON_PURPOSE __attribute__((noinline, no_sanitize("undefined", "address")))

namespace zel_test {
namespace {

volatile int gZero = 0;
int* volatile gNull = nullptr;

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

ZEL_FAULTS_ON_PURPOSE DWORD WriteThroughNull(void*) {
    *gNull = 1;
    return 0;
}

ZEL_FAULTS_ON_PURPOSE DWORD DivideByZero(void*) { return static_cast<DWORD>(7 / gZero); }

ZEL_FAULTS_ON_PURPOSE DWORD RecurseForever(void* depth) {
    volatile char frame[1024];
    frame[0] = static_cast<char>(reinterpret_cast<std::uintptr_t>(depth));
    if (gZero != 0) return 0;
    // Used after the call: no tail call, so every level keeps its frame.
    return RecurseForever(reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(depth) + 1)) + frame[0];
}

void CrashTest::SetUp() {
    TempFolderTest::SetUp();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

void CrashTest::TearDown() {
    for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
        std::filesystem::remove_all(entry.path());
    }
    TempFolderTest::TearDown();
}

void CrashTest::UseFolder() const {
    zel::folders::GetApplicationFileNameBuilder().SetDataFolder(
        zel_text::CZelStringUtf8(Folder().string().c_str()).ToWide(), 0);
    zel_text::CZelStringW dumps = zel_text::CZelStringUtf8(PathOf("system-dumps").c_str()).ToWide();
    zel_platform::WriteSystemValue(ZW("System\\ErrorReporting\\DumpSettings"), ZW("DumpDirectory"), dumps.GetString());
}

std::string CrashTest::LogText() const {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
        if (EndsWith(entry.path().filename().string(), ".log.txt")) text += ReadAll(entry.path());
    }
    return text;
}

std::string CrashTest::SlotFile(int slot, const std::string& suffix) const {
    std::filesystem::path folder = Folder() / "SupportInfo" / "Dumps" / std::to_string(slot);
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (EndsWith(entry.path().filename().string(), suffix)) return ReadAll(entry.path());
    }
    return "";
}

int CrashTest::SlotEntries(int slot) const {
    std::filesystem::path folder = Folder() / "SupportInfo" / "Dumps" / std::to_string(slot);
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) return -1;
    int count = 0;
    for (auto it = std::filesystem::directory_iterator(folder, error); it != std::filesystem::directory_iterator();
         ++it) {
        ++count;
    }
    return count;
}

std::string CrashTest::DumpSignature() { return zel_platform::kEmulated ? "zelutils crash report 1\n" : "MDMP"; }

void FinishChild(bool ok, const std::string& reason) {
    if (!ok) std::fprintf(stderr, "check failed: %s\n", reason.c_str());
    std::exit(ok ? 0 : 1);
}

}  // namespace zel_test
