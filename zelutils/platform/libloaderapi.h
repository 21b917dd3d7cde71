/// @file
/// Loading modules, module identity and the library's unload. A module
/// handle is the module's load address, as on Windows; the null module is
/// the running program. On POSIX a module is a shared object loaded with
/// dlopen (symbols resolved at once, kept local to the module).
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifndef _WIN32
/// A function found by GetProcAddressW, to be cast to its real type.
typedef INT_PTR (*FARPROC)();

namespace zel_win32 {
/// Loads the module at fileName (a name without a separator is searched
/// for as the system searches for shared objects) or counts one more use of
/// it when it is loaded already, and returns its handle. Null on failure:
/// 126 when the file (or a module it needs) does not exist, 193 when it is
/// not a loadable module (another format or architecture), 127 when a
/// function it imports is missing, 5 when it may not be read.
ZEL_API HMODULE LoadLibraryW(LPCWSTR fileName);
/// Takes back one LoadLibraryW; the module is unloaded with its last use.
/// FALSE with 6 for a handle LoadLibraryW did not return (or one freed).
ZEL_API BOOL FreeLibrary(HMODULE module);
/// Copies the path of module (null: the program) into filename and returns
/// its length. When it does not fit, copies size - 1 units and a terminator,
/// returns size and sets ERROR_INSUFFICIENT_BUFFER (122). 0 with
/// ERROR_MOD_NOT_FOUND (126) when no module is loaded at that address.
ZEL_API DWORD GetModuleFileNameW(HMODULE module, LPWSTR filename, DWORD size);
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_win32 {
/// The address of the function procName exports from module (a module from
/// LoadLibraryW); null with 127 when it exports none by that name, 126 when
/// module is not loaded (on POSIX: not loaded through LoadLibraryW). The
/// wide-name form of the handheld systems; desktop Windows has only the
/// narrow GetProcAddress, so the library supplies it on every platform
/// (export names are ASCII: any other character gives 127).
ZEL_API FARPROC GetProcAddressW(HMODULE module, LPCWSTR procName);
}  // namespace zel_win32
using zel_win32::GetProcAddressW;

namespace zel_platform {
/// The handle of the zelutils library's own module (the program itself when
/// the library is linked statically).
ZEL_API HMODULE LibraryModule();

/// Registers handler to run once when the library unloads: at the DLL's
/// process detach on Windows (before the library's static objects are
/// destroyed); on POSIX, and where the library is linked statically, at
/// exit or unload before the destructors of static objects constructed
/// before the registration. Handlers run last registered first, on the
/// unloading thread, and must not load or free modules. Returns false,
/// registering nothing, for a null handler or when no more can be held (32
/// on Windows).
ZEL_API bool AtLibraryUnload(void (*handler)());
/// True while the library's static objects are destroyed in a process that
/// is ending, after the system has ended every other thread: Windows does
/// so before it unloads a DLL at process exit, so a lock held by one of
/// those threads is never released. False on POSIX, where exit handlers run
/// while the other threads still do, and where the library is linked
/// statically.
ZEL_API bool OtherThreadsHaveEnded();
}  // namespace zel_platform
