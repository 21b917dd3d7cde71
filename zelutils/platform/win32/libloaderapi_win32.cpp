// Module identity, the wide-name function lookup, the library's entry
// routine and its unload handlers.
#include "zelutils/platform/libloaderapi.h"

#include <atomic>
#include <cstdlib>
#include <string>

FARPROC zel_win32::GetProcAddressW(HMODULE module, LPCWSTR procName) {
    std::string name;
    for (const wchar_t* c = procName; c != nullptr && *c != 0; ++c) {
        if (*c >= 0x80) {
            SetLastError(ERROR_PROC_NOT_FOUND);
            return nullptr;
        }
        name += static_cast<char>(*c);
    }
    if (name.empty()) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return GetProcAddress(module, name.c_str());
}

HMODULE zel_platform::LibraryModule() {
    // Whatever module holds this function: the DLL, or the program when the
    // library is linked statically.
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&LibraryModule), &module);
    return module;
}

#ifdef ZEL_STATIC

// Linked into a program, the library has no entry routine of its own; the
// program's exit handlers run in reverse order of registration, as on POSIX.
bool zel_platform::AtLibraryUnload(void (*handler)()) {
    return handler != nullptr && std::atexit(handler) == 0;
}

bool zel_platform::OtherThreadsHaveEnded() { return false; }

#else

namespace {

// A fixed table: handlers are registered during static construction and run
// under the loader lock, where allocating is best avoided.
constexpr int kMaxUnloadHandlers = 32;
std::atomic<void (*)()> gUnloadHandlers[kMaxUnloadHandlers];
std::atomic<int> gUnloadHandlerCount{0};
std::atomic<bool> gOtherThreadsEnded{false};

void RunUnloadHandlers() {
    // Marking the table full refuses registrations from the handlers.
    int count = gUnloadHandlerCount.exchange(kMaxUnloadHandlers);
    for (int i = count; i-- > 0;) {
        // Empty when another thread claimed the slot and has not filled it.
        if (void (*handler)() = gUnloadHandlers[i].exchange(nullptr)) handler();
    }
}

}  // namespace

bool zel_platform::AtLibraryUnload(void (*handler)()) {
    if (handler == nullptr) return false;
    int slot = gUnloadHandlerCount.load();
    do {
        if (slot >= kMaxUnloadHandlers) return false;
    } while (!gUnloadHandlerCount.compare_exchange_weak(slot, slot + 1));
    gUnloadHandlers[slot].store(handler);
    return true;
}

bool zel_platform::OtherThreadsHaveEnded() { return gOtherThreadsEnded.load(); }

// The DLL's entry routine. Attaching needs no work (the library's singletons
// are made on first use), so it always reports success. At process detach
// the unload handlers run before the C runtime destroys the library's static
// objects, so the log can still write its closing line.

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
    if (reason == DLL_PROCESS_DETACH) {
        // A detach with reserved set is the process ending: ExitProcess has
        // ended the other threads already.
        gOtherThreadsEnded.store(reserved != nullptr);
        RunUnloadHandlers();
    }
    return TRUE;
}

#endif
