// The crash guard and the filing of dumps.
#include "zelutils/diag/crash_handler.h"

#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/fs/file_utils.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/settings/ini_file.h"
#include "zelutils/text/zel_number_format.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace zel_core {
namespace {

using zel_text::CZelStringW;

// One report at a time, process-wide. Every path takes the log's lock
// before this one: a report holds the log's lock throughout (a thread that
// faulted inside a log line already holds it, and the report's own lines
// need it). tReporting tells a fault inside the report (on the reporting
// thread) from a fault on another thread, which waits for the locks instead.
std::mutex gReportLock;
std::atomic<bool> gHandlingCrash{false};
thread_local bool tReporting = false;
std::atomic<zel::IZelCrashHandler*> gHandler{nullptr};

// A fork while another thread reports waits for the report, taking the
// locks in the reports' order, so that the child's are not held by a
// thread it does not have. The reporting thread itself may fork (from a
// crash handler): it holds the report's lock already, and its copy in the
// child finishes the report and lets go of it there.
void LockBeforeFork() {
    LogLock::acquire();
    if (!tReporting) gReportLock.lock();
}
void UnlockAfterFork() {
    if (!tReporting) gReportLock.unlock();
    LogLock::release();
}

constexpr int kSlotCount = 10;
const WCHAR kDumpSettingsKey[] = ZW("System\\ErrorReporting\\DumpSettings");

// The folder the log file is in; the data folder while no log is open.
CZelStringW LogFolder() {
    CZelStringW path = logFilePath();
    if (path.IsEmpty()) return zel::folders::GetDataFolder();
    return path.Left(zel_fs::LastPathSeparator(path));
}

// Advances "LastDumpIndex" in dumpsFolder's "dumps.ini" and returns the new
// slot, or -1 when the file cannot be written. A value that is no slot
// number (a damaged file) starts again at slot 0. Keys before the first
// section header (a file edited by hand) are dropped: written back they
// would stand under "[]", which makes the next report's load fail and the
// slots start again at 0.
int NextSlot(const CZelStringW& dumpsFolder) {
    CZelStringW indexPath = dumpsFolder + ZW("/dumps.ini");
    zel_settings::IniSections table;
    int last = -1;
    if (zel_settings::LoadIniFile(indexPath, table)) {
        table.erase(CZelStringW());
        auto& settings = table[CZelStringW(ZW("Settings"))];
        auto found = settings.find(CZelStringW(ZW("LastDumpIndex")));
        if (found != settings.end() && !zel_text::ParseInt(found->second.GetString(), last)) last = -1;
    } else {
        table.clear();
    }
    int slot = last >= -1 && last + 1 < kSlotCount ? last + 1 : 0;
    CZelStringW number;
    number.Format(ZW("%d"), slot);
    table[CZelStringW(ZW("Settings"))][CZelStringW(ZW("LastDumpIndex"))] = number;
    return zel_settings::SaveIniFileAtomic(indexPath, table, zel_settings::kIniUtf16LE) ? slot : -1;
}

// Copies the log file into slot under its own name.
bool CopyLog(const CZelStringW& slot) {
    CZelStringW log = logFilePath();
    if (log.IsEmpty()) return false;
    CZelStringW target = slot + ZW("/") + log.Mid(zel_fs::LastPathSeparator(log) + 1);
    return CopyFileW(log.GetString(), target.GetString(), FALSE) != FALSE;
}

// Files the log and the system dump of the calling thread's fault in the
// next slot; true when both reached it. Each failure is logged.
bool SaveDump() {
    CZelStringW dumpsFolder = LogFolder() + ZW("/SupportInfo/Dumps");
    zel_fs::CreateFolderTree(dumpsFolder);
    int slot = NextSlot(dumpsFolder);
    if (slot < 0) {
        logPrintf("APPCRASH: could not write dumps.ini");
        return false;
    }
    CZelStringW slotFolder;
    slotFolder.Format(ZW("%s/%d"), dumpsFolder.GetString(), slot);
    zel_fs::CreateFolderTree(slotFolder);
    zel_fs::EmptyFolder(slotFolder);
    bool logCopied = CopyLog(slotFolder);
    if (!logCopied) logPrintf("APPCRASH: could not copy logfile");

    // The platform's capture function keeps its historical name in the log.
    zel_platform::DumpCapture capture = zel_platform::FindDumpCapture();
    if (capture == nullptr) {
        logPrintf("APPCRASH: CaptureDumpFileOnDevice not found");
        return false;
    }
    WCHAR dumpDirectory[MAX_PATH + 1];
    DWORD length = zel_platform::ReadSystemValue(kDumpSettingsKey, ZW("DumpDirectory"), dumpDirectory, MAX_PATH + 1);
    if (length == 0 || length > MAX_PATH) {
        logPrintf("APPCRASH: could not get DumpSettings");
        return false;
    }
    if (!capture(GetCurrentProcessId(), GetCurrentThreadId(), dumpDirectory)) {
        logPrintf("APPCRASH: CaptureDumpFileOnDevice failed: 0x%X", GetLastError());
    }
    if (zel_platform::kDumpSettleMilliseconds != 0) Sleep(zel_platform::kDumpSettleMilliseconds);
    CZelStringW systemFolder(dumpDirectory, static_cast<int>(length));
    if (!zel_fs::CopyFolderFiles(systemFolder, slotFolder)) {
        logPrintf("APPCRASH: could not copy crashdump");
        return false;
    }
    // Emptied only when it is a folder itself: a link planted where the
    // folder should be (the temporary folder is shared) would otherwise make
    // the report delete the files of whatever folder the link points to.
    DWORD attributes = GetFileAttributesW(systemFolder.GetString());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        zel_fs::EmptyFolder(systemFolder);
    }
    return logCopied;
}

void Report(DWORD code, const char* sourceFile, int sourceLine) {
    logPrintf("APPCRASH (%X in THR#%X) at %s@%d", code, GetCurrentThreadId(), sourceFile, sourceLine);
    MEMORYSTATUS memory{};
    GlobalMemoryStatus(&memory);
    // 64-bit figures: a 64-bit process's free address space does not fit
    // the 32 bits the line was first written with.
    logPrintf("Free Memory: %I64u bytes, Free VM: %I64u bytes", static_cast<std::uint64_t>(memory.dwAvailPhys),
              static_cast<std::uint64_t>(memory.dwAvailVirtual));
    logFlush();
    SaveDump();
    logFlush();
    if (zel::IZelCrashHandler* handler = gHandler.load()) handler->handleCrash(code);
}

struct GuardedCallContext {
    const char* sourceFile;
    int sourceLine;
    int mode;
    DWORD code;
};

LONG GuardFilter(EXCEPTION_POINTERS* fault, void* raw) {
    auto* context = static_cast<GuardedCallContext*>(raw);
    context->code = fault->ExceptionRecord->ExceptionCode;
    return reportCrash(fault, context->sourceFile, context->sourceLine, context->mode);
}

}  // namespace

LONG reportCrash(EXCEPTION_POINTERS* fault, const char* sourceFile, int sourceLine, int mode) {
    BOOL debugger = FALSE;
    if (CheckRemoteDebuggerPresent(GetCurrentProcess(), &debugger) && debugger) DebugBreak();
    if (fault == nullptr || fault->ExceptionRecord == nullptr) return EXCEPTION_CONTINUE_SEARCH;
    if (sourceFile == nullptr) sourceFile = "";
    DWORD code = fault->ExceptionRecord->ExceptionCode;
    bool stackFault = code == EXCEPTION_STACK_OVERFLOW || code == EXCEPTION_FLT_STACK_CHECK;
    if (stackFault) {
        logPrintf("STACKOVERFLOW at %s@%d", sourceFile, sourceLine);
        logFlush();
    }
    if (tReporting) TerminateProcess(GetCurrentProcess(), kFaultInsideReportExitCode);

    static const bool forkHandled = (zel_platform::RegisterForkHandlers(LockBeforeFork, UnlockAfterFork, UnlockAfterFork), true);
    (void)forkHandled;
    {
        LogLock logLock;
        std::lock_guard<std::mutex> lock(gReportLock);
        tReporting = true;
        gHandlingCrash = true;
        Report(code, sourceFile, sourceLine);
        gHandlingCrash = false;
        tReporting = false;
    }
    return stackFault || mode == kCrashReportOnly ? EXCEPTION_CONTINUE_SEARCH : EXCEPTION_EXECUTE_HANDLER;
}

bool guardedCall(const char* sourceFile, int sourceLine, DWORD (*function)(void*), void* argument, DWORD* result,
                 int mode) {
    GuardedCallContext context{sourceFile, sourceLine, mode, 0};
    const int logHolds = LogLock::levels();
    if (zel_platform::RunGuarded(function, argument, GuardFilter, &context, result)) return true;
    // The fault abandoned the guarded frames: holds they had on the log's
    // lock (a fault inside a log line) would never be let go.
    LogLock::releaseTo(logHolds);
    if (result != nullptr) *result = context.code;
    return false;
}

bool isHandlingCrash() { return gHandlingCrash.load(); }

}  // namespace zel_core

namespace zel {

IZelCrashHandler::~IZelCrashHandler() = default;

void ZelCrashHandlerImpl::handleCrash(DWORD code) { zel_core::logPrintf("handleCrash: code %d", code); }

IZelCrashHandler* SetCrashHandler(IZelCrashHandler* handler) { return zel_core::gHandler.exchange(handler); }

IZelCrashHandler* GetCrashHandler() { return zel_core::gHandler.load(); }

}  // namespace zel
