// The library's code-page extension on Windows, where the system's settings rule.
#include "zelutils/platform/stringapiset.h"

namespace zel_platform {

bool SetProcessCodePages(UINT, UINT) { return false; }

bool SetUtf8CodecPath(Utf8CodecPath) { return false; }

}  // namespace zel_platform
