#include "zelutils/ui/dialog_translation.h"

#include <atomic>
#include <vector>

namespace zel_ui {

using zel_text::CZelStringW;

namespace {

std::atomic<IZelPreTranslator*> gPreTranslator{nullptr};
std::atomic<IZelTranslationTable*> gTable{nullptr};

// The shown part of a key: up to a "@@" that holds the text's last '@'.
CZelStringW ShownPart(const CZelStringW& text) {
    int last = text.ReverseFind(static_cast<WCHAR>('@'));
    if (last >= 1 && text[last - 1] == '@') return text.Left(last - 1);
    return text;
}

// Class names compare without case (ASCII, as window classes do).
bool IsClass(const WCHAR* name, const char* wanted) {
    for (; *wanted != 0; ++name, ++wanted) {
        WCHAR c = *name;
        if (c >= 'A' && c <= 'Z') c = static_cast<WCHAR>(c - 'A' + 'a');
        if (c != static_cast<WCHAR>(*wanted)) return false;
    }
    return *name == 0;
}

MENUITEMINFOW ItemInfo(UINT mask) {
    MENUITEMINFOW info{};
    info.cbSize = sizeof info;
    info.fMask = mask;
    return info;
}

}  // namespace

void SetPreTranslator(IZelPreTranslator* preTranslator) { gPreTranslator.store(preTranslator); }
void SetTranslationTable(IZelTranslationTable* table) { gTable.store(table); }

CZelStringW TranslateText(const WCHAR* text) {
    if (text == nullptr || text[0] == 0) return CZelStringW();
    CZelStringW result(text);
    if (IZelPreTranslator* preTranslator = gPreTranslator.load()) {
        CZelStringW replacement;
        if (preTranslator->PreTranslate(text, replacement)) result = replacement;
    }
    if (IZelTranslationTable* table = gTable.load()) return table->Lookup(result);
    return ShownPart(result);
}

void WindowText(HWND window, CZelStringW& text) {
    int length = GetWindowTextLengthW(window);
    std::vector<WCHAR> buffer(static_cast<std::size_t>(length > 0 ? length : 0) + 1, 0);
    int copied = GetWindowTextW(window, buffer.data(), static_cast<int>(buffer.size()));
    text = CZelStringW(buffer.data(), copied > 0 ? copied : 0);
}

int TranslateWindowText(HWND window) {
    if (window == nullptr) return -1;
    CZelStringW text;
    WindowText(window, text);
    CZelStringW translated = TranslateText(text);
    if (translated != text) SetWindowTextW(window, translated);
    return 0;
}

int TranslateWindow(HWND window) {
    if (window == nullptr) return -1;
    TranslateWindowText(window);
    int visited = 0;
    for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        ++visited;
        if (!IsTranslatableControl(child)) continue;
        CZelStringW text;
        WindowText(child, text);
        SetWindowTextW(child, TranslateText(text));
    }
    return visited;
}

bool IsTranslatableControl(HWND child) {
    WCHAR name[31] = {};
    if (GetClassNameW(child, name, 31) <= 0) return true;
    switch (name[0]) {
    case 'B':
    case 'b':
        return !IsClass(name, "button") || GetWindowTextLengthW(child) > 0;
    case 'C':
    case 'c':
        return !IsClass(name, "combobox");
    case 'E':
    case 'e':
        return !IsClass(name, "edit");
    case 'L':
    case 'l':
        return !IsClass(name, "listbox");
    case 'S':
    case 's': {
        if (!IsClass(name, "static")) return true;
        LONG style = GetWindowLongW(child, GWL_STYLE);
        bool bitmap = (style & SS_BITMAP) == SS_BITMAP;
        bool icon = (style & SS_ICON) == SS_ICON;
        return !bitmap && !icon;
    }
    default:
        return true;
    }
}

bool IsMenuHandle(HMENU menu) {
    MENUITEMINFOW info = ItemInfo(MIIM_STATE);
    return GetMenuItemInfoW(menu, 0, TRUE, &info) || GetLastError() != ERROR_INVALID_MENU_HANDLE;
}

int MenuItemCount(HMENU menu) {
    if (!IsMenuHandle(menu)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return -1;
    }
    int count = 0;
    for (MENUITEMINFOW info = ItemInfo(MIIM_STATE); GetMenuItemInfoW(menu, static_cast<UINT>(count), TRUE, &info);) {
        ++count;
    }
    return count;
}

int MenuItemId(HMENU menu, int position) {
    MENUITEMINFOW info = ItemInfo(MIIM_ID | MIIM_SUBMENU);
    if (!GetMenuItemInfoW(menu, static_cast<UINT>(position), TRUE, &info) || info.hSubMenu != nullptr) {
        return -1;
    }
    return static_cast<int>(info.wID);
}

UINT MenuItemState(HMENU menu, UINT item, UINT flags) {
    UINT state = GetMenuState(menu, item, flags & MF_BYPOSITION);
    return state == static_cast<UINT>(-1) ? 0 : state;
}

int MenuItemText(HMENU menu, UINT item, WCHAR* buffer, int capacity, UINT flags) {
    if (buffer == nullptr || capacity <= 0) return 0;
    MENUITEMINFOW info = ItemInfo(MIIM_TYPE);
    info.fType = MFT_STRING;
    info.dwTypeData = buffer;
    info.cch = static_cast<UINT>(capacity);
    if (!GetMenuItemInfoW(menu, item, (flags & MF_BYPOSITION) != 0, &info) || info.dwTypeData != buffer) {
        return 0;
    }
    return static_cast<int>(info.cch);
}

bool ReplaceMenuItem(HMENU menu, UINT item, UINT flags, UINT_PTR idOrSubmenu, const WCHAR* text) {
    UINT position = item;
    if ((flags & MF_BYPOSITION) == 0) {
        int count = MenuItemCount(menu);
        int found = 0;
        while (found < count && MenuItemId(menu, found) != static_cast<int>(item)) ++found;
        if (found <= 0 || found == count) return false;
        position = static_cast<UINT>(found);
    }
    // A popup's submenu lives on in the new item, so removing the old one
    // must not destroy it as DeleteMenu would.
    BOOL removed = (flags & MF_POPUP) != 0 ? RemoveMenu(menu, position, MF_BYPOSITION)
                                           : DeleteMenu(menu, position, MF_BYPOSITION);
    return removed && InsertMenuW(menu, position, flags | MF_BYPOSITION, idOrSubmenu, text);
}

int TranslateMenu(HMENU menu, MenuTextTranslator translator) {
    int count = menu != nullptr ? MenuItemCount(menu) : 0;
    for (int position = 0; position < count; ++position) {
        UINT state = MenuItemState(menu, static_cast<UINT>(position), MF_BYPOSITION);
        if ((state & (MF_SEPARATOR | MF_MENUBARBREAK | MF_MENUBREAK)) != 0) continue;
        WCHAR text[256] = {};
        if (MenuItemText(menu, static_cast<UINT>(position), text, 256, MF_BYPOSITION) == 0) continue;
        CZelStringW translated = translator != nullptr ? translator(text) : TranslateText(text);
        if (translated == text) continue;
        if ((state & MF_POPUP) != 0) {
            HMENU submenu = GetSubMenu(menu, position);
            ReplaceMenuItem(menu, static_cast<UINT>(position), MF_BYPOSITION | MF_POPUP,
                            reinterpret_cast<UINT_PTR>(submenu), translated);
            TranslateMenu(submenu, nullptr);
        } else {
            ReplaceMenuItem(menu, static_cast<UINT>(position), MF_BYPOSITION,
                            static_cast<UINT_PTR>(MenuItemId(menu, position)), translated);
        }
    }
    return 0;
}

}  // namespace zel_ui
