// Modules over dlopen, module identity (a module handle is the module's load
// address) and the unload handlers (exit handlers of the library's own
// shared object).
#include "zelutils/platform/libloaderapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/path_conversion.h"

#include <dlfcn.h>
#include <limits.h>
#include <locale.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

struct ModuleSearch {
    std::uintptr_t base = 0;
    bool found = false;
    std::string name;
};

// The load address of an object is where its lowest loadable segment is
// mapped, rounded down to a page: the address dladdr reports as its base.
// 0 for an object without loadable segments.
std::uintptr_t LoadAddress(const dl_phdr_info* info) {
    std::uintptr_t lowest = UINTPTR_MAX;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest) {
            lowest = info->dlpi_phdr[i].p_vaddr;
        }
    }
    if (lowest == UINTPTR_MAX) return 0;
    std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    return (info->dlpi_addr + lowest) & ~(page - 1);
}

int VisitModule(dl_phdr_info* info, size_t, void* data) {
    auto* search = static_cast<ModuleSearch*>(data);
    std::uintptr_t base = LoadAddress(info);
    if (base == 0 || base != search->base) return 0;
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

// The modules LoadLibraryW loaded: load address -> dlopen handle and uses.
struct LoadedModule {
    void* handle;
    unsigned uses;
};

// Recursive: a module's constructors and destructors, run by dlopen and
// dlclose under the lock, may load and free modules themselves.
struct ModuleTable {
    std::recursive_mutex mutex;
    std::map<HMODULE, LoadedModule> modules;
};

ModuleTable& Modules() {
    // Never destroyed: modules may be freed from exit handlers.
    static ModuleTable* table = new ModuleTable;
    return *table;
}

// The load address of a dlopen handle (see LoadAddress).
HMODULE BaseOf(void* handle) {
    link_map* map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return nullptr;
    struct Search {
        ElfW(Addr) bias;
        std::uintptr_t base;
    } search{map->l_addr, 0};
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* s = static_cast<Search*>(data);
            if (info->dlpi_addr != s->bias) return 0;
            s->base = LoadAddress(info);
            return s->base != 0 ? 1 : 0;
        },
        &search);
    return reinterpret_cast<HMODULE>(search.base);
}

// The Win32 error for a failed dlopen of path, from its message: the loader
// reports a missing dependency, a missing symbol and a bad format only as
// text.
DWORD LoadError(const std::string& path, const std::string& text) {
    if (path.find('/') != std::string::npos && access(path.c_str(), F_OK) != 0) {
        return ERROR_MOD_NOT_FOUND;
    }
    if (text.find("No such file") != std::string::npos) return ERROR_MOD_NOT_FOUND;
    if (text.find("undefined symbol") != std::string::npos) return ERROR_PROC_NOT_FOUND;
    if (text.find("Permission denied") != std::string::npos) return ERROR_ACCESS_DENIED;
    return ERROR_BAD_EXE_FORMAT;
}

// The loader's message for the calling thread's last failure, in English
// whatever locale the host set: LoadError tells the causes apart by it.
std::string LoaderMessage() {
    locale_t english = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    locale_t previous = english != nullptr ? ::uselocale(english) : nullptr;
    const char* message = dlerror();
    std::string text = message != nullptr ? message : "";
    if (english != nullptr) {
        ::uselocale(previous);
        ::freelocale(english);
    }
    return text;
}

}  // namespace

HMODULE zel_win32::LoadLibraryW(LPCWSTR fileName) {
    if (fileName == nullptr || fileName[0] == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::string path = zel_platform::posix::ToNativePath(fileName);
    ModuleTable& table = Modules();
    std::lock_guard<std::recursive_mutex> lock(table.mutex);
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        SetLastError(LoadError(path, LoaderMessage()));
        return nullptr;
    }
    HMODULE module = BaseOf(handle);
    if (module == nullptr) {
        dlclose(handle);
        SetLastError(ERROR_BAD_EXE_FORMAT);
        return nullptr;
    }
    // dlopen counts its own uses of the object; ours mirror them.
    LoadedModule& entry = table.modules[module];
    entry.handle = handle;
    ++entry.uses;
    SetLastError(ERROR_SUCCESS);
    return module;
}

BOOL zel_win32::FreeLibrary(HMODULE module) {
    ModuleTable& table = Modules();
    std::lock_guard<std::recursive_mutex> lock(table.mutex);
    auto found = table.modules.find(module);
    if (found == table.modules.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    void* handle = found->second.handle;
    if (--found->second.uses == 0) table.modules.erase(found);
    dlclose(handle);
    return TRUE;
}

FARPROC zel_win32::GetProcAddressW(HMODULE module, LPCWSTR procName) {
    void* handle = nullptr;
    {
        ModuleTable& table = Modules();
        std::lock_guard<std::recursive_mutex> lock(table.mutex);
        auto found = table.modules.find(module);
        if (found == table.modules.end()) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return nullptr;
        }
        handle = found->second.handle;
    }
    std::string name;
    for (const WCHAR* c = procName; c != nullptr && *c != 0; ++c) {
        if (*c >= 0x80) {
            name.clear();
            break;
        }
        name += static_cast<char>(*c);
    }
    dlerror();
    void* address = name.empty() ? nullptr : dlsym(handle, name.c_str());
    if (address == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(address);
}

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

bool OtherThreadsHaveEnded() { return false; }

}  // namespace zel_platform
