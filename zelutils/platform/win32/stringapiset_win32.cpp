// The library's code-page extension on Windows, where the system's settings rule.
#include "zelutils/platform/stringapiset.h"

namespace zel_platform {

bool SetProcessCodePages(UINT, UINT) { return false; }

}  // namespace zel_platform
