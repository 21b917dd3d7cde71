// The per-thread last-error value.
#include "zelutils/platform/errhandlingapi.h"

namespace {
thread_local DWORD tLastError = 0;
}  // namespace

DWORD GetLastError() { return tLastError; }

void SetLastError(DWORD error) { tLastError = error; }
