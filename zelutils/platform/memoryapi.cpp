// What the mapping calls share on every platform: desktop Windows has no
// CreateFileForMappingW of its own, and a mapping needs read access to its
// file everywhere, so the library supplies it over CreateFileW.
#include "zelutils/platform/memoryapi.h"

#include "zelutils/platform/fileapi.h"

HANDLE zel_win32::CreateFileForMappingW(LPCWSTR fileName, DWORD desiredAccess, DWORD shareMode,
                                        LPSECURITY_ATTRIBUTES securityAttributes,
                                        DWORD creationDisposition, DWORD flagsAndAttributes,
                                        HANDLE templateFile) {
    return CreateFileW(fileName, desiredAccess | GENERIC_READ, shareMode, securityAttributes,
                       creationDisposition, flagsAndAttributes, templateFile);
}
