// The real API is in force on Windows: no call can be intercepted.
#include "zelutils/platform/fault_injection.h"

namespace zel_platform {

bool FailSystemCall(SystemCall, unsigned, int) { return false; }
bool ShortenWrite(unsigned, std::size_t, int) { return false; }
unsigned long SystemCallCount(SystemCall) { return 0; }
void ResetSystemCalls() {}
bool SetFileSizeLimit(ULONGLONG) { return false; }
void RestoreFileSizeLimit() {}

}  // namespace zel_platform
