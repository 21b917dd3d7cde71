#include "zelutils/diag/module_load.h"

#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/ui/ui_services.h"

namespace zel_core {
namespace {

void LogLoadFailure(const zel_text::CZelStringW& path, DWORD error) {
    logPrintfW(ZW("Could not load library %ls err code = %d"), path.GetString(), static_cast<int>(error));
    MEMORYSTATUS memory{};
    memory.dwLength = sizeof memory;
    GlobalMemoryStatus(&memory);
    logPrintfW(ZW("Total Memory: %Iu bytes, Free Memory: %Iu bytes, Total VM: %Iu bytes, Free VM: %Iu bytes"),
               memory.dwTotalPhys, memory.dwAvailPhys, memory.dwTotalVirtual, memory.dwAvailVirtual);
}

// The user's message, each piece in the user's language.
void ShowLoadFailure(const WCHAR* moduleName, DWORD error) {
    zel_ui::IZelUiTranslate* translate = zel_ui::GetUiTranslate();
    zel_text::CZelStringW text = translate->Translate(ZW("Could not load module "));
    text += moduleName;
    text += ZW(".\r\n\r\n");
    text += translate->Translate(error == ERROR_MOD_NOT_FOUND
                                     ? ZW("Application reinstall may be needed. ")
                                     : ZW("Save your work and quit application. Restarting device may be needed as well. "));
    text += translate->Translate(
        ZW("If the problem persists, collect application log files and contact support."));
    zel_ui::GetUiMsg()->ShowError(text);
}

}  // namespace

bool loadModuleFunction(HMODULE* moduleHandleOut, FARPROC* functionOut, const WCHAR* functionName,
                        const WCHAR* moduleName, bool showMessage, bool logErrors) {
    if (functionOut != nullptr) *functionOut = nullptr;
    if (moduleHandleOut == nullptr || moduleName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    zel_text::CZelStringW path = zel::folders::GetProgramFolder();
    // "/" as in every path the library builds: the log shows a path that
    // names the file on POSIX too (Windows takes either separator).
    path += ZW("/");
    path += moduleName;
    *moduleHandleOut = LoadLibraryW(path);
    if (*moduleHandleOut == nullptr) {
        DWORD error = GetLastError();
        if (logErrors) LogLoadFailure(path, error);
        if (showMessage) ShowLoadFailure(moduleName, error);
        SetLastError(error);
        return false;
    }
    if (functionOut == nullptr) return true;
    *functionOut = GetProcAddressW(*moduleHandleOut, functionName);
    if (*functionOut != nullptr) return true;
    DWORD error = GetLastError();
    if (logErrors) {
        logPrintfW(ZW("Missing function '%ls' in %ls. Error code: %d"),
                   functionName != nullptr ? functionName : ZW(""), moduleName, static_cast<int>(error));
    }
    FreeLibrary(*moduleHandleOut);
    *moduleHandleOut = nullptr;
    SetLastError(error);
    return false;
}

}  // namespace zel_core
