// Code pages other than UTF-8, converted through iconv.
//
// iconv descriptors are costly to open and not safe to share between
// threads, so each code page keeps a pool of idle descriptors per direction:
// a conversion borrows one (opening a new one when all are busy) and returns
// it reset. Errors iconv reports are turned into the replacement rules of the
// Windows conversions instead of failures.
#include "zelutils/platform/posix/codecs.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace zel_platform::posix {
namespace {

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr const char* kUtf16Name = "UTF-16BE";
#else
constexpr const char* kUtf16Name = "UTF-16LE";
#endif

const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);
constexpr std::size_t kIconvFailed = static_cast<std::size_t>(-1);
// Idle descriptors kept per code page and direction; more are closed.
constexpr std::size_t kMaxIdle = 8;

/// iconv's name for a Windows code page: "CP<number>" unless iconv knows it
/// under another name.
std::string IconvName(UINT codePage) {
    struct Alias {
        UINT codePage;
        const char* name;
    };
    static constexpr Alias kAliases[] = {
        {10000, "MACINTOSH"},   {20127, "ASCII"},       {20866, "KOI8-R"},
        {21866, "KOI8-U"},      {28603, "ISO-8859-13"}, {28605, "ISO-8859-15"},
        {50220, "ISO-2022-JP"}, {51932, "EUC-JP"},      {51949, "EUC-KR"},
        {54936, "GB18030"},     {65000, "UTF-7"},
    };
    for (const Alias& alias : kAliases) {
        if (alias.codePage == codePage) return alias.name;
    }
    if (codePage >= 28591 && codePage <= 28599) return "ISO-8859-" + std::to_string(codePage - 28590);
    return "CP" + std::to_string(codePage);
}

/// The multi-byte code pages: what GetCPInfo reports beyond the default
/// character, and the character undecodable bytes become (Shift-JIS has its
/// own, the katakana middle dot). Every other code page has one byte per
/// character and turns undecodable bytes into '?'.
struct MultiByteShape {
    UINT codePage;
    UINT maxCharSize;
    char16_t undecodable;
    BYTE leadByteRanges[MAX_LEADBYTES];
};
constexpr MultiByteShape kMultiByteShapes[] = {
    {932, 2, 0x30FB, {0x81, 0x9F, 0xE0, 0xFC}},
    {936, 2, u'?', {0x81, 0xFE}},
    {949, 2, u'?', {0x81, 0xFE}},
    {950, 2, u'?', {0x81, 0xFE}},
    {1361, 2, u'?', {0x84, 0xD3, 0xD8, 0xDE, 0xE0, 0xF9}},
    {50220, 5, u'?', {}},
    {51932, 3, u'?', {}},
    {51949, 2, u'?', {}},
    {54936, 4, u'?', {}},
    {65000, 5, u'?', {}},
};

/// Runs iconv over the whole input; false on an error other than a full
/// output buffer (errno tells which).
bool Convert(iconv_t descriptor, const void* source, std::size_t bytes, void* target, std::size_t* targetBytes) {
    char* in = const_cast<char*>(static_cast<const char*>(source));
    char* out = static_cast<char*>(target);
    std::size_t outLeft = *targetBytes;
    bool converted = iconv(descriptor, &in, &bytes, &out, &outLeft) != kIconvFailed &&
                     iconv(descriptor, nullptr, nullptr, &out, &outLeft) != kIconvFailed;
    *targetBytes -= outLeft;
    iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
    return converted;
}

struct CodePage {
    CPINFO info{};
    char16_t undecodable = u'?';
    /// Bytes 0x80-0x9F, other than lead bytes, that iconv leaves undefined.
    /// Windows maps them to the C1 control of the same value and back (0x80
    /// in 932, five bytes in 1252), so text in those code pages round-trips
    /// every byte; the same is kept here.
    std::uint32_t undefinedC1Bytes = 0;
    std::vector<iconv_t> idleDecoders;  ///< code page to UTF-16
    std::vector<iconv_t> idleEncoders;  ///< UTF-16 to code page
};

class Registry {
public:
    /// The record of codePage, made on first use; null when iconv lacks it.
    /// Records are never removed, so the pointer stays valid.
    CodePage* Find(UINT codePage) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = pages_.find(codePage);
        if (found != pages_.end()) return &found->second;
        const std::string name = IconvName(codePage);
        iconv_t decoder = iconv_open(kUtf16Name, name.c_str());
        iconv_t encoder = decoder == kNoDescriptor ? kNoDescriptor : iconv_open(name.c_str(), kUtf16Name);
        if (encoder == kNoDescriptor) {
            if (decoder != kNoDescriptor) iconv_close(decoder);
            return nullptr;
        }
        CodePage& page = pages_[codePage];
        Describe(codePage, decoder, encoder, &page);
        page.idleDecoders.push_back(decoder);
        page.idleEncoders.push_back(encoder);
        return &page;
    }

    /// An idle descriptor of page for one direction, or a new one;
    /// kNoDescriptor when none can be opened.
    iconv_t Acquire(UINT codePage, CodePage* page, bool decoder) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            std::vector<iconv_t>& idle = decoder ? page->idleDecoders : page->idleEncoders;
            if (!idle.empty()) {
                iconv_t descriptor = idle.back();
                idle.pop_back();
                return descriptor;
            }
        }
        const std::string name = IconvName(codePage);
        return decoder ? iconv_open(kUtf16Name, name.c_str()) : iconv_open(name.c_str(), kUtf16Name);
    }

    /// Gives a descriptor back, reset to its initial shift state.
    void Release(CodePage* page, bool decoder, iconv_t descriptor) {
        iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            std::vector<iconv_t>& idle = decoder ? page->idleDecoders : page->idleEncoders;
            if (idle.size() < kMaxIdle) {
                idle.push_back(descriptor);
                return;
            }
        }
        iconv_close(descriptor);
    }

private:
    static void Describe(UINT codePage, iconv_t decoder, iconv_t encoder, CodePage* page) {
        CPINFO& info = page->info;
        info.MaxCharSize = 1;
        for (const MultiByteShape& shape : kMultiByteShapes) {
            if (shape.codePage == codePage) {
                info.MaxCharSize = shape.maxCharSize;
                page->undecodable = shape.undecodable;
                std::copy(std::begin(shape.leadByteRanges), std::end(shape.leadByteRanges), info.LeadByte);
            }
        }
        // The default character is the code page's question mark (0x6F in EBCDIC).
        const char16_t question = u'?';
        char bytes[8];
        std::size_t length = sizeof bytes;
        if (Convert(encoder, &question, sizeof question, bytes, &length) && length >= 1 &&
            length <= MAX_DEFAULTCHAR) {
            std::copy(bytes, bytes + length, info.DefaultChar);
        } else {
            info.DefaultChar[0] = '?';
        }
        for (unsigned byte = 0x80; byte <= 0x9F; ++byte) {
            if (zel_platform::IsLeadByteIn(info, static_cast<unsigned char>(byte))) continue;
            const char single = static_cast<char>(byte);
            char16_t unit;
            std::size_t unitBytes = sizeof unit;
            if (!Convert(decoder, &single, 1, &unit, &unitBytes)) page->undefinedC1Bytes |= 1u << (byte - 0x80);
        }
    }

    std::mutex mutex_;
    std::unordered_map<UINT, CodePage> pages_;
};

Registry& TheRegistry() {
    // Lives until the process ends: conversions may run from other objects'
    // static destructors. Idle descriptors are reclaimed by the system.
    static Registry* const registry = std::make_unique<Registry>().release();
    return *registry;
}

/// A descriptor borrowed from the registry for one conversion.
class Lease {
public:
    Lease(UINT codePage, bool decoder) : decoder_(decoder) {
        page_ = TheRegistry().Find(codePage);
        if (page_ != nullptr) descriptor_ = TheRegistry().Acquire(codePage, page_, decoder);
    }
    ~Lease() {
        if (descriptor_ != kNoDescriptor) TheRegistry().Release(page_, decoder_, descriptor_);
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    explicit operator bool() const { return descriptor_ != kNoDescriptor; }
    iconv_t Descriptor() const { return descriptor_; }
    const CodePage& Page() const { return *page_; }

private:
    bool decoder_;
    CodePage* page_ = nullptr;
    iconv_t descriptor_ = kNoDescriptor;
};

/// Collects converted units into a target of fixed capacity, or only counts
/// them when the target is null.
template <class Unit>
class Sink {
public:
    Sink(Unit* target, std::size_t capacity) : target_(target), capacity_(capacity) {}

    void Put(const Unit* units, std::size_t count) {
        if (target_ != nullptr && count_ < capacity_) {
            std::copy_n(units, std::min(count, capacity_ - count_), target_ + count_);
        }
        count_ += count;
    }

    /// Put for code-page bytes: where the room ends, stores only the whole
    /// characters that fit, never the lead byte of a double-byte character
    /// without its trail byte. bytes starts at a character boundary.
    void PutCharacters(const Unit* bytes, std::size_t count, const CPINFO& info) {
        if (!Fits(count) && count_ < capacity_) {
            const std::size_t room = capacity_ - count_;
            std::size_t whole = 0;
            while (whole < count) {
                const bool lead = zel_platform::IsLeadByteIn(info, static_cast<unsigned char>(bytes[whole]));
                const std::size_t size = whole + 1 < count && lead ? 2 : 1;
                if (whole + size > room) break;
                whole += size;
            }
            std::copy_n(bytes, whole, target_ + count_);
            count_ = capacity_ + 1;  // no later character may follow the cut
            return;
        }
        Put(bytes, count);
    }

    /// Whether count more units are stored whole (always, when measuring).
    bool Fits(std::size_t count) const { return target_ == nullptr || count_ + count <= capacity_; }

    ConversionResult Result() const {
        if (target_ != nullptr && count_ > capacity_) return {capacity_, ConversionResult::kTargetTooSmall};
        return {count_, ConversionResult::kDone};
    }

private:
    Unit* target_;
    std::size_t capacity_;
    std::size_t count_ = 0;
};

}  // namespace

bool IconvCodePageAvailable(UINT codePage) { return TheRegistry().Find(codePage) != nullptr; }

bool IconvCodePageInfo(UINT codePage, CPINFO* info) {
    const CodePage* page = TheRegistry().Find(codePage);
    if (page == nullptr) return false;
    *info = page->info;
    return true;
}

ConversionResult IconvToUtf16(UINT codePage, const char* source, std::size_t length, char16_t* target,
                              std::size_t capacity) {
    Lease lease(codePage, true);
    if (!lease) return {0, ConversionResult::kUnavailable};
    const CodePage& page = lease.Page();
    Sink<char16_t> sink(target, capacity);
    char16_t chunk[1024];
    char* in = const_cast<char*>(source);
    std::size_t inLeft = length;
    while (inLeft > 0) {
        char* out = reinterpret_cast<char*>(chunk);
        std::size_t outLeft = sizeof chunk;
        const bool converted = iconv(lease.Descriptor(), &in, &inLeft, &out, &outLeft) != kIconvFailed;
        const int error = errno;
        sink.Put(chunk, (sizeof chunk - outLeft) / sizeof(char16_t));
        if (converted || error == E2BIG) continue;
        // An undecodable byte or a character cut off by the end of the input.
        const auto byte = static_cast<unsigned char>(in[0]);
        std::size_t skipped = 1;
        char16_t replacement = page.undecodable;
        if (byte >= 0x80 && byte <= 0x9F && (page.undefinedC1Bytes & (1u << (byte - 0x80))) != 0) {
            replacement = byte;
        } else if (inLeft >= 2 && zel_platform::IsLeadByteIn(page.info, byte)) {
            // A lead byte and whatever byte follows make one unknown
            // character, as in the Windows code-page tables.
            skipped = 2;
        }
        sink.Put(&replacement, 1);
        in += skipped;
        inLeft -= skipped;
    }
    // iconv holds back a base letter that a combining mark may still follow
    // (1255, 1258): the end of the input releases it.
    char* out = reinterpret_cast<char*>(chunk);
    std::size_t outLeft = sizeof chunk;
    iconv(lease.Descriptor(), nullptr, nullptr, &out, &outLeft);
    sink.Put(chunk, (sizeof chunk - outLeft) / sizeof(char16_t));
    return sink.Result();
}

ConversionResult IconvFromUtf16(UINT codePage, const char16_t* source, std::size_t length, char* target,
                                std::size_t capacity, const char* defaultChar, bool* usedDefault) {
    *usedDefault = false;
    Lease lease(codePage, false);
    if (!lease) return {0, ConversionResult::kUnavailable};
    const CodePage& page = lease.Page();
    char replacement[MAX_DEFAULTCHAR];
    std::size_t replacementLength = 1;
    if (defaultChar != nullptr) {
        replacement[0] = defaultChar[0];
        if (defaultChar[0] != 0 && defaultChar[1] != 0 &&
            zel_platform::IsLeadByteIn(page.info, static_cast<unsigned char>(defaultChar[0]))) {
            replacement[1] = defaultChar[1];
            replacementLength = 2;
        }
    } else {
        replacement[0] = static_cast<char>(page.info.DefaultChar[0]);
        replacement[1] = static_cast<char>(page.info.DefaultChar[1]);
        if (replacement[1] != 0) replacementLength = 2;
    }

    Sink<char> sink(target, capacity);
    char chunk[4096];
    const char16_t* next = source;
    const char16_t* const end = source + length;
    while (true) {
        char* in = const_cast<char*>(reinterpret_cast<const char*>(next));
        std::size_t inLeft = static_cast<std::size_t>(end - next) * sizeof(char16_t);
        char* out = chunk;
        std::size_t outLeft = sizeof chunk;
        // With the input done, a null input writes the sequence that returns
        // a stateful encoding to its initial state.
        const bool converted = (next == end ? iconv(lease.Descriptor(), nullptr, nullptr, &out, &outLeft)
                                            : iconv(lease.Descriptor(), &in, &inLeft, &out, &outLeft)) !=
                               kIconvFailed;
        const int error = errno;
        sink.PutCharacters(chunk, sizeof chunk - outLeft, page.info);
        if (next == end) {
            if (converted || error != E2BIG) break;
            continue;
        }
        next = end - inLeft / sizeof(char16_t);
        if (converted || error == E2BIG) continue;
        // A character the code page lacks, a lone surrogate, or a high
        // surrogate cut off by the end of the input. The Windows code-page
        // tables map single units, so a surrogate pair the code page lacks
        // becomes two default characters. There is no "best fit" either (no
        // e for e-acute): what is missing is the default character.
        const char16_t unit = *next++;
        if (unit >= 0x80 && unit <= 0x9F && (page.undefinedC1Bytes & (1u << (unit - 0x80))) != 0) {
            const char byte = static_cast<char>(unit);
            sink.Put(&byte, 1);
        } else {
            // A default character that is cut off was not used: the
            // conversion stops before it, as on Windows.
            if (sink.Fits(replacementLength)) *usedDefault = true;
            sink.PutCharacters(replacement, replacementLength, page.info);
        }
    }
    return sink.Result();
}

}  // namespace zel_platform::posix
