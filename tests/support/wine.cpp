#include "tests/support/wine.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace zel_test {

bool RunningUnderWine() {
#ifdef _WIN32
    // Wine's ntdll exports its version; Windows' does not.
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
    return false;
#endif
}

}  // namespace zel_test
