// Module identity: a module handle is the module's load address.
#include "zelutils/platform/libloaderapi.h"

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

}  // namespace zel_platform
