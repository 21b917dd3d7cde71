/// @file
/// The process's diagnostic log: one UTF-8 file with a byte-order mark, one
/// line per call, each line stamped "hh:mm:ss.mmm ; tttttttt ; " with the
/// UTC time of day and the calling thread's id and ended with CR LF. Lines
/// gather in memory and reach the file in blocks (more than 1024 bytes, or
/// at once after a pause of more than five seconds); logFlush pushes them to
/// disk. Ten files, "<program>1.log.txt" to "<program>10.log.txt" in the
/// data folder (or the temporary folder when that cannot be made), are used
/// in turn across runs; the last line of each is "Logging finished".
///
/// Logging never fails its caller: a file that cannot be created turns
/// logging off for the process, a failed write loses the buffered bytes. A
/// line longer than kLogLineCap characters of text is cut there and ends
/// with the marker " [line cut]", so that no call can make the log allocate
/// gigabytes.
///
/// Lifetime: the log is made on first use and never freed. When the process
/// exits (or the library unloads) it writes "Logging finished" and closes its
/// file; lines logged after that, from any thread, are dropped. A forked
/// child keeps logging to the same file without writing the parent's
/// buffered lines a second time, and leaves the closing line to the parent.
///
/// Levels: 7 is the normal level; 6 (the "low" level) is accepted by the
/// interface but dropped, because the level mask is fixed at 1 (kept so that
/// existing callers of the low functions stay quiet). Categories 0 to 3 log
/// at level 7, others at 6.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace zel_core {

/// Log levels: bit 1 selects the file, bit 4 the debugger copy.
enum LogLevel : DWORD {
    kLogLevelNormal = 7,
    kLogLevelLow = 6,
    kLogLevelFileBit = 1,
    kLogLevelDebuggerBit = 4,
};

/// Characters of text one log line keeps (1 MiB); longer text is cut.
constexpr int kLogLineCap = 1 << 20;

/// The process-wide log file. Reached through instance(); every line is
/// built and buffered under a recursive lock (see LogLock), so lines never
/// interleave and a thread may log while it already holds the lock.
class ZEL_API LogFile {
public:
    /// The process's log, created (and its file opened) on first use.
    static LogFile& instance();

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    /// Closes the log as shutDown() does.
    ~LogFile();

    /// Writes one line of length wide characters at level.
    void write(DWORD level, const WCHAR* text, int length);
    /// Writes one NUL-terminated wide line at level.
    void writeLine(DWORD level, const WCHAR* text);
    /// Writes one narrow line (code page 0) at level.
    void writeNarrow(DWORD level, const char* text);
    /// Formats (the library's printf dialect, narrow, then code page 0) and writes.
    void printf(DWORD level, const char* format, va_list args);
    /// Formats (wide) and writes.
    void printfW(DWORD level, const WCHAR* format, va_list args);
    /// Opens path afresh (create always, write) and appends the byte-order
    /// mark to the buffer; true when the file was created.
    bool open(const zel_text::CZelStringW& path);
    /// Writes the buffered bytes to the file with one write and empties the
    /// buffer, whatever the write's result.
    void flushBuffer();
    /// Writes the buffer out and asks the platform to flush the file. Never
    /// waits for the lock: when another thread holds it, the flush is left
    /// as a request that the holder carries out before it lets the lock go.
    /// On the thread that holds the lock (a crash path) it flushes at once.
    void flush();
    /// Writes "Logging finished" (unless this is a forked child of the
    /// process that opened the file), writes the buffer out and closes the
    /// file; every later line is dropped.
    void shutDown();
    /// The path of the file being written; empty while none is open.
    zel_text::CZelStringW filePath();

private:
    // The log's recursive lock. It knows which thread holds it and how many
    // times, so that a guard can let go of the holds of frames that a fault
    // abandoned, and a forked child can keep those of the forking thread.
    class HeldLock {
    public:
        void lock() {
            if (HeldHere()) {
                ++levels_;
                return;
            }
            mutex_.lock();
            Own(1);
        }
        bool try_lock() {
            if (HeldHere()) {
                ++levels_;
                return true;
            }
            if (!mutex_.try_lock()) return false;
            Own(1);
            return true;
        }
        // Called only by the holder.
        void unlock() {
            if (--levels_ != 0) return;
            owner_.store(std::thread::id(), std::memory_order_relaxed);
            mutex_.unlock();
        }
        // How many times the calling thread holds the lock (0: not at all).
        int levels() const { return HeldHere() ? levels_ : 0; }
        // Makes the lock afresh, held levels times by the calling thread:
        // whatever other threads held (threads that no longer exist) is gone.
        void reset(int levels) {
            new (&mutex_) std::mutex();
            owner_.store(std::thread::id(), std::memory_order_relaxed);
            levels_ = 0;
            if (levels <= 0) return;
            mutex_.lock();
            Own(levels);
        }

    private:
        // Only the holder can find its own id here, so a relaxed load tells.
        bool HeldHere() const { return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }
        void Own(int levels) {
            owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
            levels_ = levels;
        }

        std::mutex mutex_;
        std::atomic<std::thread::id> owner_{};
        int levels_ = 0;
    };

    /// Holds the log's lock; letting it go first carries out a flush that
    /// another thread requested meanwhile.
    class Lock {
    public:
        explicit Lock(LogFile& log) : log_(log) { log_.lock_.lock(); }
        ~Lock() { log_.Unlock(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        LogFile& log_;
    };

    // Static storage for a log whose destructor never runs: the log must
    // outlive every thread that may still be logging while the process ends.
    union Immortal;

    LogFile();
    void Unlock();
    // Writes the buffer and flushes the file; the lock is held.
    void FlushNow();
    // Writes length characters of text as one line, cut at the cap.
    void WriteLocked(DWORD level, const WCHAR* text, long long length);
    // The fork handlers of the live log (see RegisterForkHandlers).
    static void LockBeforeFork();
    static void UnlockInParent();
    static void StartAfreshInChild();
    // A line is built in the buffer behind the whole lines waiting there and
    // counted only once it ends. Makes room for its prefix, bytes of text and
    // its tail; returns where the text goes.
    char* ReserveText(std::size_t bytes);
    // Ends the line whose textBytes of UTF-8 stand at ReserveText: stamps its
    // prefix, appends the cut marker when cut, then CR LF, buffers it and
    // copies it to the debugger output. wideText is the text as UTF-16, or
    // null when the text is ASCII.
    void EndLine(DWORD level, std::size_t textBytes, bool cut, const WCHAR* wideText, int wideLength);
    // Counts the line of lineBytes just built into the buffer (when a file
    // is open) and writes the buffer out past 1024 bytes or after a pause.
    void CommitLine(std::size_t lineBytes);
    // Converts length UTF-16 units of text into the line and ends it.
    void EndWideLine(DWORD level, const WCHAR* text, int length, bool cut);
    // Converts length bytes of code-page-0 text into the line and ends it;
    // text may already stand where the line's text goes.
    void EndNarrowLine(DWORD level, const char* text, int length, bool cut);
    // The line of lineEnd bytes at line as UTF-16, its text (up to textEnd)
    // taken from wideText when given.
    static zel_text::CZelStringW WideLine(const char* line, std::size_t textEnd, std::size_t lineEnd,
                                          const WCHAR* wideText, int wideLength);
    static void SendToDebugger(const WCHAR* line, int length);
    void WriteStartLine();
    friend struct LogFileHolder;
    friend class LogLock;

    HANDLE handle_ = INVALID_HANDLE_VALUE;
    zel_text::CZelStringW path_;
    HeldLock lock_;
    std::atomic<bool> flushRequested_{false};
    bool closed_ = false;
    bool writesClosingLine_ = true;
    DWORD openTick_ = 0;
    DWORD previousLineTick_ = 0;
    DWORD lastLineTick_ = 0;
    bool isOpen_ = false;
    DWORD levelMask_ = 1;
    std::vector<char> buffer_;  // UTF-8 bytes not yet written; size() is the room, bufferUsed_ the bytes
    std::size_t bufferUsed_ = 0;
    std::vector<WCHAR> wideText_;  // a wide line's formatted text, a narrow line's conversion
};

/// The log's lock, held by the object for its lifetime: no other thread
/// writes a line meanwhile, while the holder still may (the lock is
/// recursive). Code that takes a lock of its own and logs under it takes
/// this one first, so that every path takes the two in the same order: a
/// thread that faults inside a log line, holding the log's lock, then
/// cannot deadlock with one that waits for the log under the other lock.
class ZEL_API LogLock {
public:
    /// Makes the log on first use and takes one hold for the calling thread.
    /// Once the process is shutting down without ever having made the log,
    /// there is nothing to hold (lines are dropped).
    LogLock();
    ~LogLock() { release(); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    /// Takes one hold for the calling thread when the log is made, and
    /// makes nothing: for holds that no scope can carry, such as a fork
    /// handler's (a log made there would register fork handlers of its own
    /// in the middle of a fork).
    static void acquire();
    /// Lets go of one hold of the calling thread's; nothing when it has none.
    static void release();
    /// How many holds the calling thread has (0: none, or no log made).
    static int levels();
    /// Lets go of the calling thread's holds beyond levels: those of frames
    /// that a fault abandoned, which nothing else would ever let go.
    static void releaseTo(int levels);
};

///@{
/// printf-style lines at level 7 (wide and narrow formats).
ZEL_API void logPrintfW(const WCHAR* format, ...);
ZEL_API void logVPrintfW(const WCHAR* format, va_list args);
ZEL_API void logPrintf(const char* format, ...);
///@}
///@{
/// printf-style lines at level 6: accepted and dropped.
ZEL_API void logPrintfLowW(const WCHAR* format, ...);
ZEL_API void logPrintfLow(const char* format, ...);
///@}
///@{
/// printf-style lines at the level of a category (0-3: 7, others: 6).
ZEL_API void logPrintfCatW(unsigned category, const WCHAR* format, ...);
ZEL_API void logPrintfCat(unsigned category, const char* format, ...);
///@}
/// One line: the narrow prefix, then each byte of data as the character of
/// the same value, a zero byte as the two characters '\' and '0'.
ZEL_API void logBytes(const char* prefix, const void* data, std::size_t count);
/// Writes buffered lines to the file and flushes it to disk.
ZEL_API void logFlush();
/// The path of the current log file; empty while no file is open.
ZEL_API zel_text::CZelStringW logFilePath();

}  // namespace zel_core
