// Module identity: a module handle is the module's load address. Unload
// handlers are exit handlers of the library's own shared object.
#include "zelutils/platform/libloaderapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/path_conversion.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

struct ModuleSearch {
    std::uintptr_t base = 0;
    bool found = false;
    std::string name;
};

// The load address of an object is where its first loadable segment is
// mapped, rounded down to a page: the address dladdr reports as its base.
int VisitModule(dl_phdr_info* info, size_t, void* data) {
    auto* search = static_cast<ModuleSearch*>(data);
    std::uintptr_t lowest = UINTPTR_MAX;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest) {
            lowest = info->dlpi_phdr[i].p_vaddr;
        }
    }
    if (lowest == UINTPTR_MAX) return 0;
    std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    if (((info->dlpi_addr + lowest) & ~(page - 1)) != search->base) return 0;
    search->found = true;
    search->name = info->dlpi_name != nullptr ? info->dlpi_name : "";
    return 1;
}

// The program's own path; the loader lists the program under an empty name.
std::string ProgramPath() {
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

std::string AbsolutePath(const std::string& path) {
    if (path.empty() || path[0] == '/') return path;
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return path;
    std::string absolute(resolved);
    std::free(resolved);
    return absolute;
}

}  // namespace

DWORD zel_win32::GetModuleFileNameW(HMODULE module, LPWSTR filename, DWORD size) {
    std::string path;
    if (module == nullptr) {
        path = ProgramPath();
    } else {
        ModuleSearch search;
        search.base = reinterpret_cast<std::uintptr_t>(module);
        dl_iterate_phdr(VisitModule, &search);
        if (!search.found) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return 0;
        }
        path = search.name.empty() ? ProgramPath() : AbsolutePath(search.name);
    }
    if (filename == nullptr && size != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    zel_platform::posix::WideString wide =
        zel_platform::posix::FromNativeText(path.data(), path.size());
    if (wide.size() < size) {
        wide.copy(filename, wide.size());
        filename[wide.size()] = 0;
        return static_cast<DWORD>(wide.size());
    }
    // Truncated to the buffer, terminator included.
    if (size != 0) {
        wide.copy(filename, size - 1);
        filename[size - 1] = 0;
    }
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

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
