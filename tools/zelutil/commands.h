// The subcommands of zelutil. Each lives in its own file and is listed in
// Commands() (commands.cpp).
#pragma once

#include "zelutils/platform/windef.h"

#include <string>
#include <vector>

namespace zelutil {

/// Exit codes scripts can rely on.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  ///< the operation ran and said no (e.g. a key is missing)
constexpr int kExitUsage = 2;    ///< bad arguments, unknown code page, unreadable file

using Args = std::vector<std::string>;

struct Command {
    const char* name;
    const char* summary;
    const char* help;
    int (*run)(const Args& args);
};

/// Every command, in the order `zelutil --help` lists them.
const std::vector<Command>& Commands();

/// Prints "zelutil NAME: message" to stderr and returns kExitUsage.
int UsageError(const char* command, const std::string& message);

int RunVersion(const Args& args);
int RunDemo(const Args& args);
int RunConvert(const Args& args);
int RunEncoding(const Args& args);
int RunBase64(const Args& args);
int RunPath(const Args& args);
int RunIni(const Args& args);
int RunZip(const Args& args);
int RunXml(const Args& args);
int RunText(const Args& args);
int RunCrash(const Args& args);

/// The code page a command-line name (utf8, utf16, ansi, oem) or number
/// stands for; false when it is neither or not available here.
bool ParseCodePage(const std::string& text, UINT* codePage);
/// Why a platform call failed, in words, from its error number.
std::string Reason(DWORD error);

/// Prints the folders the library computes for the running program.
void PrintFolders();

}  // namespace zelutil
