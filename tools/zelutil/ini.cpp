// zelutil ini: INI settings files from the command line.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/win32.h"
#include "zelutils/settings/ini_file.h"
#include "zelutils/text/zel_encoding.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace zelutil {
namespace {

using zel_settings::IniSections;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW Wide(const std::string& utf8) { return CZelStringUtf8(utf8.c_str()).ToWide(); }

std::string Utf8(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

}  // namespace

std::string Reason(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND: return "file not found";
    case ERROR_PATH_NOT_FOUND: return "folder not found";
    case ERROR_ACCESS_DENIED: return "access denied";
    case ERROR_SHARING_VIOLATION: return "file in use";
    case ERROR_DISK_FULL: return "disk full";
    case ERROR_FILE_TOO_LARGE: return "file too large";
    default: return "system error " + std::to_string(error);
    }
}

namespace {

// Loads file into table; prints the reason and returns false on failure.
bool Load(const std::string& file, IniSections& table) {
    SetLastError(ERROR_SUCCESS);
    if (zel_settings::LoadIniFile(Wide(file), table)) return true;
    DWORD error = GetLastError();
    if (error != ERROR_SUCCESS) {
        std::fprintf(stderr, "zelutil ini: cannot read '%s': %s\n", file.c_str(), Reason(error).c_str());
    } else {
        std::fprintf(stderr, "zelutil ini: '%s' is not a valid INI file\n", file.c_str());
    }
    return false;
}

// The encoding code of an existing file (UTF-8 for a new or empty one).
int EncodingOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    char head[16] = {};
    in.read(head, sizeof head);
    auto detected = zel_text::DetectTextEncoding(head, static_cast<std::size_t>(in.gcount()));
    switch (detected) {
    case zel_text::TextEncoding::Utf16LE: return zel_settings::kIniUtf16LE;
    case zel_text::TextEncoding::Narrow: return CP_ACP;
    default: return zel_settings::kIniUtf8;
    }
}

bool Save(const std::string& file, const IniSections& table, int encoding) {
    SetLastError(ERROR_SUCCESS);
    if (zel_settings::SaveIniFileAtomic(Wide(file), table, encoding)) return true;
    std::fprintf(stderr, "zelutil ini: cannot write '%s': %s\n", file.c_str(), Reason(GetLastError()).c_str());
    return false;
}

int Dump(const Args& args) {
    if (args.size() != 2) return UsageError("ini", "dump takes one FILE");
    IniSections table;
    if (!Load(args[1], table)) return kExitUsage;
    for (const auto& [section, keys] : table) {
        std::printf("[%s]\n", Utf8(section).c_str());
        for (const auto& [key, value] : keys) std::printf("%s=%s\n", Utf8(key).c_str(), Utf8(value).c_str());
        std::printf("\n");
    }
    return kExitOk;
}

int Get(const Args& args) {
    if (args.size() != 4) return UsageError("ini", "get takes FILE SECTION KEY");
    IniSections table;
    if (!Load(args[1], table)) return kExitUsage;
    auto section = table.find(Wide(args[2]));
    if (section == table.end()) return kExitFailure;
    auto key = section->second.find(Wide(args[3]));
    if (key == section->second.end()) return kExitFailure;
    std::printf("%s\n", Utf8(key->second).c_str());
    return kExitOk;
}

// Why a section, key or value would not load back, or null when it would.
const char* Unstorable(const std::string& section, const std::string& key, const std::string& value) {
    auto hasLineEnd = [](const std::string& text) { return text.find_first_of("\r\n") != std::string::npos; };
    if (section.empty()) return "the section has no name";
    if (hasLineEnd(section) || hasLineEnd(key) || hasLineEnd(value)) return "it holds a line end";
    unsigned char first = key.empty() ? 0 : static_cast<unsigned char>(key[0]);
    if (first != '_' && (first >= 0x80 || std::isalnum(first) == 0)) return "a key starts with a letter, a digit or '_'";
    if (key.find('=') != std::string::npos) return "a key holds no '='";
    return nullptr;
}

int Set(const Args& args) {
    if (args.size() != 5) return UsageError("ini", "set takes FILE SECTION KEY VALUE");
    if (const char* reason = Unstorable(args[2], args[3], args[4])) {
        return UsageError("ini", "[" + args[2] + "] " + args[3] + " cannot be stored: " + reason);
    }
    IniSections table;
    // Closed again at once: Windows cannot replace a file that is open.
    const bool exists = std::ifstream(args[1], std::ios::binary).good();
    if (exists && !Load(args[1], table)) return kExitUsage;
    table[Wide(args[2])][Wide(args[3])] = Wide(args[4]);
    return Save(args[1], table, exists ? EncodingOf(args[1]) : zel_settings::kIniUtf8) ? kExitOk : kExitUsage;
}

int Convert(const Args& args) {
    if (args.size() != 4 || args[2] != "--to") return UsageError("ini", "convert takes FILE --to utf8|utf16|ansi");
    int encoding;
    if (args[3] == "utf8") {
        encoding = zel_settings::kIniUtf8;
    } else if (args[3] == "utf16") {
        encoding = zel_settings::kIniUtf16LE;
    } else if (args[3] == "ansi") {
        encoding = CP_ACP;
    } else {
        return UsageError("ini", "unknown encoding '" + args[3] + "' (utf8, utf16 or ansi)");
    }
    IniSections table;
    if (!Load(args[1], table)) return kExitUsage;
    return Save(args[1], table, encoding) ? kExitOk : kExitUsage;
}

}  // namespace

int RunIni(const Args& args) {
    if (args.empty()) return UsageError("ini", "missing subcommand (dump, get, set, convert)");
    if (args[0] == "dump") return Dump(args);
    if (args[0] == "get") return Get(args);
    if (args[0] == "set") return Set(args);
    if (args[0] == "convert") return Convert(args);
    return UsageError("ini", "unknown subcommand '" + args[0] + "'");
}

}  // namespace zelutil
