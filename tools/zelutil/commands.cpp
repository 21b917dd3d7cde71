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
