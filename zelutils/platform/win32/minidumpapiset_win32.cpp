// The system dump on Windows: MiniDumpWriteDump from dbghelp.dll, loaded at
// run time so that a system without it still runs.
#include "zelutils/platform/minidumpapiset.h"

#include "zelutils/platform/fault_state.h"

#include <dbghelp.h>

#include <string>

namespace {

using MiniDumpWriteDumpFunction = BOOL(WINAPI*)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE,
                                                PMINIDUMP_EXCEPTION_INFORMATION,
                                                PMINIDUMP_USER_STREAM_INFORMATION,
                                                PMINIDUMP_CALLBACK_INFORMATION);

MiniDumpWriteDumpFunction gWriteDump = nullptr;

BOOL WriteMiniDump(DWORD processId, DWORD threadId, LPCWSTR dumpDirectory) {
    EXCEPTION_POINTERS* fault = zel_platform::CurrentFault();
    if (dumpDirectory == nullptr || processId != GetCurrentProcessId() || threadId != GetCurrentThreadId() ||
        fault == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!CreateDirectoryW(dumpDirectory, nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) return FALSE;
    std::wstring path = std::wstring(dumpDirectory) + L"\\zelutils-" + std::to_wstring(processId) + L"-" +
                        std::to_wstring(threadId) + L".dmp";
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return FALSE;
    MINIDUMP_EXCEPTION_INFORMATION exception{};
    exception.ThreadId = threadId;
    exception.ExceptionPointers = fault;
    exception.ClientPointers = FALSE;
    BOOL written = gWriteDump(GetCurrentProcess(), processId, file, MiniDumpNormal, &exception, nullptr, nullptr);
    DWORD error = GetLastError();
    CloseHandle(file);
    if (!written) {
        DeleteFileW(path.c_str());
        SetLastError(error);
    }
    return written;
}

}  // namespace

namespace zel_platform {

// The temporary folder is the user's own.
std::wstring DumpFolderName() { return L"zelutils-dumps"; }

DumpCapture FindDumpCapture() {
    if (gWriteDump == nullptr) {
        HMODULE dbghelp = LoadLibraryW(L"dbghelp.dll");
        if (dbghelp == nullptr) return nullptr;
        gWriteDump = reinterpret_cast<MiniDumpWriteDumpFunction>(
            reinterpret_cast<void*>(GetProcAddress(dbghelp, "MiniDumpWriteDump")));
        if (gWriteDump == nullptr) return nullptr;
    }
    return WriteMiniDump;
}

}  // namespace zel_platform
