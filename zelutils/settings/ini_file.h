/// @file
/// INI settings files: a whole file loaded into an ordered table of sections
/// and keys, and such a table saved back, in UTF-16LE, UTF-8 or a narrow
/// code page. The grammar is strict and the same for every encoding: a line
/// is classified by its first character (a key starts with a letter, a
/// digit or '_'; '#', '/' and ';' start comments; '[' a section header; a
/// line of blanks ends the current section; anything else fails the load).
/// Keys before any header, or after a blank-only line, belong to the
/// section "".
///
/// Both operations report by a boolean only; nothing is logged and nothing
/// throws. SaveIniFile overwrites the file in place and, like the versions
/// before it, notices only failures to create the folder or the file and
/// writes that transfer nothing; SaveIniFileAtomic writes the same bytes to
/// a temporary file in the same folder, flushes it, and renames it over the
/// target, so a crash or a full disk never leaves a torn file.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zel_api.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <vector>

namespace zel_settings {

/// Orders wide strings by code unit: case-sensitive, no locale.
struct CodeUnitLess {
    /// True when left sorts before right, the whole strings compared unit by unit.
    ZEL_API bool operator()(const zel_text::CZelStringW& left, const zel_text::CZelStringW& right) const;
};

/// Keys to values of one section.
using IniKeys = std::map<zel_text::CZelStringW, zel_text::CZelStringW, CodeUnitLess>;
/// Section names to their keys.
using IniSections = std::map<zel_text::CZelStringW, IniKeys, CodeUnitLess>;

/// File encodings, as SaveIniFile takes them and the loader detects them.
enum IniEncoding : int {
    kIniUnknown = 0,
    kIniNarrow = 1,   ///< as a save argument: code page 1; any other number is a code page too
    kIniUtf16LE = 2,  ///< with the byte-order mark FF FE
    kIniUtf8 = 3,     ///< with the byte-order mark EF BB BF
};

/// A source of lines over text held in memory.
class ZEL_API IZelIniFileReaderImpl {
public:
    /// True when no characters remain or the next one is NUL (a NUL ends the text).
    virtual bool AtEnd() = 0;
    /// Skips CR/LF runs and returns the next line, converted to wide text
    /// (empty at the end).
    virtual zel_text::CZelStringW ReadLine() = 0;
    /// The number, from 1, of the line ReadLine returned last; LF, CR LF and
    /// CR each end one line, so empty lines count too.
    virtual int LineNumber() const = 0;
    virtual ~IZelIniFileReaderImpl();
};

/// The line source for one encoding over a borrowed range of Char units.
/// String is the scratch line's type: CZelStringW (no conversion),
/// CZelStringUtf8 (code page 65001) or CZelStringA (the given code page).
template <class String, class Char>
class TZelIniFileReaderImpl final : public IZelIniFileReaderImpl {
public:
    /// Reads count units at text, which are not copied and must outlive the reader;
    /// narrow lines are converted with codePage.
    TZelIniFileReaderImpl(const Char* text, std::size_t count, UINT codePage)
        : text_(text), count_(count), codePage_(codePage) {}
    bool AtEnd() override;
    zel_text::CZelStringW ReadLine() override;
    int LineNumber() const override { return lineNumber_; }

private:
    void SkipLineEnds();

    const Char* text_;
    std::size_t count_;
    std::size_t position_ = 0;
    int lineNumber_ = 0;
    int nextLineNumber_ = 1;
    UINT codePage_;
    String line_;
};

/// A sink of lines into a file created afresh.
class ZEL_API IZelIniFileWriterImpl {
public:
    /// Creates path for reading and writing and writes the encoding's mark.
    virtual bool Open(const zel_text::CZelStringW& path) = 0;
    /// Writes text converted to the file's encoding, no line end.
    virtual bool Write(const zel_text::CZelStringW& text) = 0;
    /// Writes text and "\r\n".
    virtual bool WriteLine(const zel_text::CZelStringW& text) = 0;
    /// Closes the file (writing what is still buffered).
    virtual ~IZelIniFileWriterImpl();
};

/// A run of UTF-16 units that WriteLineOf puts into a line: where it starts
/// and how many units it has.
struct IniTextPiece {
    const WCHAR* units;  ///< the first unit
    int count;           ///< the number of units, 0 or more
};

/// The line sink for one encoding: UTF-16LE units as they are
/// (CZelStringW, WCHAR), UTF-8 (CZelStringUtf8, char) or the narrow code
/// page given as the encoding (CZelStringA, char). Output is gathered and
/// written in blocks.
template <class String, class Char>
class TZelIniFileWriterImpl final : public IZelIniFileWriterImpl {
public:
    /// A closed writer for encoding (kIniUtf16LE, kIniUtf8, or a narrow code page).
    explicit TZelIniFileWriterImpl(int encoding) : encoding_(encoding) {}
    ~TZelIniFileWriterImpl() override;
    bool Open(const zel_text::CZelStringW& path) override;
    /// Writes into file, an open handle that stays the caller's (the writer
    /// never closes it), starting with the encoding's mark.
    void Attach(HANDLE file);
    bool Write(const zel_text::CZelStringW& text) override;
    bool WriteLine(const zel_text::CZelStringW& text) override;
    /// Writes the pieces one after the other and "\r\n", as WriteLine of
    /// their concatenation would. Whole lines are gathered and converted
    /// together, which gives the same bytes as one conversion per line: no
    /// character, and no shift state of a code page, spans a line end.
    /// False only when a write transferred nothing.
    bool WriteLineOf(std::initializer_list<IniTextPiece> pieces);

    /// Writes the gathered output; false when a write transferred nothing.
    bool Flush();
    /// Writes what is gathered and reports, with the last error, whether
    /// every conversion and write succeeded; a file the writer opened is
    /// also pushed to the disk and closed.
    bool Commit();
    /// True when any platform write failed or came up short.
    bool WriteFailed() const { return writeFailed_; }

private:
    void Gather(const WCHAR* units, std::size_t count);
    void ConvertGathered();
    bool WriteWhenFull();
    void StartWithMark();

    HANDLE handle_ = INVALID_HANDLE_VALUE;
    bool ownsHandle_ = true;
    DWORD firstError_ = 0;
    int encoding_;
    std::vector<WCHAR> lines_;   // text not yet converted; only the first lineUnits_ are used
    std::size_t lineUnits_ = 0;
    std::vector<char> pending_;  // bytes not yet written; only the first pendingBytes_ are used
    std::size_t pendingBytes_ = 0;
    bool writeFailed_ = false;
    bool transferredNothing_ = false;
};

/// What a line is by the grammar above.
enum class IniLineKind {
    kBlank,    ///< empty or blanks only: ends the current section
    kComment,  ///< starts with '#', '/' or ';'
    kSection,  ///< "[name]", blanks around it allowed
    kKey,      ///< "key=value": the key up to the first '=', the value after it, both as they stand
    kInvalid,  ///< breaks the grammar: the load fails here
};

/// Classifies line (without its line end). For kSection *name receives the
/// section's name; for kKey *name the key and *value the value; for kInvalid
/// *reason (when given) says what is wrong, in words.
ZEL_API IniLineKind ClassifyIniLine(const zel_text::CZelStringW& line, zel_text::CZelStringW* name,
                                    zel_text::CZelStringW* value, const char** reason = nullptr);

/// Where and why a text failed the grammar.
struct IniSyntaxError {
    int line = 0;              ///< the first bad line's number, from 1; 0 when the text loaded
    const char* reason = "";  ///< what is wrong with it
};

/// Loads the whole file at path into table (cleared first). False when the
/// file cannot be read (table untouched) or a line breaks the grammar (the
/// table keeps what was stored before that line).
ZEL_API bool LoadIniFile(const zel_text::CZelStringW& path, IniSections& table);

/// Writes table to path in encoding (2 UTF-16LE with mark, 3 UTF-8 with
/// mark, any other value a narrow file in that code page), creating missing
/// folders. Sections and keys in table order, "[name]", "key=value", an
/// empty line after each section, CR LF line ends.
ZEL_API bool SaveIniFile(const zel_text::CZelStringW& path, const IniSections& table, int encoding);

/// As SaveIniFile, but through zel_fs::ReplaceFileAtomically: path never
/// holds a torn file, keeps its mode, and a link to it stays a link. On
/// failure (false with the last error: ERROR_INVALID_PARAMETER for an
/// encoding that is no known code page, the conversion's or the file's
/// error otherwise) it keeps its previous content, except when only the
/// folder's flush failed, when it holds the whole new content (and false
/// reports that the rename may not survive a power loss). No temporary
/// file is left.
ZEL_API bool SaveIniFileAtomic(const zel_text::CZelStringW& path, const IniSections& table, int encoding);

/// Parses text already in memory (bytes of a whole file) into table, as
/// LoadIniFile does after reading the file.
ZEL_API bool ParseIniText(const void* bytes, std::size_t count, IniSections& table);
/// As ParseIniText; a text that breaks the grammar also fills *error.
ZEL_API bool ParseIniText(const void* bytes, std::size_t count, IniSections& table, IniSyntaxError* error);

}  // namespace zel_settings
