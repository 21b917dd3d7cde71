// The string buffer manager and the members of CZelStringT.
#include "zelutils/text/zel_string.h"

#include "zelutils/platform/libloaderapi.h"
#include "zelutils/platform/oleauto.h"
#include "zelutils/platform/stringapiset.h"
#include "zelutils/platform/winuser.h"
#include "zelutils/text/zel_printf.h"
#include "zelutils/text/zel_utf.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace zel_text {

namespace detail {
EmptyStringBuffer g_emptyStringBuffer = {{-1, 0, 0}, {0}};
}  // namespace detail

namespace {

// No string member can report a failed allocation and the callers were never
// written to expect one, so running out of memory ends the process.
[[noreturn]] void FailStringAllocation() {
    std::fputs("zelutils: out of memory for a string buffer\n", stderr);
    std::abort();
}

// Every BSTR failure throws a copy of one object made on first use.
[[noreturn]] void ThrowBadAlloc() {
    static const bad_alloc instance;
    throw instance;
}

// A size no string can hold (negative, or a length past INT_MAX) is refused
// with the class's bad alloc: a buffer smaller than the caller asked for
// would be written past.
void CheckSize(long long size) {
    if (size < 0 || size > INT_MAX) ThrowBadAlloc();
}

// a + b as a string length; bad alloc when it does not fit.
int AddLengths(int a, long long b) {
    long long sum = a + b;
    CheckSize(sum);
    return static_cast<int>(sum);
}

template <typename T>
void CopyUnits(T* target, const T* source, int count) {
    if (count > 0) std::memcpy(target, source, static_cast<std::size_t>(count) * sizeof(T));
}

template <typename T>
void MoveUnits(T* target, const T* source, int count) {
    if (count > 0) std::memmove(target, source, static_cast<std::size_t>(count) * sizeof(T));
}

std::size_t BlockSize(int capacity, std::size_t unitSize) {
    return sizeof(CZelStringData) + (static_cast<std::size_t>(capacity) + 1) * unitSize;
}

LONG ReadRefs(CZelStringData* data) { return zel_platform::ReadAcquire32(&data->nRefs); }

// The length of [text, text + length) without its trailing run of characters
// that satisfy inRun.
template <typename T, typename Predicate>
int WithoutTrailingRun(const T* text, int length, Predicate inRun) {
    while (length > 0 && inRun(text[length - 1])) --length;
    return length;
}

// Removes the leading run of characters of [text, text + length) that
// satisfy inRun, moving the rest down with one move; returns the length left.
template <typename T, typename Predicate>
int DropLeadingRun(T* text, int length, Predicate inRun) {
    int run = 0;
    while (run < length && inRun(text[run])) ++run;
    MoveUnits(text, text + run, length - run);
    return length - run;
}

// Membership in a set of characters, which never holds the NUL.
template <typename T>
auto InSet(const T* set) {
    return [set](T ch) { return ch != 0 && chars::FindChar(set, ch) != nullptr; };
}

template <typename T>
auto Is(T wanted) {
    return [wanted](T ch) { return ch == wanted; };
}

}  // namespace

const char* bad_alloc::what() const noexcept { return "bad alloc"; }

// Buffer management.

template <typename T>
void CZelStringT<T>::Free(CZelStringData* data) noexcept {
    std::free(data);
}

template <typename T>
bool CZelStringT<T>::IsLocked() const noexcept {
    return !IsSharedEmpty() && ReadRefs(GetData()) < 0;
}

template <typename T>
bool CZelStringT<T>::PointsInto(const T* text) const noexcept {
    auto address = reinterpret_cast<std::uintptr_t>(text);
    auto first = reinterpret_cast<std::uintptr_t>(m_pchData);
    return address >= first && address <= reinterpret_cast<std::uintptr_t>(GetEnd());
}

template <typename T>
void CZelStringT<T>::SetLength(int length) noexcept {
    // The shared empty buffer is never written, so that strings in any thread
    // may read it freely; only a length of 0 can reach it.
    if (IsSharedEmpty()) return;
    GetData()->nDataLength = length;
    m_pchData[length] = 0;
}

// Points this string at a new buffer of exactly capacity characters (the
// shared empty buffer for 0) holding length characters, not yet written, and
// a terminator behind them. The old buffer is left to the caller.
template <typename T>
void CZelStringT<T>::AttachNew(int capacity, int length) {
    CheckSize(capacity);
    CheckSize(length);
    if (length > capacity) ThrowBadAlloc();
    if (capacity == 0) {
        m_pchData = EmptyText();
        return;
    }
    auto* data = static_cast<CZelStringData*>(std::malloc(BlockSize(capacity, sizeof(T))));
    if (data == nullptr) FailStringAllocation();
    data->nRefs = 1;
    data->nAllocLength = capacity;
    data->nDataLength = length;
    m_pchData = reinterpret_cast<T*>(data + 1);
    m_pchData[length] = 0;
}

// Makes the buffer this string's alone with room for at least minCapacity
// characters, keeping the text. A shared buffer is copied into one of
// capacity max(length, minCapacity); a buffer owned alone or locked is
// reallocated to exactly minCapacity when short, keeping its state.
template <typename T>
void CZelStringT<T>::MakeWritable(int minCapacity) {
    CheckSize(minCapacity);
    if (IsSharedEmpty()) {
        AttachNew(minCapacity, 0);
        return;
    }
    CZelStringData* data = GetData();
    if (ReadRefs(data) > 1) {
        T* old = m_pchData;
        int length = data->nDataLength;
        AttachNew(std::max(length, minCapacity), length);
        CopyUnits(m_pchData, old, length);
        Release(old);
    } else if (data->nAllocLength < minCapacity) {
        Reallocate(minCapacity);
    }
}

// Moves the text of a buffer this string owns alone (or has locked) into a
// block of exactly capacity characters; the count keeps its value.
template <typename T>
void CZelStringT<T>::Reallocate(int capacity) {
    void* block = std::realloc(GetData(), BlockSize(capacity, sizeof(T)));
    if (block == nullptr) FailStringAllocation();
    auto* data = static_cast<CZelStringData*>(block);
    data->nAllocLength = capacity;
    m_pchData = reinterpret_cast<T*>(data + 1);
}

template <typename T>
T* CZelStringT<T>::GetBuffer(int minLength) {
    MakeWritable(minLength);
    return m_pchData;
}

template <typename T>
void CZelStringT<T>::ReleaseBuffer(int newLength) {
    MakeWritable(0);
    int capacity = GetAllocLength();
    if (newLength < 0) {
        // Bounded by the capacity: a formatter that filled the buffer wrote
        // no terminator, and the text then ends at the capacity.
        const T* end = std::char_traits<T>::find(m_pchData, static_cast<std::size_t>(capacity), T());
        newLength = end != nullptr ? static_cast<int>(end - m_pchData) : capacity;
    }
    SetLength(std::min(newLength, capacity));
}

template <typename T>
T* CZelStringT<T>::GetBufferSetLength(int length) {
    MakeWritable(length);
    SetLength(length);
    return m_pchData;
}

template <typename T>
void CZelStringT<T>::FreeExtra() {
    int length = GetLength();
    if (length == GetAllocLength()) return;
    // A shared buffer is copied at exactly its length; one of our own shrinks.
    MakeWritable(0);
    if (length != GetAllocLength()) Reallocate(length);
}

template <typename T>
T* CZelStringT<T>::LockBuffer() {
    T* text = GetBuffer(0);
    if (!IsSharedEmpty()) InterlockedExchange(&GetData()->nRefs, -1);
    return text;
}

template <typename T>
void CZelStringT<T>::Empty() {
    if (GetLength() == 0) return;
    if (IsLocked()) {
        SetLength(0);
        return;
    }
    Release(m_pchData);
    m_pchData = EmptyText();
}

// Construction and assignment.

template <typename T>
CZelStringT<T>::CZelStringT(const T* text) : m_pchData(EmptyText()) {
    if (text == nullptr) return;
    if constexpr (!std::is_same_v<T, char>) {
        // The first 64 KiB of the address space never hold data, which is why
        // a pointer there can carry a resource id instead.
        auto value = reinterpret_cast<std::uintptr_t>(text);
        if (value < 0x10000) {
            if constexpr (std::is_same_v<T, WCHAR>) {
                LoadString(static_cast<UINT>(value));
            }
            return;
        }
    }
    Assign(text, SafeStringLength(text));
}

template <typename T>
CZelStringT<T>::CZelStringT(const T* text, int count) : m_pchData(EmptyText()) {
    if (text != nullptr) Assign(text, count);
}

template <typename T>
CZelStringT<T>::CZelStringT(T ch, int count) : m_pchData(EmptyText()) {
    if (count < 1) return;
    AttachNew(count, count);
    std::fill_n(m_pchData, count, ch);
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::operator=(const CZelStringT& other) {
    if (m_pchData == other.m_pchData) return *this;
    if (!IsLocked()) {
        if (other.IsSharedEmpty()) {
            Release(m_pchData);
            m_pchData = EmptyText();
            return *this;
        }
        CZelStringData* data = other.GetData();
        if (ReadRefs(data) >= 0) {
            zel_platform::AddReference(&data->nRefs);
            Release(m_pchData);
            m_pchData = other.m_pchData;
            return *this;
        }
    }
    return Assign(other.m_pchData, other.GetLength());
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::Assign(const T* text, int count) {
    count = std::max(count, 0);
    CZelStringData* data = GetData();
    bool locked = false;
    if (!IsSharedEmpty()) {
        LONG refs = ReadRefs(data);
        if ((refs == 1 || refs == -1) && count <= data->nAllocLength) {
            MoveUnits(m_pchData, text, count);
            SetLength(count);
            return *this;
        }
        locked = refs == -1;
    }
    // The old buffer goes only after the copy: text may lie in it.
    T* old = m_pchData;
    AttachNew(count, count);
    CopyUnits(m_pchData, text, count);
    Release(old);
    // A locked string stays locked until it dies, whatever it is given.
    if (locked) InterlockedExchange(&GetData()->nRefs, -1);
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::Append(const T* text, int count) {
    if (count < 1 || text == nullptr) return *this;
    int length = GetLength();
    int newLength = AddLengths(length, count);
    if (PointsInto(text)) {
        // The buffer may move when it grows.
        std::ptrdiff_t offset = text - m_pchData;
        MakeWritable(newLength);
        text = m_pchData + offset;
    } else {
        MakeWritable(newLength);
    }
    CopyUnits(m_pchData + length, text, count);
    SetLength(newLength);
    return *this;
}

template <typename T>
CZelStringT<T> CZelStringT<T>::Concatenate(const T* left, int leftCount, const T* right,
                                           int rightCount) {
    CZelStringT result;
    int length = AddLengths(leftCount, rightCount);
    result.AttachNew(length, length);
    CopyUnits(result.m_pchData, left, leftCount);
    CopyUnits(result.m_pchData + leftCount, right, rightCount);
    return result;
}

// Searching.

template <typename T>
int CZelStringT<T>::Find(const T* text, int start) const {
    // A negative start is the caller's error; 0 rather than reading in front
    // of the text.
    start = std::max(start, 0);
    if (start > GetLength()) return -1;
    const T* found = chars::FindText(m_pchData + start, text);
    return found != nullptr ? static_cast<int>(found - m_pchData) : -1;
}

template <typename T>
int CZelStringT<T>::Find(T ch, int start) const {
    start = std::max(start, 0);
    if (start >= GetLength()) return -1;
    const T* found = chars::FindChar(m_pchData + start, ch);
    return found != nullptr ? static_cast<int>(found - m_pchData) : -1;
}

template <typename T>
int CZelStringT<T>::ReverseFind(T ch) const {
    const T* found = chars::FindLastChar(m_pchData, ch);
    return found != nullptr ? static_cast<int>(found - m_pchData) : -1;
}

template <typename T>
int CZelStringT<T>::FindOneOf(const T* set) const {
    const T* found = chars::FindOneOf(m_pchData, set);
    return found != nullptr ? static_cast<int>(found - m_pchData) : -1;
}

// Extraction.

template <typename T>
CZelStringT<T> CZelStringT<T>::Mid(int first, int count) const {
    first = std::max(first, 0);
    count = std::max(count, 0);
    int length = GetLength();
    if (first > length) return CZelStringT();
    count = std::min(count, length - first);
    if (first == 0 && count == length) return *this;
    return CZelStringT(m_pchData + first, count);
}

template <typename T>
CZelStringT<T> CZelStringT<T>::Left(int count) const {
    count = std::max(count, 0);
    if (count >= GetLength()) return *this;
    return CZelStringT(m_pchData, count);
}

template <typename T>
CZelStringT<T> CZelStringT<T>::Right(int count) const {
    count = std::max(count, 0);
    int length = GetLength();
    if (count >= length) return *this;
    return CZelStringT(m_pchData + length - count, count);
}

template <typename T>
CZelStringT<T> CZelStringT<T>::SpanIncluding(const T* set) const {
    return Left(static_cast<int>(chars::SpanOf(m_pchData, set)));
}

template <typename T>
CZelStringT<T> CZelStringT<T>::SpanExcluding(const T* set) const {
    return Left(static_cast<int>(chars::SpanNotOf(m_pchData, set)));
}

template <typename T>
CZelStringT<T> CZelStringT<T>::Tokenize(const T* delimiters, int& pos) const {
    if (pos < 0) return CZelStringT();
    int length = GetLength();
    if (delimiters == nullptr || *delimiters == 0) {
        if (pos < length) return Right(length - pos);
        pos = -1;
        return CZelStringT();
    }
    if (pos < length) {
        const T* start = m_pchData + pos;
        int skipped = static_cast<int>(chars::SpanOf(start, delimiters));
        if (pos + skipped < length) {
            int first = pos + skipped;
            int tokenLength = static_cast<int>(chars::SpanNotOf(m_pchData + first, delimiters));
            pos = first + tokenLength + 1;
            return Mid(first, tokenLength);
        }
    }
    pos = -1;
    return CZelStringT();
}

// Changing the text in place.

template <typename T>
CZelStringT<T>& CZelStringT<T>::MakeUpper() {
    MakeWritable(0);
    chars::MakeUpper(m_pchData);
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::MakeLower() {
    MakeWritable(0);
    chars::MakeLower(m_pchData);
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::MakeReverse() {
    MakeWritable(0);
    chars::Reverse(m_pchData);
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimRight() {
    MakeWritable(0);
    SetLength(WithoutTrailingRun(m_pchData, GetLength(), chars::IsSpace<T>));
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimRight(T ch) {
    MakeWritable(0);
    SetLength(WithoutTrailingRun(m_pchData, GetLength(), Is(ch)));
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimRight(const T* set) {
    if (set == nullptr || *set == 0) return *this;
    MakeWritable(0);
    SetLength(WithoutTrailingRun(m_pchData, GetLength(), InSet(set)));
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimLeft() {
    MakeWritable(0);
    SetLength(DropLeadingRun(m_pchData, GetLength(), chars::IsSpace<T>));
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimLeft(T ch) {
    MakeWritable(0);
    SetLength(DropLeadingRun(m_pchData, GetLength(), Is(ch)));
    return *this;
}

template <typename T>
CZelStringT<T>& CZelStringT<T>::TrimLeft(const T* set) {
    if (set == nullptr || *set == 0) return *this;
    MakeWritable(0);
    SetLength(DropLeadingRun(m_pchData, GetLength(), InSet(set)));
    return *this;
}

template <typename T>
int CZelStringT<T>::Replace(T oldCh, T newCh) {
    if (oldCh == newCh) return 0;
    MakeWritable(0);
    int count = 0;
    for (T* p = m_pchData; p != m_pchData + GetLength(); ++p) {
        if (*p == oldCh) {
            *p = newCh;
            ++count;
        }
    }
    return count;
}

template <typename T>
int CZelStringT<T>::Replace(const T* oldText, const T* newText) {
    int oldLength = SafeStringLength(oldText);
    if (oldLength == 0) return 0;
    if (PointsInto(oldText) || PointsInto(newText)) {
        // Both are read while the buffer changes.
        CZelStringT oldCopy(oldText, oldLength);
        CZelStringT newCopy(newText, SafeStringLength(newText));
        return Replace(oldCopy.m_pchData, newCopy.m_pchData);
    }
    int newLength = SafeStringLength(newText);
    // Counts in every NUL-terminated segment of the whole length, so that text
    // behind an embedded NUL is replaced too.
    int count = 0;
    const T* end = GetEnd();
    for (const T* segment = m_pchData; segment < end; segment += chars::Length(segment) + 1) {
        for (const T* hit; (hit = chars::FindText(segment, oldText)) != nullptr;) {
            ++count;
            segment = hit + oldLength;
        }
    }
    if (count == 0) return 0;
    int length = GetLength();
    int total = AddLengths(length, static_cast<long long>(count) * (newLength - oldLength));
    MakeWritable(total);
    T* last = m_pchData + length;
    for (T* segment = m_pchData; segment < last; segment += chars::Length(segment) + 1) {
        for (T* hit; (hit = const_cast<T*>(chars::FindText(segment, oldText))) != nullptr;) {
            MoveUnits(hit + newLength, hit + oldLength, static_cast<int>(last - hit - oldLength));
            CopyUnits(hit, newText, newLength);
            last += newLength - oldLength;
            *last = 0;
            segment = hit + newLength;
        }
    }
    SetLength(total);
    return count;
}

template <typename T>
int CZelStringT<T>::Remove(T ch) {
    MakeWritable(0);
    int length = GetLength();
    T* kept = std::remove(m_pchData, m_pchData + length, ch);
    int removed = static_cast<int>(m_pchData + length - kept);
    if (removed > 0) SetLength(length - removed);
    return removed;
}

template <typename T>
int CZelStringT<T>::Insert(int index, const T* text) {
    return InsertUnits(index, text, SafeStringLength(text));
}

template <typename T>
int CZelStringT<T>::InsertUnits(int index, const T* text, int count) {
    int length = GetLength();
    if (count < 1) return length;
    if (PointsInto(text)) {
        CZelStringT copy(text, count);
        return InsertUnits(index, copy.m_pchData, count);
    }
    index = std::clamp(index, 0, length);
    int newLength = AddLengths(length, count);
    MakeWritable(newLength);
    MoveUnits(m_pchData + index + count, m_pchData + index, length - index);
    CopyUnits(m_pchData + index, text, count);
    SetLength(newLength);
    return newLength;
}

template <typename T>
int CZelStringT<T>::Delete(int index, int count) {
    int length = GetLength();
    index = std::max(index, 0);
    count = std::min(count, length);
    if (count < 1 || index >= length) return length;
    // Past the end is the caller's error; stop at the end rather than move
    // memory behind the text.
    count = std::min(count, length - index);
    MakeWritable(0);
    MoveUnits(m_pchData + index, m_pchData + index + count, length - index - count);
    SetLength(length - count);
    return length;
}

// The library's copies of the three instantiations; the export attribute is
// on the extern declarations in the header, which the compiler sees first.
template class CZelStringT<char>;
template class CZelStringT<WCHAR>;
template class CZelStringT<char32_t>;

// Members that only some instantiations have.

namespace detail {

namespace {
template <typename T>
void FormatString(CZelStringT<T>& target, const T* format, va_list args) {
    constexpr int kLocalSize = 2048;
    T local[kLocalSize];
    va_list attempt;
    va_copy(attempt, args);
    int result = FormatBufferV(local, kLocalSize, format, attempt);
    va_end(attempt);
    if (result >= 0) {
        // The text is in local already: copying it gives what printing it
        // again into the string would, at half the cost.
        CopyUnits(target.GetBuffer(result + 1), local, result);
    } else {
        for (int size = kLocalSize; result < 0 && size <= 32768;) {
            size *= 4;
            T* buffer = target.GetBuffer(size);
            // A text cut at size is left unterminated by the formatter; the
            // terminator here ends it, and not an older, longer text that
            // this buffer may still hold behind it.
            buffer[size] = 0;
            va_copy(attempt, args);
            result = FormatBufferV(buffer, static_cast<std::size_t>(size), format, attempt);
            va_end(attempt);
        }
    }
    target.ReleaseBuffer(result);
}

BSTR CheckedBstr(BSTR bstr) {
    if (bstr == nullptr) ThrowBadAlloc();
    return bstr;
}
}  // namespace

void FormatInto(CZelStringT<char>& target, const char* format, va_list args) {
    FormatString(target, format, args);
}

void FormatInto(CZelStringT<WCHAR>& target, const WCHAR* format, va_list args) {
    FormatString(target, format, args);
}

bool LoadStringInto(CZelStringT<WCHAR>& target, UINT id) {
    constexpr int kStep = 256;
    HMODULE module = zel_platform::LibraryModule();
    WCHAR local[kStep];
    int size = kStep;
    int length = LoadStringW(module, id, local, size);
    if (length <= 0) {
        // Windows leaves the buffer untouched when there is no such string.
        target.Empty();
        return false;
    }
    if (size - length >= 2) {
        target = CZelStringT<WCHAR>(local, length);
    } else {
        // The text may have been cut: load it again straight into the string,
        // 256 characters larger each time, until it has room to spare.
        do {
            size += kStep;
            length = LoadStringW(module, id, target.GetBuffer(size - 1), size);
        } while (size - length < 2);
        target.ReleaseBuffer(-1);
    }
    return target.GetLength() > 0;
}

BSTR AllocSysString(const char* text, int length) {
    return CheckedBstr(AllocBstrFromNarrow(text, length, CP_ACP));
}

BSTR AllocSysString(const WCHAR* text, int length) {
    return CheckedBstr(SysAllocStringLen(text, static_cast<UINT>(length)));
}

BSTR SetSysString(BSTR* bstr, const char* text, int length) {
    if (!ReAllocBstrFromNarrow(bstr, text, length, CP_ACP)) ThrowBadAlloc();
    return *bstr;
}

BSTR SetSysString(BSTR* bstr, const WCHAR* text, int length) {
    if (!SysReAllocStringLen(bstr, text, static_cast<UINT>(length))) ThrowBadAlloc();
    return *bstr;
}

}  // namespace detail

BSTR AllocBstrFromNarrow(const char* text, int byteCount, UINT codePage) {
    int units = MeasureNarrowToWide(text, byteCount, codePage);
    BSTR bstr = SysAllocStringLen(nullptr, static_cast<UINT>(std::max(units, 0)));
    if (bstr != nullptr && units > 0) {
        MultiByteToWideChar(codePage, 0, text, byteCount, bstr, units);
    }
    return bstr;
}

bool ReAllocBstrFromNarrow(BSTR* bstr, const char* text, int byteCount, UINT codePage) {
    int units = MeasureNarrowToWide(text, byteCount, codePage);
    if (!SysReAllocStringLen(bstr, nullptr, static_cast<UINT>(std::max(units, 0)))) return false;
    if (units > 0) MultiByteToWideChar(codePage, 0, text, byteCount, *bstr, units);
    return true;
}

}  // namespace zel_text
