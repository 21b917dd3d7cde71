// CZelStringT: buffer sharing and copy-on-write, clamping, editing,
// formatting, resources, BSTRs and concurrent reference counting.
#include "zelutils/text/zel_string.h"

#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using zel_text::CZelStringA;
using zel_text::CZelStringT;
using zel_text::CZelStringW;
using WString = std::basic_string<WCHAR>;

namespace {

// The header words in front of a string's characters: count, length, capacity.
template <typename T>
const LONG* HeaderOf(const CZelStringT<T>& s) {
    return reinterpret_cast<const LONG*>(s.GetString()) - 3;
}

template <typename T>
LONG RefsOf(const CZelStringT<T>& s) {
    return HeaderOf(s)[0];
}

WString W(const CZelStringW& s) { return WString(s.GetString(), s.GetLength()); }
std::string A(const CZelStringA& s) { return std::string(s.GetString(), s.GetLength()); }

}  // namespace

TEST(StringLayout, IsOnePointerWithAHeaderAndExactCapacities) {
    static_assert(sizeof(CZelStringW) == sizeof(void*), "one pointer");
    CZelStringW s(ZW("hello"));
    EXPECT_EQ(RefsOf(s), 1);
    EXPECT_EQ(HeaderOf(s)[1], 5);
    EXPECT_EQ(HeaderOf(s)[2], 5);
    s += ZW("!!");
    EXPECT_EQ(s.GetAllocLength(), 7) << "appends grow to exactly the new length";
    s.GetBuffer(40);
    EXPECT_EQ(s.GetAllocLength(), 40);
    s.ReleaseBuffer();
    EXPECT_EQ(W(s), ZW("hello!!"));
    s.FreeExtra();
    EXPECT_EQ(s.GetAllocLength(), 7);
    EXPECT_EQ(CZelStringA("ab") + CZelStringA("cde"), "abcde");
    EXPECT_EQ((CZelStringA("ab") + "cde").GetAllocLength(), 5);
}

TEST(StringSharing, EveryEmptyStringIsTheOneSharedBufferOfAllInstantiations) {
    CZelStringA narrow;
    CZelStringW wide(static_cast<const WCHAR*>(nullptr));
    CZelStringT<char32_t> utf32(U"");
    CZelStringW emptied(ZW("text"));
    emptied.Empty();
    CZelStringW copy(wide);
    const void* shared = narrow.GetString();
    EXPECT_EQ(static_cast<const void*>(wide.GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(utf32.GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(emptied.GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(copy.GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(CZelStringW(ZW("abc")).Mid(5).GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(CZelStringA("x", 0).GetString()), shared);
    EXPECT_EQ(static_cast<const void*>(CZelStringA('x', 0).GetString()), shared);
    EXPECT_EQ(RefsOf(narrow), -1);
    EXPECT_EQ(HeaderOf(narrow)[1], 0);
    EXPECT_EQ(HeaderOf(narrow)[2], 0);
    EXPECT_EQ(utf32.GetString()[0], 0u) << "terminator wide enough for 32-bit units";
    // Operations that keep a string empty must not write to the shared buffer.
    narrow.MakeUpper().TrimRight().TrimLeft(' ');
    narrow.ReleaseBuffer();
    EXPECT_EQ(narrow.LockBuffer(), shared);
    EXPECT_EQ(RefsOf(narrow), -1);
}

TEST(StringSharing, MutatingAShareNeverShowsInTheOtherCopy) {
    const std::vector<std::function<void(CZelStringW&)>> mutations = {
        [](CZelStringW& s) { s.MakeUpper(); },
        [](CZelStringW& s) { s.MakeReverse(); },
        [](CZelStringW& s) { s += ZW("tail"); },
        [](CZelStringW& s) { s.Append(ZW("xyz"), 2); },
        [](CZelStringW& s) { s.Insert(1, ZW("in")); },
        [](CZelStringW& s) { s.Delete(0, 2); },
        [](CZelStringW& s) { s.Replace(ZW('a'), ZW('b')); },
        [](CZelStringW& s) { s.Replace(ZW("ab"), ZW("xyz")); },
        [](CZelStringW& s) { s.Remove(ZW('a')); },
        [](CZelStringW& s) { s.TrimLeft(ZW('a')); },
        [](CZelStringW& s) { s.TrimRight(ZW("c ")); },
        [](CZelStringW& s) { s.TrimRight(); },
        [](CZelStringW& s) { s.Assign(ZW("other"), 5); },
        [](CZelStringW& s) { s.GetBuffer(0)[0] = ZW('Q'); },
        [](CZelStringW& s) { s.GetBufferSetLength(2); },
        [](CZelStringW& s) { s.ReleaseBuffer(1); },
        [](CZelStringW& s) { s.LockBuffer()[0] = ZW('L'); },
        [](CZelStringW& s) { s.Format(ZW("%d"), 42); },
        [](CZelStringW& s) { s.Empty(); },
    };
    for (std::size_t i = 0; i < mutations.size(); ++i) {
        CZelStringW original(ZW("abab abc "));
        CZelStringW copy(original);
        ASSERT_EQ(copy.GetString(), original.GetString()) << "copies share";
        EXPECT_EQ(RefsOf(original), 2);
        mutations[i](copy);
        copy.ReleaseBuffer();
        EXPECT_EQ(W(original), ZW("abab abc ")) << "mutation " << i;
        EXPECT_EQ(RefsOf(original), 1) << "mutation " << i;
    }
}

TEST(StringSharing, ALockedBufferIsCopiedNeverShared) {
    CZelStringW locked(ZW("locked"));
    WCHAR* buffer = locked.LockBuffer();
    EXPECT_EQ(RefsOf(locked), -1);
    CZelStringW copy(locked);
    EXPECT_NE(copy.GetString(), locked.GetString());
    buffer[0] = ZW('L');
    EXPECT_EQ(W(copy), ZW("locked"));
    copy.MakeUpper();
    EXPECT_EQ(W(locked), ZW("Locked"));

    CZelStringW assigned(ZW("x"));
    assigned = locked;
    EXPECT_NE(assigned.GetString(), locked.GetString());
    // A locked target keeps its buffer and takes a copy of the text.
    CZelStringW source(ZW("src"));
    locked = source;
    EXPECT_EQ(locked.GetString(), buffer);
    EXPECT_EQ(RefsOf(source), 1);
    // The lock outlives growth and emptying.
    locked.GetBuffer(100);
    locked.Empty();
    EXPECT_EQ(RefsOf(locked), -1);
    EXPECT_NE(CZelStringW(locked += ZW("again")).GetString(), locked.GetString());
}

TEST(StringSharing, WholeStringExtractionsShareAndPartsDoNot) {
    CZelStringA s("abcdef");
    EXPECT_EQ(s.Left(6).GetString(), s.GetString());
    EXPECT_EQ(s.Left(99).GetString(), s.GetString());
    EXPECT_EQ(s.Right(6).GetString(), s.GetString());
    EXPECT_EQ(s.Mid(0, 6).GetString(), s.GetString());
    EXPECT_EQ(s.Mid(-3).GetString(), s.GetString());
    EXPECT_NE(s.Left(5).GetString(), s.GetString());
    EXPECT_EQ(RefsOf(s), 1) << "temporaries released their references";
}

TEST(StringSharing, TextOfTheStringItselfCanBeAppendedInsertedAndReplaced) {
    CZelStringW s(ZW("abc"));
    s += s;
    EXPECT_EQ(W(s), ZW("abcabc"));
    s.Append(s.GetString() + 4, 2);
    EXPECT_EQ(W(s), ZW("abcabcbc"));
    s.Insert(1, s.GetString() + 6);
    EXPECT_EQ(W(s), ZW("abcbcabcbc"));
    s = s.GetString() + 8;
    EXPECT_EQ(W(s), ZW("bc"));
    EXPECT_EQ(s.Replace(s.GetString() + 1, s.GetString()), 1);
    EXPECT_EQ(W(s), ZW("bbc"));
}

TEST(StringClamping, IndicesOutOfRangeAreClampedOrGiveNothing) {
    CZelStringW s(ZW("abcdef"));
    EXPECT_EQ(s.GetAt(-1), 0);
    EXPECT_EQ(s.GetAt(6), 0);
    EXPECT_EQ(s.GetAt(5), ZW('f'));
    EXPECT_TRUE(s.Left(-1).IsEmpty());
    EXPECT_EQ(W(s.Right(2)), ZW("ef"));
    EXPECT_TRUE(s.Right(-4).IsEmpty());
    EXPECT_EQ(W(s.Mid(2, 100)), ZW("cdef"));
    EXPECT_EQ(W(s.Mid(-2, 3)), ZW("abc"));
    EXPECT_EQ(W(s.Mid(4, -1)), ZW(""));
    EXPECT_TRUE(s.Mid(6).IsEmpty());
    EXPECT_TRUE(s.Mid(7, 1).IsEmpty());
    EXPECT_EQ(W(s.Mid(1, 2147483647)), ZW("bcdef")) << "no overflow in first + count";
    EXPECT_EQ(W(s.Mid(INT_MIN)), ZW("abcdef")) << "no overflow in length - first";
}

TEST(StringEditing, InsertClampsTheIndexAndReturnsTheNewLength) {
    CZelStringA s("ab");
    EXPECT_EQ(s.Insert(99, "x"), 3);
    EXPECT_EQ(A(s), "abx");
    EXPECT_EQ(s.Insert(-5, 'y'), 4);
    EXPECT_EQ(A(s), "yabx");
    EXPECT_EQ(s.Insert(2, ""), 4);
    EXPECT_EQ(s.Insert(2, static_cast<const char*>(nullptr)), 4);
    EXPECT_EQ(A(s), "yabx");
}

TEST(StringEditing, DeleteReturnsTheLengthBeforeTheDeletion) {
    CZelStringA s("abcdef");
    EXPECT_EQ(s.Delete(2, 0), 6);
    EXPECT_EQ(s.Delete(6, 1), 6);
    EXPECT_EQ(A(s), "abcdef");
    EXPECT_EQ(s.Delete(0, 3), 6);
    EXPECT_EQ(A(s), "def");
    EXPECT_EQ(s.Delete(-2), 3);
    EXPECT_EQ(A(s), "ef");
}

TEST(StringEditing, ReplaceCountsEveryOccurrenceAcrossEmbeddedNuls) {
    CZelStringA banana("banana");
    CZelStringA copy(banana);
    EXPECT_EQ(banana.Replace('a', 'a'), 0);
    EXPECT_EQ(banana.GetString(), copy.GetString()) << "no copy for a replacement by itself";
    EXPECT_EQ(banana.Replace("x", "y"), 0);
    EXPECT_EQ(banana.GetString(), copy.GetString()) << "no copy when nothing is found";
    EXPECT_EQ(banana.Replace("", "y"), 0);
    EXPECT_EQ(banana.Replace("a", nullptr), 3);
    EXPECT_EQ(A(banana), "bnn");
    EXPECT_EQ(A(copy), "banana");

    CZelStringW nul(ZW("ab\0ab\0b"), 7);
    EXPECT_EQ(nul.Replace(ZW('b'), ZW('c')), 3);
    EXPECT_EQ(W(nul), WString(ZW("ac\0ac\0c"), 7));
    EXPECT_EQ(nul.Replace(ZW("c"), ZW("xyz")), 3);
    EXPECT_EQ(W(nul), WString(ZW("axyz\0axyz\0xyz"), 13));
    EXPECT_EQ(nul.Replace(ZW("xyz"), ZW("")), 3);
    EXPECT_EQ(W(nul), WString(ZW("a\0a\0"), 4));
    EXPECT_EQ(nul.GetString()[4], 0);
    EXPECT_EQ(CZelStringA("aaaa").Replace("aa", "a"), 2) << "occurrences do not overlap";
}

TEST(StringEditing, RemoveClosesTheGaps) {
    CZelStringW s(ZW("a-b--c-"));
    EXPECT_EQ(s.Remove(ZW('-')), 4);
    EXPECT_EQ(W(s), ZW("abc"));
    EXPECT_EQ(s.Remove(ZW('z')), 0);
}

TEST(StringEditing, TokenizeWalksTokensAndKeepsItsOddEndings) {
    CZelStringW s(ZW(",a,,b"));
    int pos = 0;
    EXPECT_EQ(W(s.Tokenize(ZW(","), pos)), ZW("a"));
    EXPECT_EQ(pos, 3);
    EXPECT_EQ(W(s.Tokenize(ZW(","), pos)), ZW("b"));
    EXPECT_EQ(pos, 6);
    EXPECT_TRUE(s.Tokenize(ZW(","), pos).IsEmpty());
    EXPECT_EQ(pos, -1);
    EXPECT_TRUE(s.Tokenize(ZW(","), pos).IsEmpty());
    EXPECT_EQ(pos, -1) << "a negative position stays";

    pos = 2;
    EXPECT_EQ(W(s.Tokenize(ZW(""), pos)), ZW(",,b"));
    EXPECT_EQ(pos, 2) << "without delimiters the position does not move";
    pos = 5;
    EXPECT_TRUE(s.Tokenize(nullptr, pos).IsEmpty());
    EXPECT_EQ(pos, -1);
    pos = 0;
    EXPECT_TRUE(CZelStringW(ZW(",,,")).Tokenize(ZW(","), pos).IsEmpty());
    EXPECT_EQ(pos, -1);
}

TEST(StringTrimming, TrimsWhiteSpaceCharactersAndSets) {
    CZelStringA s(" \t x y \r\n\t ");
    s.TrimRight();
    EXPECT_EQ(A(s), " \t x y");
    s.TrimLeft();
    EXPECT_EQ(A(s), "x y");
    CZelStringW w(ZW("--=a=b=-"));
    w.TrimLeft(ZW(""));
    w.TrimLeft(static_cast<const WCHAR*>(nullptr));
    EXPECT_EQ(W(w), ZW("--=a=b=-"));
    w.TrimLeft(ZW("-="));
    EXPECT_EQ(W(w), ZW("a=b=-"));
    w.TrimRight(ZW('-'));
    EXPECT_EQ(W(w), ZW("a=b="));
    w.TrimRight(ZW("=b"));
    EXPECT_EQ(W(w), ZW("a"));
    CZelStringW all(ZW("  "));
    all.TrimLeft();
    EXPECT_TRUE(all.IsEmpty());
}

TEST(StringSearch, FindsAndComparesUpToTheFirstNul) {
    CZelStringW s(ZW("abcabc"));
    EXPECT_EQ(s.Find(ZW("bc")), 1);
    EXPECT_EQ(s.Find(ZW("bc"), 2), 4);
    EXPECT_EQ(s.Find(ZW(""), 6), 6);
    EXPECT_EQ(s.Find(ZW(""), 7), -1);
    EXPECT_EQ(s.Find(ZW('c'), 5), 5);
    EXPECT_EQ(s.Find(ZW('c'), 6), -1);
    EXPECT_EQ(s.ReverseFind(ZW('a')), 3);
    EXPECT_EQ(s.ReverseFind(ZW('z')), -1);
    EXPECT_EQ(s.FindOneOf(ZW("xc")), 2);
    EXPECT_EQ(s.FindOneOf(ZW("xyz")), -1);
    EXPECT_EQ(W(s.SpanIncluding(ZW("ab"))), ZW("ab"));
    EXPECT_EQ(W(s.SpanExcluding(ZW("c"))), ZW("ab"));
    CZelStringW nul(ZW("ab\0cd"), 5);
    EXPECT_EQ(nul.Find(ZW('d')), -1);
    EXPECT_EQ(nul.Compare(ZW("ab")), 0);

    EXPECT_LT(CZelStringA("abc").Compare("abd"), 0);
    EXPECT_GT(CZelStringA("\xe9").Compare("e"), 0) << "units compare unsigned";
    EXPECT_GT(CZelStringT<char32_t>(U"\U0001F600").Compare(U"a"), 0);
    EXPECT_EQ(CZelStringW(ZW("HeLLo")).CompareNoCase(ZW("hello")), 0);
    EXPECT_EQ(CZelStringW(ZW("ab")).CompareNoCase(ZW("abc")), -static_cast<int>('c'));
    EXPECT_EQ(CZelStringA("ABd").CompareNoCase("abc"), 1);
}

TEST(StringCase, MapsAndReversesEveryUnit) {
    CZelStringW s(ZW("Mixed Case 12"));
    EXPECT_EQ(W(s.MakeUpper()), ZW("MIXED CASE 12"));
    EXPECT_EQ(W(s.MakeLower()), ZW("mixed case 12"));
    EXPECT_EQ(W(s.MakeReverse()), ZW("21 esac dexim"));
    CZelStringT<char32_t> u(U"ab\U0001F600");
    u.MakeUpper().MakeReverse();
    EXPECT_EQ(u.Compare(U"\U0001F600BA"), 0);
}

TEST(StringBuffer, ReleaseBufferMeasuresOrTakesTheGivenLength) {
    CZelStringA s("abc");
    char* buffer = s.GetBuffer(10);
    std::strcpy(buffer, "0123456789");
    s.ReleaseBuffer();
    EXPECT_EQ(A(s), "0123456789");
    s.GetBuffer(0)[3] = 0;
    s.ReleaseBuffer();
    EXPECT_EQ(s.GetLength(), 3);
    char* set = s.GetBufferSetLength(5);
    EXPECT_EQ(set[5], 0);
    EXPECT_EQ(s.GetLength(), 5);
    s.ReleaseBuffer(1);
    EXPECT_EQ(A(s), "0");
    CZelStringA unterminated;
    std::memset(unterminated.GetBuffer(4), 'x', 5);
    unterminated.ReleaseBuffer();
    EXPECT_EQ(A(unterminated), "xxxx") << "the measured length stops at the capacity";
}

TEST(StringBuffer, SizesNoStringCanHoldThrowBadAllocAndLeaveTheTextAlone) {
    CZelStringW owned(ZW("abc"));
    CZelStringW shared(owned);
    CZelStringW empty;
    const std::function<void()> refused[] = {
        [&] { owned.GetBuffer(-1); },
        [&] { owned.GetBufferSetLength(-5); },
        [&] { shared.GetBuffer(INT_MIN); },  // the copy-before-write path
        [&] { empty.GetBuffer(-2); },        // would hand out the shared empty buffer
        [&] { empty.GetBufferSetLength(-1); },
        [&] { owned.Append(ZW("x"), INT_MAX); },
    };
    for (const auto& call : refused) EXPECT_THROW(call(), zel_text::bad_alloc);
    EXPECT_EQ(W(owned), ZW("abc"));
    EXPECT_EQ(W(shared), ZW("abc"));
    EXPECT_EQ(RefsOf(owned), 2);
    EXPECT_TRUE(empty.IsEmpty());
}

namespace {
CZelStringW FormatTwiceFromOneList(const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    CZelStringW first;
    CZelStringW second;
    first.FormatV(format, args);
    second.FormatV(format, args);
    va_end(args);
    return first == second ? first : CZelStringW(ZW("differ"));
}
}  // namespace

TEST(StringFormat, TextOfAnyLengthUpTo131072ComesOutWhole) {
    CZelStringW s;
    s.Format(ZW("%02d:%08x ; %s"), 7, 0xbeef, ZW("text"));
    EXPECT_EQ(W(s), ZW("07:0000beef ; text"));
    EXPECT_EQ(W(FormatTwiceFromOneList(ZW("%d-%s"), 5, ZW("x"))), ZW("5-x"))
        << "each attempt reads the arguments afresh";
    CZelStringA narrow;
    narrow.Format("%s=%d", "n", -3);
    EXPECT_EQ(A(narrow), "n=-3");

    for (int length : {2047, 2048, 2049, 8192, 40000, 131072}) {
        WString text(static_cast<std::size_t>(length), ZW('q'));
        text[static_cast<std::size_t>(length) - 1] = ZW('!');
        s.Format(ZW("%s"), text.c_str());
        EXPECT_EQ(W(s), text) << length;
    }
    WString huge(200000, ZW('z'));
    s.Format(ZW("<%s>"), huge.c_str());
    EXPECT_EQ(s.GetLength(), 131072) << "text is cut after the last attempt";
    EXPECT_EQ(W(s.Left(2)), ZW("<z"));

    // A string that held a longer text before: the cut text ends at the
    // cut, not at the old text's terminator.
    CZelStringW reused(WString(250000, ZW('o')).c_str());
    reused.Format(ZW("%s"), WString(150000, ZW('n')).c_str());
    EXPECT_EQ(reused.GetLength(), 131072);
    EXPECT_EQ(reused.Find(ZW('o')), -1);
}

TEST(StringLocking, AssigningALongerTextKeepsTheLock) {
    CZelStringW locked(ZW("ab"));
    locked.LockBuffer();
    locked = ZW("a text longer than the locked buffer");
    CZelStringW copy(locked);
    EXPECT_NE(copy.GetString(), locked.GetString()) << "still locked: copies are private";
    EXPECT_EQ(W(copy), ZW("a text longer than the locked buffer"));
}

TEST(StringResources, LoadsStringsOfAnyLengthFromTheLibraryTable) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows modules carry their own resources";
    std::vector<WString> texts;
    for (int length : {0, 1, 254, 255, 256, 300, 510, 511, 600, 2000}) {
        WString text;
        for (int i = 0; i < length; ++i) text += static_cast<WCHAR>(ZW('a') + i % 26);
        texts.push_back(text);
    }
    std::vector<zel_platform::StringResource> table;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        table.push_back({static_cast<UINT>(100 + i), texts[i].c_str()});
    }
    HMODULE module = zel_platform::LibraryModule();
    ASSERT_TRUE(zel_platform::RegisterStringTable(module, table.data(), table.size()));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        CZelStringW s(ZW("old"));
        EXPECT_EQ(s.LoadString(static_cast<UINT>(100 + i)), !texts[i].empty());
        EXPECT_EQ(W(s), texts[i]) << "length " << texts[i].size();
    }
    CZelStringW missing(ZW("old"));
    EXPECT_FALSE(missing.LoadString(99));
    EXPECT_TRUE(missing.IsEmpty());
    CZelStringW byId(reinterpret_cast<const WCHAR*>(std::uintptr_t{105}));
    EXPECT_EQ(W(byId), texts[5]);
    CZelStringT<char32_t> utf32(reinterpret_cast<const char32_t*>(std::uintptr_t{105}));
    EXPECT_TRUE(utf32.IsEmpty());
    zel_platform::UnregisterStringTable(module);
}

TEST(StringBstr, RoundTripsWideAndNarrowText) {
    CZelStringW wide(ZW("a\0b\x00e9"), 4);
    BSTR bstr = wide.AllocSysString();
    ASSERT_NE(bstr, nullptr);
    EXPECT_EQ(WString(bstr, SysStringLen(bstr)), W(wide));
    CZelStringA narrow("caf\xc3\xa9 \xe2\x82\xac");  // UTF-8, code page 0 on POSIX
    EXPECT_EQ(narrow.SetSysString(&bstr), bstr);
    if (zel_platform::kEmulated) {
        EXPECT_EQ(WString(bstr, SysStringLen(bstr)), ZW("caf\x00e9 \x20ac"));
    }
    SysFreeString(bstr);
    bstr = zel_text::AllocBstrFromNarrow("x\0y", 3, CP_UTF8);
    EXPECT_EQ(WString(bstr, SysStringLen(bstr)), WString(ZW("x\0y"), 3));
    EXPECT_TRUE(zel_text::ReAllocBstrFromNarrow(&bstr, "\xe2\x82\xac", 3, CP_UTF8));
    EXPECT_EQ(WString(bstr, SysStringLen(bstr)), ZW("\x20ac"));
    SysFreeString(bstr);
    bstr = CZelStringA().AllocSysString();
    ASSERT_NE(bstr, nullptr);
    EXPECT_EQ(SysStringLen(bstr), 0u);
    SysFreeString(bstr);
}

TEST(StringBstr, FailureThrowsTheLibraryBadAlloc) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "Windows' SysReAllocStringLen faults on a null target";
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            CZelStringW(ZW("x")).SetSysString(nullptr);
            ADD_FAILURE() << "no exception";
        } catch (const std::bad_alloc& e) {
            EXPECT_STREQ(e.what(), "bad alloc");
            EXPECT_NE(dynamic_cast<const zel_text::bad_alloc*>(&e), nullptr);
        }
    }
    EXPECT_THROW(CZelStringA("x").SetSysString(nullptr), zel_text::bad_alloc);
}

TEST(StringConcurrency, SharedBuffersSurviveCopiesMutationsAndDeathsInManyThreads) {
    const CZelStringW base(ZW("shared text of the test"));
    CZelStringW locked(ZW("locked text"));
    locked.LockBuffer();
    const CZelStringW& lockedView = locked;
    // Strings handed between threads, so that the last reference to a buffer
    // dies in any thread while others still hold copies.
    std::mutex poolMutex;
    std::vector<CZelStringW> pool(8, base);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::vector<CZelStringW> kept;
            for (int i = 0; i < 2000; ++i) {
                CZelStringW mine(base);
                if (i % 3 == t % 3) mine += static_cast<WCHAR>(ZW('0') + t);
                CZelStringW taken;
                {
                    std::lock_guard<std::mutex> lock(poolMutex);
                    CZelStringW& slot = pool[static_cast<std::size_t>(i + t) % pool.size()];
                    taken = std::move(slot);
                    slot = mine;
                }
                CZelStringW changed(taken);
                if (i % 5 == 0) changed.MakeUpper();
                kept.push_back(taken);
                kept.push_back(CZelStringW(lockedView));
                if (kept.size() > 16) kept.erase(kept.begin(), kept.begin() + 8);
                if (taken.Find(ZW("shared text of the test")) != 0) ++failures;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
    pool.clear();
    EXPECT_EQ(RefsOf(base), 1);
    EXPECT_EQ(RefsOf(locked), -1);
}
