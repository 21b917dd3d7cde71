#include "zelutils/xml/xml_expat_parser.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_utf.h"

#include <expat.h>

#include <climits>
#include <cstring>
#include <new>

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

// UTF-8 from Expat (always well formed) as UTF-16; ASCII is copied directly.
CZelStringW FromUtf8(const char* text, int length) {
    CZelStringW wide;
    if (length < 1) return wide;
    WCHAR* target = wide.GetBuffer(length);
    int units = 0;
    while (units < length && static_cast<unsigned char>(text[units]) < 0x80) {
        target[units] = static_cast<WCHAR>(text[units]);
        ++units;
    }
    if (units < length) {
        units += zel_text::ConvertNarrowToWide(target + units, length - units, text + units, length - units,
                                               CP_UTF8);
    }
    wide.ReleaseBuffer(units);
    return wide;
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
        Guard(userData, [&](XmlExpatParser& parser) { parser.OnRawStartElement(name, attributes); });
    }
    static void End(void* userData, const XML_Char* name) {
        Guard(userData, [&](XmlExpatParser& parser) { parser.OnRawEndElement(name); });
    }
    static void Characters(void* userData, const XML_Char* text, int length) {
        Guard(userData, [&](XmlExpatParser& parser) { parser.OnRawCharacterData(text, length); });
    }
};

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
    XML_SetUserData(expat_, this);
    failure_ = XmlParseFailure();
    abortReason_.clear();
    handlerError_ = nullptr;
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
}

// Element and attribute names repeat: a small table keyed by a hash of the
// UTF-8 name keeps them converted, so a repeated name shares its buffer
// instead of being converted again.
const CZelStringW& XmlExpatStrParser::Intern(const char* name) {
    constexpr std::size_t kSlots = 64;
    if (interned_.empty()) interned_.resize(kSlots);
    std::size_t hash = 2166136261u, length = 0;
    for (; name[length] != 0; ++length) hash = (hash ^ static_cast<unsigned char>(name[length])) * 16777619u;
    InternedName& slot = interned_[hash % kSlots];
    if (slot.utf8.size() != length || std::memcmp(slot.utf8.data(), name, length) != 0) {
        slot.utf8.assign(name, length);
        slot.wide = FromUtf8(name, static_cast<int>(length));
    }
    return slot.wide;
}

void XmlExpatStrParser::OnRawStartElement(const char* name, const char** attributes) {
    attributes_.clear();
    std::size_t count = 0;
    for (const char** pair = attributes; *pair != nullptr; pair += 2) {
        std::size_t valueBytes = std::strlen(pair[1]);
        if (++count > kMaxAttributes || valueBytes > kMaxAttributeBytes) {
            attributes_.clear();
            Abort(count > kMaxAttributes ? "too many attributes" : "attribute value too long");
            return;
        }
        attributes_.emplace_hint(attributes_.end(), Intern(pair[0]),
                                 FromUtf8(pair[1], static_cast<int>(valueBytes)));
    }
    names_.push_back(Intern(name));
    OnStartElement(names_.back(), attributes_);
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
    OnCharacterData(FromUtf8(text, length));
}

void XmlExpatStrParser::OnStartElement(const CZelStringW&, XmlAttributes&) {}
void XmlExpatStrParser::OnEndElement(const CZelStringW&) {}
void XmlExpatStrParser::OnCharacterData(const CZelStringW&) {}

// ---- hybrid ------------------------------------------------------------

XmlExpatHybridParser::~XmlExpatHybridParser() = default;

void XmlExpatHybridParser::CreateOrReset(const char* encoding) {
    XmlExpatStrParser::CreateOrReset(encoding);
    stack_.clear();
    hookDepth_ = 0;
}

void XmlExpatHybridParser::OnStartElement(const CZelStringW& name, XmlAttributes& attributes) {
    auto element = std::make_shared<XmlElement>(name);
    element->SetAttributes(std::move(attributes));
    stack_.push_back(std::move(element));
    if (IsHooked(name)) {
        ++hookDepth_;
    } else if (hookDepth_ < 1) {
        OnOuterStart(name);
    }
}

void XmlExpatHybridParser::OnEndElement(const CZelStringW& name) {
    if (stack_.empty()) return;
    XmlElementPtr element = std::move(stack_.back());
    stack_.pop_back();
    if (hookDepth_ >= 1) {
        bool hooked = IsHooked(name);
        if (hooked && hookDepth_ == 1) {
            OnSubtree(element);
        } else if (!stack_.empty()) {
            stack_.back()->AppendChild(element);
        }
        if (hooked) --hookDepth_;
        return;
    }
    OnOuterEnd(element);
}

void XmlExpatHybridParser::OnCharacterData(const CZelStringW& text) {
    if (!stack_.empty()) stack_.back()->AppendText(text);
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
