#include "tests/support/tool.h"

#include <cstdlib>
#include <system_error>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#endif

namespace zel_test {

std::filesystem::path ToolPath() {
    std::filesystem::path tool;
#ifdef _WIN32
    // Programs and the DLL share one folder, so that Windows finds the DLL.
    wchar_t self[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, self, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return {};
    tool = std::filesystem::path(self).parent_path() / "zelutil.exe";
#else
    const char* testDir = std::getenv("ZEL_TEST_BINARY_DIR");
    if (testDir == nullptr) return {};
    tool = std::filesystem::path(testDir) / ".." / "tools" / "zelutil" / "zelutil";
#endif
    std::error_code error;
    return std::filesystem::exists(tool, error) ? tool : std::filesystem::path();
}

int RunTool(const std::string& arguments, const std::string& outputPath,
            const std::string& errorsPath) {
    std::filesystem::path tool = ToolPath();
    if (tool.empty()) return -1;
    std::string command = "\"" + tool.string() + "\" " + arguments + " >\"" + outputPath +
                          "\" 2>\"" + errorsPath + "\"";
#ifdef _WIN32
    // cmd /c drops the first and the last quote of a line that starts with
    // one; an outer pair keeps the program's own quotes. The line is UTF-8
    // (as the tests' paths are), so it goes to the wide entry point.
    command = "\"" + command + "\"";
    std::wstring wide(MultiByteToWideChar(CP_UTF8, 0, command.data(), static_cast<int>(command.size()), nullptr, 0), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, command.data(), static_cast<int>(command.size()), wide.data(),
                        static_cast<int>(wide.size()));
    return _wsystem(wide.c_str());
#else
    int status = std::system(command.c_str());
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

}  // namespace zel_test
