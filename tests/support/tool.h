// Running the zelutil program of the same build, as a script would.
#pragma once

#include <filesystem>
#include <string>

namespace zel_test {

/// The zelutil program built with these tests, or an empty path when it was
/// not built: next to the test program on Windows, in the build's
/// tools/zelutil folder elsewhere (found through ZEL_TEST_BINARY_DIR).
std::filesystem::path ToolPath();

/// Runs zelutil through the system's command interpreter with arguments
/// (quoted with double quotes where needed), its stdout sent to the file
/// outputPath and its stderr to errorsPath. Returns its exit code, or -1
/// when it could not be run.
int RunTool(const std::string& arguments, const std::string& outputPath,
            const std::string& errorsPath);

}  // namespace zel_test
