// Process hooks that have no Windows counterpart.
#include "zelutils/platform/processthreadsapi.h"

// Windows processes are never forked: there is nothing to run around it.
void zel_platform::RegisterForkHandlers(void (*)(), void (*)(), void (*)()) {}
