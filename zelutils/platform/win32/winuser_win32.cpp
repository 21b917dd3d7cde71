// The system's message box as the default for the replaceable handler.
#include "zelutils/platform/winuser.h"

namespace zel_platform {

int DefaultMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    return MessageBoxW(owner, text, caption, type);
}

}  // namespace zel_platform
