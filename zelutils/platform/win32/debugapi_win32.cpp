// The system's debug output as the default for the replaceable sink.
#include "zelutils/platform/debugapi.h"

namespace zel_platform {

void DefaultDebugOutput(LPCWSTR text) {
    if (text != nullptr) OutputDebugStringW(text);
}

bool DefaultDebugOutputEnabled() { return true; }

}  // namespace zel_platform
