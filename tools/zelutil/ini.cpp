// zelutil ini: INI settings files from the command line.
#include "tools/zelutil/commands.h"
#include "tools/zelutil/ini_edit.h"

#include "zelutils/fs/atomic_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/settings/ini_file.h"
#include "zelutils/text/zel_encoding.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace zelutil {
namespace {

using zel_settings::IniSections;
using zel_text::CZelStringA;
using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

CZelStringW Wide(const std::string& utf8) { return CZelStringUtf8(utf8.c_str()).ToWide(); }

std::string Utf8(const CZelStringW& wide) { return CZelStringUtf8(wide).GetString(); }

int Refuse(const std::string& file, const std::string& what, const std::string& reason) {
    std::fprintf(stderr, "zelutil ini: %s '%s': %s\n", what.c_str(), file.c_str(), reason.c_str());
    return kExitUsage;
}

// Reads file whole into text under the checks of IniFileText::Load;
// prints the reason and returns false when it cannot.
bool Load(const std::string& file, const CZelStringW& path, IniFileText& text) {
    bool exists = false;
    std::string reason;
    std::string bytes;
    if (!RegularOrMissing(path, &exists, &reason) || !ReadBytes(path, &bytes, &reason) ||
        !text.Load(std::move(bytes), &reason)) {
        Refuse(file, "cannot read", reason);
        return false;
    }
    return true;
}

bool Load(const std::string& file, IniSections& table) {
    IniFileText text;
    if (!Load(file, PathArgument(file), text)) return false;
    table = text.Table();
    return true;
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
    auto isUtf8 = [](const std::string& text) { return Utf8(Wide(text)) == text; };
    if (!isUtf8(section) || !isUtf8(key) || !isUtf8(value)) return "it is not UTF-8 text";
    if (hasLineEnd(section) || hasLineEnd(key) || hasLineEnd(value)) return "it holds a line end";
    unsigned char first = key.empty() ? 0 : static_cast<unsigned char>(key[0]);
    if (first != '_' && (first >= 0x80 || std::isalnum(first) == 0)) return "a key starts with a letter, a digit or '_'";
    if (key.find('=') != std::string::npos) return "a key holds no '='";
    return nullptr;
}

// An exclusive lock serialising the edits of one settings file, held on
// "<file>.~zel.lock" beside it: the file itself is replaced by each edit, so
// a lock on it would not outlive the edit. The holder removes the lock file
// on release; a waiter that then finds its lock on a removed file tries
// again, so two writers never hold locks on different files.
class EditLock {
    static constexpr DWORD kWholeFile = 0xFFFFFFFF;

public:
    EditLock() = default;
    EditLock(const EditLock&) = delete;
    EditLock& operator=(const EditLock&) = delete;
    ~EditLock() {
        if (file_ == INVALID_HANDLE_VALUE) return;
        DeleteFileW(path_);
        OVERLAPPED whole{};
        UnlockFileEx(file_, 0, kWholeFile, kWholeFile, &whole);
        CloseHandle(file_);
    }

    /// Waits for the lock of target; false with the last error when the
    /// lock file cannot be made.
    bool Acquire(const CZelStringW& target) {
        path_ = target + CZelStringW(ZW(".~zel.lock"));
        // Windows refuses to open a file whose deletion is pending: the
        // previous holder is about to be gone, so that is tried again too.
        for (int attempt = 0; attempt < 1000; ++attempt) {
            file_ = Open(OPEN_ALWAYS);
            if (file_ == INVALID_HANDLE_VALUE) {
                if (GetLastError() != ERROR_ACCESS_DENIED || attempt >= 100) return false;
                Sleep(10);
                continue;
            }
            OVERLAPPED whole{};
            if (!LockFileEx(file_, LOCKFILE_EXCLUSIVE_LOCK, 0, kWholeFile, kWholeFile, &whole)) break;
            if (StillNamed()) return true;
            CloseHandle(file_);
            file_ = INVALID_HANDLE_VALUE;
        }
        DWORD error = GetLastError();
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
        file_ = INVALID_HANDLE_VALUE;
        SetLastError(error);
        return false;
    }

private:
    HANDLE Open(DWORD disposition) const {
        return CreateFileW(path_, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    // Whether the locked file is still the one the lock's name leads to.
    bool StillNamed() const {
        HANDLE named = Open(OPEN_EXISTING);
        if (named == INVALID_HANDLE_VALUE) return false;
        BY_HANDLE_FILE_INFORMATION held{};
        BY_HANDLE_FILE_INFORMATION current{};
        bool same = GetFileInformationByHandle(file_, &held) && GetFileInformationByHandle(named, &current) &&
                    held.dwVolumeSerialNumber == current.dwVolumeSerialNumber &&
                    held.nFileIndexHigh == current.nFileIndexHigh && held.nFileIndexLow == current.nFileIndexLow;
        CloseHandle(named);
        return same;
    }

    CZelStringW path_;
    HANDLE file_ = INVALID_HANDLE_VALUE;
};

// Removes the temporary files that earlier edits of target left when they
// were killed: only the lock holder may, as no edit is under way then.
void RemoveStaleTemporaries(const CZelStringW& target) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(target + CZelStringW(ZW(".~zel*.tmp")), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    const int separator = std::max(target.ReverseFind(ZW('/')), target.ReverseFind(ZW('\\')));
    const CZelStringW folder = target.Left(separator + 1);
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) DeleteFileW(folder + found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

bool WriteAll(HANDLE file, const std::string& bytes) {
    DWORD written = 0;
    return WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE &&
           written == bytes.size();
}

// The file that path leads to (links followed), locked against other
// edits, with the temporaries of killed edits removed. Prints the reason and
// returns false when it cannot be edited.
bool LockForEdit(const std::string& file, CZelStringW* target, EditLock* lock, bool* exists) {
    std::basic_string<WCHAR> resolved;
    if (!zel_platform::ResolveSymbolicLinks(PathArgument(file).GetString(), resolved)) {
        Refuse(file, "cannot read", Reason(GetLastError()));
        return false;
    }
    *target = CZelStringW(resolved.c_str(), static_cast<int>(resolved.size()));
    std::string reason;
    if (!RegularOrMissing(*target, exists, &reason)) {
        Refuse(file, "cannot edit", reason);
        return false;
    }
    if (!lock->Acquire(*target)) {
        Refuse(file, "cannot lock", Reason(GetLastError()));
        return false;
    }
    RemoveStaleTemporaries(*target);
    // Looked at again under the lock: another edit may have made the file.
    if (!RegularOrMissing(*target, exists, &reason)) {
        Refuse(file, "cannot edit", reason);
        return false;
    }
    return true;
}

int Set(const Args& args) {
    if (args.size() != 5) return UsageError("ini", "set takes FILE SECTION KEY VALUE");
    const std::string& file = args[1];
    if (const char* reason = Unstorable(args[2], args[3], args[4])) {
        return UsageError("ini", "[" + args[2] + "] " + args[3] + " cannot be stored: " + reason);
    }
    CZelStringW target;
    EditLock lock;
    bool exists = false;
    if (!LockForEdit(file, &target, &lock, &exists)) return kExitUsage;
    IniFileText text;
    std::string reason;
    if (!exists) {
        text.StartNew();
    } else if (!Load(file, target, text)) {
        return kExitUsage;
    }
    if (!text.Set(Wide(args[2]), Wide(args[3]), Wide(args[4]), &reason)) return Refuse(file, "will not edit", reason);
    if (!zel_fs::ReplaceFileAtomically(target, [&](HANDLE handle) { return WriteAll(handle, text.Bytes()); })) {
        return Refuse(file, "cannot write", Reason(GetLastError()));
    }
    return kExitOk;
}

// Whether text comes back unchanged from a file in encoding (kIniUtf16LE,
// kIniUtf8 or a narrow code page): a code page writes its default or a
// best-fit character for one it lacks, UTF-8 U+FFFD for an unpaired surrogate.
bool Survives(const CZelStringW& text, int encoding) {
    if (encoding == zel_settings::kIniUtf16LE) return true;
    if (encoding == zel_settings::kIniUtf8) return CZelStringUtf8(text).ToWide() == text;
    const auto codePage = static_cast<UINT>(encoding);
    return CZelStringW(CZelStringA(text.GetString(), codePage).GetString(), codePage) == text;
}

int Convert(const Args& args) {
    if (args.size() != 4 || args[2] != "--to") return UsageError("ini", "convert takes FILE --to CP");
    UINT codePage = 0;
    if (!ParseCodePage(args[3], &codePage)) return UsageError("ini", "unknown code page '" + args[3] + "'");
    int encoding = codePage == CP_UTF8 ? zel_settings::kIniUtf8 : static_cast<int>(codePage);
    if (codePage == kCodePageUtf16LE) {
        encoding = zel_settings::kIniUtf16LE;
    } else if (codePage == kCodePageUtf16BE || codePage == kCodePageUtf32LE || codePage == kCodePageUtf32BE) {
        return UsageError("ini", "INI files are UTF-8, UTF-16LE or a one- or two-byte code page");
    }
    const std::string& file = args[1];
    CZelStringW target;
    EditLock lock;
    bool exists = false;
    if (!LockForEdit(file, &target, &lock, &exists)) return kExitUsage;
    IniFileText text;
    if (!exists) return Refuse(file, "cannot read", Reason(ERROR_FILE_NOT_FOUND));
    if (!Load(file, target, text)) return kExitUsage;
    // Refused, as every edit that would not read back whole: the writer puts
    // keys before the first header under "[]", which the loader rejects.
    const IniSections& table = text.Table();
    if (table.count(CZelStringW()) != 0) {
        return Refuse(file, "will not convert",
                      "keys before the first section header would be written under '[]', which the loader rejects");
    }
    for (const auto& [section, keys] : table) {
        for (const auto& [key, value] : keys) {
            if (!Survives(section, encoding) || !Survives(key, encoding) || !Survives(value, encoding)) {
                return Refuse(file, "will not convert",
                              "[" + Utf8(section) + "] " + Utf8(key) + " holds a character that " + args[3] + " lacks");
            }
        }
    }
    SetLastError(ERROR_SUCCESS);
    if (!zel_settings::SaveIniFileAtomic(target, table, encoding)) {
        return Refuse(file, "cannot write", Reason(GetLastError()));
    }
    return kExitOk;
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
