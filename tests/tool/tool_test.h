// Runs the built zelutil as a script would and looks at what it did.
#pragma once

#include "tests/support/temp_folder.h"
#include "tests/support/tool.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zel_test {

/// Fixture for tool tests: skips when zelutil is not built next to the tests.
class ToolTest : public TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        if (ToolPath().empty()) GTEST_SKIP() << "the zelutil tool is not built next to the tests";
    }

    /// Runs zelutil with arguments; returns its exit code and keeps what it
    /// wrote to stdout in Output() and to stderr in Errors().
    int Run(const std::string& arguments) {
        const std::string output = PathOf("stdout.txt");
        const std::string errors = PathOf("stderr.txt");
        const int status = RunTool(arguments, output, errors);
        output_ = LineEndsAsLf(Read(output));
        errors_ = LineEndsAsLf(Read(errors));
        std::filesystem::remove(output);
        std::filesystem::remove(errors);
        return status;
    }

    const std::string& Output() const { return output_; }
    const std::string& Errors() const { return errors_; }

    /// text with CR LF line ends (a Windows program's text output) as LF.
    static std::string LineEndsAsLf(std::string text) {
        std::size_t at = 0;
        while ((at = text.find("\r\n", at)) != std::string::npos) text.erase(at, 1);
        return text;
    }

    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    void Write(const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    std::string Quoted(const std::string& name) const { return "\"" + PathOf(name) + "\""; }

private:
    std::string output_;
    std::string errors_;
};

}  // namespace zel_test
