/// @file
/// The debugger's side of diagnostics: text sent to the debug output, and
/// whether a debugger is attached.
///
/// Debug output goes through one replaceable process-wide sink. The library's
/// own modules call zel_platform::DebugOutput, which reaches the installed
/// sink on every platform; on POSIX OutputDebugStringW does the same. Without
/// a sink the text goes to the system's debug output (Windows) or, on POSIX,
/// to stderr as UTF-8 when the environment variable ZEL_DEBUG_OUTPUT is "1"
/// and nowhere otherwise.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <functional>

#ifndef _WIN32
namespace zel_win32 {
/// Sends a NUL-terminated text to the debug output; null is ignored.
ZEL_API void OutputDebugStringW(LPCWSTR outputString);
/// Stores in *debuggerPresent whether a debugger (a tracer: TracerPid in
/// /proc/self/status) is attached to process. Only the current process can
/// be asked: FALSE with ERROR_INVALID_HANDLE for any other handle, FALSE
/// with ERROR_INVALID_PARAMETER for a null result pointer. *debuggerPresent
/// is FALSE whenever the call fails.
ZEL_API BOOL CheckRemoteDebuggerPresent(HANDLE process, BOOL* debuggerPresent);
/// Stops in the debugger (SIGTRAP); without one the process ends as
/// SIGTRAP's default action ends it.
ZEL_API void DebugBreak();
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// Receives each debug-output text (NUL-terminated, never null).
using DebugOutputSink = std::function<void(LPCWSTR text)>;

/// Installs sink for the whole process; an empty sink restores the default.
/// Returns the sink that was installed (empty for the default). A call in
/// progress on another thread may still finish with the old sink.
ZEL_API DebugOutputSink SetDebugOutputSink(DebugOutputSink sink);
/// Sends text to the installed sink, or to DefaultDebugOutput when there is
/// none. Null text is ignored. Safe to call from any thread.
ZEL_API void DebugOutput(LPCWSTR text);
/// The platform's own debug output: the debugger's output window on
/// Windows; on POSIX stderr as UTF-8 when ZEL_DEBUG_OUTPUT is "1" (read once,
/// at the first debug output of the process).
ZEL_API void DefaultDebugOutput(LPCWSTR text);
/// Whether DefaultDebugOutput writes anything now (always on Windows, where
/// a debugger or a viewer may listen at any time).
ZEL_API bool DefaultDebugOutputEnabled();
/// Whether DebugOutput reaches anything: a sink is installed or the default
/// output is enabled. Lets a caller on a busy path skip building the text.
ZEL_API bool DebugOutputWanted();
}  // namespace zel_platform
