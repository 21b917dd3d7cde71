/// @file
/// Parsers over the Expat tokenizer, in three layers:
/// - XmlExpatParser owns the Expat parser, feeds it a file in blocks and
///   forwards Expat's callbacks unconverted (UTF-8);
/// - XmlExpatStrParser turns them into wide-string callbacks and keeps the
///   stack of open element names;
/// - XmlExpatHybridParser streams the document but builds every element
///   whose name is registered into a whole XmlElement subtree, handed to the
///   name's handler at its end tag, so large files of independent records
///   parse in bounded memory.
/// XmlTreeParser builds the whole document as one tree.
///
/// Expat runs without namespace processing, with its amplification
/// protection at its defaults; no external entity is ever read, so a
/// reference in the text to an entity declared only in an external DTD
/// fails the parse ("undefined entity &name;"). Besides the
/// encodings Expat knows (UTF-8, UTF-16, ISO-8859-1, US-ASCII), a document
/// may declare a single-byte code page ("windows-1252", "iso-8859-2",
/// "koi8-r", "ibm866", ...) or Shift_JIS, GBK/GB2312, EUC-KR/UHC or Big5,
/// decoded as the library's conversions decode them; bytes a code page
/// leaves undefined make the document malformed.
///
/// Failure: the parse calls return false and, when asked, a message; they
/// throw only what a handler throws (the parse stops at once and the
/// exception reaches the caller).
#pragma once

#include "zelutils/text/zel_string.h"
#include "zelutils/xml/xml_element.h"
#include "zelutils/zel_api.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct XML_ParserStruct;

namespace zel {

/// Where and why the last parse failed.
struct XmlParseFailure {
    int errorCode = 0;           ///< Expat's error code; 0 when Expat did not fail
    unsigned long line = 0;      ///< Expat's line (from 1), 0 when unknown
    unsigned long column = 0;    ///< Expat's column (from 0)
    std::string message;         ///< Expat's text for the code, or the reason
};

/// The Expat layer: callbacks in UTF-8 as Expat delivers them.
class ZEL_API XmlExpatParser {
public:
    /// The block size callers use when they have no reason to choose.
    static constexpr int kDefaultBlockSize = 64 * 1024;

    XmlExpatParser();
    virtual ~XmlExpatParser();
    XmlExpatParser(const XmlExpatParser&) = delete;
    XmlExpatParser& operator=(const XmlExpatParser&) = delete;

    /// Creates the Expat parser for encoding (null: the document's own) on
    /// the first call and resets it on later ones, then installs the
    /// callbacks. Throws std::bad_alloc when Expat cannot be created.
    virtual void CreateOrReset(const char* encoding);
    /// An element starts: its name and Expat's null-terminated list of
    /// attribute names and values.
    virtual void OnRawStartElement(const char* name, const char** attributes);
    /// An element ends.
    virtual void OnRawEndElement(const char* name);
    /// length bytes of character data (one text may come in several pieces).
    virtual void OnRawCharacterData(const char* text, int length);

    /// Parses the file at path in blocks of blockSize bytes. False on
    /// failure, with *error (when given) set to "Failed to open file",
    /// "Not enough memory for buffer", "Failed to read <path>" or "Failed to
    /// parse. Error code: <Expat's code>". Expat is never told that the input
    /// ended, so a document cut short parses as a success, and a file whose
    /// length is a multiple of blockSize (an empty one too) fails to read:
    /// callers of older versions depend on both, so they are kept.
    bool ParseFile(const zel_text::CZelStringW& path, int blockSize = kDefaultBlockSize,
                   zel_text::CZelStringW* error = nullptr, const char* encoding = nullptr);
    /// As ParseFile, but the last block carries Expat's final flag, so a
    /// document cut short fails, and reaching the end is never a read failure.
    bool ParseWholeFile(const zel_text::CZelStringW& path, int blockSize = kDefaultBlockSize,
                        zel_text::CZelStringW* error = nullptr, const char* encoding = nullptr);
    /// Parses size bytes as a whole document (with the final flag). False on
    /// failure, with the "Failed to parse" message in *error when given.
    bool ParseMemory(const void* data, std::size_t size, zel_text::CZelStringW* error = nullptr,
                     const char* encoding = nullptr);

    /// Where and why the last parse failed (all zero after a success).
    const XmlParseFailure& LastFailure() const { return failure_; }

protected:
    /// Stops the parse from inside a callback; it fails with Expat's
    /// "parsing aborted" code and reason as LastFailure's message.
    void Abort(const char* reason);

    /// The Expat parser of the current parse, for the callbacks of derived classes;
    /// null until the first parse (CreateOrReset), freed with the object.
    XML_ParserStruct* expat_ = nullptr;

private:
    bool ParseBlocks(const zel_text::CZelStringW& path, int blockSize, zel_text::CZelStringW* error,
                     const char* encoding, bool finalFlag);
    bool Feed(const char* data, int length, bool final, zel_text::CZelStringW* error);
    bool UndefinedEntityInAttributes();
    friend struct XmlExpatCallbacks;

    XmlParseFailure failure_;
    std::string abortReason_;
    std::exception_ptr handlerError_;
    // Declarations that are never read (an external DTD, a parameter entity)
    // may declare entities: Expat then drops undeclared references in
    // attribute values without a word, so start tags are checked by hand
    // against the general entities the document declares where it is read.
    bool unreadDeclarations_ = false;
    std::vector<std::string> declaredEntities_;
};

/// The wide-string layer: names and text as UTF-16, attributes as a map.
class ZEL_API XmlExpatStrParser : public XmlExpatParser {
public:
    ///@{
    /// Attribute values longer than this many UTF-8 bytes, or elements with
    /// more attributes than kMaxAttributes, stop the parse: a hostile
    /// document must not take the machine's memory.
    static constexpr std::size_t kMaxAttributeBytes = 16 * 1024 * 1024;
    static constexpr std::size_t kMaxAttributes = 65536;
    ///@}

    ~XmlExpatStrParser() override;
    /// The base reset, then the stack of open names is emptied.
    void CreateOrReset(const char* encoding) override;
    /// Converts, pushes the name, then calls OnStartElement.
    void OnRawStartElement(const char* name, const char** attributes) override;
    /// Converts, calls OnEndElement, then pops the name.
    void OnRawEndElement(const char* name) override;
    /// Converts, then calls OnCharacterData.
    void OnRawCharacterData(const char* text, int length) override;
    /// An element starts; does nothing here. attributes are made for this
    /// element alone: an override may take them over instead of copying them.
    virtual void OnStartElement(const zel_text::CZelStringW& name, XmlAttributes& attributes);
    /// An element ends; does nothing here.
    virtual void OnEndElement(const zel_text::CZelStringW& name);
    /// A piece of character data; does nothing here.
    virtual void OnCharacterData(const zel_text::CZelStringW& text);

    /// The names of the open elements, outermost first.
    const std::vector<zel_text::CZelStringW>& OpenElementNames() const { return names_; }

private:
    // A converted text and its UTF-8 bytes: the first and last eight (all
    // of them up to 16 bytes) and, for a longer text, all of them.
    struct CachedText {
        std::uint64_t head = 0;
        std::uint64_t tail = 0;
        std::size_t length = SIZE_MAX;
        std::string longer;
        zel_text::CZelStringW wide;
    };
    static constexpr std::size_t kNameSlots = 64;  // powers of two
    static constexpr std::size_t kValueSlots = 256;
    static constexpr std::size_t kCachedValueBytes = 16;

    const zel_text::CZelStringW& Cached(std::vector<CachedText>& table, const char* text, std::size_t length);
    const zel_text::CZelStringW& Intern(const char* name);
    zel_text::CZelStringW Share(const char* text, std::size_t length);

    std::vector<zel_text::CZelStringW> names_;
    std::vector<CachedText> nameCache_;
    std::vector<CachedText> valueCache_;
};

class XmlExpatHybridParser;

/// A record importer: receives each completed subtree of the names it is
/// registered for.
class ZEL_API IDomXmlHookImporter {
public:
    virtual ~IDomXmlHookImporter() = default;
    /// A completed subtree whose root has a registered name.
    virtual void ImportElement(XmlExpatHybridParser& parser, const XmlElementPtr& element) = 0;
};

/// The streaming parser with whole subtrees for registered names.
class ZEL_API XmlExpatHybridParser : public XmlExpatStrParser {
public:
    /// The exception of the XML layer ("Generic Error" from the accessors).
    using Exception = XmlException;
    /// Receives the parser and a completed subtree.
    using Handler = std::function<void(XmlExpatHybridParser&, const XmlElementPtr&)>;

    ~XmlExpatHybridParser() override;
    /// The previous reset, then the hook depth goes back to 0.
    void CreateOrReset(const char* encoding) override;
    /// Builds the element (taking the attributes over) and pushes it; counts
    /// a registered name, or reports a start outside every hooked subtree (OnOuterStart).
    void OnStartElement(const zel_text::CZelStringW& name, XmlAttributes& attributes) override;
    /// Completes the element: the outermost registered one goes to its
    /// handler, others inside a hooked subtree to their parent's children,
    /// and those outside to OnOuterEnd (without children). An element counts
    /// as registered when its name was at its start tag.
    void OnEndElement(const zel_text::CZelStringW& name) override;
    /// Appends the text, untrimmed, to the innermost open element.
    void OnCharacterData(const zel_text::CZelStringW& text) override;
    /// Whether name has a handler.
    virtual bool IsHooked(const zel_text::CZelStringW& name) const;
    /// An element starts outside every hooked subtree; does nothing here.
    virtual void OnOuterStart(const zel_text::CZelStringW& name);
    /// An element outside every hooked subtree ends: it carries its name,
    /// attributes and text but no children. Does nothing here.
    virtual void OnOuterEnd(const XmlElementPtr& element);
    /// The outermost registered element is complete; calls its handler.
    virtual void OnSubtree(const XmlElementPtr& element);

    /// Registers handler for elements named name (replacing an earlier one).
    void RegisterHook(const zel_text::CZelStringW& name, Handler handler);
    /// Registers importer (which must outlive the parses) for name.
    void RegisterImporter(const zel_text::CZelStringW& name, IDomXmlHookImporter& importer);

    /// How many registered elements are open.
    int HookDepth() const { return hookDepth_; }

private:
    struct OpenElement {
        XmlElementPtr element;
        std::size_t firstChild;  // where its completed children start in completed_
        bool hooked;             // its name was registered at its start tag
    };
    std::vector<OpenElement> stack_;
    // The completed children of the open elements inside hooked subtrees,
    // innermost last; each element takes its own at its end tag, in one
    // allocation.
    std::vector<XmlElementPtr> completed_;
    std::map<zel_text::CZelStringW, Handler, XmlNameLess> hooks_;
    int hookDepth_ = 0;
};

/// Builds the whole document as one tree.
class ZEL_API XmlTreeParser : public XmlExpatHybridParser {
public:
    /// Every element belongs to the one subtree of the document element.
    bool IsHooked(const zel_text::CZelStringW& name) const override;
    /// Keeps the document element.
    void OnSubtree(const XmlElementPtr& element) override;
    void CreateOrReset(const char* encoding) override;

    /// The document element of the last parse; null before its end tag.
    const XmlElementPtr& Root() const { return root_; }

private:
    XmlElementPtr root_;
};

}  // namespace zel
