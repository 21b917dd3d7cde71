#include "tools/zelutil/commands.h"

#include "zelutils/platform/native_path.h"
#include "zelutils/platform/win32.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zelutil {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"version", "print the tool's version", "usage: zelutil version (or zelutil --version)\n\nexit codes: 0 printed; 2 the output cannot be written.\n", RunVersion},
        {"demo", "run the library's typical request on built-in sample data",
         "usage: zelutil demo [FOLDER]\n\n"
         "Runs the library end to end (folders, settings, log, code pages) on sample data built\n"
         "into the tool, and prints what it did. Its files (the settings it saves, the log) go\n"
         "to FOLDER, created when missing; without FOLDER, to a new folder\n"
         "\"zelutil-demo-<number>\" under the temporary folder. The folder used is printed.\n\n"
         "example: zelutil demo /tmp/try\n\n"
         "exit codes: 0 done; 1 a step failed; 2 bad arguments or the folder cannot be made.\n",
         RunDemo},
        {"convert", "convert text between code pages",
         "usage: zelutil convert --from CP --to CP [--strict] [IN] [OUT]\n\n"
         "Converts text from one code page to another, in blocks (memory does not grow with\n"
         "the input). Reads IN, or standard input when IN is absent or '-'; writes OUT, or\n"
         "standard output. OUT is replaced only once the conversion is complete.\n\n"
         "CP, in any case: a number (1252, 437, 932, 65001, ...), cpNNN or windows-NNN,\n"
         "utf-8 (utf8), utf-16le (utf16, utf-16; 1200), utf-16be (1201), utf-32le (utf32,\n"
         "utf-32; 12000), utf-32be (12001), latin1 (iso-8859-1, 28591), ascii (20127), ansi\n"
         "(the process's ANSI code page) or oem (its OEM code page).\n\n"
         "What stands in for what does not convert, without --strict:\n"
         "  decoding: bytes that are not UTF-8 become U+FFFD; in a single-byte code page an\n"
         "  unassigned byte becomes the platform's replacement ('?', or the C1 control of the\n"
         "  same value for 80..9F, as in the Windows tables); in a double-byte code page it\n"
         "  becomes its default character (U+30FB in 932, '?' in the others);\n"
         "  encoding: a character the code page lacks becomes its default character ('?'\n"
         "  in most; single-byte code pages never use best-fit letters); an unpaired\n"
         "  surrogate becomes U+FFFD in UTF-8 and UTF-32.\n"
         "--strict stops instead, names the byte offset of the first byte that does not\n"
         "decode or the first character (counted from 1) that the target lacks, and exits 1.\n\n"
         "examples: zelutil convert --from cp1252 --to utf-8 old.txt new.txt\n"
         "          zelutil convert --from utf-16le --to utf-8 --strict < in.txt > out.txt\n\n"
         "exit codes: 0 converted; 1 --strict found a loss, or UTF-16/UTF-32 input ends inside\n"
         "a character; 2 bad arguments, an unknown code page, an unreadable input or an\n"
         "unwritable output.\n",
         RunConvert},
        {"encoding", "say how the library reads a file's text",
         "usage: zelutil encoding FILE\n\n"
         "Prints, on one line, the encoding the library reads FILE in: from its byte-order mark\n"
         "(\"UTF-16LE with byte-order mark\"), or else guessed from where zero bytes sit among\n"
         "the first eight. The guess takes UTF-32LE without a mark for UTF-16LE and UTF-32BE\n"
         "without a mark for narrow text, and says that it guessed. An empty file is read as\n"
         "narrow text.\n\n"
         "example: zelutil encoding settings.ini\n\n"
         "exit codes: 0 printed; 2 bad arguments or an unreadable file.\n",
         RunEncoding},
        {"base64", "Base64-encode or decode a file or standard input",
         "usage: zelutil base64 [-d|--decode] [FILE]\n\n"
         "Writes the Base64 text (RFC 4648, no line breaks) of FILE, or of standard input when\n"
         "FILE is missing or -, followed by a newline. With -d, decodes Base64 text instead\n"
         "(white space is passed over).\n\n"
         "examples: zelutil base64 photo.jpg > photo.txt\n"
         "          zelutil base64 -d photo.txt > photo.jpg\n\n"
         "exit codes: 0 done; 1 the input to -d is not Base64 (the offset is named); 2 bad\n"
         "arguments, an unreadable input or an unwritable output.\n",
         RunBase64},
        {"path", "print the folders the library computes for this program",
         "usage: zelutil path\n\nPrints the program, application, data, work, geoids and geo folders.\n\n"
         "example: zelutil path\n\nexit codes: 0 printed; 2 the output cannot be written.\n",
         RunPath},
        {"ini", "read and change INI settings files",
         "usage: zelutil ini dump FILE\n"
         "       zelutil ini get FILE SECTION KEY\n"
         "       zelutil ini set FILE SECTION KEY VALUE\n"
         "       zelutil ini convert FILE --to CP   (utf-8, utf-16le or a narrow code page)\n\n"
         "Sections, keys and values are UTF-8 on the command line and in the output. SECTION \"\"\n"
         "is the keys before the first header.\n\n"
         "set is an edit: it replaces the value on the line the key is read from, or adds\n"
         "KEY=VALUE after the section's last key, or adds the section at the end of the file.\n"
         "Every other byte stays as it was: comments, order, blank lines, line ends, the\n"
         "byte-order mark and the encoding. A new file is UTF-8 with a byte-order mark and\n"
         "CR LF line ends. The file is replaced atomically (its mode and links are kept), and\n"
         "edits of one file by several processes wait for each other (a lock file\n"
         "\"FILE.~zel.lock\" exists while one runs). set refuses, and leaves the file alone,\n"
         "whatever it could not read back whole: an unreadable file, a folder, device or FIFO,\n"
         "UTF-16BE or UTF-32 text, a NUL byte, bytes that do not decode, a line the INI\n"
         "grammar rejects (named by its number). convert rewrites the whole file from its\n"
         "table (sections and keys in order, comments dropped); it refuses a character the\n"
         "code page lacks and keys before the first section header.\n\n"
         "examples: zelutil ini get app.ini Window Width\n"
         "          zelutil ini set app.ini Window Width 1024\n\n"
         "exit codes: 0 done; 1 get found no such key; 2 bad arguments, an unreadable or\n"
         "refused file, a failed write (the message names the file and the reason).\n",
         RunIni},
        {"zip", "list, extract, create and add to zip archives",
         "usage: zelutil zip list ARCHIVE\n"
         "       zelutil zip extract ARCHIVE [-d DIR] [--password P] [--overwrite]\n"
         "       zelutil zip create ARCHIVE FILE|DIR... [--level N] [--password P]\n"
         "       zelutil zip add ARCHIVE FILE|DIR... [--level N] [--password P]\n\n"
         "Folders are added with their files below them, under the folder's name. A password\n"
         "uses the traditional zip encryption (weak); '--password -' reads it from standard\n"
         "input. Extraction keeps the archive's folders below DIR (default: the current\n"
         "folder) and replaces existing files only with --overwrite. Create and add write a\n"
         "new archive beside the old one and replace it only once it reads back whole; they\n"
         "leave out the archive itself and refuse a name the archive already holds.\n\n"
         "examples: zelutil zip create backup.zip settings/ --level 9\n"
         "          zelutil zip extract backup.zip -d restored\n\n"
         "exit codes: 0 done; 1 an archive or file error, or an entry in a compression\n"
         "method other than stored and deflated; 2 bad arguments, a name added twice, or a\n"
         "refused archive (an entry leaving the folder, sizes that lie, overlapping entries,\n"
         "more than the disk holds), with the entry and the reason.\n",
         RunZip},
        {"xml", "read XML documents and write a sample",
         "usage: zelutil xml dump FILE                     (the tree as indented text)\n"
         "       zelutil xml records FILE NAME [--count N] (the first N records named NAME as XML,\n"
         "                                                  default 10, then the total)\n"
         "       zelutil xml get FILE PATH                 (PATH: root/child/@attribute, or\n"
         "                                                  root/child for its text; exit 1 when missing)\n"
         "       zelutil xml tags FILE                     (each tag as the light pull parser reads it)\n"
         "       zelutil xml write-sample FILE\n\n"
         "A document cut short is an error. Parse errors name the file, the line and column and\n"
         "the reason. records keeps one record in memory at a time.\n\n"
         "tags reads simple machine-written files without checking them: one line per tag or\n"
         "text the parser reports, NAME<TAB>ATTRIBUTES<TAB>TEXT, unescaped, in UTF-8, with a\n"
         "backslash, TAB, CR or LF written as \\\\, \\t, \\r or \\n. NAME is what follows \"<\" up to\n"
         "the first space (\"/point\" for an end tag, \"empty/\" for <empty/>), ATTRIBUTES the raw\n"
         "attribute text after it, TEXT what follows the \">\"; text between tags comes on a line\n"
         "of its own under the name of the tag before it. Comments are left out. FILE is refused\n"
         "when its first line has no \"xml\".\n\n"
         "examples: zelutil xml get survey.xml survey/@name\n"
         "          zelutil xml records survey.xml point --count 3\n"
         "          zelutil xml tags survey.xml | cut -f1 | sort | uniq -c\n\n"
         "exit codes: 0 done; 1 get found nothing at PATH; 2 bad arguments, an unreadable or\n"
         "malformed document (for tags: a first line without \"xml\"), a failed write.\n",
         RunXml},
        {"text", "print the lines of a text file as UTF-8",
         "usage: zelutil text FILE [--trim] [--skip-empty] [--codepage CP]\n\n"
         "Prints the lines of FILE (a pipe too, such as /dev/stdin) as UTF-8 with LF line\n"
         "ends. The encoding comes from the byte-order mark (UTF-8, UTF-16 or UTF-32, either\n"
         "byte order); a file without one is read in code page CP (as for convert; default:\n"
         "ansi). LF, CR LF and CR end lines.\n"
         "--trim removes white space at both ends of each line; --skip-empty leaves out\n"
         "empty lines (after trimming, a line of blanks is printed empty).\n\n"
         "example: zelutil text notes.txt --codepage cp1252 --skip-empty\n\n"
         "exit codes: 0 printed; 2 bad arguments, an unknown code page, an unreadable file or\n"
         "an unwritable output.\n",
         RunText},
        {"crash", "print a POSIX crash report with its backtrace symbolised",
         "usage: zelutil crash REPORT\n\n"
         "Prints the fault of a crash report (the \"zelutils-PID-TID.crash.txt\" file the crash\n"
         "guard files under SupportInfo/Dumps) and its backtrace, each frame with its function,\n"
         "source file and line, looked up in the binaries the report's memory map names: run it\n"
         "where those binaries still are, unchanged. Windows dumps (.dmp) are read with a\n"
         "debugger instead.\n\n"
         "exit codes: 0 printed; 2 bad arguments, an unreadable file or no crash report.\n",
         RunCrash},
    };
    return commands;
}

std::string Reason(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND: return "file not found";
    case ERROR_PATH_NOT_FOUND: return "folder not found";
    case ERROR_ACCESS_DENIED: return "access denied";
    case ERROR_SHARING_VIOLATION: return "file in use";
    case ERROR_LOCK_VIOLATION: return "file locked";
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return "disk full";
    case ERROR_FILE_TOO_LARGE: return "file too large";
    case ERROR_NOT_SUPPORTED: return "not a regular file";
    case ERROR_DIRECTORY: return "is a directory";
    case ERROR_FILENAME_EXCED_RANGE: return "name too long";
    case ERROR_INVALID_NAME: return "invalid name";
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY: return "out of memory";
    case ERROR_WRITE_FAULT:
    case ERROR_READ_FAULT:
    case ERROR_IO_DEVICE: return "input/output error";
    case ERROR_BROKEN_PIPE: return "broken pipe";
    case ERROR_NO_UNICODE_TRANSLATION: return "text that does not convert";
    case ERROR_CANT_RESOLVE_FILENAME: return "a loop of symbolic links";
    case ERROR_TOO_MANY_OPEN_FILES: return "too many open files";
    case ERROR_SUCCESS: return "failed without a reason from the system";
    default: return "system error " + std::to_string(error);
    }
}

zel_text::CZelStringW PathArgument(const std::string& argument) {
    const std::basic_string<WCHAR> path = zel_platform::PathFromArgument(argument);
    return zel_text::CZelStringW(path.c_str(), static_cast<int>(path.size()));
}

int FinishStandardOutput(const char* command, int status) {
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    // A command that failed has said why already, a failed write included.
    if ((flushed && std::ferror(stdout) == 0) || status == kExitUsage) return status;
    const int error = errno != 0 ? errno : EIO;
    return UsageError(command, std::string("cannot write standard output: ") + std::strerror(error));
}

// The kind of thing a path names, by the file system: false with the reason
// for anything but a regular file (a missing one sets *exists to false).
bool RegularOrMissing(const zel_text::CZelStringW& path, bool* exists, std::string* reason) {
    DWORD attributes = GetFileAttributesW(path);
    *exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (!*exists) {
        DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND) return true;
        *reason = Reason(error);
        return false;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        *reason = "is a directory";
        return false;
    }
    if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) {
        *reason = "not a regular file (a device, FIFO or socket)";
        return false;
    }
    return true;
}

std::string WhyNoFile(const zel_text::CZelStringW& path) {
    bool exists = false;
    std::string reason;
    if (!RegularOrMissing(path, &exists, &reason)) return reason;
    return exists ? std::string() : Reason(ERROR_FILE_NOT_FOUND);
}

// The whole file; false with the reason.
bool ReadBytes(const zel_text::CZelStringW& path, std::string* bytes, std::string* reason) {
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *reason = Reason(GetLastError());
        return false;
    }
    bytes->clear();
    char block[65536];
    DWORD got = 0;
    bool ok = true;
    while ((ok = ReadFile(file, block, sizeof block, &got, nullptr) != FALSE) && got > 0) bytes->append(block, got);
    if (!ok) *reason = Reason(GetLastError());
    CloseHandle(file);
    return ok;
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
