// Module identity: a module handle is the module's load address. Unload
// handlers are exit handlers of the library's own shared object.
#include "zelutils/platform/libloaderapi.h"

#include <cstdlib>
#include <dlfcn.h>

namespace zel_platform {

HMODULE LibraryModule() {
    static HMODULE module = [] {
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&LibraryModule), &info) == 0) return HMODULE{};
        return static_cast<HMODULE>(info.dli_fbase);
    }();
    return module;
}

// Exit handlers registered from a shared object run when it is unloaded as
// well as at exit, interleaved with the static destructors in reverse order of
// registration: whatever a handler uses and was built before it is still
// alive when it runs.
bool AtLibraryUnload(void (*handler)()) { return handler != nullptr && std::atexit(handler) == 0; }

}  // namespace zel_platform
