// The system's message box as the default for the replaceable handler.
// String resources live in the modules themselves, so there are no tables
// for the host to register.
#include "zelutils/platform/winuser.h"

namespace zel_platform {

int DefaultMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    return MessageBoxW(owner, text, caption, type);
}

bool RegisterStringTable(HMODULE, const StringResource*, size_t) { return false; }

void UnregisterStringTable(HMODULE) {}

}  // namespace zel_platform
