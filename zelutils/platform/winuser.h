/// @file
/// String resources and message boxes. On Windows LoadStringW reads a
/// module's string table; on POSIX the host registers string tables per
/// module (RegisterStringTable) and LoadStringW reads those.
///
/// Message boxes go through one replaceable process-wide handler, so hosts
/// without a screen and tests can answer them. The library's own modules
/// call zel_platform::ShowMessageBox, which reaches the installed handler on
/// every platform; on POSIX MessageBoxW does the same. Without a handler the
/// box is the system's (Windows) or, on POSIX, is written to stderr and
/// answered with its default button unless a terminal can ask the user.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <functional>

#ifndef _WIN32
namespace zel_win32 {
// Buttons (the type word's low four bits).
/// @name Buttons
//@{
/// A set of buttons of a message box. OK; OK and Cancel; Abort, Retry and
/// Ignore; Yes, No and Cancel; Yes and No; Retry and Cancel; Cancel, Try Again
/// and Continue.
#define MB_OK 0x00000000L
#define MB_OKCANCEL 0x00000001L
#define MB_ABORTRETRYIGNORE 0x00000002L
#define MB_YESNOCANCEL 0x00000003L
#define MB_YESNO 0x00000004L
#define MB_RETRYCANCEL 0x00000005L
#define MB_CANCELTRYCONTINUE 0x00000006L
//@}
// Icons.
/// @name Icons
//@{
/// The icon of a message box. Stop (hand, error), question mark, exclamation
/// (warning), information (asterisk), or the caller's own; aliases share a value.
#define MB_ICONHAND 0x00000010L
#define MB_ICONQUESTION 0x00000020L
#define MB_ICONEXCLAMATION 0x00000030L
#define MB_ICONASTERISK 0x00000040L
#define MB_USERICON 0x00000080L
#define MB_ICONWARNING MB_ICONEXCLAMATION
#define MB_ICONERROR MB_ICONHAND
#define MB_ICONINFORMATION MB_ICONASTERISK
#define MB_ICONSTOP MB_ICONHAND
//@}
// Default button.
/// @name Default button
//@{
/// Which of the box's buttons (first to fourth) is the default.
#define MB_DEFBUTTON1 0x00000000L
#define MB_DEFBUTTON2 0x00000100L
#define MB_DEFBUTTON3 0x00000200L
#define MB_DEFBUTTON4 0x00000300L
//@}
// Modality and placement.
/// @name Modality, placement and masks
//@{
/// A modality or window-placement bit, or a mask of the type word's fields.
/// Boxes on POSIX ignore the bits; the masks select the buttons, icon,
/// default button, modality and the rest.
#define MB_APPLMODAL 0x00000000L
#define MB_SYSTEMMODAL 0x00001000L
#define MB_TASKMODAL 0x00002000L
#define MB_HELP 0x00004000L
#define MB_NOFOCUS 0x00008000L
#define MB_SETFOREGROUND 0x00010000L
#define MB_DEFAULT_DESKTOP_ONLY 0x00020000L
#define MB_TOPMOST 0x00040000L
#define MB_RIGHT 0x00080000L
#define MB_RTLREADING 0x00100000L
#define MB_SERVICE_NOTIFICATION 0x00200000L
#define MB_TYPEMASK 0x0000000FL
#define MB_ICONMASK 0x000000F0L
#define MB_DEFMASK 0x00000F00L
#define MB_MODEMASK 0x00003000L
#define MB_MISCMASK 0x0000C000L
//@}

// The button a message box returns.
/// @name Button identifiers
//@{
/// The button a message box returns. OK, Cancel, Abort, Retry, Ignore, Yes,
/// No, Close, Help, Try Again, Continue.
#define IDOK 1
#define IDCANCEL 2
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7
#define IDCLOSE 8
#define IDHELP 9
#define IDTRYAGAIN 10
#define IDCONTINUE 11
//@}

/// MessageBoxW's error for a type word whose buttons do not exist.
#define ERROR_INVALID_MSGBOX_STYLE 1158L

/// Copies string resource id of module into buffer (at most bufferMax - 1
/// units, always terminated) and returns the units copied; 0 when the string
/// does not exist. With bufferMax 0, stores a read-only pointer to the
/// resource text in *(LPCWSTR*)buffer and returns its length. A null buffer
/// or a negative bufferMax fail with 87 and write nothing.
ZEL_API int LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int bufferMax);

/// Shows a message box through zel_platform::ShowMessageBox and returns the
/// button chosen (IDOK, IDCANCEL, ...); 0 with ERROR_INVALID_MSGBOX_STYLE for
/// a type word without buttons. A null caption reads "Error".
ZEL_API int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
/// The window with the keyboard focus; null on POSIX, which has no windows.
ZEL_API HWND GetActiveWindow();

// --- Windows and menus ---------------------------------------------------
// On POSIX these calls go to the installed window system
// (zel_platform::SetWindowSystem), by default the in-memory one of
// window_system.h, which keeps windows and menus without showing them.

typedef struct HMENU__* HMENU;

#define WS_CHILD 0x40000000L
#define WS_VISIBLE 0x10000000L
#define WS_POPUP 0x80000000L
#define SS_ICON 0x00000003L
#define SS_BITMAP 0x0000000EL
#define GWL_STYLE (-16)
#define GW_HWNDNEXT 2
#define GW_CHILD 5

#define MF_STRING 0x00000000L
#define MF_BYCOMMAND 0x00000000L
#define MF_GRAYED 0x00000001L
#define MF_DISABLED 0x00000002L
#define MF_CHECKED 0x00000008L
#define MF_POPUP 0x00000010L
#define MF_MENUBARBREAK 0x00000020L
#define MF_MENUBREAK 0x00000040L
#define MF_BYPOSITION 0x00000400L
#define MF_SEPARATOR 0x00000800L
#define MFT_STRING MF_STRING
#define MFT_SEPARATOR MF_SEPARATOR
#define MFT_MENUBARBREAK MF_MENUBARBREAK
#define MFT_MENUBREAK MF_MENUBREAK
#define MFS_GRAYED 0x00000003L
#define MFS_CHECKED MF_CHECKED
#define MIIM_STATE 0x00000001
#define MIIM_ID 0x00000002
#define MIIM_SUBMENU 0x00000004
#define MIIM_TYPE 0x00000010
#define MIIM_STRING 0x00000040
#define MIIM_FTYPE 0x00000100

#define ERROR_INVALID_WINDOW_HANDLE 1400L
#define ERROR_INVALID_MENU_HANDLE 1401L
#define ERROR_MENU_ITEM_NOT_FOUND 1456L

/// What GetMenuItemInfoW reads of a menu item.
typedef struct tagMENUITEMINFOW {
    UINT cbSize;  ///< size of the structure in bytes
    UINT fMask;  ///< MIIM_* bits: which members to get
    UINT fType;  ///< MFT_* type bits
    UINT fState;  ///< MFS_* state bits
    UINT wID;  ///< the item identifier
    HMENU hSubMenu;  ///< the submenu of a popup item, or null
    HANDLE hbmpChecked;  ///< bitmap shown when checked (kept, unused)
    HANDLE hbmpUnchecked;  ///< bitmap shown when unchecked (kept, unused)
    ULONG_PTR dwItemData;  ///< the application's value for the item
    LPWSTR dwTypeData;  ///< buffer that receives the item text
    UINT cch;  ///< the buffer size in characters; receives the text length
    HANDLE hbmpItem;  ///< the item bitmap (kept, unused)
} MENUITEMINFOW, *LPMENUITEMINFOW;
typedef const MENUITEMINFOW* LPCMENUITEMINFOW;

/// Makes a window of className ("Button", "Edit", "Static", ... or any
/// name) with the text and style; a WS_CHILD window goes below its
/// siblings under parent. Position, size, menu, instance and param are
/// kept by the window system or ignored. Null with 1400 for a stale parent.
ZEL_API HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style,
                             int x, int y, int width, int height, HWND parent, HMENU menu,
                             HINSTANCE instance, LPVOID param);
/// Destroys window and its children. FALSE with 1400 for a stale handle.
ZEL_API BOOL DestroyWindow(HWND window);
/// The first child (GW_CHILD) or the next sibling (GW_HWNDNEXT); null at
/// the end, or with 1400 for a stale handle.
ZEL_API HWND GetWindow(HWND window, UINT command);
/// The text's length in characters; 0 for a stale handle (1400).
ZEL_API int GetWindowTextLengthW(HWND window);
/// Copies at most maxCount - 1 characters and a terminator; returns the
/// characters copied (0 with 1400 for a stale handle).
ZEL_API int GetWindowTextW(HWND window, LPWSTR text, int maxCount);
ZEL_API BOOL SetWindowTextW(HWND window, LPCWSTR text);
/// Copies the class name as GetWindowTextW copies text.
ZEL_API int GetClassNameW(HWND window, LPWSTR className, int maxCount);
/// GWL_STYLE only (else 0 with 87).
ZEL_API LONG GetWindowLongW(HWND window, int index);

ZEL_API HMENU CreateMenu();
ZEL_API HMENU CreatePopupMenu();
/// Destroys menu and the submenus its items open.
ZEL_API BOOL DestroyMenu(HMENU menu);
/// Adds an item at the end: flags MF_STRING (text newItem), MF_SEPARATOR
/// or MF_POPUP (idNewItem is the submenu), with MF_GRAYED, MF_CHECKED,
/// MF_MENUBREAK, MF_MENUBARBREAK.
ZEL_API BOOL AppendMenuW(HMENU menu, UINT flags, UINT_PTR idNewItem, LPCWSTR newItem);
/// Adds an item before the one position names (MF_BYPOSITION: an index,
/// the end when past it; else an identifier).
ZEL_API BOOL InsertMenuW(HMENU menu, UINT position, UINT flags, UINT_PTR idNewItem, LPCWSTR newItem);
/// Removes an item; DeleteMenu also destroys the submenu it opens.
ZEL_API BOOL DeleteMenu(HMENU menu, UINT position, UINT flags);
ZEL_API BOOL RemoveMenu(HMENU menu, UINT position, UINT flags);
/// Reads the fields fMask names of the item at item (byPosition: an index,
/// else an identifier). MIIM_STRING/MIIM_TYPE copy at most cch - 1
/// characters into dwTypeData and set cch to the text's length. FALSE with
/// 1401 for a stale menu, 1456 for no such item.
ZEL_API BOOL GetMenuItemInfoW(HMENU menu, UINT item, BOOL byPosition, LPMENUITEMINFOW info);
/// The item's MF_ flags (for a popup: MF_POPUP and, in bits 8-15, its item
/// count); (UINT)-1 when there is no such item.
ZEL_API UINT GetMenuState(HMENU menu, UINT id, UINT flags);
ZEL_API HMENU GetSubMenu(HMENU menu, int position);
ZEL_API int GetMenuItemCount(HMENU menu);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// One entry of a host-registered string table.
struct StringResource {
    ///@{
    /// The string's resource id and its null-terminated text.
    UINT id;
    const WCHAR* text;
    ///@}
};

/// Registers (or replaces) the string table of module. The texts are copied.
/// Returns false on Windows, where modules carry their own resources.
ZEL_API bool RegisterStringTable(HMODULE module, const StringResource* entries, size_t count);
/// Removes the string table of module, if any.
ZEL_API void UnregisterStringTable(HMODULE module);

/// The buttons of a message box, in the order they are shown; count is 0
/// for a type word whose low four bits name no set of buttons.
struct MessageBoxButtonSet {
    ///@{
    /// The button identifiers (IDOK, ...), left to right, and how many are used.
    int ids[3];
    int count;
    ///@}
};

/// The buttons that the type word's MB_OK..MB_CANCELTRYCONTINUE bits ask for.
ZEL_API MessageBoxButtonSet MessageBoxButtons(UINT type);

/// Answers a message box: takes MessageBoxW's arguments (text and caption
/// possibly null) and returns the button chosen. A handler that wants the
/// platform's own box calls DefaultMessageBox (MessageBoxW would come back
/// to the handler on POSIX).
using MessageBoxHandler = std::function<int(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type)>;

/// Installs handler for the whole process; an empty handler restores the
/// default. Returns the handler that was installed (empty for the default).
/// A box in progress on another thread may still finish with the old one.
ZEL_API MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);
/// Shows a message box through the installed handler, or DefaultMessageBox
/// when there is none, and returns its answer. Safe to call from any thread.
ZEL_API int ShowMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
/// The platform's own message box: the system's on Windows. On POSIX the
/// caption and text go to stderr; with both stdin and stderr on a terminal
/// and more than one button, the user is asked for one, otherwise the
/// default button answers. 0 with ERROR_INVALID_MSGBOX_STYLE for a type word
/// without buttons.
ZEL_API int DefaultMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);
/// The button a box of this type word answers with when nobody chooses: the
/// one MB_DEFBUTTON1..4 names among the box's buttons, the first when there
/// are fewer buttons; 0 for a type word without buttons.
ZEL_API int DefaultMessageBoxButton(UINT type);
}  // namespace zel_platform
