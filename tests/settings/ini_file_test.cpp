// Loading and saving INI files: the grammar, the encodings, and saves that
// must not lose the previous file.
#include "zelutils/settings/ini_file.h"

#include "tests/support/temp_folder.h"
#include "zelutils/platform/fault_injection.h"
#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

using namespace zel_settings;
using zel_text::CZelStringW;

namespace {

CZelStringW W(const char16_t* text) { return CZelStringW(reinterpret_cast<const WCHAR*>(text)); }

std::u16string U(const CZelStringW& text) {
    return std::u16string(reinterpret_cast<const char16_t*>(text.GetString()), text.GetLength());
}

class IniTest : public zel_test::TempFolderTest {
protected:
    CZelStringW PathW(const std::string& name) {
        return zel_text::CZelStringUtf8(PathOf(name).c_str()).ToWide();
    }
    // Loads bytes from a file; the file is removed again.
    bool Load(const std::string& bytes, IniSections& table) {
        Put("load.ini", bytes);
        bool ok = LoadIniFile(PathW("load.ini"), table);
        std::filesystem::remove(PathOf("load.ini"));
        return ok;
    }
    std::u16string Value(const IniSections& table, const char16_t* section, const char16_t* key) {
        auto s = table.find(W(section));
        if (s == table.end()) return u"<no section>";
        auto k = s->second.find(W(key));
        return k == s->second.end() ? u"<no key>" : U(k->second);
    }
};

std::string Utf16(const std::u16string& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
}

}  // namespace

TEST_F(IniTest, KeysBeforeAnyHeaderLandInTheEmptySectionWhichSavesAsARejectedHeader) {
    IniSections table;
    ASSERT_TRUE(Load("a=1\r\n[Main]\r\nb=2\r\n", table));
    EXPECT_EQ(Value(table, u"", u"a"), u"1");
    EXPECT_EQ(Value(table, u"Main", u"b"), u"2");

    ASSERT_TRUE(SaveIniFile(PathW("saved.ini"), table, kIniUtf8));
    EXPECT_EQ(Get("saved.ini"), "\xEF\xBB\xBF[]\r\na=1\r\n\r\n[Main]\r\nb=2\r\n\r\n");
    IniSections reloaded;
    EXPECT_FALSE(LoadIniFile(PathW("saved.ini"), reloaded)) << "\"[]\" is not a section header";
    std::filesystem::remove(PathOf("saved.ini"));
}

TEST_F(IniTest, WhitespaceLinesEndTheSectionAndBlankLinesDoNot) {
    IniSections table;
    ASSERT_TRUE(Load("[Main]\r\nx=1\r\n   \r\ny=2\r\n", table));
    EXPECT_EQ(Value(table, u"Main", u"x"), u"1");
    EXPECT_EQ(Value(table, u"", u"y"), u"2");

    ASSERT_TRUE(Load("[Main]\r\n\r\n\n\r\nx=1\n\ny=2", table));
    EXPECT_EQ(Value(table, u"Main", u"x"), u"1");
    EXPECT_EQ(Value(table, u"Main", u"y"), u"2");
    EXPECT_EQ(table.size(), 1u);
}

TEST_F(IniTest, KeysAndHeadersAreTakenAsTheyStand) {
    IniSections table;
    ASSERT_TRUE(Load("[ Main ]  \r\nkey = value\r\nk==v=w\r\n_under=1\r\n9nine=9\r\nk==again\r\n", table));
    EXPECT_EQ(Value(table, u" Main ", u"key "), u" value");
    EXPECT_EQ(Value(table, u" Main ", u"k"), u"=again") << "the last key wins";
    EXPECT_EQ(Value(table, u" Main ", u"_under"), u"1");
    EXPECT_EQ(Value(table, u" Main ", u"9nine"), u"9");

    ASSERT_TRUE(Load("# hash\r\n; semi\r\n// slashes\r\n[A]\r\nx=1\r\n[B]\r\ny=2\r\n[A]\r\nz=3\r\n", table));
    EXPECT_EQ(Value(table, u"A", u"x"), u"1");
    EXPECT_EQ(Value(table, u"A", u"z"), u"3") << "a repeated header continues its section";
    EXPECT_EQ(table.size(), 2u);

    ASSERT_TRUE(Load("[Empty]\r\n[Full]\r\nk=v\r\n", table));
    EXPECT_EQ(table.count(W(u"Empty")), 0u) << "sections are made by their first key";
}

TEST_F(IniTest, GrammarErrorsFailTheLoadAndKeepEarlierLines) {
    const char* bad[] = {
        " x=1\r\n",       // an indented key
        "\tx=1\r\n",
        "[Main\r\n",      // no closing bracket
        "[]\r\n",
        "[\r\n",
        "x\r\n",          // a key without '='
        "=1\r\n",         // no key character first
        "-x=1\r\n",
        "\xC3\xA9t\xC3\xA9=1\r\n",  // a letter outside the single-byte classification
    };
    for (const char* line : bad) {
        IniSections table;
        EXPECT_FALSE(Load(std::string("[S]\r\nfirst=1\r\n") + line + "after=2\r\n", table)) << line;
        EXPECT_EQ(Value(table, u"S", u"first"), u"1") << line;
        EXPECT_EQ(table.size(), 1u) << line;
        EXPECT_EQ(table.begin()->second.size(), 1u) << line;
    }
    IniSections table;
    EXPECT_TRUE(Load("[S]\r\n    \r\n\t \r\n", table)) << "whitespace-only lines are fine";
}

TEST_F(IniTest, TheFirstBadLineIsNamedByNumberAndReason) {
    // LF, CR LF and CR each end a line; empty lines count.
    const struct {
        std::string text;
        int line;
        const char* reason;
    } cases[] = {
        {"[S]\nk=1\n\n\n  x\n", 5, "an indented line that is not blank"},
        {"[S]\r\n\r\nk\r\n", 3, "a key without '='"},
        {"[S]\rk=1\r\r[S\r", 4, "a section header without a name or ']'"},
        {"\xEF\xBB\xBF-x=1", 1, "a line that starts no key, comment or section"},
        {std::string("\xFF\xFE[\0S\0]\0\n\0\n\0?\0", 14), 3, "a line that starts no key, comment or section"},
    };
    for (const auto& c : cases) {
        IniSections table;
        zel_settings::IniSyntaxError error;
        EXPECT_FALSE(zel_settings::ParseIniText(c.text.data(), c.text.size(), table, &error)) << c.text;
        EXPECT_EQ(error.line, c.line) << c.text;
        EXPECT_STREQ(error.reason, c.reason) << c.text;
    }
    IniSections table;
    zel_settings::IniSyntaxError error;
    EXPECT_TRUE(zel_settings::ParseIniText("[S]\nk=1\n", 8, table, &error));
    EXPECT_EQ(error.line, 0);
}

TEST_F(IniTest, EncodingsAreDetected) {
    IniSections table;
    // UTF-16LE without a byte-order mark, ASCII first characters.
    ASSERT_TRUE(Load(Utf16(u"[Main]\r\nname=\u00E9t\u00E9\r\n"), table));
    EXPECT_EQ(Value(table, u"Main", u"name"), u"\u00E9t\u00E9");
    ASSERT_TRUE(Load("\xFF\xFE" + Utf16(u"[M]\r\nk=\U0001F600\r\n"), table));
    EXPECT_EQ(Value(table, u"M", u"k"), u"\U0001F600");
    ASSERT_TRUE(Load("\xEF\xBB\xBF[M]\r\nk=\xE2\x82\xAC\r\n", table));
    EXPECT_EQ(Value(table, u"M", u"k"), u"\u20AC");
    // Without a mark and with no zero bytes: narrow text in code page 0.
    ASSERT_TRUE(Load("[M]\r\nk=v\r\n", table));
    EXPECT_EQ(Value(table, u"M", u"k"), u"v");
    // A NUL ends the text.
    ASSERT_TRUE(Load(std::string("[M]\r\nk=v\r\n\0garbage", 19), table));
    EXPECT_EQ(Value(table, u"M", u"k"), u"v");
}

TEST_F(IniTest, EmptyFilesLoadAsEmptyTablesAndMissingFilesFail) {
    IniSections table;
    table[W(u"old")][W(u"k")] = W(u"v");
    EXPECT_FALSE(LoadIniFile(PathW("missing.ini"), table));
    EXPECT_EQ(table.size(), 1u) << "a file that cannot be read leaves the table untouched";
    EXPECT_TRUE(Load("", table));
    EXPECT_TRUE(table.empty());
    EXPECT_TRUE(Load("\xEF\xBB\xBF", table));
    EXPECT_TRUE(table.empty());
    EXPECT_TRUE(Load("\xFF\xFE", table));
    EXPECT_TRUE(table.empty());
}

TEST_F(IniTest, SaveWritesTheExactLayout) {
    IniSections table;
    table[W(u"B")][W(u"b")] = W(u"2");
    table[W(u"A")][W(u"z")] = W(u"1");
    table[W(u"A")][W(u"a")] = W(u"0");
    ASSERT_TRUE(SaveIniFile(PathW("layout.ini"), table, kIniUtf8));
    EXPECT_EQ(Get("layout.ini"), "\xEF\xBB\xBF[A]\r\na=0\r\nz=1\r\n\r\n[B]\r\nb=2\r\n\r\n");
    ASSERT_TRUE(SaveIniFile(PathW("layout.ini"), table, kIniUtf16LE));
    EXPECT_EQ(Get("layout.ini"), "\xFF\xFE" + Utf16(u"[A]\r\na=0\r\nz=1\r\n\r\n[B]\r\nb=2\r\n\r\n"));
    ASSERT_TRUE(SaveIniFile(PathW("layout.ini"), table, 1252));
    EXPECT_EQ(Get("layout.ini"), "[A]\r\na=0\r\nz=1\r\n\r\n[B]\r\nb=2\r\n\r\n");
    std::filesystem::remove(PathOf("layout.ini"));
}

TEST_F(IniTest, SaveWritesEachPieceAsItsOwnConversionWould) {
    // Random text of every length up to 300 units: ASCII, two- and
    // three-byte characters, pairs and lone surrogates.
    std::mt19937 random(17);
    const char16_t kUnits[] = {u'a', u'=', u' ', 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xDC00, 0xFFFF};
    auto text = [&](int length) {
        std::u16string units;
        for (int i = 0; i < length; ++i) units += kUnits[random() % std::size(kUnits)];
        return CZelStringW(reinterpret_cast<const WCHAR*>(units.data()), length);
    };
    IniSections table;
    for (int length = 0; length <= 300; ++length) {
        table[text(length % 17)][W(u"k") + text(length)] = text(300 - length);
    }
    std::string utf8 = "\xEF\xBB\xBF";
    CZelStringW utf16(ZW("\xFEFF"));
    for (const auto& [name, keys] : table) {
        for (const CZelStringW& piece : {W(u"["), name, W(u"]\r\n")}) {
            utf8 += zel_text::CZelStringUtf8(piece).GetString();
            utf16 += piece;
        }
        for (const auto& [key, value] : keys) {
            for (const CZelStringW& piece : {key, W(u"="), value, W(u"\r\n")}) {
                utf8 += zel_text::CZelStringUtf8(piece).GetString();
                utf16 += piece;
            }
        }
        utf8 += "\r\n";
        utf16 += ZW("\r\n");
    }
    ASSERT_TRUE(SaveIniFile(PathW("pieces.ini"), table, kIniUtf8));
    EXPECT_EQ(Get("pieces.ini"), utf8);
    ASSERT_TRUE(SaveIniFile(PathW("pieces.ini"), table, kIniUtf16LE));
    EXPECT_EQ(Get("pieces.ini"), std::string(reinterpret_cast<const char*>(utf16.GetString()), utf16.GetLength() * 2));
    std::filesystem::remove(PathOf("pieces.ini"));
}

TEST_F(IniTest, RoundTripsInEveryEncoding) {
    IniSections table;
    table[W(u"Main")][W(u"name")] = W(u"caf\u00E9");
    table[W(u"Main")][W(u"empty")] = W(u"");
    table[W(u"Z")][W(u"k")] = W(u" spaced = value ");
    for (int encoding : {int{kIniUtf16LE}, int{kIniUtf8}}) {
        ASSERT_TRUE(SaveIniFile(PathW("round.ini"), table, encoding)) << encoding;
        IniSections loaded;
        ASSERT_TRUE(LoadIniFile(PathW("round.ini"), loaded)) << encoding;
        EXPECT_EQ(loaded, table) << encoding;
    }
    // Narrow files are read back in code page 0.
    IniSections ascii;
    ascii[W(u"S")][W(u"k")] = W(u"v");
    ASSERT_TRUE(SaveIniFile(PathW("round.ini"), ascii, 0));
    IniSections loaded;
    ASSERT_TRUE(LoadIniFile(PathW("round.ini"), loaded));
    EXPECT_EQ(loaded, ascii);
    std::filesystem::remove(PathOf("round.ini"));
}

TEST_F(IniTest, SaveKeepsTheTableOrderAcrossLargeAndEmptySections) {
    // Later sections are walked while an earlier one is written: more
    // sections than are walked together, sections of thousands of keys,
    // empty ones. 1252 converts the gathered lines in blocks too.
    const int sizes[] = {5000, 0, 1, 4097, 3, 0, 9000, 2, 4096};
    IniSections table;
    std::string utf8 = "\xEF\xBB\xBF";
    std::string narrow;
    for (int s = 0; s < static_cast<int>(std::size(sizes)); ++s) {
        CZelStringW name;
        name.Format(ZW("S%d"), s);
        IniKeys& keys = table[name];
        std::string header = "[S" + std::to_string(s) + "]\r\n";
        utf8 += header;
        narrow += header;
        for (int k = 0; k < sizes[s]; ++k) {
            CZelStringW key;
            key.Format(ZW("k%05d"), k);
            keys[key] = W(u"caf\u00E9");
            std::string line = zel_text::CZelStringUtf8(key).GetString();
            utf8 += line + "=caf\xC3\xA9\r\n";
            narrow += line + "=caf\xE9\r\n";
        }
        utf8 += "\r\n";
        narrow += "\r\n";
    }
    ASSERT_TRUE(SaveIniFile(PathW("order.ini"), table, kIniUtf8));
    EXPECT_TRUE(Get("order.ini") == utf8) << "UTF-8, " << utf8.size() << " bytes expected";
    ASSERT_TRUE(SaveIniFileAtomic(PathW("order.ini"), table, 1252));
    EXPECT_TRUE(Get("order.ini") == narrow) << "1252, " << narrow.size() << " bytes expected";
    std::filesystem::remove(PathOf("order.ini"));
}

TEST_F(IniTest, SaveCreatesMissingFolders) {
    IniSections table;
    table[W(u"S")][W(u"k")] = W(u"v");
    ASSERT_TRUE(SaveIniFile(PathW("a/b/c/settings.ini"), table, kIniUtf8));
    ASSERT_TRUE(SaveIniFileAtomic(PathW("d/e/settings.ini"), table, kIniUtf8));
    IniSections loaded;
    EXPECT_TRUE(LoadIniFile(PathW("a/b/c/settings.ini"), loaded));
    EXPECT_TRUE(LoadIniFile(PathW("d/e/settings.ini"), loaded));
    std::filesystem::remove_all(PathOf("a"));
    std::filesystem::remove_all(PathOf("d"));

    Put("file", "");
    EXPECT_FALSE(SaveIniFile(PathW("file/settings.ini"), table, kIniUtf8)) << "a file stands in the way";
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    std::filesystem::remove(PathOf("file"));
    if (zel_platform::kEmulated) {
        // The folders are made through the platform layer, where faults reach them.
        ASSERT_TRUE(zel_platform::FailSystemCall(zel_platform::SystemCall::MakeDirectory, 2, EACCES));
        EXPECT_FALSE(SaveIniFileAtomic(PathW("f/g/settings.ini"), table, kIniUtf8));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        zel_platform::ResetSystemCalls();
        std::filesystem::remove_all(PathOf("f"));
    }
}

TEST_F(IniTest, AtomicSaveKeepsThePreviousFileWhenTheDiskIsFull) {
    if (!zel_platform::kEmulated) GTEST_SKIP() << "the file-size limit is a POSIX facility";
    IniSections before;
    before[W(u"S")][W(u"k")] = W(u"old");
    ASSERT_TRUE(SaveIniFileAtomic(PathW("keep.ini"), before, kIniUtf8));
    std::string previous = Get("keep.ini");

    IniSections big;
    for (int i = 0; i < 2000; ++i) {
        CZelStringW key;
        key.Format(ZW("key%d"), i);
        big[W(u"S")][key] = W(u"some value");
    }
    ASSERT_TRUE(zel_platform::SetFileSizeLimit(4096));
    bool saved = SaveIniFileAtomic(PathW("keep.ini"), big, kIniUtf8);
    zel_platform::RestoreFileSizeLimit();
    EXPECT_FALSE(saved);
    EXPECT_EQ(Get("keep.ini"), previous);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Folder()), {}), 1) << "no temporary file left";
    std::filesystem::remove(PathOf("keep.ini"));
}

TEST_F(IniTest, AtomicSaveFailsWholeWithTheFirstError) {
    IniSections before;
    before[W(u"S")][W(u"k")] = W(u"old");
    ASSERT_TRUE(SaveIniFileAtomic(PathW("keep.ini"), before, kIniUtf16LE));
    std::string previous = Get("keep.ini");
    IniSections after;
    after[W(u"S")][W(u"k")] = W(u"new");
    auto expectUntouched = [&](const std::string& step) {
        EXPECT_EQ(Get("keep.ini"), previous) << step;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Folder()), {}), 1)
            << "no temporary file left after " << step;
    };

    // An encoding that is no code page is refused before anything is written.
    for (int encoding : {12345, -7}) {
        EXPECT_FALSE(SaveIniFileAtomic(PathW("keep.ini"), after, encoding));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        expectUntouched("encoding " + std::to_string(encoding));
    }
    ASSERT_TRUE(SaveIniFileAtomic(PathW("narrow.ini"), after, CP_ACP)) << "code page 0 is the ANSI one";
    std::filesystem::remove(PathOf("narrow.ini"));

    if (!zel_platform::kEmulated) {  // fault injection is a facility of the POSIX layer
        std::filesystem::remove(PathOf("keep.ini"));
        return;
    }
    using zel_platform::SystemCall;
    struct Fault {
        SystemCall call;
        int errnoValue;
        DWORD error;
    };
    const Fault faults[] = {
        {SystemCall::Open, ENOSPC, ERROR_DISK_FULL},
        {SystemCall::Write, ENOSPC, ERROR_DISK_FULL},
        {SystemCall::Write, EIO, ERROR_IO_DEVICE},
        {SystemCall::Rename, EXDEV, ERROR_NOT_SAME_DEVICE},
    };
    for (const Fault& fault : faults) {
        std::string step = std::to_string(static_cast<int>(fault.call)) + "/" + std::to_string(fault.errnoValue);
        zel_platform::ResetSystemCalls();
        ASSERT_TRUE(zel_platform::FailSystemCall(fault.call, 1, fault.errnoValue));
        EXPECT_FALSE(SaveIniFileAtomic(PathW("keep.ini"), after, kIniUtf16LE)) << step;
        EXPECT_EQ(GetLastError(), fault.error) << step;
        zel_platform::ResetSystemCalls();
        expectUntouched(step);
    }
    // A short write (a disk that fills up) is caught as well.
    ASSERT_TRUE(zel_platform::ShortenWrite(1, 3, ENOSPC));
    EXPECT_FALSE(SaveIniFileAtomic(PathW("keep.ini"), after, kIniUtf16LE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
    zel_platform::ResetSystemCalls();
    expectUntouched("a short write");
    std::filesystem::remove(PathOf("keep.ini"));
}
