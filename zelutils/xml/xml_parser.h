/// @file
/// A small pull parser for simple, trusted, machine-written XML files, one
/// tag per line, that does without Expat. It reads the file line by line
/// (zel_fs::CTextFile: any byte-order mark, or a narrow code page), cuts the
/// text into tag pieces and text pieces, and hands over one piece at a time
/// as three strings: the tag name, the raw attribute text and the text that
/// follows the tag. Attribute values are picked out of the attribute text on
/// request. Its grammar is the one described here, not XML's: it checks
/// nothing, and an unbalanced "<" or ">" only moves where pieces are cut.
///
/// The pieces: on each line, a "<" up to the next ">" is a tag piece, the
/// characters between two tags a text piece, and what is left when no
/// further "<" or ">" comes is one piece. Pieces are trimmed of white space
/// and empty ones dropped. Lines without a ">" are gathered (trimmed, joined
/// by one space) and put in front of the first piece of the next line that
/// has one, so a start tag written over several lines arrives whole.
///
/// Failure: Open reports a result code; the reading calls return false at
/// the end of the file. Nothing throws and nothing is logged.
#pragma once

#include "zelutils/fs/text_file.h"
#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace zel {

class CXmlParser;

/// The pull parser's state and operations; CXmlParser is what Open makes.
/// One parser serves one thread.
class ZEL_API CXmlParserBase {
public:
    /// What Open reports.
    enum OpenResult {
        kOpened = 0,       ///< opened and accepted; the caller owns the new parser
        kCannotOpen = 1,   ///< the file could not be opened (the last error tells why)
        kNotXml = 2,       ///< the file's first line has no "xml" in it
    };
    ///@{
    /// The bounds of the text file's block buffer (see BufferSizeFor).
    static constexpr int kMinBufferSize = 512;
    static constexpr int kMaxBufferSize = 1024 * 1024;
    ///@}

    /// Opens the file at path; on kOpened, parser holds a new parser (owned
    /// by the caller), otherwise it is empty. The first line decides: one
    /// holding "xml version=" is the declaration and is passed over (any
    /// other first line is read again as the document's); when it holds
    /// encoding="utf-8" or encoding="UTF-8" (exactly these spellings) and no
    /// byte-order mark chose a Unicode encoding, the file is read as UTF-8,
    /// otherwise in the system code page. The file is accepted when its
    /// first line holds "xml" anywhere.
    static int Open(const zel_text::CZelStringW& path, std::unique_ptr<CXmlParser>& parser);
    /// The text file's block buffer for a file of fileSize bytes: a
    /// sixteenth of it rounded down to a multiple of 512, within
    /// [kMinBufferSize, kMaxBufferSize]; kMinBufferSize for a size of 0 or
    /// less (empty, or not measurable).
    static int BufferSizeFor(std::int64_t fileSize);

    virtual ~CXmlParserBase();
    CXmlParserBase(const CXmlParserBase&) = delete;
    CXmlParserBase& operator=(const CXmlParserBase&) = delete;

    /// The next piece: for a tag piece, name is what follows the "<" up to
    /// the first space (or up to the ">"), attributes the text from that
    /// space to before the ">", and text what follows the ">" (the text of
    /// lines joined to the tag); a text piece gives its text with the name of
    /// the last tag read before it and no attributes. All three are
    /// unescaped (XmlUnescape). End tags come as names beginning with "/",
    /// the declaration and the like with "?" or "!". A tag whose name begins
    /// with "!--" opens a comment, which ends at a later text piece that is
    /// exactly "-->" (the end of a comment around tags, as in
    /// "<!-- <old/> -->"); its pieces are passed over and the piece after it
    /// is returned. A comment that holds no ">" therefore hides everything up
    /// to such a piece: files written by older versions were read that way,
    /// and it is kept. False, with the three strings untouched, at the end of
    /// the file (or when a tag would be longer than a string can hold).
    bool ReadNextTag(zel_text::CZelStringW& name, zel_text::CZelStringW& attributes,
                     zel_text::CZelStringW& text);

    /// The value of the attribute name in attributes (as ReadNextTag gives
    /// them): after the first "name=" that starts the text or follows a
    /// space, the text between the next double quote and the one after it.
    /// When more quotes follow that one at once, the value runs up to the
    /// last quote of the run (a value that ends in an unescaped quote). The
    /// value is unescaped (XmlUnescape). Empty when the attribute is absent
    /// or its value lacks a quote.
    static zel_text::CZelStringW GetAttribute(const zel_text::CZelStringW& attributes,
                                              const zel_text::CZelStringW& name);

    /// Takes the text in front of the next "<" (the whole next piece when it
    /// holds none; reading lines first when no piece is left), trims it and
    /// splits it at every delimiter; each value, trimmed, is appended to
    /// values. What follows the text stays for the next read. False as soon
    /// as a value holds one of the characters of stops (that value and the
    /// rest are not appended), and at the end of the file; true when every
    /// value was taken. Empty text (the next piece is a tag) appends nothing,
    /// so a caller waiting for a number of values stops when none come.
    bool ReadValueList(WCHAR delimiter, const zel_text::CZelStringW& stops,
                       std::vector<zel_text::CZelStringW>& values);

    /// True until ReadNextTag has returned a piece.
    bool IsBeforeFirstTag() const { return beforeFirstTag_; }
    /// The code page the file is read in (as CTextFile::GetCodePage).
    UINT GetCodePage() const { return file_.GetCodePage(); }
    /// The text file's block buffer size in bytes.
    int GetBufferSize() const { return file_.GetBufferSize(); }

protected:
    /// Proof that a parser is made by Open: only the parser classes can
    /// name it.
    struct OpenKey {
        explicit OpenKey() = default;
    };
    /// A parser with no file yet, reading through a block buffer of
    /// bufferSize bytes.
    CXmlParserBase(OpenKey, int bufferSize);

private:
    bool ReadPieces();
    void CutIntoPieces(const zel_text::CZelStringW& line, std::basic_string<WCHAR>& gathered);
    void QueuePiece(const zel_text::CZelStringW& line, int first, int end, std::basic_string<WCHAR>& gathered);

    zel_fs::CTextFile file_;
    std::deque<zel_text::CZelStringW> pieces_;  ///< cut from the lines read, not yet handed over
    zel_text::CZelStringW lastName_;            ///< the last non-empty tag name, raw
    bool beforeFirstTag_ = true;
};

/// The parser Open makes.
class ZEL_API CXmlParser : public CXmlParserBase {
public:
    /// A parser with no file; see Open.
    CXmlParser(OpenKey key, int bufferSize);
    /// Closes the file.
    ~CXmlParser() override;
};

}  // namespace zel
