// Windows and menus without user32: the calls of winuser.h forward to the
// installed window system, by default an in-memory one.
#include "zelutils/platform/window_system.h"

#include "zelutils/platform/errhandlingapi.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zel_platform {
namespace {

using Text = std::basic_string<WCHAR>;

Text TextOf(LPCWSTR text) { return text != nullptr ? Text(text) : Text(); }

// Copies at most maxCount - 1 characters and a terminator, as the Win32
// text getters do; returns the characters copied.
int CopyOut(const Text& text, LPWSTR buffer, int maxCount) {
    if (buffer == nullptr || maxCount <= 0) return 0;
    int count = std::min(static_cast<int>(text.size()), maxCount - 1);
    std::copy_n(text.data(), count, buffer);
    buffer[count] = 0;
    return count;
}

bool EqualNoCase(const Text& a, const char* b) {
    std::size_t i = 0;
    for (; i < a.size() && b[i] != 0; ++i) {
        WCHAR x = a[i] < 0x80 ? static_cast<WCHAR>(std::tolower(a[i])) : a[i];
        if (x != static_cast<WCHAR>(std::tolower(static_cast<unsigned char>(b[i])))) return false;
    }
    return i == a.size() && b[i] == 0;
}

// The class names user32 reports for its own classes, whatever case they
// were created with.
Text ReportedClassName(const Text& name) {
    static const char* const kSystemClasses[] = {"Button", "Edit", "Static", "ListBox", "ComboBox",
                                                 "ScrollBar"};
    for (const char* system : kSystemClasses) {
        if (EqualNoCase(name, system)) return Text(system, system + std::char_traits<char>::length(system));
    }
    return name;
}

class InMemoryWindowSystem final : public IWindowSystem {
public:
    HWND CreateWindowExW(DWORD, LPCWSTR className, LPCWSTR windowName, DWORD style, int, int, int,
                         int, HWND parent, HMENU, HINSTANCE, LPVOID) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (parent != nullptr && Window(parent) == nullptr) return nullptr;
        std::uintptr_t id = NextId();
        windows_[id] = WindowData{ReportedClassName(TextOf(className)), TextOf(windowName), style,
                                  Id(parent), {}};
        if (parent != nullptr) Window(parent)->children.push_back(id);
        return reinterpret_cast<HWND>(id);
    }

    BOOL DestroyWindow(HWND window) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        if (data == nullptr) return FALSE;
        if (WindowData* parent = Window(reinterpret_cast<HWND>(data->parent), false)) {
            auto& siblings = parent->children;
            siblings.erase(std::find(siblings.begin(), siblings.end(), Id(window)));
        }
        Destroy(Id(window));
        return TRUE;
    }

    HWND GetWindow(HWND window, UINT command) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        if (data == nullptr) return nullptr;
        if (command == GW_CHILD) {
            return data->children.empty() ? nullptr : reinterpret_cast<HWND>(data->children.front());
        }
        if (command != GW_HWNDNEXT) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        WindowData* parent = Window(reinterpret_cast<HWND>(data->parent), false);
        if (parent == nullptr) return nullptr;
        auto& siblings = parent->children;
        auto next = std::find(siblings.begin(), siblings.end(), Id(window)) + 1;
        return next == siblings.end() ? nullptr : reinterpret_cast<HWND>(*next);
    }

    int GetWindowTextLengthW(HWND window) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        return data == nullptr ? 0 : static_cast<int>(data->text.size());
    }

    int GetWindowTextW(HWND window, LPWSTR text, int maxCount) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        return data == nullptr ? 0 : CopyOut(data->text, text, maxCount);
    }

    BOOL SetWindowTextW(HWND window, LPCWSTR text) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        if (data == nullptr) return FALSE;
        data->text = TextOf(text);
        return TRUE;
    }

    int GetClassNameW(HWND window, LPWSTR className, int maxCount) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        return data == nullptr ? 0 : CopyOut(data->className, className, maxCount);
    }

    LONG GetWindowLongW(HWND window, int index) override {
        std::lock_guard<std::mutex> lock(mutex_);
        WindowData* data = Window(window);
        if (data == nullptr) return 0;
        if (index != GWL_STYLE) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        return static_cast<LONG>(data->style);
    }

    HMENU CreateMenu() override { return NewMenu(); }
    HMENU CreatePopupMenu() override { return NewMenu(); }

    BOOL DestroyMenu(HMENU menu) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (Menu(menu) == nullptr) return FALSE;
        DestroyMenuTree(Id(menu));
        return TRUE;
    }

    BOOL InsertMenuW(HMENU menu, UINT position, UINT flags, UINT_PTR idNewItem, LPCWSTR newItem) override {
        std::lock_guard<std::mutex> lock(mutex_);
        MenuData* data = Menu(menu);
        if (data == nullptr) return FALSE;
        Item item;
        item.type = flags & (MF_SEPARATOR | MF_MENUBREAK | MF_MENUBARBREAK);
        item.state = flags & (MF_GRAYED | MF_DISABLED | MF_CHECKED);
        if ((flags & MF_POPUP) != 0) {
            if (Menu(reinterpret_cast<HMENU>(idNewItem)) == nullptr) return FALSE;
            item.submenu = static_cast<std::uintptr_t>(idNewItem);
        } else {
            item.id = static_cast<UINT>(idNewItem);
        }
        if ((flags & MF_SEPARATOR) == 0) item.text = TextOf(newItem);
        std::size_t at = data->items.size();
        if ((flags & MF_BYPOSITION) != 0) {
            at = std::min<std::size_t>(position, data->items.size());
        } else if (!Find(*data, position, false, &at)) {
            SetLastError(ERROR_MENU_ITEM_NOT_FOUND);
            return FALSE;
        }
        data->items.insert(data->items.begin() + static_cast<std::ptrdiff_t>(at), item);
        return TRUE;
    }

    BOOL RemoveMenu(HMENU menu, UINT position, UINT flags, bool destroySubmenu) override {
        std::lock_guard<std::mutex> lock(mutex_);
        MenuData* data = Menu(menu);
        std::size_t at = 0;
        if (data == nullptr) return FALSE;
        if (!Find(*data, position, (flags & MF_BYPOSITION) != 0, &at)) {
            SetLastError(ERROR_MENU_ITEM_NOT_FOUND);
            return FALSE;
        }
        std::uintptr_t submenu = data->items[at].submenu;
        data->items.erase(data->items.begin() + static_cast<std::ptrdiff_t>(at));
        if (destroySubmenu && submenu != 0) DestroyMenuTree(submenu);
        return TRUE;
    }

    BOOL GetMenuItemInfoW(HMENU menu, UINT item, BOOL byPosition, LPMENUITEMINFOW info) override {
        std::lock_guard<std::mutex> lock(mutex_);
        MenuData* data = Menu(menu);
        if (data == nullptr) return FALSE;
        if (info == nullptr || info->cbSize < sizeof(MENUITEMINFOW)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        std::size_t at = 0;
        if (!Find(*data, item, byPosition != FALSE, &at)) {
            SetLastError(ERROR_MENU_ITEM_NOT_FOUND);
            return FALSE;
        }
        const Item& found = data->items[at];
        if ((info->fMask & (MIIM_TYPE | MIIM_FTYPE)) != 0) info->fType = found.type;
        if ((info->fMask & MIIM_STATE) != 0) info->fState = found.state;
        if ((info->fMask & MIIM_ID) != 0) info->wID = found.id;
        if ((info->fMask & MIIM_SUBMENU) != 0) info->hSubMenu = reinterpret_cast<HMENU>(found.submenu);
        if ((info->fMask & (MIIM_TYPE | MIIM_STRING)) != 0 && (found.type & MF_SEPARATOR) == 0) {
            if (info->dwTypeData != nullptr && info->cch > 0) {
                info->cch = static_cast<UINT>(CopyOut(found.text, info->dwTypeData, static_cast<int>(info->cch)));
            } else {
                info->cch = static_cast<UINT>(found.text.size());
            }
        }
        return TRUE;
    }

    int GetMenuItemCount(HMENU menu) override {
        std::lock_guard<std::mutex> lock(mutex_);
        MenuData* data = Menu(menu);
        return data == nullptr ? -1 : static_cast<int>(data->items.size());
    }

private:
    struct WindowData {
        Text className;
        Text text;
        DWORD style;
        std::uintptr_t parent;
        std::vector<std::uintptr_t> children;  // z-order, top first
    };
    struct Item {
        UINT type = 0;
        UINT state = 0;
        UINT id = 0;
        std::uintptr_t submenu = 0;
        Text text;
    };
    struct MenuData {
        std::vector<Item> items;
    };

    // Handle values are never reused, so a stale handle never reaches a
    // newer window or menu; the low bits stay 0 as in user32's handles.
    std::uintptr_t NextId() { return (++lastId_) << 4; }
    template <class Handle>
    static std::uintptr_t Id(Handle handle) {
        return reinterpret_cast<std::uintptr_t>(handle);
    }

    WindowData* Window(HWND window, bool report = true) {
        auto found = windows_.find(Id(window));
        if (found != windows_.end()) return &found->second;
        if (report) SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }

    MenuData* Menu(HMENU menu) {
        auto found = menus_.find(Id(menu));
        if (found != menus_.end()) return &found->second;
        SetLastError(ERROR_INVALID_MENU_HANDLE);
        return nullptr;
    }

    HMENU NewMenu() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::uintptr_t id = NextId();
        menus_[id] = MenuData();
        return reinterpret_cast<HMENU>(id);
    }

    static bool Find(const MenuData& menu, UINT item, bool byPosition, std::size_t* at) {
        if (byPosition) {
            *at = item;
            return item < menu.items.size();
        }
        for (std::size_t i = 0; i < menu.items.size(); ++i) {
            if (menu.items[i].submenu == 0 && menu.items[i].id == item) {
                *at = i;
                return true;
            }
        }
        return false;
    }

    void Destroy(std::uintptr_t window) {
        auto found = windows_.find(window);
        if (found == windows_.end()) return;
        std::vector<std::uintptr_t> children = std::move(found->second.children);
        windows_.erase(found);
        for (std::uintptr_t child : children) Destroy(child);
    }

    void DestroyMenuTree(std::uintptr_t menu) {
        auto found = menus_.find(menu);
        if (found == menus_.end()) return;
        std::vector<Item> items = std::move(found->second.items);
        menus_.erase(found);
        for (const Item& item : items) DestroyMenuTree(item.submenu);
    }

    std::mutex mutex_;
    std::uintptr_t lastId_ = 0;
    std::map<std::uintptr_t, WindowData> windows_;
    std::map<std::uintptr_t, MenuData> menus_;
};

std::atomic<IWindowSystem*> gInstalled{nullptr};

IWindowSystem& Current() {
    if (IWindowSystem* installed = gInstalled.load()) return *installed;
    // Never destroyed: windows may be used from exit handlers.
    static IWindowSystem* builtIn = new InMemoryWindowSystem;
    return *builtIn;
}

}  // namespace

IWindowSystem* SetWindowSystem(IWindowSystem* system) { return gInstalled.exchange(system); }

std::unique_ptr<IWindowSystem> CreateInMemoryWindowSystem() { return std::make_unique<InMemoryWindowSystem>(); }

}  // namespace zel_platform

using zel_platform::Current;

HWND zel_win32::CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style,
                                int x, int y, int width, int height, HWND parent, HMENU menu,
                                HINSTANCE instance, LPVOID param) {
    return Current().CreateWindowExW(exStyle, className, windowName, style, x, y, width, height,
                                     parent, menu, instance, param);
}
BOOL zel_win32::DestroyWindow(HWND window) { return Current().DestroyWindow(window); }
HWND zel_win32::GetWindow(HWND window, UINT command) { return Current().GetWindow(window, command); }
int zel_win32::GetWindowTextLengthW(HWND window) { return Current().GetWindowTextLengthW(window); }
int zel_win32::GetWindowTextW(HWND window, LPWSTR text, int maxCount) {
    return Current().GetWindowTextW(window, text, maxCount);
}
BOOL zel_win32::SetWindowTextW(HWND window, LPCWSTR text) { return Current().SetWindowTextW(window, text); }
int zel_win32::GetClassNameW(HWND window, LPWSTR className, int maxCount) {
    return Current().GetClassNameW(window, className, maxCount);
}
LONG zel_win32::GetWindowLongW(HWND window, int index) { return Current().GetWindowLongW(window, index); }
HMENU zel_win32::CreateMenu() { return Current().CreateMenu(); }
HMENU zel_win32::CreatePopupMenu() { return Current().CreatePopupMenu(); }
BOOL zel_win32::DestroyMenu(HMENU menu) { return Current().DestroyMenu(menu); }
BOOL zel_win32::AppendMenuW(HMENU menu, UINT flags, UINT_PTR idNewItem, LPCWSTR newItem) {
    return Current().InsertMenuW(menu, UINT(-1), flags | MF_BYPOSITION, idNewItem, newItem);
}
BOOL zel_win32::InsertMenuW(HMENU menu, UINT position, UINT flags, UINT_PTR idNewItem, LPCWSTR newItem) {
    return Current().InsertMenuW(menu, position, flags, idNewItem, newItem);
}
BOOL zel_win32::DeleteMenu(HMENU menu, UINT position, UINT flags) {
    return Current().RemoveMenu(menu, position, flags, true);
}
BOOL zel_win32::RemoveMenu(HMENU menu, UINT position, UINT flags) {
    return Current().RemoveMenu(menu, position, flags, false);
}
BOOL zel_win32::GetMenuItemInfoW(HMENU menu, UINT item, BOOL byPosition, LPMENUITEMINFOW info) {
    return Current().GetMenuItemInfoW(menu, item, byPosition, info);
}
int zel_win32::GetMenuItemCount(HMENU menu) { return Current().GetMenuItemCount(menu); }

UINT zel_win32::GetMenuState(HMENU menu, UINT id, UINT flags) {
    MENUITEMINFOW info{};
    info.cbSize = sizeof info;
    info.fMask = MIIM_FTYPE | MIIM_STATE | MIIM_SUBMENU;
    if (!Current().GetMenuItemInfoW(menu, id, (flags & MF_BYPOSITION) != 0, &info)) return UINT(-1);
    UINT state = info.fType | info.fState;
    if (info.hSubMenu != nullptr) {
        int count = Current().GetMenuItemCount(info.hSubMenu);
        state = MF_POPUP | (state & 0xFF) | (static_cast<UINT>(std::max(count, 0) & 0xFF) << 8);
    }
    return state;
}

HMENU zel_win32::GetSubMenu(HMENU menu, int position) {
    MENUITEMINFOW info{};
    info.cbSize = sizeof info;
    info.fMask = MIIM_SUBMENU;
    if (position < 0 || !Current().GetMenuItemInfoW(menu, static_cast<UINT>(position), TRUE, &info)) {
        return nullptr;
    }
    return info.hSubMenu;
}
