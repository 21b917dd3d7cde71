/// @file
/// Loading an optional module of the application, and one function from it,
/// with the failure logged and, if wanted, explained to the user. A module
/// that cannot be loaded is logged with its path, the error number and the
/// memory figures; the user's message (through the host's translation and
/// message services) advises a reinstall when the module is missing (error
/// 126) and saving work and restarting for any other error. Nothing throws.
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/zel_api.h"

namespace zel_core {

/// Loads moduleName from the application's program folder into
/// *moduleHandleOut and, when functionOut is given, looks up functionName in
/// it. showMessage shows the user a message when the module cannot be
/// loaded; logErrors logs a module that cannot be loaded or a function that
/// is missing. With both off a failure is silent.
///
/// Returns true when the module loaded and the function (if asked) was
/// found. On failure *moduleHandleOut and *functionOut are null; a module
/// without the function is released again, so the caller never holds a
/// module it cannot use. The last error is the failing call's.
ZEL_API bool loadModuleFunction(HMODULE* moduleHandleOut, FARPROC* functionOut,
                                const WCHAR* functionName, const WCHAR* moduleName,
                                bool showMessage, bool logErrors);

}  // namespace zel_core
