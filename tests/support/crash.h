// Crashing on purpose in a child process, and reading what the report left.
#pragma once

#include "tests/support/temp_folder.h"
#include "zelutils/platform/win32.h"

#include <string>

// A crash that escapes a guard ends a POSIX process by its signal and a
// Windows process with the exception code.
#ifdef _WIN32
#define ZEL_KILLED_BY(signal, code) ::testing::ExitedWithCode(static_cast<int>(code))
#else
#include <csignal>
#define ZEL_KILLED_BY(signal, code) ::testing::KilledBySignal(signal)
#endif

namespace zel_test {

/// Thread bodies that fault: a write through a null pointer (0xC0000005),
/// an integer division by zero (0xC0000094) and an endless recursion
/// (0xC00000FD). Kept out of the sanitizers' checks, so that the fault
/// itself is what the guard sees.
DWORD WriteThroughNull(void*);
DWORD DivideByZero(void*);
DWORD RecurseForever(void*);

/// A test folder for crashes: the child's log and dumps go there, and the
/// system dump folder is its "system-dumps".
class CrashTest : public TempFolderTest {
protected:
    void SetUp() override;
    /// Removes what the children left, then checks the folder as usual.
    void TearDown() override;
    /// In the child: log folder and DumpDirectory inside Folder().
    void UseFolder() const;
    /// The text of the child's log file (the log files there, joined).
    std::string LogText() const;
    /// Slot n's file whose name ends with suffix ("" when none).
    std::string SlotFile(int slot, const std::string& suffix) const;
    /// How many entries slot n holds (-1 when it does not exist).
    int SlotEntries(int slot) const;
    /// The dump text a capture leaves: its first bytes identify the kind
    /// ("zelutils crash report 1\n" on POSIX, "MDMP" on Windows).
    static std::string DumpSignature();
};

/// Ends a child: exit code 0 when ok, else 1 after printing reason.
[[noreturn]] void FinishChild(bool ok, const std::string& reason = "");

}  // namespace zel_test
