// zelutil path: the folders the library computes for the running program.
#include "tools/zelutil/commands.h"

#include "zelutils/fs/application_folders.h"
#include "zelutils/text/zel_utf.h"

#include <cstdio>

namespace zelutil {

void PrintFolders() {
    using namespace zel::folders;
    struct Row {
        const char* name;
        zel_text::CZelStringW value;
    };
    const Row rows[] = {
        {"program file", GetProgramFilePath()}, {"program", GetProgramFolder()},
        {"application", GetApplicationFolder()}, {"data", GetDataFolder()},
        {"work", GetWorkFolder()},               {"geoids", GetGeoidsFolder()},
        {"geo", GetGeoFolder()},
    };
    for (const Row& row : rows) {
        std::printf("%-13s %s\n", row.name, zel_text::CZelStringUtf8(row.value).GetString());
    }
}

int RunPath(const Args& args) {
    if (!args.empty()) return UsageError("path", "takes no arguments");
    PrintFolders();
    return kExitOk;
}

}  // namespace zelutil
