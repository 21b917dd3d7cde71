#include "zelutils/diag/checks.h"

#include "zelutils/diag/log_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_printf.h"

#include <cstdlib>

namespace zel_core {
namespace {
// 1 while an assertion box is on the screen, on any thread.
LONG volatile gAssertBoxShowing = 0;

constexpr UINT kAssertBoxStyle = 0x50012;  // abort/retry/ignore, stop icon, foreground, top-most
constexpr UINT kErrorBoxStyle = 0x40030;   // OK, exclamation icon, top-most
constexpr int kAssertTextSize = 4096;
}  // namespace

runtime_exception::runtime_exception(const std::string& message) : std::runtime_error(message) {}

runtime_exception::runtime_exception(const char* message) : std::runtime_error(message) {}

runtime_exception::~runtime_exception() = default;

void dbgCheck(const char* file, int line, const char* message) {
    logPrintf("DBGCHK %s %s @ %d", message, file, line);
    logFlush();
}

bool zelAssertBox(const char* file, unsigned line, const char* message) {
    if (InterlockedCompareExchange(&gAssertBoxShowing, 1, 0) != 0) {
        BOOL debuggerPresent = FALSE;
        CheckRemoteDebuggerPresent(GetCurrentProcess(), &debuggerPresent);
        return !debuggerPresent;
    }
    WCHAR text[kAssertTextSize];
    zel_text::FormatBuffer(text, kAssertTextSize - 1, ZW("%S\n%u\n\n%S"), file, line,
                           message != nullptr ? message : "");
    text[kAssertTextSize - 1] = 0;
    int answer = zel_platform::ShowMessageBox(GetActiveWindow(), text, ZW("ZEL ASSERT"), kAssertBoxStyle);
    if (answer == IDABORT) TerminateProcess(GetCurrentProcess(), 3);
    InterlockedExchange(&gAssertBoxShowing, 0);
    return answer == IDIGNORE;
}

void fatalErrorBox(const char* file, int line, const char* message) {
    dbgCheck(file, line, message);
    logFlush();
    char narrow[kAssertTextSize];
    zel_text::FormatBuffer(narrow, sizeof narrow - 1, "Error %s\n%s\n@%d", message, file, line);
    narrow[sizeof narrow - 1] = 0;
    zel_text::CZelStringW text(narrow, CP_ACP);
    zel_platform::ShowMessageBox(nullptr, text.GetString(), ZW("Error"), kErrorBoxStyle);
    std::exit(0);
}

}  // namespace zel_core
