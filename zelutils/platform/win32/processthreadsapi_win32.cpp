// Process hooks that have no Windows counterpart, and thread names.
#include "zelutils/platform/processthreadsapi.h"

// Windows processes are never forked: there is nothing to run around it.
void zel_platform::RegisterForkHandlers(void (*)(), void (*)(), void (*)()) {}

void zel_platform::NameCurrentThread(LPCWSTR name) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    // Windows 10 1607 and later: looked up at run time, so older systems run.
    static const SetDescription set = reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
    if (set != nullptr && name != nullptr && name[0] != 0) set(GetCurrentThread(), name);
}
