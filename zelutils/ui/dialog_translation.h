/// @file
/// Putting windows, their controls and their menus into the user's
/// language. Each visible text goes through TranslateText; a text that comes
/// back different is written back into the control or the menu item. Only
/// standard window and menu calls are used, so this works on any window the
/// platform's window system (user32 on Windows) knows. Nothing throws: null
/// handles give -1 (windows) or 0 (menus), and an item or control whose
/// platform call fails is skipped.
///
/// Translation keys may carry a disambiguating suffix after "@@"; without a
/// translation table, what precedes the last "@@" is shown.
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

namespace zel_ui {

/// Gets the first word on every text: returns true, with out set, when it
/// produced the replacement itself.
class ZEL_API IZelPreTranslator {
public:
    /// True with out set when this hook translated text itself; false
    /// lets the table and the fallback go on.
    virtual bool PreTranslate(const WCHAR* text, zel_text::CZelStringW& out) = 0;

protected:
    ~IZelPreTranslator() = default;
};

/// The translation table: the translation of text (the text itself, or its
/// shown part, when it has none).
class ZEL_API IZelTranslationTable {
public:
    /// The translation of text, or text itself when the table has none.
    virtual zel_text::CZelStringW Lookup(const WCHAR* text) = 0;

protected:
    ~IZelTranslationTable() = default;
};

/// Install (or, with null, remove) the process-wide hooks. Not owned; the
/// host keeps them alive while installed. Meant for start-up.
ZEL_API void SetPreTranslator(IZelPreTranslator* preTranslator);
/// Installs (or, with null, removes) the translation table; see SetPreTranslator.
ZEL_API void SetTranslationTable(IZelTranslationTable* table);

/// The text in the user's language: empty for a null or empty text; else
/// the pre-translator's replacement when it gives one, passed on to the
/// table when one is installed; without a table, the text up to a final
/// "@@" suffix ("Open@@menu" shows "Open"; "a@b" stays).
ZEL_API zel_text::CZelStringW TranslateText(const WCHAR* text);

/// Translates window's own text, then the text of each direct child (in
/// z-order) that IsTranslatableControl accepts. Returns the number of
/// children visited, accepted or not; -1 for a null window.
ZEL_API int TranslateWindow(HWND window);
/// Translates window's text, setting it only when it changed. 0, or -1 for
/// a null window.
ZEL_API int TranslateWindowText(HWND window);
/// The whole text of window (empty on failure).
ZEL_API void WindowText(HWND window, zel_text::CZelStringW& text);
/// Whether a child's text is for reading: not for edits, list boxes, combo
/// boxes, buttons without text, or statics showing an icon or a bitmap.
ZEL_API bool IsTranslatableControl(HWND child);

/// A translator for menu texts.
using MenuTextTranslator = zel_text::CZelStringW (*)(const WCHAR* text);

/// Translates the texts of menu's items with translator (TranslateText when
/// null), skipping separators and column breaks. An item whose text changes
/// is replaced by one with the new text (its identifier kept; for a popup,
/// its submenu kept, and that submenu is then translated with
/// TranslateText). A submenu whose title does not change is not visited.
/// Returns 0, also for a null menu.
ZEL_API int TranslateMenu(HMENU menu, MenuTextTranslator translator = nullptr);

/// Whether menu is a menu: item 0 can be read, or reading it fails for any
/// reason other than an invalid menu handle (1401), so an empty menu counts.
ZEL_API bool IsMenuHandle(HMENU menu);
/// The number of items, found by reading them one by one; -1 with last
/// error 6 when menu is not a menu.
ZEL_API int MenuItemCount(HMENU menu);
/// The identifier of the item at position; -1 when it cannot be read or it
/// opens a submenu.
ZEL_API int MenuItemId(HMENU menu, int position);
/// The item's MF_ state and type bits (MF_POPUP for a submenu); item is a
/// position with MF_BYPOSITION in flags, else an identifier. 0 on failure.
ZEL_API UINT MenuItemState(HMENU menu, UINT item, UINT flags);
/// Copies the item's text (at most capacity - 1 characters and a
/// terminator) and returns its length; 0 on failure, or when the platform
/// handed back a text of its own instead of filling buffer.
ZEL_API int MenuItemText(HMENU menu, UINT item, WCHAR* buffer, int capacity, UINT flags);
/// Replaces an item by a new one with text and flags at the same place:
/// idOrSubmenu is the identifier, or the submenu with MF_POPUP. Without
/// MF_BYPOSITION, item is an identifier looked for from position 0, and an
/// item found at position 0 is not replaced (kept for compatibility with
/// the menus built around that rule). False when nothing was replaced.
ZEL_API bool ReplaceMenuItem(HMENU menu, UINT item, UINT flags, UINT_PTR idOrSubmenu, const WCHAR* text);

}  // namespace zel_ui
