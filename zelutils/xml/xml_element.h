/// @file
/// The in-memory node of a parsed XML document: a name, attributes ordered
/// by code unit, the character content and the children in document order.
/// Nodes are always held by shared pointers; a child is owned by its parent
/// and there is no link back up. The node does no I/O.
///
/// Reading values: every value type comes in three shapes with one naming
/// scheme, Get<Type> (throws when the attribute is missing), TryGet<Type>
/// (false when missing, the output untouched) and Get<Type> with a default
/// (the default when missing). The same families exist for the attribute of
/// the first child of a name (GetChild<Type>, TryGetChild<Type>) and, for a
/// few types, for the element's text (GetText<Type>).
///
/// Failure: XmlException ("Generic Error") for a missing attribute in the
/// plain getters, a missing child in every child accessor, an empty text
/// where the text accessors need one, and a malformed date or date-time in
/// every shape (the shapes soften only a missing attribute).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"
#include "zelutils/zelsys/zel_time.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zel {

/// The exception of the XML layer; zel::XmlExpatHybridParser::Exception
/// names this type. Carries a narrow message.
class ZEL_API XmlException : public std::runtime_error {
public:
    /// An exception carrying message, which what() returns.
    explicit XmlException(const char* message) : std::runtime_error(message) {}
};

/// Orders names by plain code-unit value (the order of wcscmp).
struct XmlNameLess {
    /// True when left comes before right.
    bool operator()(const zel_text::CZelStringW& left, const zel_text::CZelStringW& right) const {
        return left.Compare(right) < 0;
    }
};

/// An element's attributes: names and values ordered by XmlNameLess, names
/// unique. They live in one flat block (elements carry few attributes, and a
/// search of a few sorted names is quicker than a tree walk); the set itself
/// is one pointer, empty without a block.
class ZEL_API XmlAttributes {
public:
    /// A name and its value.
    using value_type = std::pair<zel_text::CZelStringW, zel_text::CZelStringW>;
    /// Walks the attributes in name order; names cannot be changed through it.
    using const_iterator = const value_type*;

    /// No attributes.
    XmlAttributes() noexcept = default;
    /// A copy of other, in a block of exactly its size.
    XmlAttributes(const XmlAttributes& other);
    /// Takes other's attributes and leaves other empty.
    XmlAttributes(XmlAttributes&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
    /// Replaces the attributes by a copy of other's.
    XmlAttributes& operator=(const XmlAttributes& other);
    /// Replaces the attributes by other's and leaves other empty.
    XmlAttributes& operator=(XmlAttributes&& other) noexcept;
    /// Releases the attributes and their block.
    ~XmlAttributes();

    /// The first attribute (in name order).
    const_iterator begin() const noexcept { return Pairs(); }
    /// Past the last attribute.
    const_iterator end() const noexcept { return Pairs() + size(); }
    /// How many attributes there are.
    std::size_t size() const noexcept { return block_ == nullptr ? 0 : block_->size; }
    /// True when there are none.
    bool empty() const noexcept { return size() == 0; }
    /// The attribute named name, or end() when there is none.
    const_iterator find(const zel_text::CZelStringW& name) const;
    /// 1 when an attribute is named name, else 0.
    std::size_t count(const zel_text::CZelStringW& name) const { return find(name) == end() ? 0 : 1; }
    /// Sets the value of attribute name, adding the attribute in its place
    /// when it is missing.
    void Set(const zel_text::CZelStringW& name, const zel_text::CZelStringW& value);
    /// Removes every attribute; the block stays for the next ones.
    void clear() noexcept;

private:
    friend class XmlExpatStrParser;

    // The block's header; the pairs follow it.
    struct Block {
        std::uint32_t size;
        std::uint32_t capacity;
    };
    value_type* Pairs() const noexcept {
        return block_ == nullptr ? nullptr : reinterpret_cast<value_type*>(block_ + 1);
    }
    void Reserve(std::size_t capacity);
    void FreeBlock() noexcept;
    void Append(zel_text::CZelStringW name, zel_text::CZelStringW value);
    void SortByName();

    Block* block_ = nullptr;
};

class XmlElement;
/// A shared pointer to an element, the way elements are always held.
using XmlElementPtr = std::shared_ptr<XmlElement>;

/// Which fields ScanXmlDateTime reads.
enum class XmlTimeFields { None, Date, Time, DateTime };

/// Zeroes time, then scans text as "YYYY-MM-DD" (Date), "hh:mm:ss.mmm"
/// (Time) or "YYYY-MM-DDThh:mm:ss.mmm" (DateTime) and returns the number of
/// fields converted; None converts nothing and returns 0. The day of week
/// stays 0.
ZEL_API int ScanXmlDateTime(const zel_text::CZelStringW& text, XmlTimeFields fields, SYSTEMTIME& time);

/// An element node.
class ZEL_API XmlElement : public std::enable_shared_from_this<XmlElement> {
public:
    /// An element named name, with no attributes, text or children.
    explicit XmlElement(const zel_text::CZelStringW& name);
    /// Releases the subtree without recursion, so a tree of any depth can go.
    virtual ~XmlElement();
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;

    /// The element's name.
    const zel_text::CZelStringW& Name() const { return name_; }
    /// The element's character content (empty when it has none).
    const zel_text::CZelStringW& Text() const { return text_; }
    /// The element's attributes, ordered by name.
    const XmlAttributes& Attributes() const { return attributes_; }
    /// The element's children in document order.
    const std::vector<XmlElementPtr>& Children() const { return children_; }

    /// Replaces all attributes by a copy of attributes.
    void SetAttributes(const XmlAttributes& attributes) { attributes_ = attributes; }
    /// Replaces all attributes by those of attributes, taken over.
    void SetAttributes(XmlAttributes&& attributes) { attributes_ = std::move(attributes); }
    /// Sets one attribute, replacing the value of an existing name.
    void SetAttribute(const zel_text::CZelStringW& name, const zel_text::CZelStringW& value) {
        attributes_.Set(name, value);
    }
    /// Appends count units to the text (growing geometrically, so text
    /// delivered in many pieces costs linear time).
    void AppendText(const WCHAR* text, int count);
    /// Appends text; an empty element shares text's buffer instead of copying.
    void AppendText(const zel_text::CZelStringW& text);
    /// Appends child at the end of the children.
    void AppendChild(XmlElementPtr child) { children_.push_back(std::move(child)); }
    /// Moves the children of [first, last) to the end of the children, with
    /// one allocation for all of them; the range is left holding nulls.
    void AppendChildren(XmlElementPtr* first, XmlElementPtr* last);

    /// The first child named name, in document order, and true; false when
    /// there is none. An empty name never matches.
    bool FindChild(const zel_text::CZelStringW& name, XmlElementPtr& child) const;

    /// @name Attribute accessors
    /// String: the stored text. Bool: true exactly for "true". Int: 0 for an
    /// empty text, else the leading decimal number (strtol rules, clamped to
    /// 32 bits, trailing text ignored). Unsigned: "%u", 0 when nothing
    /// converts. Double and float: 0 for an empty text, else the leading
    /// number (strtod rules). DateTime: at least "YYYY-MM-DDThh:mm:ss".
    /// Date: exactly "YYYY-MM-DD" converted.
    //@{
    /// The value of attribute name; throws when the attribute is missing.
    const zel_text::CZelStringW& GetString(const zel_text::CZelStringW& name) const;
    /// The value of attribute name into value, and true; false when the attribute is missing.
    bool TryGetString(const zel_text::CZelStringW& name, zel_text::CZelStringW& value) const;
    /// The value of attribute name, or fallback when the attribute is missing.
    zel_text::CZelStringW GetString(const zel_text::CZelStringW& name, const zel_text::CZelStringW& fallback) const;
    /// The value of attribute name as a bool; throws when the attribute is missing.
    bool GetBool(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as a bool into value, and true; false when the attribute is
    /// missing.
    bool TryGetBool(const zel_text::CZelStringW& name, bool& value) const;
    /// The value of attribute name as a bool, or fallback when the attribute is missing.
    bool GetBool(const zel_text::CZelStringW& name, bool fallback) const;
    /// The value of attribute name as an int; throws when the attribute is missing.
    int GetInt(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as an int into value, and true; false when the attribute is
    /// missing.
    bool TryGetInt(const zel_text::CZelStringW& name, int& value) const;
    /// The value of attribute name as an int, or fallback when the attribute is missing.
    int GetInt(const zel_text::CZelStringW& name, int fallback) const;
    /// The value of attribute name as an unsigned; throws when the attribute is missing.
    unsigned GetUnsigned(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as an unsigned into value, and true; false when the attribute is
    /// missing.
    bool TryGetUnsigned(const zel_text::CZelStringW& name, unsigned& value) const;
    /// The value of attribute name as an unsigned, or fallback when the attribute is missing.
    unsigned GetUnsigned(const zel_text::CZelStringW& name, unsigned fallback) const;
    /// The value of attribute name as a double; throws when the attribute is missing.
    double GetDouble(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as a double into value, and true; false when the attribute is
    /// missing.
    bool TryGetDouble(const zel_text::CZelStringW& name, double& value) const;
    /// The value of attribute name as a double, or fallback when the attribute is missing.
    double GetDouble(const zel_text::CZelStringW& name, double fallback) const;
    /// The value of attribute name as a float; throws when the attribute is missing.
    float GetFloat(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as a float into value, and true; false when the attribute is
    /// missing.
    bool TryGetFloat(const zel_text::CZelStringW& name, float& value) const;
    /// The value of attribute name as a float, or fallback when the attribute is missing.
    float GetFloat(const zel_text::CZelStringW& name, float fallback) const;
    /// The value of attribute name as a date-time; throws when the attribute is missing.
    SYSTEMTIME GetDateTime(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as a date-time into value, and true; false when the attribute is
    /// missing.
    bool TryGetDateTime(const zel_text::CZelStringW& name, SYSTEMTIME& value) const;
    /// The value of attribute name as a date-time, or fallback when the attribute is missing.
    SYSTEMTIME GetDateTime(const zel_text::CZelStringW& name, const SYSTEMTIME& fallback) const;
    /// The value of attribute name as a date; throws when the attribute is missing.
    SYSTEMTIME GetDate(const zel_text::CZelStringW& name) const;
    /// The value of attribute name as a date into value, and true; false when the attribute is
    /// missing.
    bool TryGetDate(const zel_text::CZelStringW& name, SYSTEMTIME& value) const;
    /// The value of attribute name as a date, or fallback when the attribute is missing.
    SYSTEMTIME GetDate(const zel_text::CZelStringW& name, const SYSTEMTIME& fallback) const;
    //@}

    /// @name Attribute accessors of the first child named child
    /// As the attribute accessors, on that child; a missing child throws in
    /// every shape.
    //@{
    /// The value of attribute name of the first child named child; throws when the attribute is
    /// missing.
    zel_text::CZelStringW GetChildString(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child into value, and true; false when
    /// the attribute is missing.
    bool TryGetChildString(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                           zel_text::CZelStringW& value) const;
    /// The value of attribute name of the first child named child, or fallback when the attribute
    /// is missing.
    zel_text::CZelStringW GetChildString(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                                         const zel_text::CZelStringW& fallback) const;
    /// The value of attribute name of the first child named child as a bool; throws when the
    /// attribute is missing.
    bool GetChildBool(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as a bool into value, and true;
    /// false when the attribute is missing.
    bool TryGetChildBool(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, bool& value) const;
    /// The value of attribute name of the first child named child as a bool, or fallback when the
    /// attribute is missing.
    bool GetChildBool(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, bool fallback) const;
    /// The value of attribute name of the first child named child as an int; throws when the
    /// attribute is missing.
    int GetChildInt(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as an int into value, and true;
    /// false when the attribute is missing.
    bool TryGetChildInt(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, int& value) const;
    /// The value of attribute name of the first child named child as an int, or fallback when the
    /// attribute is missing.
    int GetChildInt(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, int fallback) const;
    /// The value of attribute name of the first child named child as an unsigned; throws when the
    /// attribute is missing.
    unsigned GetChildUnsigned(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as an unsigned into value, and
    /// true; false when the attribute is missing.
    bool TryGetChildUnsigned(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                             unsigned& value) const;
    /// The value of attribute name of the first child named child as an unsigned, or fallback when
    /// the attribute is missing.
    unsigned GetChildUnsigned(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                              unsigned fallback) const;
    /// The value of attribute name of the first child named child as a double; throws when the
    /// attribute is missing.
    double GetChildDouble(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as a double into value, and true;
    /// false when the attribute is missing.
    bool TryGetChildDouble(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, double& value) const;
    /// The value of attribute name of the first child named child as a double, or fallback when the
    /// attribute is missing.
    double GetChildDouble(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, double fallback) const;
    /// The value of attribute name of the first child named child as a float; throws when the
    /// attribute is missing.
    float GetChildFloat(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as a float into value, and true;
    /// false when the attribute is missing.
    bool TryGetChildFloat(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, float& value) const;
    /// The value of attribute name of the first child named child as a float, or fallback when the
    /// attribute is missing.
    float GetChildFloat(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name, float fallback) const;
    /// The value of attribute name of the first child named child as a date-time; throws when the
    /// attribute is missing.
    SYSTEMTIME GetChildDateTime(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as a date-time into value, and
    /// true; false when the attribute is missing.
    bool TryGetChildDateTime(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                             SYSTEMTIME& value) const;
    /// The value of attribute name of the first child named child as a date-time, or fallback when
    /// the attribute is missing.
    SYSTEMTIME GetChildDateTime(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                                const SYSTEMTIME& fallback) const;
    /// The value of attribute name of the first child named child as a date; throws when the
    /// attribute is missing.
    SYSTEMTIME GetChildDate(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name) const;
    /// The value of attribute name of the first child named child as a date into value, and true;
    /// false when the attribute is missing.
    bool TryGetChildDate(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                         SYSTEMTIME& value) const;
    /// The value of attribute name of the first child named child as a date, or fallback when the
    /// attribute is missing.
    SYSTEMTIME GetChildDate(const zel_text::CZelStringW& child, const zel_text::CZelStringW& name,
                            const SYSTEMTIME& fallback) const;
    //@}

    /// @name Text accessors
    //@{
    /// The text as an int; throws for an empty text.
    int GetTextInt() const;
    /// The text as an int; fallback for an empty text.
    int GetTextInt(int fallback) const;
    /// The text as a date-time; throws for an empty or malformed text.
    SYSTEMTIME GetTextDateTime() const;
    /// The text as a date-time; fallback for an empty text, throws for a
    /// malformed one.
    SYSTEMTIME GetTextDateTime(const SYSTEMTIME& fallback) const;
    /// The text as a date-time converted to the library's time type (local
    /// time); throws as GetTextDateTime, and TimeFieldError for fields the
    /// time type refuses.
    ZelTime GetTextTime() const;
    /// True exactly for "true"; throws for an empty text.
    bool GetTextBool() const;
    /// "rrggbb" (either case) as 0x00BBGGRR; groups that do not scan count
    /// as 0; throws for an empty text.
    COLORREF GetTextColor() const;
    /// The text decoded as Base64, four characters at a time: a group of
    /// fewer than 3 characters yields nothing, "=" ends a group's output.
    std::vector<unsigned char> GetTextBinary() const;
    //@}

private:
    const zel_text::CZelStringW* FindAttribute(const zel_text::CZelStringW& name) const;
    const XmlElement& ChildNamed(const zel_text::CZelStringW& child) const;

    XmlAttributes attributes_;
    zel_text::CZelStringW name_;
    zel_text::CZelStringW text_;
    std::vector<XmlElementPtr> children_;
};

/// Walks a snapshot of an element's children: those named filter, or all
/// when filter is empty, as they were when the iterator was made. Keeps the
/// element alive while it lives.
class ZEL_API XmlChildIterator {
public:
    /// Takes the snapshot of element's children (element must not be null).
    explicit XmlChildIterator(XmlElementPtr element,
                              const zel_text::CZelStringW& filter = zel_text::CZelStringW());
    /// The next child of the snapshot and true; false at the end.
    bool Next(XmlElementPtr& child);

private:
    XmlElementPtr element_;
    std::vector<XmlElementPtr> children_;
    std::size_t next_ = 0;
};

}  // namespace zel
