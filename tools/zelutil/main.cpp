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
    std::fputs(
        "\n'zelutil COMMAND --help' describes a command, with examples.\n"
        "\n"
        "exit codes: 0 done; 1 the command ran and said no (a missing key, a lossy --strict\n"
        "conversion, ...); 2 bad arguments, an unreadable or refused file, a failed write\n"
        "(standard output included). A file is never changed unless the command succeeds.\n"
        "\n"
        "example: zelutil ini set app.ini Window Width 1024\n",
        out);
}

}  // namespace

int main(int argc, char** argv) {
    const zelutil::Args all = zel_platform::ProgramArguments(argc, argv);
    if (all.empty() || all[0] == "--help" || all[0] == "-h") {
        PrintUsage(all.empty() ? stderr : stdout);
        return all.empty() ? zelutil::kExitUsage : zelutil::kExitOk;
    }
    const std::string name = all[0] == "--version" ? "version" : all[0];
    for (const zelutil::Command& command : zelutil::Commands()) {
        if (name != command.name) continue;
        zelutil::Args args(all.begin() + 1, all.end());
        // "--help" after a subcommand too: zelutil ini get --help.
        const auto asksHelp = [&](std::size_t i) { return args.size() > i && (args[i] == "--help" || args[i] == "-h"); };
        const int status = asksHelp(0) || asksHelp(1) ? (std::fputs(command.help, stdout), zelutil::kExitOk)
                                                      : command.run(args);
        return zelutil::FinishStandardOutput(command.name, status);
    }
    std::fprintf(stderr, "zelutil: unknown command '%s'\n\n", all[0].c_str());
    PrintUsage(stderr);
    return zelutil::kExitUsage;
}
