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
        {"convert", "convert text between code pages",
         "usage: zelutil convert --from CP --to CP [IN] [OUT]\n\n"
         "Converts text from one code page to another. CP is a code page number (1252, 437,\n"
         "932, 65001, ...) or one of: utf8 (65001), utf16 (UTF-16LE bytes), ansi (the\n"
         "process's ANSI code page, 0), oem (its OEM code page, 1). Reads IN, or standard\n"
         "input when IN is absent or '-'; writes OUT, or standard output.\n\n"
         "Characters the target code page lacks become its default character ('?');\n"
         "bytes the source cannot decode become U+FFFD from UTF-8 and '?' otherwise.\n\n"
         "exit codes: 0 converted; 1 the conversion failed (odd-sized UTF-16 input);\n"
         "2 bad arguments, an unknown code page, an unreadable input or unwritable output.\n",
         RunConvert},
        {"encoding", "show a file's byte-order mark and detected text encoding",
         "usage: zelutil encoding FILE\n\nPrints the byte-order mark found at the start of FILE "
         "and the encoding the library would read it in, each with its number and name.\n",
         RunEncoding},
        {"base64", "Base64-encode a file or standard input",
         "usage: zelutil base64 [FILE]\n\nWrites the Base64 text (RFC 4648, no line breaks) of "
         "FILE, or of standard input when FILE is missing or -, followed by a newline.\n",
         RunBase64},
        {"path", "print the folders the library computes for this program",
         "usage: zelutil path\n\nPrints the program, application, data, work, geoids and geo folders.\n",
         RunPath},
        {"ini", "read and change INI settings files",
         "usage: zelutil ini dump FILE\n"
         "       zelutil ini get FILE SECTION KEY      (exit 1 when the key is missing)\n"
         "       zelutil ini set FILE SECTION KEY VALUE (keeps the file's encoding, writes atomically)\n"
         "       zelutil ini convert FILE --to utf8|utf16|ansi\n\n"
         "Sections and keys are printed as UTF-8. Errors name the file and the reason (exit 2).\n",
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
         "new archive beside the old one and replace it only once it reads back whole.\n\n"
         "exit codes: 0 done; 1 an archive or file error; 2 bad arguments, or a refused\n"
         "archive (an entry leaving the folder, sizes that lie, overlapping entries, more\n"
         "than the disk holds), with the entry and the reason.\n",
         RunZip},
        {"xml", "read XML documents and write a sample",
         "usage: zelutil xml dump FILE                     (the tree as indented text)\n"
         "       zelutil xml records FILE NAME [--count N] (the first N records named NAME as XML,\n"
         "                                                  default 10, then the total)\n"
         "       zelutil xml get FILE PATH                 (PATH: root/child/@attribute, or\n"
         "                                                  root/child for its text; exit 1 when missing)\n"
         "       zelutil xml write-sample FILE\n\n"
         "A document cut short is an error. Parse errors name the file, the line and column and\n"
         "the reason (exit 2). records keeps one record in memory at a time.\n",
         RunXml},
        {"text", "print the lines of a text file as UTF-8",
         "usage: zelutil text FILE [--trim] [--skip-empty] [--codepage CP]\n\n"
         "Prints the lines of FILE as UTF-8 with LF line ends. The encoding comes from the\n"
         "byte-order mark (UTF-8, UTF-16 or UTF-32, either byte order); a file without one is\n"
         "read in code page CP (as for convert; default: ansi). LF, CR LF and CR end lines.\n"
         "--trim removes white space at both ends of each line; --skip-empty leaves out\n"
         "empty lines (after trimming, a line of blanks is printed empty).\n\n"
         "exit codes: 0 printed; 2 bad arguments, an unknown code page or an unreadable file.\n",
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

int UsageError(const char* command, const std::string& message) {
    std::fprintf(stderr, "zelutil %s: %s\n", command, message.c_str());
    return kExitUsage;
}

int RunVersion(const Args&) {
    std::puts("zelutil " ZEL_VERSION_TEXT);
    return kExitOk;
}

}  // namespace zelutil
