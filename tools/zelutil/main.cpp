// zelutil: the library's facilities from the command line.
#include "tools/zelutil/commands.h"

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
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? zelutil::kExitUsage : zelutil::kExitOk;
    }
    for (const zelutil::Command& command : zelutil::Commands()) {
        if (std::strcmp(argv[1], command.name) == 0) {
            zelutil::Args args(argv + 2, argv + argc);
            if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
                std::fputs(command.help, stdout);
                return zelutil::kExitOk;
            }
            return command.run(args);
        }
    }
    std::fprintf(stderr, "zelutil: unknown command '%s'\n\n", argv[1]);
    PrintUsage(stderr);
    return zelutil::kExitUsage;
}
