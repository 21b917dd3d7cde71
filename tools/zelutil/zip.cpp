// zelutil zip: list, extract, create and add to zip archives.
#include "tools/zelutil/commands.h"

#include "zelutils/platform/native_path.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/unzip_archive.h"
#include "zelutils/zip/zip_archive.h"

#include <cstdio>
#include <iostream>
#include <optional>
#include <set>

namespace zelutil {
namespace {

using zel_text::CZelStringUtf8;
using zel_zip::WString;

// A command-line argument (a file name, byte for byte on POSIX) as UTF-16.
WString Wide(const std::string& argument) { return zel_platform::PathFromArgument(argument); }

std::string Utf8(const WString& wide) { return CZelStringUtf8(wide.c_str()).GetString(); }

// Prints the archive's error, with why an archive being read could not be
// opened where the file system tells; refusals of hostile content are usage-class
// failures (2) so scripts can tell them from I/O errors (1).
// An archive written under a temporary name is named as the user named it.
int ArchiveError(const zel_zip::CZipBase& archive, const std::string& shownPath = std::string()) {
    std::string text = Utf8(archive.GetErrorText());
    std::string path = Utf8(archive.GetArchivePath());
    if (!shownPath.empty() && text.compare(0, path.size(), path) == 0) text.replace(0, path.size(), shownPath);
    // An archive being written is a temporary file, which may be gone.
    std::string why = shownPath.empty() ? WhyNoFile(archive.GetArchivePath().c_str()) : std::string();
    if (!why.empty()) text += " (" + why + ")";
    std::fprintf(stderr, "zelutil zip: %s\n", text.c_str());
    return archive.WasRefused() ? kExitUsage : kExitFailure;
}

struct Options {
    std::vector<std::string> operands;
    std::string folder = ".";
    std::optional<std::string> password;
    bool overwrite = false;
    int level = 6;
};

// Parses the options of the zip subcommands; false after printing why.
bool ParseOptions(const Args& args, std::size_t first, Options& options) {
    for (std::size_t i = first; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (arg == "--overwrite") {
            options.overwrite = true;
        } else if ((arg == "-d" || arg == "--password" || arg == "--level") && !hasValue) {
            UsageError("zip", arg + " needs a value");
            return false;
        } else if (arg == "-d") {
            options.folder = args[++i];
        } else if (arg == "--password") {
            options.password = args[++i];
            if (*options.password == "-" && !std::getline(std::cin, *options.password)) {
                UsageError("zip", "no password on standard input");
                return false;
            }
        } else if (arg == "--level") {
            const std::string& level = args[++i];
            if (level.size() != 1 || level[0] < '0' || level[0] > '9') {
                UsageError("zip", "--level takes 0 to 9");
                return false;
            }
            options.level = level[0] - '0';
        } else {
            options.operands.push_back(arg);
        }
    }
    return true;
}

// The method of entries encrypted with AES, whose own header names the
// compression.
constexpr std::uint32_t kAesMethod = 99;

// How zip tools name a compression method.
const char* MethodName(std::uint32_t method) {
    switch (method) {
    case 0: return "stored";
    case 8: return "deflated";
    case 9: return "deflate64";
    case 12: return "bzip2";
    case 14: return "lzma";
    case 93: return "zstd";
    case 95: return "xz";
    case 98: return "ppmd";
    case kAesMethod: return "AES";
    default: return "other";
    }
}

const char* PasswordOf(const Options& options) { return options.password ? options.password->c_str() : nullptr; }

int List(const std::string& archivePath) {
    zel_zip::CUnZipArchive archive;
    if (!archive.Open(Wide(archivePath).c_str()) || !archive.ReadContent()) return ArchiveError(archive);
    std::printf("%12s %12s %-8s %-16s %s\n", "size", "packed", "method", "modified", "name");
    for (const zel_zip::ZipEntry& entry : archive.GetEntries()) {
        std::uint32_t d = entry.info.dosDate;
        char modified[32];
        std::snprintf(modified, sizeof modified, "%04u-%02u-%02u %02u:%02u", 1980 + ((d >> 25) & 0x7F),
                      (d >> 21) & 0x0F, (d >> 16) & 0x1F, (d >> 11) & 0x1F, (d >> 5) & 0x3F);
        const char* method = MethodName(entry.info.compressionMethod);
        std::printf("%12llu %12llu %-8s %-16s %s%s\n", static_cast<unsigned long long>(entry.info.uncompressedSize),
                    static_cast<unsigned long long>(entry.info.compressedSize), method, modified,
                    Utf8(entry.name).c_str(), (entry.info.flags & 1u) != 0 ? " (encrypted)" : "");
    }
    return kExitOk;
}

// After a refusal to overwrite, which comes before anything is written,
// names the first file in an entry's way.
void NameFileInTheWay(const zel_zip::CUnZipArchive& archive, const Options& options) {
    const WString refusal = ZW("filepath for extraction already exists");
    const WString& error = archive.GetErrorText();
    if (error.size() < refusal.size() || error.compare(error.size() - refusal.size(), refusal.size(), refusal) != 0) {
        return;
    }
    for (const zel_zip::ZipEntry& entry : archive.GetEntries()) {
        DWORD attributes = GetFileAttributesW((Wide(options.folder) + ZW('/') + entry.name).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            std::fprintf(stderr, "zelutil zip: %s is in the way in '%s' (--overwrite replaces it); nothing was "
                         "extracted\n", Utf8(entry.name).c_str(), options.folder.c_str());
            return;
        }
    }
}

int Extract(const Options& options) {
    zel_zip::CUnZipArchive archive;
    if (!archive.Open(Wide(options.operands[0]).c_str())) return ArchiveError(archive);
    archive.SetDestinationFolder(Wide(options.folder));
    // An entry the library cannot decompress is named before anything is
    // written, rather than met half-way.
    if (!archive.ReadContent()) return ArchiveError(archive);
    for (const zel_zip::ZipEntry& entry : archive.GetEntries()) {
        std::uint32_t method = entry.info.compressionMethod;
        if (method != 0 && method != 8) {
            std::fprintf(stderr, "zelutil zip: '%s': %s is %s with %s (method %u), which zelutil cannot extract; "
                         "nothing was extracted\n", options.operands[0].c_str(), Utf8(entry.name).c_str(),
                         method == kAesMethod ? "encrypted" : "compressed", MethodName(method),
                         static_cast<unsigned>(method));
            return kExitFailure;
        }
    }
    if (!archive.ExtractAll(options.overwrite, true, PasswordOf(options))) {
        int status = ArchiveError(archive);
        NameFileInTheWay(archive, options);
        return status;
    }
    std::printf("extracted %zu entries to %s\n", archive.GetEntryCount(), options.folder.c_str());
    return kExitOk;
}

// The last component of path, trailing separators ignored; empty for "."
// and "..", which name no folder to keep in the archive.
std::string FolderName(std::string path) {
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) path.pop_back();
    std::string name = path.substr(path.find_last_of("/\\") == std::string::npos ? 0 : path.find_last_of("/\\") + 1);
    return name == "." || name == ".." ? std::string() : name;
}

// The first name that entries repeat, or null: adding a name the archive
// holds would add a second entry beside the first, not replace it.
const WString* RepeatedName(const std::vector<zel_zip::ZipEntry>& entries) {
    std::set<WString> seen;
    for (const zel_zip::ZipEntry& entry : entries) {
        if (!seen.insert(entry.name).second) return &entry.name;
    }
    return nullptr;
}

// Writes the archive under a temporary name (a copy of the old one when
// adding), checks that it reads back, and only then puts it in place, so a
// failure never leaves the user's archive changed.
int Write(const Options& options, bool add) {
    WString target = Wide(options.operands[0]);
    WString scratch = target + ZW(".zelutil~");
    bool existing = add && GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES;
    if (existing && !CopyFileW(target.c_str(), scratch.c_str(), FALSE)) {
        std::fprintf(stderr, "zelutil zip: cannot copy '%s': %s\n", options.operands[0].c_str(),
                     Reason(GetLastError()).c_str());
        return kExitFailure;
    }
    int status = kExitOk;
    {
        zel_zip::CZipArchive archive;
        if (!archive.Open(scratch.c_str(), existing ? zel_zip::CZipArchive::kAddToArchive : 0)) {
            status = ArchiveError(archive, options.operands[0]);
        }
        archive.SetReplacedArchive(target.c_str());
        for (std::size_t i = 1; status == kExitOk && i < options.operands.size(); ++i) {
            WString source = Wide(options.operands[i]);
            DWORD attributes = GetFileAttributesW(source.c_str());
            WString prefix = (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                                 ? Wide(FolderName(options.operands[i]))
                                 : WString();
            if (!archive.AddFolder(source.c_str(), prefix.c_str(), options.level, PasswordOf(options))) {
                status = ArchiveError(archive, options.operands[0]);
            }
        }
        if (status == kExitOk && !archive.Close(nullptr)) status = ArchiveError(archive, options.operands[0]);
    }
    if (status == kExitOk) {
        zel_zip::CUnZipArchive check;
        if (!check.Open(scratch.c_str()) || !check.ReadContent()) {
            status = ArchiveError(check, options.operands[0]);
        } else if (const WString* twice = RepeatedName(check.GetEntries())) {
            std::fprintf(stderr, "zelutil zip: '%s' would hold two entries named %s (add does not replace "
                         "entries); nothing was changed\n", options.operands[0].c_str(), Utf8(*twice).c_str());
            status = kExitUsage;
        }
    }
    if (status == kExitOk && !MoveFileExW(scratch.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        std::fprintf(stderr, "zelutil zip: cannot replace '%s': %s\n", options.operands[0].c_str(),
                     Reason(GetLastError()).c_str());
        status = kExitFailure;
    }
    if (status != kExitOk) DeleteFileW(scratch.c_str());
    return status;
}

}  // namespace

int RunZip(const Args& args) {
    if (args.empty()) return UsageError("zip", "missing subcommand (list, extract, create, add)");
    Options options;
    if (!ParseOptions(args, 1, options)) return kExitUsage;
    const std::string& subcommand = args[0];
    if (options.operands.empty()) return UsageError("zip", "missing archive");
    if (subcommand == "list") return List(options.operands[0]);
    if (subcommand == "extract") return Extract(options);
    if (subcommand == "create" || subcommand == "add") {
        if (options.operands.size() < 2) return UsageError("zip", "nothing to add");
        return Write(options, subcommand == "add");
    }
    return UsageError("zip", "unknown subcommand '" + subcommand + "'");
}

}  // namespace zelutil
