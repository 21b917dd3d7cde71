/// @file
/// zel_text::CZelStringT<T>, the library's string type: a reference-counted,
/// copy-on-write string whose object is one pointer to its first character.
/// Instantiated for char (narrow text in the system code page), WCHAR
/// (UTF-16) and char32_t (UTF-32 code points); CZelStringA and CZelStringW
/// name the first two.
///
/// A 12-byte header (reference count, length, capacity; 32-bit signed) stands
/// in front of the characters in one heap block. Capacities are exact: there
/// is no rounding and no geometric growth, so repeated appends reallocate each
/// time and GetBuffer/ReleaseBuffer is the way to build long text in place.
/// Every empty string points at one static empty buffer shared by all three
/// instantiations, so an empty string never allocates. Copies share the
/// buffer (an atomic increment); a mutation of a shared buffer first splits
/// off a private copy. Different strings sharing a buffer may live in
/// different threads; one string object is not safe for concurrent use.
///
/// Failures: members never report errors. Indices out of range are clamped
/// or give 0, -1 or an empty result, as each member says. A size no string
/// can hold (a negative buffer size, or a length past INT_MAX) throws
/// zel_text::bad_alloc, as the BSTR members do when they cannot allocate;
/// running out of memory inside a member ends the process with a message on
/// stderr, since no member can report it.
#pragma once

#include "zelutils/platform/interlockedapi.h"
#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/zel_api.h"

#include <climits>
#include <cstdarg>
#include <new>
#include <type_traits>

namespace zel_text {

/// The header in front of every string's characters. One heap block holds
/// the header, then nAllocLength + 1 characters.
struct CZelStringData {
    /// Holders of the buffer (1 or more), or -1 when it is locked to one
    /// string. Changed only with interlocked operations, read with atomic
    /// loads.
    LONG nRefs;
    /// Characters before the terminator.
    LONG nDataLength;
    /// Characters the buffer holds, not counting the terminator.
    LONG nAllocLength;
};
static_assert(sizeof(CZelStringData) == 12, "the string header is three 32-bit words");

namespace detail {
/// The buffer behind every empty string of every instantiation: count -1 (so
/// copies never take a reference), length 0, capacity 0, and a terminator
/// wide enough for the widest character type. Recognised by address and
/// never freed or written.
struct EmptyStringBuffer {
    CZelStringData header;
    union {
        char narrow;
        WCHAR wide;
        char32_t utf32;
    } terminator;
};
ZEL_API extern EmptyStringBuffer g_emptyStringBuffer;
}  // namespace detail

template <typename T>
class CZelStringT;

/// Narrow text in the system code page.
using CZelStringA = CZelStringT<char>;
/// UTF-16 text.
using CZelStringW = CZelStringT<WCHAR>;

/// The length of a NUL-terminated text; 0 for null.
template <typename T>
inline int SafeStringLength(const T* text) {
    return text == nullptr ? 0 : static_cast<int>(chars::Length(text));
}

/// Thrown when a BSTR cannot be allocated or a string is asked for a size it
/// cannot hold; what() is "bad alloc".
class ZEL_API bad_alloc : public std::bad_alloc {
public:
    /// Returns "bad alloc".
    const char* what() const noexcept override;
};

/// A new BSTR holding byteCount bytes of text in codePage, converted with
/// MultiByteToWideChar (flags 0; measured, then converted). Text that does not
/// convert gives an empty BSTR. Null when SysAllocStringLen fails.
ZEL_API BSTR AllocBstrFromNarrow(const char* text, int byteCount, UINT codePage);
/// Replaces *bstr, as SysReAllocStringLen does, by byteCount bytes of text in
/// codePage converted as AllocBstrFromNarrow does. False, leaving *bstr
/// alone, when the reallocation fails.
ZEL_API bool ReAllocBstrFromNarrow(BSTR* bstr, const char* text, int byteCount, UINT codePage);

namespace detail {
// The members that only some instantiations have forward to these.
ZEL_API void FormatInto(CZelStringT<char>& target, const char* format, va_list args);
ZEL_API void FormatInto(CZelStringT<WCHAR>& target, const WCHAR* format, va_list args);
ZEL_API bool LoadStringInto(CZelStringT<WCHAR>& target, UINT id);
ZEL_API BSTR AllocSysString(const char* text, int length);
ZEL_API BSTR AllocSysString(const WCHAR* text, int length);
ZEL_API BSTR SetSysString(BSTR* bstr, const char* text, int length);
ZEL_API BSTR SetSysString(BSTR* bstr, const WCHAR* text, int length);
ZEL_API void ConvertInto(CZelStringT<WCHAR>& target, const char* text, int count, UINT codePage);
ZEL_API void ConvertInto(CZelStringT<char>& target, const WCHAR* text, int count, UINT codePage);

template <typename U, typename... Allowed>
using EnableFor = std::enable_if_t<(std::is_same_v<U, Allowed> || ...)>;
}  // namespace detail

/// A reference-counted, copy-on-write string of T (char, WCHAR or char32_t);
/// see the file's description for the buffer layout and the failure rules.
template <typename T>
class CZelStringT {
    static_assert(std::is_same_v<T, char> || std::is_same_v<T, WCHAR> ||
                      std::is_same_v<T, char32_t>,
                  "CZelStringT holds char, WCHAR or char32_t");

public:
    ///@{
    /// The character type, a pointer to characters, a pointer to const characters.
    using XCHAR = T;
    using PXSTR = T*;
    using PCXSTR = const T*;
    ///@}

    /// The empty string.
    CZelStringT() noexcept : m_pchData(EmptyText()) {}
    /// Shares other's buffer; a copy of a locked string gets its own copy of
    /// the text instead.
    CZelStringT(const CZelStringT& other) : m_pchData(EmptyText()) {
        if (!other.IsSharedEmpty()) {
            CZelStringData* data = other.GetData();
            if (zel_platform::ReadAcquire32(&data->nRefs) >= 0) {
                zel_platform::AddReference(&data->nRefs);
                m_pchData = other.m_pchData;
            } else {
                Assign(other.m_pchData, other.GetLength());
            }
        }
    }
    /// Takes other's buffer and leaves other empty.
    CZelStringT(CZelStringT&& other) noexcept : m_pchData(other.m_pchData) {
        other.m_pchData = EmptyText();
    }
    /// A copy of a NUL-terminated text; null or "" give the empty string. In
    /// the WCHAR instantiation a pointer value below 0x10000 is a string
    /// resource id and the string is loaded (see LoadString); in the char32_t
    /// instantiation such a value gives the empty string.
    CZelStringT(const T* text);
    /// A copy of count characters of text (embedded NULs included); a count
    /// below 1 or a null text give the empty string.
    CZelStringT(const T* text, int count);
    /// ch repeated count times; a count below 1 gives the empty string.
    explicit CZelStringT(T ch, int count = 1);

    /// The other width of text, which the narrow and wide strings are made
    /// from with a code page: char for WCHAR strings, WCHAR for narrow ones.
    using OtherChar = std::conditional_t<std::is_same_v<T, char>, WCHAR, char>;
    /// The NUL-terminated text of the other width converted with codePage
    /// (narrow text is in codePage). Conversion failure gives the empty
    /// string. Not in the char32_t instantiation.
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    CZelStringT(const OtherChar* text, UINT codePage) : CZelStringT() {
        detail::ConvertInto(*this, text, SafeStringLength(text), codePage);
    }
    /// count units of text of the other width converted with codePage,
    /// embedded NULs included; a converted NUL at the very end is not counted
    /// in the length.
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    CZelStringT(const OtherChar* text, int count, UINT codePage) : CZelStringT() {
        detail::ConvertInto(*this, text, count, codePage);
    }

    /// Releases this string's reference to its buffer.
    ~CZelStringT() { Release(m_pchData); }

    /// Shares other's buffer, or copies the text when either string is locked.
    CZelStringT& operator=(const CZelStringT& other);
    /// Takes other's buffer and leaves other empty.
    CZelStringT& operator=(CZelStringT&& other) noexcept {
        if (this != &other) {
            Release(m_pchData);
            m_pchData = other.m_pchData;
            other.m_pchData = EmptyText();
        }
        return *this;
    }
    /// Copies a NUL-terminated text (null is ""); see Assign.
    CZelStringT& operator=(const T* text) { return Assign(text, SafeStringLength(text)); }
    /// Narrow text from UTF-16 in the system code page (code page 0; char only).
    template <typename U = T, typename = detail::EnableFor<U, char>>
    CZelStringT& operator=(const WCHAR* text) {
        detail::ConvertInto(*this, text, SafeStringLength(text), 0);
        return *this;
    }
    /// Copies count characters of text. The buffer is reused when this string
    /// owns it alone and it is large enough; otherwise a buffer of exactly
    /// count characters replaces it. text may point into this string.
    CZelStringT& Assign(const T* text, int count);

    /// Appends a NUL-terminated text (null appends nothing).
    CZelStringT& operator+=(const T* text) { return Append(text, SafeStringLength(text)); }
    /// Appends other's text (which may be this string).
    CZelStringT& operator+=(const CZelStringT& other) {
        return Append(other.m_pchData, other.GetLength());
    }
    /// Appends one character.
    CZelStringT& operator+=(T ch) { return Append(&ch, 1); }
    /// Appends a NUL-terminated text (null appends nothing).
    CZelStringT& Append(const T* text) { return Append(text, SafeStringLength(text)); }
    /// Appends count characters of text, growing the buffer to exactly the new
    /// length when it is short (reallocated, so appending text of this string
    /// is safe). A count below 1 appends nothing.
    CZelStringT& Append(const T* text, int count);

    ///@{
    /// A new string holding left's text followed by right's (a null text adds nothing).
    friend CZelStringT operator+(const CZelStringT& left, const CZelStringT& right) {
        return Concatenate(left.m_pchData, left.GetLength(), right.m_pchData, right.GetLength());
    }
    friend CZelStringT operator+(const CZelStringT& left, const T* right) {
        return Concatenate(left.m_pchData, left.GetLength(), right, SafeStringLength(right));
    }
    friend CZelStringT operator+(const T* left, const CZelStringT& right) {
        return Concatenate(left, SafeStringLength(left), right.m_pchData, right.GetLength());
    }
    friend CZelStringT operator+(const CZelStringT& left, T right) {
        return Concatenate(left.m_pchData, left.GetLength(), &right, 1);
    }
    friend CZelStringT operator+(T left, const CZelStringT& right) {
        return Concatenate(&left, 1, right.m_pchData, right.GetLength());
    }
    ///@}

    ///@{
    /// True when the texts are equal up to the first NUL, as Compare finds
    /// (a text given by pointer must not be null).
    friend bool operator==(const CZelStringT& left, const CZelStringT& right) {
        return left.Compare(right.m_pchData) == 0;
    }
    friend bool operator==(const CZelStringT& left, const T* right) {
        return left.Compare(right) == 0;
    }
    friend bool operator==(const T* left, const CZelStringT& right) {
        return right.Compare(left) == 0;
        ///@}
    }
    ///@{
    /// The negation of operator==.
    friend bool operator!=(const CZelStringT& left, const CZelStringT& right) {
        return !(left == right);
    }
    friend bool operator!=(const CZelStringT& left, const T* right) { return !(left == right); }
    friend bool operator!=(const T* left, const CZelStringT& right) { return !(left == right); }
    ///@}
    /// Orders by Compare, so that strings can key ordered containers.
    friend bool operator<(const CZelStringT& left, const CZelStringT& right) {
        return left.Compare(right.m_pchData) < 0;
    }

    // Access.

    /// The number of characters (embedded NULs included).
    int GetLength() const noexcept { return GetData()->nDataLength; }
    /// The number of characters the buffer holds without growing.
    int GetAllocLength() const noexcept { return GetData()->nAllocLength; }
    /// True when the length is 0.
    bool IsEmpty() const noexcept { return GetLength() == 0; }
    /// The character at index, or 0 when index is outside [0, length).
    T GetAt(int index) const noexcept {
        return index < 0 || index >= GetLength() ? T() : m_pchData[index];
    }
    /// The NUL-terminated text; never null.
    const T* GetString() const noexcept { return m_pchData; }
    /// The NUL-terminated text (as GetString); never null.
    operator const T*() const noexcept { return m_pchData; }
    /// The terminator behind the text.
    const T* GetEnd() const noexcept { return m_pchData + GetLength(); }
    /// Makes the string empty. A locked string keeps its buffer; otherwise the
    /// buffer is released for the shared empty one.
    void Empty();

    // Writing straight into the characters.

    /// A buffer of at least minLength characters, owned by this string alone,
    /// holding the text. Write at most GetAllocLength() characters plus a
    /// terminator, then call ReleaseBuffer before using the string otherwise.
    /// A negative minLength throws zel_text::bad_alloc.
    T* GetBuffer(int minLength = 0);
    /// Ends a GetBuffer: the length becomes newLength (clipped to the
    /// capacity), or, when newLength is negative, the length of the text up
    /// to its first NUL within the capacity; the terminator is written there.
    void ReleaseBuffer(int newLength = -1);
    /// GetBuffer(length), with the length set to length and terminated there.
    /// A negative length throws zel_text::bad_alloc.
    T* GetBufferSetLength(int length);
    /// Shrinks the capacity to the length.
    void FreeExtra();
    /// Makes the buffer this string's alone and locks it: copies of the
    /// string get their own copy of the text until the string dies.
    T* LockBuffer();

    // Comparison (up to the first NUL).

    /// strcmp-style order by code unit: negative, 0 or positive.
    int Compare(const T* text) const { return chars::Compare(m_pchData, text); }
    /// Case-insensitive order: the difference of the first unequal pair of
    /// characters mapped to lower case (towlower, truncated to the unit size;
    /// tolower for narrow text).
    int CompareNoCase(const T* text) const { return chars::CompareNoCase(m_pchData, text); }

    // Searching (up to the first NUL). Positions are indices; -1: not found.

    /// The first occurrence of text at or after start; -1 when start exceeds
    /// the length. start must not be negative.
    int Find(const T* text, int start = 0) const;
    /// The first ch at or after start; -1 when start is not below the length.
    int Find(T ch, int start = 0) const;
    /// The last ch.
    int ReverseFind(T ch) const;
    /// The first character that is in set.
    int FindOneOf(const T* set) const;

    // Extraction. A result that is the whole string shares its buffer.

    /// count characters from first. Negative values are taken as 0; a first
    /// beyond the length gives the empty string; count is clipped to the end.
    CZelStringT Mid(int first, int count) const;
    /// The characters from first to the end (a negative first: all of them).
    CZelStringT Mid(int first) const {
        long long count = static_cast<long long>(GetLength()) - first;
        return Mid(first, count > INT_MAX ? INT_MAX : static_cast<int>(count));
    }
    /// The first count characters (negative: none).
    CZelStringT Left(int count) const;
    /// The last count characters (negative: none).
    CZelStringT Right(int count) const;
    /// The leading run of characters that are in set.
    CZelStringT SpanIncluding(const T* set) const;
    /// The leading run of characters that are not in set.
    CZelStringT SpanExcluding(const T* set) const;
    /// The next token at or after pos, delimited by characters of delimiters;
    /// pos moves behind the delimiter that ends it. At the end: empty and
    /// pos -1. A negative pos gives empty and stays. Without delimiters (null
    /// or "") the rest of the text is returned and pos does not move, so a
    /// caller looping on pos must stop by itself; this is how the function
    /// has always behaved and callers rely on it.
    CZelStringT Tokenize(const T* delimiters, int& pos) const;

    // Changing the text in place. Each makes the buffer its own first.

    /// Maps every character to upper case in the current locale.
    CZelStringT& MakeUpper();
    /// Maps every character to lower case in the current locale.
    CZelStringT& MakeLower();
    /// Reverses the characters.
    CZelStringT& MakeReverse();
    /// Removes trailing white space (isspace / iswspace).
    CZelStringT& TrimRight();
    /// Removes the trailing run of ch.
    CZelStringT& TrimRight(T ch);
    /// Removes the trailing run of characters in set (null or "": nothing).
    CZelStringT& TrimRight(const T* set);
    /// Removes leading white space.
    CZelStringT& TrimLeft();
    /// Removes the leading run of ch.
    CZelStringT& TrimLeft(T ch);
    /// Removes the leading run of characters in set (null or "": nothing).
    CZelStringT& TrimLeft(const T* set);
    /// Replaces every oldCh in the whole length, embedded NULs included, and
    /// returns the count. Returns 0 without touching the buffer when oldCh
    /// equals newCh.
    int Replace(T oldCh, T newCh);
    /// Replaces every non-overlapping oldText by newText (null: removes them)
    /// and returns the count; searches every NUL-separated segment of the
    /// whole length. A null or empty oldText replaces nothing.
    int Replace(const T* oldText, const T* newText);
    /// Removes every ch and returns how many were removed.
    int Remove(T ch);
    /// Inserts text before index (clamped to [0, length]); returns the new
    /// length. A null or empty text inserts nothing.
    int Insert(int index, const T* text);
    /// Inserts ch before index (clamped to [0, length]); returns the new length.
    int Insert(int index, T ch) { return InsertUnits(index, &ch, 1); }
    /// Deletes count characters from index and returns the length BEFORE the
    /// deletion, a result callers of the old interface depend on. A negative
    /// index is taken as 0, count is clipped to the length; nothing happens
    /// when count < 1 or index >= length. index + count must not pass the end.
    int Delete(int index, int count = 1);

    // Formatting, resources and BSTRs (not in the char32_t instantiation).

    /// Formats in the library's printf dialect (MSVC rules). Text up to
    /// 131072 characters comes out whole; longer text is cut there. The
    /// arguments must not point into this string.
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    void Format(const T* format, ...) {
        va_list args;
        va_start(args, format);
        detail::FormatInto(*this, format, args);
        va_end(args);
    }
    /// Format with the arguments in a va_list (which is not consumed).
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    void FormatV(const T* format, va_list args) {
        detail::FormatInto(*this, format, args);
    }
    /// Loads string resource id of the library's module (WCHAR only). True
    /// when the loaded text is not empty; a missing resource gives "".
    template <typename U = T, typename = detail::EnableFor<U, WCHAR>>
    bool LoadString(UINT id) {
        return detail::LoadStringInto(*this, id);
    }
    /// A new BSTR holding the text (narrow text converted with code page 0).
    /// Throws zel_text::bad_alloc when it cannot be allocated.
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    BSTR AllocSysString() const {
        return detail::AllocSysString(m_pchData, GetLength());
    }
    /// Replaces *bstr by the text (narrow text converted with code page 0) and
    /// returns it. Throws zel_text::bad_alloc, leaving *bstr alone, when it
    /// cannot be reallocated.
    template <typename U = T, typename = detail::EnableFor<U, char, WCHAR>>
    BSTR SetSysString(BSTR* bstr) const {
        return detail::SetSysString(bstr, m_pchData, GetLength());
    }

private:
    static T* EmptyText() noexcept {
        auto& terminator = detail::g_emptyStringBuffer.terminator;
        if constexpr (std::is_same_v<T, char>) {
            return &terminator.narrow;
        } else if constexpr (std::is_same_v<T, WCHAR>) {
            return &terminator.wide;
        } else {
            return &terminator.utf32;
        }
    }
    static CZelStringData* DataOf(T* text) noexcept {
        return reinterpret_cast<CZelStringData*>(text) - 1;
    }
    // A count of 1 (or -1, locked) means this string is the only holder, and
    // no other thread can take a reference through it, so the buffer is freed
    // without the locked decrement.
    static void Release(T* text) noexcept {
        if (text == EmptyText()) return;
        LONG volatile* refs = &DataOf(text)->nRefs;
        LONG seen = zel_platform::ReadAcquire32(refs);
        if (seen == 1 || seen == -1 || zel_platform::DropReference(refs) <= 0) Free(DataOf(text));
    }
    static void Free(CZelStringData* data) noexcept;
    static CZelStringT Concatenate(const T* left, int leftCount, const T* right, int rightCount);

    CZelStringData* GetData() const noexcept { return DataOf(m_pchData); }
    bool IsSharedEmpty() const noexcept { return m_pchData == EmptyText(); }
    bool IsLocked() const noexcept;
    bool PointsInto(const T* text) const noexcept;
    void SetLength(int length) noexcept;
    void AttachNew(int capacity, int length);
    void MakeWritable(int minCapacity);
    void Reallocate(int capacity);
    int InsertUnits(int index, const T* text, int count);

    T* m_pchData;
};

// The library holds the one copy of each instantiation.
ZEL_EXTERN_TEMPLATE_CLASS(CZelStringT<char>);
ZEL_EXTERN_TEMPLATE_CLASS(CZelStringT<WCHAR>);
ZEL_EXTERN_TEMPLATE_CLASS(CZelStringT<char32_t>);

}  // namespace zel_text
