#include "tools/zelutil/commands.h"

#include <cstdio>

namespace zelutil {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"version", "print the library version", "usage: zelutil version\n", RunVersion},
        {"demo", "run the library's typical request on the sample data",
         "usage: zelutil demo\n\nRuns the library end to end on the files in examples/ and "
         "prints what it did.\n",
         RunDemo},
    };
    return commands;
}

int UsageError(const char* command, const std::string& message) {
    std::fprintf(stderr, "zelutil %s: %s\n", command, message.c_str());
    return kExitUsage;
}

int RunVersion(const Args&) {
    std::puts("zelutil " ZEL_VERSION_TEXT);
    return kExitOk;
}

}  // namespace zelutil
