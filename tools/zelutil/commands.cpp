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
        {"encoding", "show a file's byte-order mark and detected text encoding",
         "usage: zelutil encoding FILE\n\nPrints the byte-order mark found at the start of FILE "
         "and the encoding the library would read it in, each with its number and name.\n",
         RunEncoding},
        {"base64", "Base64-encode a file or standard input",
         "usage: zelutil base64 [FILE]\n\nWrites the Base64 text (RFC 4648, no line breaks) of "
         "FILE, or of standard input when FILE is missing or -, followed by a newline.\n",
         RunBase64},
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
