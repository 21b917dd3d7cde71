/// @file
/// Worker threads. Every thread the library starts goes through
/// CreateWorkerThread: the thread logs "THR_S #<id> <name>" when it starts
/// and "THR_F #<id> <name>" when its body is done (level 7, the id in hex),
/// and its body runs under the crash guard, so a fault in any worker is
/// reported with the thread's id and a dump (see crash_handler.h) while the
/// rest of the process goes on. Debuggers and system tools show the name
/// too, cut to what the system keeps (zel_platform::NameCurrentThread).
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/zel_api.h"

#include <string>
#include <thread>

namespace zel::thread {

/// A worker thread's body: takes the argument given at creation and returns
/// the thread's exit code.
using WorkerFunction = DWORD (*)(void* argument);

/// The start record CreateWorkerThread hands to the new thread. The starting
/// thread fills it before the thread exists; from then on the new thread
/// owns it and destroys it when the body returns.
struct ZelThreadParam {
    std::string name;        ///< the thread's name for the log ("" for none)
    std::string sourceFile;  ///< the source file of the code that started the thread
    DWORD sourceLine;        ///< the line in sourceFile
    WorkerFunction function; ///< the thread's body
    void* argument;          ///< the body's argument
};

/// Starts function(argument) on a new thread named name (null: "") started
/// by the code at sourceFile:sourceLine; creationFlags (CREATE_SUSPENDED)
/// and stackSize (0: the default) go to CreateThread unchanged. Returns the
/// thread's handle, which the caller closes, or null with the last error.
/// The exit code is the body's result, or the fault's exception code when
/// the guard caught a fault in it.
ZEL_API HANDLE CreateWorkerThread(const char* sourceFile, DWORD sourceLine, const char* name, WorkerFunction function,
                                  void* argument, DWORD creationFlags, SIZE_T stackSize);

/// Waits without time limit for thread to end: true only when the wait ends
/// with the thread signalled. The pseudo-handles -1 and -2 (the current
/// process and thread, which never end while they wait) give false at once.
ZEL_API bool WaitForWorkerThread(HANDLE thread);

/// Whether thread (null: false) is the calling thread.
ZEL_API bool IsCurrentThread(const std::thread* thread);

/// The platform's id of the calling thread, as log lines show it.
ZEL_API DWORD CurrentThreadId();

}  // namespace zel::thread
