// The descriptor behind a file handle, for the calls outside fileapi that
// build on files (internal).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/windef.h"

namespace zel_platform::posix {

/// A new close-on-exec descriptor for the open file named by file, which the
/// caller owns. -1 with the last error set: 6 when file is not a live file
/// handle, 5 when it was opened without read access, or without write
/// access when needWrite.
int DuplicateFileDescriptor(HANDLE file, bool needWrite);

}  // namespace zel_platform::posix
