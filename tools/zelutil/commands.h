// The subcommands of zelutil. Each lives in its own file and is listed in
// Commands() (commands.cpp).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"

#include <string>
#include <vector>

namespace zelutil {

/// Exit codes scripts can rely on.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  ///< the operation ran and said no (e.g. a key is missing)
constexpr int kExitUsage = 2;    ///< bad arguments, unknown code page, unreadable file, refused edit, failed write

using Args = std::vector<std::string>;

struct Command {
    const char* name;
    const char* summary;
    const char* help;
    int (*run)(const Args& args);
};

/// Every command, in the order `zelutil --help` lists them.
const std::vector<Command>& Commands();

/// Flushes standard output: status when every write reached it or the
/// command failed with kExitUsage (its message said why), else kExitUsage
/// after "zelutil NAME: cannot write standard output: reason".
int FinishStandardOutput(const char* command, int status);

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

/// The UTF code pages that are not narrow text: converted by the tool itself.
constexpr UINT kCodePageUtf16LE = 1200;
constexpr UINT kCodePageUtf16BE = 1201;
constexpr UINT kCodePageUtf32LE = 12000;
constexpr UINT kCodePageUtf32BE = 12001;

/// The code page a command-line name or number stands for, any case: utf-8
/// (utf8, 65001), utf-16le (utf16, utf-16, 1200), utf-16be (1201), utf-32le
/// (utf32, utf-32, 12000), utf-32be (12001), cpNNN and windows-NNN, latin1
/// (iso-8859-1, 28591), ascii (20127), ansi (0), oem (1). False when it is
/// none of these or not available here.
bool ParseCodePage(const std::string& text, UINT* codePage);
/// Why a platform call failed, in words, from its error number.
std::string Reason(DWORD error);
/// A file name from the command line as the library's path: byte for byte
/// on POSIX, whatever its encoding.
zel_text::CZelStringW PathArgument(const std::string& argument);

/// Whether path names a regular file or nothing: false, with the reason in
/// words, for a folder, a device, FIFO or socket, or a path the system
/// cannot look at; *exists tells a missing file.
bool RegularOrMissing(const zel_text::CZelStringW& path, bool* exists, std::string* reason);
/// Why path cannot be opened as a file when the file system alone tells
/// (RegularOrMissing's reason, or "file not found"); empty for a regular file.
std::string WhyNoFile(const zel_text::CZelStringW& path);
/// The whole file into *bytes; false with the reason in words.
bool ReadBytes(const zel_text::CZelStringW& path, std::string* bytes, std::string* reason);

/// Prints the folders the library computes for the running program.
void PrintFolders();

}  // namespace zelutil
