#include "zelutils/xml/xml_expat_parser.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <expat.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

namespace zel {

using zel_text::CZelStringW;

namespace {

// A message template with its "{1}" replaced by argument.
CZelStringW Message(const char* pattern, const CZelStringW& argument = CZelStringW()) {
    CZelStringW text(pattern, CP_ACP);
    text.Replace(ZW("{1}"), argument);
    return text;
}

void Report(CZelStringW* error, const CZelStringW& message) {
    if (error != nullptr) *error = message;
}

// UTF-8 from Expat (always well formed) as UTF-16. Short texts, the usual
// ones, are converted straight into a buffer of their byte length (ASCII
// widened in line), which a few units of a non-ASCII text leave unused;
// longer ones are measured first and get a buffer of exactly their length.
CZelStringW FromUtf8(const char* text, int length) {
    constexpr int kShort = 64;
    CZelStringW wide;
    if (length <= kShort) {
        WCHAR* units = wide.GetBufferSetLength(length);
        bool ascii = true;
        for (int at = 0; at < length; ++at) {
            auto byte = static_cast<unsigned char>(text[at]);
            ascii &= byte < 0x80;
            units[at] = byte;
        }
        if (!ascii) wide.ReleaseBuffer(zel_text::ConvertNarrowToWide(units, length, text, length, CP_UTF8));
        return wide;
    }
    int count = zel_text::MeasureNarrowToWide(text, length, CP_UTF8);
    count = zel_text::ConvertNarrowToWide(wide.GetBuffer(count), count, text, length, CP_UTF8);
    wide.ReleaseBuffer(count);
    return wide;
}

// The first and last eight bytes of a text (fewer for a shorter one): with
// its length they are the whole text up to 16 bytes, and the hash of any.
struct TextKey {
    std::uint64_t head = 0;
    std::uint64_t tail = 0;

    TextKey(const char* text, std::size_t length) {
        if (length >= 8) {
            std::memcpy(&head, text, 8);
            std::memcpy(&tail, text + length - 8, 8);
        } else if (length >= 4) {
            std::uint32_t first, last;
            std::memcpy(&first, text, 4);
            std::memcpy(&last, text + length - 4, 4);
            head = first;
            tail = last;
        } else if (length > 0) {
            head = static_cast<unsigned char>(text[0]) | static_cast<unsigned char>(text[length / 2]) << 8 |
                   static_cast<unsigned char>(text[length - 1]) << 16;
        }
    }
    std::size_t Hash(std::size_t length) const {
        std::uint64_t hash = (head * 0x9E3779B97F4A7C15u) ^ (tail * 0xC2B2AE3D27D4EB4Fu) ^ length;
        return static_cast<std::size_t>(hash ^ (hash >> 29));
    }
};

// The length of a NUL-terminated text: names and most values are short, so
// the first bytes are counted in line, without a call.
std::size_t TextLength(const char* text) {
    for (std::size_t at = 0; at < 16; ++at) {
        if (text[at] == 0) return at;
    }
    return 16 + std::strlen(text + 16);
}

// Closes a platform file handle on every path.
class FileGuard {
public:
    explicit FileGuard(HANDLE handle) : handle_(handle) {}
    ~FileGuard() { zel_fs::file_close_reset(handle_); }
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;

private:
    HANDLE handle_;
};

// The code page of an encoding name Expat does not know itself (it knows
// UTF-8, UTF-16, ISO-8859-1 and US-ASCII), by the names documents declare:
// "windows-1252", "cp852", "ibm866", "iso-8859-2", "shift_jis", ...; 0 for
// names without one.
UINT CodePageOfEncoding(const char* declared) {
    std::string name(declared);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c); });
    static const struct {
        const char* name;
        UINT codePage;
    } kNames[] = {
        {"shift_jis", 932},   {"sjis", 932},     {"windows-31j", 932},    {"gb2312", 936},
        {"gbk", 936},         {"euc-kr", 949},   {"ks_c_5601-1987", 949}, {"big5", 950},
        {"euc-jp", 51932},    {"x-euc-jp", 51932},
        {"tis-620", 874},     {"koi8-r", 20866}, {"koi8-u", 21866},       {"macintosh", 10000},
        {"maccyrillic", 10007}, {"x-mac-cyrillic", 10007},
    };
    for (const auto& known : kNames) {
        if (name == known.name) return known.codePage;
    }
    auto numberAfter = [&](const char* prefix) -> UINT {
        std::size_t length = std::strlen(prefix);
        if (name.compare(0, length, prefix) != 0 || name.size() == length || name.size() > length + 5 ||
            name.find_first_not_of("0123456789", length) != std::string::npos) {
            return 0;
        }
        return static_cast<UINT>(std::stoul(name.substr(length)));
    };
    for (const char* prefix : {"iso-8859-", "iso8859-", "iso_8859-"}) {
        UINT part = numberAfter(prefix);
        if ((part >= 2 && part <= 9) || part == 13 || part == 15) return 28590 + part;
    }
    for (const char* prefix : {"windows-", "x-cp", "cp", "ibm"}) {
        if (UINT codePage = numberAfter(prefix)) return codePage;
    }
    return 0;
}

// EUC-JP's bytes: ASCII, 8E before a half-width katakana byte, 8F before a
// two-byte JIS X 0212 character, A1-FE pairs for JIS X 0208.
constexpr UINT kEucJp = 51932;
int EucJpSequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead == 0x8F) return 3;
    return lead == 0x8E || (lead >= 0xA1 && lead != 0xFF) ? 2 : 0;
}

// A multi-byte code page and the character its invalid sequences decode
// to, packed in Expat's data pointer: code pages fit in 16 bits.
void* PackMultiByte(UINT codePage, WCHAR invalid) {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(codePage | static_cast<UINT>(invalid) << 16));
}

// A character of a multi-byte code page (two bytes, or three for EUC-JP's
// 8F), or -1 when the code page does not define it: the conversion gives
// '?' or the code page's own replacement (Shift-JIS's middle dot), which
// then must be the one sequence that encodes it.
int XMLCALL DecodeMultiByte(void* data, const char* bytes) {
    auto packed = static_cast<UINT>(reinterpret_cast<std::uintptr_t>(data));
    UINT codePage = packed & 0xFFFF;
    int length = codePage == kEucJp ? EucJpSequenceLength(static_cast<unsigned char>(bytes[0])) : 2;
    WCHAR wide[3] = {};
    if (MultiByteToWideChar(codePage, 0, bytes, length, wide, 3) != 1 || wide[0] == ZW('?')) return -1;
    if (wide[0] == static_cast<WCHAR>(packed >> 16)) {
        char encoded[4] = {};
        if (WideCharToMultiByte(codePage, 0, wide, 1, encoded, sizeof encoded, nullptr, nullptr) != length ||
            std::memcmp(encoded, bytes, static_cast<std::size_t>(length)) != 0) {
            return -1;
        }
    }
    return wide[0];
}

// Expat's hook for encodings it does not know: single-byte code pages, the
// double-byte ones whose lead bytes the platform reports (Shift-JIS, GBK,
// UHC, Big5) and EUC-JP, decoded by the library's conversions. Bytes the code page
// leaves undefined are malformed, as bytes that are not UTF-8 are in a UTF-8
// document. Other names stay unknown, and the parse fails with Expat's
// "unknown encoding".
int XMLCALL OnUnknownEncoding(void*, const XML_Char* name, XML_Encoding* info) {
    UINT codePage = CodePageOfEncoding(name);
    CPINFO shape{};
    if (codePage == 0 || codePage == CP_UTF8 || !GetCPInfo(codePage, &shape)) return XML_STATUS_ERROR;
    bool eucJp = codePage == kEucJp;
    bool multiByte = eucJp || (shape.MaxCharSize == 2 && shape.LeadByte[0] != 0);
    if (shape.MaxCharSize != 1 && !multiByte) return XML_STATUS_ERROR;
    for (unsigned byte = 0; byte < 256; ++byte) {
        int length = eucJp ? EucJpSequenceLength(static_cast<unsigned char>(byte))
                           : multiByte && zel_platform::IsLeadByteIn(shape, static_cast<unsigned char>(byte)) ? 2 : 1;
        if (length != 1) {
            info->map[byte] = length == 0 ? -1 : -length;
            continue;
        }
        char narrow = static_cast<char>(byte);
        WCHAR wide = 0;
        bool decoded = MultiByteToWideChar(codePage, 0, &narrow, 1, &wide, 1) == 1 && (wide != ZW('?') || byte == '?');
        info->map[byte] = decoded ? wide : -1;
    }
    if (multiByte) {
        // 7F follows no lead byte in any of these code pages.
        const char invalid[2] = {static_cast<char>(eucJp ? 0xA1 : shape.LeadByte[0]), 0x7F};
        WCHAR replacement[2] = {};
        MultiByteToWideChar(codePage, 0, invalid, 2, replacement, 2);
        info->data = PackMultiByte(codePage, replacement[0]);
        info->convert = DecodeMultiByte;
    } else {
        info->data = nullptr;
        info->convert = nullptr;
    }
    info->release = nullptr;
    return XML_STATUS_OK;
}

}  // namespace

// Expat's callbacks: each only calls the parser's raw operation. An
// exception must not cross Expat's C frames, so it stops the parse and is
// thrown again once Expat has returned.
struct XmlExpatCallbacks {
    template <typename Call>
    static void Guard(void* userData, Call call) {
        auto* parser = static_cast<XmlExpatParser*>(userData);
        try {
            call(*parser);
        } catch (...) {
            parser->handlerError_ = std::current_exception();
            XML_StopParser(parser->expat_, XML_FALSE);
        }
    }
    static void Start(void* userData, const XML_Char* name, const XML_Char** attributes) {
        Guard(userData, [&](XmlExpatParser& parser) {
            if (parser.unreadDeclarations_ && attributes[0] != nullptr && parser.UndefinedEntityInAttributes()) return;
            parser.OnRawStartElement(name, attributes);
        });
    }
    static void End(void* userData, const XML_Char* name) {
        Guard(userData, [&](XmlExpatParser& parser) { parser.OnRawEndElement(name); });
    }
    static void Characters(void* userData, const XML_Char* text, int length) {
        Guard(userData, [&](XmlExpatParser& parser) { parser.OnRawCharacterData(text, length); });
    }
    // A reference to an entity the document declares nowhere it is read
    // (only in an external DTD, which is never read): its text would be lost
    // without a trace, so the parse fails, as it does when there is no DTD.
    static void SkippedEntity(void* userData, const XML_Char* name, int isParameterEntity) {
        auto* parser = static_cast<XmlExpatParser*>(userData);
        if (isParameterEntity) {
            parser->unreadDeclarations_ = true;
            return;
        }
        parser->Abort(("undefined entity &" + std::string(name) + ";").c_str());
    }
    static void StartDoctype(void* userData, const XML_Char*, const XML_Char* systemId, const XML_Char*, int) {
        if (systemId != nullptr) static_cast<XmlExpatParser*>(userData)->unreadDeclarations_ = true;
    }
    static void EntityDeclaration(void* userData, const XML_Char* name, int isParameterEntity, const XML_Char*, int,
                                  const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
        if (!isParameterEntity) static_cast<XmlExpatParser*>(userData)->declaredEntities_.emplace_back(name);
    }
};

namespace {

// The current start tag's bytes as ASCII (UTF-16 read unit by unit; other
// characters as 0x80), enough to find entity references in it.
std::string AsciiView(const char* bytes, int count) {
    bool littleEndian = count >= 2 && bytes[0] == '<' && bytes[1] == 0;
    bool bigEndian = count >= 2 && bytes[0] == 0 && bytes[1] == '<';
    if (!littleEndian && !bigEndian) return std::string(bytes, static_cast<std::size_t>(count));
    std::string ascii;
    for (int at = 0; at + 1 < count; at += 2) {
        auto low = static_cast<unsigned char>(bytes[at + (littleEndian ? 0 : 1)]);
        auto high = static_cast<unsigned char>(bytes[at + (littleEndian ? 1 : 0)]);
        ascii += high == 0 && low < 0x80 ? static_cast<char>(low) : '\x80';
    }
    return ascii;
}

}  // namespace

// Fails the parse at the first reference in an attribute value of the
// current start tag to an ASCII-named entity that is neither predefined nor
// declared where the document is read (a name in another script cannot be
// compared with the declarations reliably, and is let through).
bool XmlExpatParser::UndefinedEntityInAttributes() {
    int offset = 0;
    int size = 0;
    const char* context = XML_GetInputContext(expat_, &offset, &size);
    int count = XML_GetCurrentByteCount(expat_);
    if (context == nullptr || count <= 0 || offset < 0 || offset > size - count) return false;
    std::string tag = AsciiView(context + offset, count);
    char quote = 0;
    for (std::size_t at = 0; at < tag.size(); ++at) {
        char c = tag[at];
        if (c == '"' || c == '\'') {
            quote = quote == 0 ? c : quote == c ? 0 : quote;
            continue;
        }
        if (quote == 0 || c != '&' || tag.compare(at + 1, 1, "#") == 0) continue;
        std::size_t end = tag.find(';', at);
        if (end == std::string::npos) return false;
        std::string name = tag.substr(at + 1, end - at - 1);
        at = end;
        bool ascii = std::none_of(name.begin(), name.end(), [](char n) { return static_cast<unsigned char>(n) >= 0x80; });
        bool known = name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos" ||
                     std::find(declaredEntities_.begin(), declaredEntities_.end(), name) != declaredEntities_.end();
        if (ascii && !known) {
            Abort(("undefined entity &" + name + ";").c_str());
            return true;
        }
    }
    return false;
}

XmlExpatParser::XmlExpatParser() = default;

XmlExpatParser::~XmlExpatParser() {
    if (expat_ != nullptr) XML_ParserFree(expat_);
}

void XmlExpatParser::CreateOrReset(const char* encoding) {
    if (expat_ == nullptr) {
        expat_ = XML_ParserCreate(encoding);
        if (expat_ == nullptr) throw std::bad_alloc();
    } else if (!XML_ParserReset(expat_, encoding)) {
        throw std::bad_alloc();
    }
    XML_SetElementHandler(expat_, XmlExpatCallbacks::Start, XmlExpatCallbacks::End);
    XML_SetCharacterDataHandler(expat_, XmlExpatCallbacks::Characters);
    XML_SetUnknownEncodingHandler(expat_, OnUnknownEncoding, nullptr);
    XML_SetSkippedEntityHandler(expat_, XmlExpatCallbacks::SkippedEntity);
    XML_SetStartDoctypeDeclHandler(expat_, XmlExpatCallbacks::StartDoctype);
    XML_SetEntityDeclHandler(expat_, XmlExpatCallbacks::EntityDeclaration);
    XML_SetUserData(expat_, this);
    failure_ = XmlParseFailure();
    abortReason_.clear();
    handlerError_ = nullptr;
    unreadDeclarations_ = false;
    declaredEntities_.clear();
}

void XmlExpatParser::OnRawStartElement(const char*, const char**) {}
void XmlExpatParser::OnRawEndElement(const char*) {}
void XmlExpatParser::OnRawCharacterData(const char*, int) {}

void XmlExpatParser::Abort(const char* reason) {
    abortReason_ = reason;
    XML_StopParser(expat_, XML_FALSE);
}

bool XmlExpatParser::Feed(const char* data, int length, bool final, CZelStringW* error) {
    XML_Status status = data == nullptr ? XML_ParseBuffer(expat_, length, final)
                                        : XML_Parse(expat_, data, length, final);
    if (handlerError_) {
        std::exception_ptr thrown = handlerError_;
        handlerError_ = nullptr;
        std::rethrow_exception(thrown);
    }
    if (status != XML_STATUS_ERROR) return true;
    XML_Error code = XML_GetErrorCode(expat_);
    failure_.errorCode = static_cast<int>(code);
    failure_.line = static_cast<unsigned long>(XML_GetCurrentLineNumber(expat_));
    failure_.column = static_cast<unsigned long>(XML_GetCurrentColumnNumber(expat_));
    failure_.message = !abortReason_.empty() ? abortReason_ : XML_ErrorString(code);
    Report(error, Message("Failed to parse. Error code: {1}", zel_text::FormatInt64(code)));
    return false;
}

bool XmlExpatParser::ParseBlocks(const CZelStringW& path, int blockSize, CZelStringW* error,
                                 const char* encoding, bool finalFlag) {
    CreateOrReset(encoding);
    HANDLE handle = INVALID_HANDLE_VALUE;
    if (!zel_fs::file_open_read(handle, path)) {
        failure_.message = "cannot open the file";
        Report(error, Message("Failed to open file"));
        return false;
    }
    FileGuard closeOnReturn(handle);
    for (;;) {
        void* buffer = XML_GetBuffer(expat_, blockSize);
        if (buffer == nullptr) {
            failure_.message = "out of memory";
            Report(error, Message("Not enough memory for buffer"));
            return false;
        }
        std::int32_t count = zel_fs::file_read(handle, buffer, blockSize);
        if (count < 0 || (count == 0 && !finalFlag)) {
            failure_.message = "cannot read the file";
            Report(error, Message("Failed to read {1}", path));
            return false;
        }
        bool last = count < blockSize;
        // The file parse proper never sets the final flag (a read of 0 bytes
        // has failed above), so Expat never hears that the input ended.
        if (!Feed(nullptr, count, finalFlag ? last : count == 0, error)) return false;
        if (last) return true;
    }
}

bool XmlExpatParser::ParseFile(const CZelStringW& path, int blockSize, CZelStringW* error, const char* encoding) {
    return ParseBlocks(path, blockSize, error, encoding, false);
}

bool XmlExpatParser::ParseWholeFile(const CZelStringW& path, int blockSize, CZelStringW* error,
                                    const char* encoding) {
    return ParseBlocks(path, blockSize, error, encoding, true);
}

bool XmlExpatParser::ParseMemory(const void* data, std::size_t size, CZelStringW* error, const char* encoding) {
    CreateOrReset(encoding);
    const char* bytes = static_cast<const char*>(data);
    // Expat takes an int length: larger inputs go in pieces.
    do {
        int piece = static_cast<int>(std::min<std::size_t>(size, INT_MAX / 2));
        size -= static_cast<std::size_t>(piece);
        if (!Feed(bytes != nullptr ? bytes : "", piece, size == 0, error)) return false;
        bytes += piece;
    } while (size > 0);
    return true;
}

// ---- wide strings ------------------------------------------------------

XmlExpatStrParser::~XmlExpatStrParser() = default;

void XmlExpatStrParser::CreateOrReset(const char* encoding) {
    XmlExpatParser::CreateOrReset(encoding);
    names_.clear();
    if (nameCache_.empty()) {
        nameCache_.resize(kNameSlots);
        valueCache_.resize(kValueSlots);
    }
}

// Names repeat, and so do many short values and texts (codes, flags,
// numbers, the line breaks between elements): direct-mapped tables keyed by a
// hash of the UTF-8 bytes keep them converted, so a repeat shares the buffer
// of the last conversion instead of converting and allocating again.
const CZelStringW& XmlExpatStrParser::Cached(std::vector<CachedText>& table, const char* text, std::size_t length) {
    TextKey key(text, length);
    CachedText& slot = table[key.Hash(length) & (table.size() - 1)];
    bool same = slot.length == length && slot.head == key.head && slot.tail == key.tail &&
                (length <= 16 || std::memcmp(slot.longer.data(), text, length) == 0);
    if (!same) {
        slot.wide = FromUtf8(text, static_cast<int>(length));
        slot.head = key.head;
        slot.tail = key.tail;
        slot.length = length;
        if (length > 16) slot.longer.assign(text, length);
    }
    return slot.wide;
}

const CZelStringW& XmlExpatStrParser::Intern(const char* name) { return Cached(nameCache_, name, TextLength(name)); }

CZelStringW XmlExpatStrParser::Share(const char* text, std::size_t length) {
    if (length <= kCachedValueBytes) return Cached(valueCache_, text, length);
    return FromUtf8(text, static_cast<int>(length));
}

void XmlExpatStrParser::OnRawStartElement(const char* name, const char** attributes) {
    std::size_t count = 0;
    while (attributes[2 * count] != nullptr) ++count;
    if (count > kMaxAttributes) {
        Abort("too many attributes");
        return;
    }
    XmlAttributes converted;
    converted.Reserve(count);
    for (const char** pair = attributes; *pair != nullptr; pair += 2) {
        std::size_t valueBytes = TextLength(pair[1]);
        if (valueBytes > kMaxAttributeBytes) {
            Abort("attribute value too long");
            return;
        }
        converted.Append(Intern(pair[0]), Share(pair[1], valueBytes));
    }
    // Expat gives the attributes in document order and has refused duplicates.
    converted.SortByName();
    names_.push_back(Intern(name));
    OnStartElement(names_.back(), converted);
}

void XmlExpatStrParser::OnRawEndElement(const char* name) {
    // Expat has checked that the end tag names the innermost open element.
    if (names_.empty()) {
        OnEndElement(Intern(name));
        return;
    }
    OnEndElement(names_.back());
    names_.pop_back();
}

void XmlExpatStrParser::OnRawCharacterData(const char* text, int length) {
    // A short text is handed on from the cache itself, without a copy.
    auto bytes = static_cast<std::size_t>(length);
    if (bytes <= kCachedValueBytes) {
        OnCharacterData(Cached(valueCache_, text, bytes));
    } else {
        OnCharacterData(FromUtf8(text, length));
    }
}

void XmlExpatStrParser::OnStartElement(const CZelStringW&, XmlAttributes&) {}
void XmlExpatStrParser::OnEndElement(const CZelStringW&) {}
void XmlExpatStrParser::OnCharacterData(const CZelStringW&) {}

// ---- hybrid ------------------------------------------------------------

XmlExpatHybridParser::~XmlExpatHybridParser() = default;

void XmlExpatHybridParser::CreateOrReset(const char* encoding) {
    XmlExpatStrParser::CreateOrReset(encoding);
    stack_.clear();
    completed_.clear();
    hookDepth_ = 0;
}

void XmlExpatHybridParser::OnStartElement(const CZelStringW& name, XmlAttributes& attributes) {
    bool hooked = IsHooked(name);
    auto element = std::make_shared<XmlElement>(name);
    element->SetAttributes(std::move(attributes));
    stack_.push_back(OpenElement{std::move(element), completed_.size(), hooked});
    if (hooked) {
        ++hookDepth_;
    } else if (hookDepth_ < 1) {
        OnOuterStart(name);
    }
}

// Whether an element is registered is decided once, at its start tag, so the
// hook depth stays balanced whatever a handler registers meanwhile.
void XmlExpatHybridParser::OnEndElement(const CZelStringW&) {
    if (stack_.empty()) return;
    OpenElement open = std::move(stack_.back());
    stack_.pop_back();
    if (completed_.size() > open.firstChild) {
        open.element->AppendChildren(completed_.data() + open.firstChild, completed_.data() + completed_.size());
        completed_.resize(open.firstChild);
    }
    if (hookDepth_ >= 1) {
        if (open.hooked && hookDepth_ == 1) {
            OnSubtree(open.element);
        } else if (!stack_.empty()) {
            completed_.push_back(std::move(open.element));
        }
        if (open.hooked) --hookDepth_;
        return;
    }
    OnOuterEnd(open.element);
}

void XmlExpatHybridParser::OnCharacterData(const CZelStringW& text) {
    if (!stack_.empty()) stack_.back().element->AppendText(text);
}

bool XmlExpatHybridParser::IsHooked(const CZelStringW& name) const { return hooks_.count(name) != 0; }

void XmlExpatHybridParser::OnOuterStart(const CZelStringW&) {}
void XmlExpatHybridParser::OnOuterEnd(const XmlElementPtr&) {}

void XmlExpatHybridParser::OnSubtree(const XmlElementPtr& element) {
    auto hook = hooks_.find(element->Name());
    if (hook != hooks_.end()) hook->second(*this, element);
}

void XmlExpatHybridParser::RegisterHook(const CZelStringW& name, Handler handler) {
    hooks_[name] = std::move(handler);
}

void XmlExpatHybridParser::RegisterImporter(const CZelStringW& name, IDomXmlHookImporter& importer) {
    RegisterHook(name, [&importer](XmlExpatHybridParser& parser, const XmlElementPtr& element) {
        importer.ImportElement(parser, element);
    });
}

// ---- whole tree --------------------------------------------------------

bool XmlTreeParser::IsHooked(const CZelStringW&) const { return true; }

void XmlTreeParser::OnSubtree(const XmlElementPtr& element) { root_ = element; }

void XmlTreeParser::CreateOrReset(const char* encoding) {
    XmlExpatHybridParser::CreateOrReset(encoding);
    root_.reset();
}

}  // namespace zel
