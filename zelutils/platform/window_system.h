/// @file
/// The window system behind the window and menu calls of winuser.h on
/// POSIX, where there is no user32: a host with a screen of its own plugs
/// its toolkit in by implementing IWindowSystem; without one, the library's
/// in-memory window system keeps windows (class, text, style, children in
/// z-order) and menus (items with text, identifier, state and submenus)
/// that nobody sees, which is enough for code that reads and rewrites them.
/// On Windows the calls are user32's and none of this exists.
#pragma once

#include "zelutils/platform/winuser.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
#include <memory>

namespace zel_platform {

/// One operation per Win32 call, with that call's contract (winuser.h),
/// last error included. Implementations are called from any thread.
class ZEL_API IWindowSystem {
public:
    virtual ~IWindowSystem() = default;
    /// @name Window and menu calls
    //@{
    /// The Win32 call of the same name, with its contract and last error.
    virtual HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style,
                                 int x, int y, int width, int height, HWND parent, HMENU menu,
                                 HINSTANCE instance, LPVOID param) = 0;
    virtual BOOL DestroyWindow(HWND window) = 0;
    virtual HWND GetWindow(HWND window, UINT command) = 0;
    virtual int GetWindowTextLengthW(HWND window) = 0;
    virtual int GetWindowTextW(HWND window, LPWSTR text, int maxCount) = 0;
    virtual BOOL SetWindowTextW(HWND window, LPCWSTR text) = 0;
    virtual int GetClassNameW(HWND window, LPWSTR className, int maxCount) = 0;
    virtual LONG GetWindowLongW(HWND window, int index) = 0;
    virtual HMENU CreateMenu() = 0;
    virtual HMENU CreatePopupMenu() = 0;
    virtual BOOL DestroyMenu(HMENU menu) = 0;
    virtual BOOL InsertMenuW(HMENU menu, UINT position, UINT flags, UINT_PTR idNewItem,
                             LPCWSTR newItem) = 0;
    virtual BOOL RemoveMenu(HMENU menu, UINT position, UINT flags, bool destroySubmenu) = 0;
    virtual BOOL GetMenuItemInfoW(HMENU menu, UINT item, BOOL byPosition, LPMENUITEMINFOW info) = 0;
    virtual int GetMenuItemCount(HMENU menu) = 0;
    //@}
};

/// Makes system the window system of the process and returns the one it
/// replaces (null for the built-in one); null brings the built-in in-memory
/// one back. The caller keeps system alive while it is installed. Windows
/// and menus made under one system mean nothing to another.
ZEL_API IWindowSystem* SetWindowSystem(IWindowSystem* system);

/// A new, empty in-memory window system, e.g. for a host that keeps several.
ZEL_API std::unique_ptr<IWindowSystem> CreateInMemoryWindowSystem();

}  // namespace zel_platform
#endif
