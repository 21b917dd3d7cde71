// Wide text on the standard error stream, for the POSIX defaults of the
// debug output and the message box (internal).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/windef.h"

#include <string>

namespace zel_platform::posix {

/// Appends the NUL-terminated UTF-16 text to out as UTF-8; a lone surrogate
/// becomes U+FFFD so the stream stays valid UTF-8.
void AppendUtf8(std::string& out, LPCWSTR text);

/// Writes bytes to file descriptor 2 in full, unbuffered, so that lines from
/// several threads and from stdio do not mix within one call. Errors are
/// ignored: there is nowhere left to report them.
void WriteToStderr(const std::string& bytes);

}  // namespace zel_platform::posix
