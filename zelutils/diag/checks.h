/// @file
/// Reporting a broken expectation, from the mildest to the hardest:
/// dbgCheck logs it and pushes the log to disk; zelAssertBox asks the user
/// (abort, stop in the debugger, or ignore) in a "ZEL ASSERT" box, one box
/// at a time process-wide; fatalErrorBox logs, shows an "Error" box and ends
/// the process normally (exit code 0, so the log closes properly).
/// zel_core::runtime_exception is the library's exception for errors
/// callers are expected to catch.
#pragma once

#include "zelutils/zel_api.h"

#include <stdexcept>
#include <string>

namespace zel_core {

/// The library's general exception: a message and nothing more.
class ZEL_API runtime_exception : public std::runtime_error {
public:
    ///@{
    /// An exception whose what() is message.
    explicit runtime_exception(const std::string& message);
    explicit runtime_exception(const char* message);
    ///@}
    ///@{
    /// Copies the message.
    runtime_exception(const runtime_exception&) = default;
    runtime_exception& operator=(const runtime_exception&) = default;
    ///@}
    ~runtime_exception() override;
};

/// Logs "DBGCHK <message> <file> @ <line>" and flushes the log to disk; the
/// caller goes on.
ZEL_API void dbgCheck(const char* file, int line, const char* message);

/// Shows the assertion box with the file, the line and the message (null:
/// nothing after the blank line). Abort ends the process at once with exit
/// code 3; Retry returns false (the caller stops in the debugger); Ignore
/// returns true. While another assertion box is showing, returns at once:
/// false when a debugger is attached, true otherwise.
ZEL_API bool zelAssertBox(const char* file, unsigned line, const char* message);

/// Logs the error as dbgCheck does, shows it in an "Error" box and ends the
/// process through the normal exit with code 0.
[[noreturn]] ZEL_API void fatalErrorBox(const char* file, int line, const char* message);

}  // namespace zel_core
