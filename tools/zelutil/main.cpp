// zelutil: the library's facilities from the command line.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/native_path.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

void PrintUsage(std::FILE* out) {
    std::fputs(
        "usage: zelutil COMMAND [ARGS]\n"
        "\n"
        "commands:\n",
        out);
    for (const zelutil::Command& command : zelutil::Commands()) {
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    }
    std::fputs("\n'zelutil COMMAND --help' describes a command.\n", out);
}

}  // namespace

int main(int argc, char** argv) {
    const zelutil::Args all = zel_platform::ProgramArguments(argc, argv);
    if (all.empty() || all[0] == "--help" || all[0] == "-h") {
        PrintUsage(all.empty() ? stderr : stdout);
        return all.empty() ? zelutil::kExitUsage : zelutil::kExitOk;
    }
    for (const zelutil::Command& command : zelutil::Commands()) {
        if (all[0] == command.name) {
            zelutil::Args args(all.begin() + 1, all.end());
            if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
                std::fputs(command.help, stdout);
                return zelutil::kExitOk;
            }
            return command.run(args);
        }
    }
    std::fprintf(stderr, "zelutil: unknown command '%s'\n\n", all[0].c_str());
    PrintUsage(stderr);
    return zelutil::kExitUsage;
}
