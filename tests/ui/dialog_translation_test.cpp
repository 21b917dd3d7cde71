// Translating windows, controls and menus. The cases run against the
// platform's window system: user32 on Windows (under Wine, its null
// graphics driver), the in-memory window system elsewhere.
#include "zelutils/ui/dialog_translation.h"

#include "tests/support/wine.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zel_ui;
using zel_text::CZelStringW;

std::string Utf8(const CZelStringW& text) { return zel_text::CZelStringUtf8(text).GetString(); }

CZelStringW Wide(const char* text) { return zel_text::CZelStringUtf8(text).ToWide(); }

std::string TextOf(HWND window) {
    CZelStringW text;
    WindowText(window, text);
    return Utf8(text);
}

std::string ItemText(HMENU menu, UINT position) {
    WCHAR buffer[256] = {};
    MenuItemText(menu, position, buffer, 256, MF_BYPOSITION);
    return Utf8(CZelStringW(buffer));
}

class TaggingTable : public IZelTranslationTable {
public:
    CZelStringW Lookup(const WCHAR* text) override { return CZelStringW(ZW("<")) + text + ZW(">"); }
};

class PreTranslator : public IZelPreTranslator {
public:
    bool PreTranslate(const WCHAR* text, CZelStringW& out) override {
        if (CZelStringW(text) != ZW("greeting")) return false;
        out = ZW("Hello@@salutation");
        return true;
    }
};

class Translation : public ::testing::Test {
protected:
    void TearDown() override {
        SetPreTranslator(nullptr);
        SetTranslationTable(nullptr);
        for (HWND window : windows_) DestroyWindow(window);
        for (HMENU menu : menus_) DestroyMenu(menu);
    }
    HWND Window(const char* className, const char* text, DWORD style = 0, HWND parent = nullptr) {
        HWND window = CreateWindowExW(0, Wide(className), Wide(text), style | (parent ? WS_CHILD : WS_POPUP),
                                      0, 0, 100, 20, parent, nullptr, nullptr, nullptr);
        EXPECT_NE(window, nullptr) << className << " " << GetLastError();
        if (parent == nullptr) windows_.push_back(window);
        return window;
    }
    HMENU Menu(bool popup = true) {
        HMENU menu = popup ? CreatePopupMenu() : CreateMenu();
        menus_.push_back(menu);
        return menu;
    }
    // A popup item opening submenu, which the outer menu then owns.
    void AppendPopup(HMENU menu, HMENU submenu, const char* text) {
        menus_.erase(std::find(menus_.begin(), menus_.end(), submenu));
        AppendMenuW(menu, MF_STRING | MF_POPUP, reinterpret_cast<UINT_PTR>(submenu), Wide(text));
    }

    std::vector<HWND> windows_;
    std::vector<HMENU> menus_;
};

TEST_F(Translation, TextKeepsWhatPrecedesAFinalDoubleAt) {
    EXPECT_EQ(Utf8(TranslateText(nullptr)), "");
    EXPECT_EQ(Utf8(TranslateText(ZW(""))), "");
    EXPECT_EQ(Utf8(TranslateText(ZW("Open@@menu"))), "Open");
    EXPECT_EQ(Utf8(TranslateText(ZW("a@b"))), "a@b");
    EXPECT_EQ(Utf8(TranslateText(ZW("@@x"))), "");
    EXPECT_EQ(Utf8(TranslateText(ZW("a@@b@c"))), "a@@b@c") << "only the last '@' counts";
    EXPECT_EQ(Utf8(TranslateText(ZW("x@"))), "x@");
}

TEST_F(Translation, PreTranslatorThenTableDecide) {
    PreTranslator preTranslator;
    SetPreTranslator(&preTranslator);
    EXPECT_EQ(Utf8(TranslateText(ZW("greeting"))), "Hello");
    EXPECT_EQ(Utf8(TranslateText(ZW("other@@x"))), "other");
    TaggingTable table;
    SetTranslationTable(&table);
    EXPECT_EQ(Utf8(TranslateText(ZW("greeting"))), "<Hello@@salutation>");
    EXPECT_EQ(Utf8(TranslateText(ZW("other"))), "<other>");
    EXPECT_EQ(Utf8(TranslateText(ZW(""))), "") << "an empty text never reaches the table";
}

TEST_F(Translation, WindowTranslatesItselfAndTheControlsMeantForReading) {
    HWND dialog = Window("Static", "Title@@dialog");
    HWND button = Window("Button", "OK@@button", 0, dialog);
    HWND emptyButton = Window("Button", "", 0, dialog);
    HWND edit = Window("Edit", "Name@@edit", 0, dialog);
    HWND list = Window("ListBox", "", 0, dialog);
    HWND label = Window("Static", "Label@@static", 0, dialog);
    HWND icon = Window("Static", "Icon@@static", SS_ICON, dialog);
    HWND bitmap = Window("Static", "Bitmap@@static", SS_BITMAP, dialog);
    HWND scroll = Window("ScrollBar", "Scroll@@bar", 0, dialog);
    HWND grandchild = Window("Static", "Inner@@static", 0, label);
    std::string iconText = TextOf(icon);
    std::string bitmapText = TextOf(bitmap);

    EXPECT_EQ(TranslateWindow(dialog), 8) << "direct children only, filtered or not";
    EXPECT_EQ(TextOf(dialog), "Title");
    EXPECT_EQ(TextOf(button), "OK");
    EXPECT_EQ(TextOf(edit), "Name@@edit");
    EXPECT_EQ(TextOf(label), "Label");
    EXPECT_EQ(TextOf(icon), iconText);
    EXPECT_EQ(TextOf(bitmap), bitmapText);
    EXPECT_EQ(TextOf(scroll), "Scroll");
    EXPECT_EQ(TextOf(grandchild), "Inner@@static");

    EXPECT_TRUE(IsTranslatableControl(button));
    EXPECT_FALSE(IsTranslatableControl(emptyButton));
    EXPECT_FALSE(IsTranslatableControl(edit));
    EXPECT_FALSE(IsTranslatableControl(list));
    EXPECT_TRUE(IsTranslatableControl(label));
    EXPECT_FALSE(IsTranslatableControl(icon));
    EXPECT_FALSE(IsTranslatableControl(bitmap));
    EXPECT_TRUE(IsTranslatableControl(scroll));
    HWND combo = Window("ComboBox", "", 0, dialog);
    EXPECT_FALSE(IsTranslatableControl(combo));

    EXPECT_EQ(TranslateWindow(nullptr), -1);
    EXPECT_EQ(TranslateWindowText(nullptr), -1);
    EXPECT_EQ(TranslateWindowText(button), 0);
}

TEST_F(Translation, MenuTranslatesChangedPopupsOnly) {
    HMENU bar = Menu(false);
    HMENU file = Menu();
    AppendMenuW(file, MF_STRING, 10, ZW("Open@@file"));
    AppendMenuW(file, MF_SEPARATOR, 0, nullptr);
    AppendMenuW(file, MF_STRING, 11, ZW("Exit"));
    HMENU edit = Menu();
    AppendMenuW(edit, MF_STRING, 20, ZW("Copy@@edit"));
    AppendPopup(bar, file, "File@@bar");
    AppendPopup(bar, edit, "Edit");
    AppendMenuW(bar, MF_STRING, 30, ZW("Help@@bar"));
    AppendMenuW(bar, MF_STRING | MF_MENUBREAK, 40, ZW("Column@@bar"));

    EXPECT_EQ(TranslateMenu(bar), 0);
    EXPECT_EQ(ItemText(bar, 0), "File");
    EXPECT_EQ(ItemText(bar, 1), "Edit");
    EXPECT_EQ(ItemText(bar, 2), "Help");
    EXPECT_EQ(ItemText(bar, 3), "Column@@bar") << "column breaks are skipped";
    EXPECT_EQ(MenuItemId(bar, 2), 30);
    EXPECT_EQ(GetSubMenu(bar, 0), file) << "the popup keeps its submenu";
    EXPECT_EQ(ItemText(file, 0), "Open");
    EXPECT_EQ(MenuItemId(file, 0), 10);
    EXPECT_EQ(ItemText(file, 2), "Exit");
    EXPECT_EQ(ItemText(edit, 0), "Copy@@edit") << "an unchanged popup title keeps its submenu as it was";
    EXPECT_EQ(TranslateMenu(nullptr), 0);
}

TEST_F(Translation, MenuTranslatorAppliesToTheTopLevelOnly) {
    HMENU bar = Menu(false);
    HMENU file = Menu();
    AppendMenuW(file, MF_STRING, 10, ZW("Open@@file"));
    AppendPopup(bar, file, "File");
    TranslateMenu(bar, [](const WCHAR* text) { return CZelStringW(ZW("[")) + text + ZW("]"); });
    EXPECT_EQ(ItemText(bar, 0), "[File]");
    EXPECT_EQ(ItemText(file, 0), "Open") << "submenus go through TranslateText";
}

TEST_F(Translation, MenuQueries) {
    HMENU menu = Menu();
    HMENU submenu = Menu();
    AppendMenuW(menu, MF_STRING, 7, ZW("First"));
    AppendMenuW(menu, MF_STRING | MF_GRAYED, 8, ZW("Hello"));
    AppendPopup(menu, submenu, "More");
    AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
    HMENU empty = Menu();
    HMENU bogus = reinterpret_cast<HMENU>(static_cast<UINT_PTR>(0x7FFF0));

    EXPECT_TRUE(IsMenuHandle(menu));
    EXPECT_TRUE(IsMenuHandle(empty));
    EXPECT_EQ(MenuItemCount(menu), 4);
    EXPECT_EQ(MenuItemCount(empty), 0);
    // Wine fails GetMenuItemInfoW on a handle that is no menu without
    // setting 1401, so there every handle reads as a menu.
    if (!zel_test::RunningUnderWine()) {
        EXPECT_FALSE(IsMenuHandle(bogus));
        EXPECT_EQ(MenuItemCount(bogus), -1);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }

    EXPECT_EQ(MenuItemId(menu, 1), 8);
    EXPECT_EQ(MenuItemId(menu, 2), -1) << "a popup has no identifier";
    EXPECT_EQ(MenuItemId(menu, 9), -1);

    EXPECT_EQ(MenuItemState(menu, 1, MF_BYPOSITION) & MF_GRAYED, static_cast<UINT>(MF_GRAYED));
    EXPECT_EQ(MenuItemState(menu, 8, MF_BYCOMMAND) & MF_GRAYED, static_cast<UINT>(MF_GRAYED));
    EXPECT_NE(MenuItemState(menu, 2, MF_BYPOSITION) & MF_POPUP, 0u);
    EXPECT_NE(MenuItemState(menu, 3, MF_BYPOSITION) & MF_SEPARATOR, 0u);
    EXPECT_EQ(MenuItemState(menu, 9, MF_BYPOSITION), 0u);

    WCHAR buffer[3] = {};
    EXPECT_EQ(MenuItemText(menu, 1, buffer, 3, MF_BYPOSITION), 2);
    EXPECT_EQ(Utf8(CZelStringW(buffer)), "He");
    EXPECT_EQ(MenuItemText(menu, 8, buffer, 3, MF_BYCOMMAND), 2);
    EXPECT_EQ(MenuItemText(menu, 9, buffer, 3, MF_BYPOSITION), 0);
}

TEST_F(Translation, ReplaceByIdentifierNeverFindsPositionZero) {
    HMENU menu = Menu();
    AppendMenuW(menu, MF_STRING, 7, ZW("First"));
    AppendMenuW(menu, MF_STRING, 8, ZW("Second"));
    AppendMenuW(menu, MF_STRING, 9, ZW("Third"));
    EXPECT_FALSE(ReplaceMenuItem(menu, 7, MF_STRING, 70, ZW("New first")));
    EXPECT_EQ(ItemText(menu, 0), "First");
    EXPECT_FALSE(ReplaceMenuItem(menu, 99, MF_STRING, 99, ZW("Nothing")));
    EXPECT_TRUE(ReplaceMenuItem(menu, 9, MF_STRING, 90, ZW("New third")));
    EXPECT_EQ(ItemText(menu, 2), "New third");
    EXPECT_EQ(MenuItemId(menu, 2), 90);
    EXPECT_TRUE(ReplaceMenuItem(menu, 0, MF_BYPOSITION, 70, ZW("New first")));
    EXPECT_EQ(ItemText(menu, 0), "New first");
    EXPECT_EQ(MenuItemCount(menu), 3);
}

#ifndef _WIN32
// Another window system plugged in sees none of the built-in one's windows.
TEST_F(Translation, WindowSystemIsPluggable) {
    HWND dialog = Window("Static", "Title@@dialog");
    std::unique_ptr<zel_platform::IWindowSystem> other = zel_platform::CreateInMemoryWindowSystem();
    EXPECT_EQ(zel_platform::SetWindowSystem(other.get()), nullptr);
    EXPECT_EQ(GetWindowTextLengthW(dialog), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
    HWND own = Window("Button", "Own@@button");
    EXPECT_EQ(TranslateWindow(own), 0);
    EXPECT_EQ(TextOf(own), "Own");
    DestroyWindow(own);
    windows_.pop_back();
    EXPECT_EQ(zel_platform::SetWindowSystem(nullptr), other.get());
    EXPECT_EQ(TextOf(dialog), "Title@@dialog");
}
#endif

}  // namespace
