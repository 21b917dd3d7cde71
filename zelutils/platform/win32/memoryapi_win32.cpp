// The mapping calls Windows lacks: the handheld systems' file open for
// mapping, and names private to the process.
#include "zelutils/platform/memoryapi.h"

#include "zelutils/platform/processthreadsapi.h"

#include <cwchar>
#include <string>

HANDLE zel_platform::CreateProcessFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES securityAttributes,
                                              DWORD protect, DWORD maximumSizeHigh,
                                              DWORD maximumSizeLow, LPCWSTR name) {
    if (name == nullptr || name[0] == 0) {
        return CreateFileMappingW(file, securityAttributes, protect, maximumSizeHigh, maximumSizeLow, name);
    }
    // Object names are seen by the whole session: the process id makes this
    // one the process's own.
    wchar_t suffix[24];
    std::swprintf(suffix, sizeof suffix / sizeof suffix[0], L"@%lx",
                  static_cast<unsigned long>(GetCurrentProcessId()));
    std::wstring own = std::wstring(name) + suffix;
    return CreateFileMappingW(file, securityAttributes, protect, maximumSizeHigh, maximumSizeLow,
                              own.c_str());
}
