#include "zelutils/xml/xml_element.h"

#include "zelutils/text/zel_printf.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

namespace zel {

using zel_text::CZelStringW;

namespace {

[[noreturn]] void Fail() { throw XmlException("Generic Error"); }

bool IsBlank(WCHAR ch) { return ch == ' ' || (ch >= '\t' && ch <= '\r'); }

bool ToBool(const CZelStringW& text) { return text == ZW("true"); }

// The leading decimal number as strtol reads it in base 10, clamped to the
// 32-bit range; 0 when there is none.
int ToInt(const CZelStringW& text) {
    const WCHAR* at = text.GetString();
    while (IsBlank(*at)) ++at;
    bool negative = *at == '-';
    if (*at == '-' || *at == '+') ++at;
    long long value = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        value = value * 10 + (*at - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) value = static_cast<long long>(INT_MAX) + 1;
    }
    if (negative) return static_cast<int>(-value);
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

unsigned ToUnsigned(const CZelStringW& text) {
    unsigned value = 0;
    if (text.IsEmpty() || zel_text::ScanText(text.GetString(), ZW("%u"), &value) < 1) return 0;
    return value;
}

// The leading number as strtod reads it; 0.0 for an empty text. Numbers are
// ASCII, so the scan stops at the first other character.
double ToDouble(const CZelStringW& text) {
    std::string ascii;
    for (const WCHAR* at = text.GetString(); *at != 0 && *at < 0x80; ++at) ascii += static_cast<char>(*at);
    return std::strtod(ascii.c_str(), nullptr);
}

float ToFloat(const CZelStringW& text) { return static_cast<float>(ToDouble(text)); }

SYSTEMTIME ToDateTime(const CZelStringW& text) {
    SYSTEMTIME time;
    if (ScanXmlDateTime(text, XmlTimeFields::DateTime, time) < 6) Fail();
    return time;
}

SYSTEMTIME ToDate(const CZelStringW& text) {
    SYSTEMTIME time;
    if (ScanXmlDateTime(text, XmlTimeFields::Date, time) != 3) Fail();
    return time;
}

const CZelStringW* Find(const XmlElement& element, const CZelStringW& name) {
    const XmlAttributes& attributes = element.Attributes();
    auto found = attributes.find(name);
    return found == attributes.end() ? nullptr : &found->second;
}

bool NameBefore(const XmlAttributes::value_type& pair, const CZelStringW& name) {
    return XmlNameLess()(pair.first, name);
}

// The three shapes over one conversion.
template <typename T, T (*Convert)(const CZelStringW&)>
T Get(const XmlElement& element, const CZelStringW& name) {
    const CZelStringW* text = Find(element, name);
    if (text == nullptr) Fail();
    return Convert(*text);
}

template <typename T, T (*Convert)(const CZelStringW&)>
bool TryGet(const XmlElement& element, const CZelStringW& name, T& value) {
    const CZelStringW* text = Find(element, name);
    if (text == nullptr) return false;
    value = Convert(*text);
    return true;
}

template <typename T, T (*Convert)(const CZelStringW&)>
T GetOr(const XmlElement& element, const CZelStringW& name, const T& fallback) {
    const CZelStringW* text = Find(element, name);
    return text == nullptr ? fallback : Convert(*text);
}

CZelStringW AsIs(const CZelStringW& text) { return text; }

int Base64Value(WCHAR ch) {
    if (ch >= 'A' && ch <= 'Z') return ch - 'A';
    if (ch >= 'a' && ch <= 'z') return ch - 'a' + 26;
    if (ch >= '0' && ch <= '9') return ch - '0' + 52;
    if (ch == '+') return 62;
    if (ch == '/') return 63;
    return 0;
}

}  // namespace

int ScanXmlDateTime(const CZelStringW& text, XmlTimeFields fields, SYSTEMTIME& time) {
    time = SYSTEMTIME{};
    switch (fields) {
    case XmlTimeFields::DateTime:
        return zel_text::ScanText(text.GetString(), ZW("%hu-%02hu-%02huT%02hu:%02hu:%02hu.%03hu"), &time.wYear,
                                  &time.wMonth, &time.wDay, &time.wHour, &time.wMinute, &time.wSecond,
                                  &time.wMilliseconds);
    case XmlTimeFields::Date:
        return zel_text::ScanText(text.GetString(), ZW("%hu-%02hu-%02hu"), &time.wYear, &time.wMonth, &time.wDay);
    case XmlTimeFields::Time:
        return zel_text::ScanText(text.GetString(), ZW("%02hu:%02hu:%02hu.%03hu"), &time.wHour, &time.wMinute,
                                  &time.wSecond, &time.wMilliseconds);
    case XmlTimeFields::None: break;
    }
    return 0;
}

XmlAttributes::XmlAttributes(const XmlAttributes& other) {
    Reserve(other.size());
    for (const value_type& pair : other) Append(pair.first, pair.second);
}

XmlAttributes& XmlAttributes::operator=(const XmlAttributes& other) {
    if (this != &other) {
        XmlAttributes copy(other);
        *this = std::move(copy);
    }
    return *this;
}

XmlAttributes& XmlAttributes::operator=(XmlAttributes&& other) noexcept {
    if (this != &other) {
        FreeBlock();
        block_ = other.block_;
        other.block_ = nullptr;
    }
    return *this;
}

XmlAttributes::~XmlAttributes() { FreeBlock(); }

void XmlAttributes::FreeBlock() noexcept {
    if (block_ == nullptr) return;
    clear();
    ::operator delete(block_);
    block_ = nullptr;
}

void XmlAttributes::clear() noexcept {
    if (block_ == nullptr) return;
    value_type* pairs = Pairs();
    for (std::uint32_t at = 0; at < block_->size; ++at) pairs[at].~value_type();
    block_->size = 0;
}

// Moves the pairs into a block of room for capacity of them (never fewer
// than there are).
void XmlAttributes::Reserve(std::size_t capacity) {
    capacity = std::max(capacity, size());
    if (capacity == 0 || (block_ != nullptr && capacity == block_->capacity)) return;
    if (capacity > (SIZE_MAX - sizeof(Block)) / sizeof(value_type) || capacity > UINT32_MAX) {
        throw std::bad_alloc();
    }
    auto* block = static_cast<Block*>(::operator new(sizeof(Block) + capacity * sizeof(value_type)));
    block->size = static_cast<std::uint32_t>(size());
    block->capacity = static_cast<std::uint32_t>(capacity);
    auto* pairs = reinterpret_cast<value_type*>(block + 1);
    value_type* old = Pairs();
    for (std::uint32_t at = 0; at < block->size; ++at) {
        new (&pairs[at]) value_type(std::move(old[at]));
        old[at].~value_type();
    }
    if (block_ != nullptr) ::operator delete(block_);
    block_ = block;
}

// Adds a pair at the end, whatever its name: callers restore the order.
void XmlAttributes::Append(CZelStringW name, CZelStringW value) {
    if (size() == (block_ == nullptr ? 0 : block_->capacity)) Reserve(std::max<std::size_t>(4, 2 * size()));
    new (&Pairs()[block_->size]) value_type(std::move(name), std::move(value));
    ++block_->size;
}

// Elements have a few attributes, often already in order: an insertion sort
// by swaps (which only exchange buffer pointers) beats the general sort up
// to a few dozen, and a large set goes to std::sort.
void XmlAttributes::SortByName() {
    value_type* pairs = Pairs();
    std::size_t count = size();
    auto before = [](const value_type& left, const value_type& right) {
        return XmlNameLess()(left.first, right.first);
    };
    if (count > 32) {
        std::sort(pairs, pairs + count, before);
        return;
    }
    for (std::size_t at = 1; at < count; ++at) {
        for (std::size_t to = at; to > 0 && before(pairs[to], pairs[to - 1]); --to) std::swap(pairs[to], pairs[to - 1]);
    }
}

XmlAttributes::const_iterator XmlAttributes::find(const CZelStringW& name) const {
    const_iterator found = std::lower_bound(begin(), end(), name, NameBefore);
    return found != end() && found->first == name ? found : end();
}

void XmlAttributes::Set(const CZelStringW& name, const CZelStringW& value) {
    std::size_t at = static_cast<std::size_t>(std::lower_bound(begin(), end(), name, NameBefore) - begin());
    if (at < size() && Pairs()[at].first == name) {
        Pairs()[at].second = value;
        return;
    }
    Append(name, value);
    std::rotate(Pairs() + at, Pairs() + size() - 1, Pairs() + size());
}

XmlElement::XmlElement(const CZelStringW& name) : name_(name) {}

XmlElement::~XmlElement() {
    // Children owned by this node alone are taken apart here, one level at a
    // time, instead of by their own destructors recursing into theirs. Where
    // no such child has children (records of leaves, the usual case) the
    // recursion is one level deep and the members go as they are.
    auto nests = [](const XmlElementPtr& child) { return child.use_count() == 1 && !child->children_.empty(); };
    if (std::none_of(children_.begin(), children_.end(), nests)) return;
    std::vector<XmlElementPtr> pending = std::move(children_);
    while (!pending.empty()) {
        XmlElementPtr node = std::move(pending.back());
        pending.pop_back();
        if (node.use_count() == 1 && !node->children_.empty()) {
            for (auto& child : node->children_) pending.push_back(std::move(child));
            node->children_.clear();
        }
    }
}

void XmlElement::AppendText(const WCHAR* text, int count) {
    if (count < 1) return;
    int length = text_.GetLength();
    long long needed = static_cast<long long>(length) + count;
    if (needed > INT_MAX) throw zel_text::bad_alloc();
    if (text_.GetAllocLength() < needed) {
        long long capacity = std::max<long long>(needed, 2LL * text_.GetAllocLength());
        text_.GetBuffer(static_cast<int>(std::min<long long>(capacity, INT_MAX)));
        text_.ReleaseBuffer(length);
    }
    text_.Append(text, count);
}

void XmlElement::AppendText(const CZelStringW& text) {
    if (text_.IsEmpty()) {
        text_ = text;
    } else {
        AppendText(text.GetString(), text.GetLength());
    }
}

void XmlElement::AppendChildren(XmlElementPtr* first, XmlElementPtr* last) {
    children_.reserve(children_.size() + static_cast<std::size_t>(last - first));
    for (; first != last; ++first) children_.push_back(std::move(*first));
}

bool XmlElement::FindChild(const CZelStringW& name, XmlElementPtr& child) const {
    if (name.IsEmpty()) return false;
    for (const XmlElementPtr& candidate : children_) {
        if (candidate->name_ == name) {
            child = candidate;
            return true;
        }
    }
    return false;
}

const XmlElement& XmlElement::ChildNamed(const CZelStringW& child) const {
    XmlElementPtr found;
    if (!FindChild(child, found)) Fail();
    return *found;
}

const CZelStringW& XmlElement::GetString(const CZelStringW& name) const {
    const CZelStringW* text = Find(*this, name);
    if (text == nullptr) Fail();
    return *text;
}
bool XmlElement::TryGetString(const CZelStringW& name, CZelStringW& value) const {
    return TryGet<CZelStringW, AsIs>(*this, name, value);
}
CZelStringW XmlElement::GetString(const CZelStringW& name, const CZelStringW& fallback) const {
    return GetOr<CZelStringW, AsIs>(*this, name, fallback);
}
CZelStringW XmlElement::GetChildString(const CZelStringW& child, const CZelStringW& name) const {
    return ChildNamed(child).GetString(name);
}
bool XmlElement::TryGetChildString(const CZelStringW& child, const CZelStringW& name, CZelStringW& value) const {
    return ChildNamed(child).TryGetString(name, value);
}
CZelStringW XmlElement::GetChildString(const CZelStringW& child, const CZelStringW& name,
                                       const CZelStringW& fallback) const {
    return ChildNamed(child).GetString(name, fallback);
}

// The six accessors of one value type: three on this element, three on the
// first child of a name. Fallback is how the declarations take the default.
#define ZEL_XML_ACCESSORS(Type, T, Fallback, Convert)                                               \
    T XmlElement::Get##Type(const CZelStringW& name) const { return Get<T, Convert>(*this, name); } \
    bool XmlElement::TryGet##Type(const CZelStringW& name, T& value) const {                      \
        return TryGet<T, Convert>(*this, name, value);                                            \
    }                                                                                             \
    T XmlElement::Get##Type(const CZelStringW& name, Fallback fallback) const {                   \
        return GetOr<T, Convert>(*this, name, fallback);                                          \
    }                                                                                             \
    T XmlElement::GetChild##Type(const CZelStringW& child, const CZelStringW& name) const {       \
        return ChildNamed(child).Get##Type(name);                                                 \
    }                                                                                             \
    bool XmlElement::TryGetChild##Type(const CZelStringW& child, const CZelStringW& name, T& value) const { \
        return ChildNamed(child).TryGet##Type(name, value);                                       \
    }                                                                                             \
    T XmlElement::GetChild##Type(const CZelStringW& child, const CZelStringW& name, Fallback fallback) const { \
        return ChildNamed(child).Get##Type(name, fallback);                                       \
    }

ZEL_XML_ACCESSORS(Bool, bool, bool, ToBool)
ZEL_XML_ACCESSORS(Int, int, int, ToInt)
ZEL_XML_ACCESSORS(Unsigned, unsigned, unsigned, ToUnsigned)
ZEL_XML_ACCESSORS(Double, double, double, ToDouble)
ZEL_XML_ACCESSORS(Float, float, float, ToFloat)
ZEL_XML_ACCESSORS(DateTime, SYSTEMTIME, const SYSTEMTIME&, ToDateTime)
ZEL_XML_ACCESSORS(Date, SYSTEMTIME, const SYSTEMTIME&, ToDate)
#undef ZEL_XML_ACCESSORS

int XmlElement::GetTextInt() const {
    if (text_.IsEmpty()) Fail();
    return ToInt(text_);
}

int XmlElement::GetTextInt(int fallback) const { return text_.IsEmpty() ? fallback : ToInt(text_); }

SYSTEMTIME XmlElement::GetTextDateTime() const {
    if (text_.IsEmpty()) Fail();
    return ToDateTime(text_);
}

SYSTEMTIME XmlElement::GetTextDateTime(const SYSTEMTIME& fallback) const {
    return text_.IsEmpty() ? fallback : ToDateTime(text_);
}

ZelTime XmlElement::GetTextTime() const {
    SYSTEMTIME time = GetTextDateTime();
    return ZelTime(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
}

bool XmlElement::GetTextBool() const {
    if (text_.IsEmpty()) Fail();
    return ToBool(text_);
}

COLORREF XmlElement::GetTextColor() const {
    if (text_.IsEmpty()) Fail();
    unsigned red = 0, green = 0, blue = 0;
    zel_text::ScanText(text_.GetString(), ZW("%2X%2X%2X"), &red, &green, &blue);
    return (red & 0xFF) | ((green & 0xFF) << 8) | ((blue & 0xFF) << 16);
}

std::vector<unsigned char> XmlElement::GetTextBinary() const {
    std::vector<unsigned char> bytes;
    const int length = text_.GetLength();
    bytes.reserve(static_cast<std::size_t>(length) / 4 * 3);
    for (int at = 0; at + 2 < length; at += 4) {
        const WCHAR* group = text_.GetString() + at;
        int first = Base64Value(group[0]);
        int second = Base64Value(group[1]);
        bytes.push_back(static_cast<unsigned char>((first << 2) | (second >> 4)));
        if (group[2] == '=') continue;
        int third = Base64Value(group[2]);
        bytes.push_back(static_cast<unsigned char>(((second & 0x0F) << 4) | (third >> 2)));
        if (at + 3 >= length || group[3] == '=') continue;
        bytes.push_back(static_cast<unsigned char>(((third & 0x03) << 6) | Base64Value(group[3])));
    }
    return bytes;
}

XmlChildIterator::XmlChildIterator(XmlElementPtr element, const CZelStringW& filter)
    : element_(std::move(element)) {
    for (const XmlElementPtr& child : element_->Children()) {
        if (filter.IsEmpty() || child->Name() == filter) children_.push_back(child);
    }
}

bool XmlChildIterator::Next(XmlElementPtr& child) {
    if (next_ >= children_.size()) return false;
    child = children_[next_++];
    return true;
}

}  // namespace zel
