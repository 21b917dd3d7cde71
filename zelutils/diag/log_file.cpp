#include "zelutils/diag/log_file.h"

#include "zelutils/fs/application_folders.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/settings/sequence_counter.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/text/zel_printf.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace zel_core {
namespace {

constexpr std::size_t kPrefixLength = 26;  // "hh:mm:ss.mmm ; tttttttt ; "
constexpr std::size_t kBufferLimit = 1024;
constexpr DWORD kPauseMs = 5000;
constexpr int kDebuggerPiece = 250;
constexpr std::uint32_t kLogFileCount = 10;
constexpr std::uint64_t kUnixEpochIn100ns = 116444736000000000ull;

// --- The millisecond UTC clock --------------------------------------------

// A UTC date and time of day with sub-second parts, as the log stamps it.
struct LogTime {
    int year, month, day, hour, minute, second;
    int millisecond, microsecond, nanosecond;
};

struct CivilDate {
    int year, month, day;
};

// Days since 1970-01-01 to a proleptic Gregorian date (H. Hinnant's
// algorithm): exact, thread-safe, no time-zone state.
CivilDate CivilFromDays(std::int64_t days) {
    days += 719468;
    std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    unsigned monthIndex = (5 * dayOfYear + 2) / 153;
    unsigned day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    unsigned month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    return {static_cast<int>(yearOfEra + era * 400 + (month <= 2)), static_cast<int>(month),
            static_cast<int>(day)};
}

// The platform clock has a coarse resolution, so it is refined with the
// millisecond tick count. Used only under the log's lock, which keeps the
// base consistent.
class LogClock {
public:
    // The time at tick, a reading of the millisecond tick count just taken.
    LogTime Now(DWORD tick) {
        // Lines within one tick share a time: reading the system clock again
        // could only move the base, which the next tick checks anyway.
        if (based_ && tick == lastTick_) return last_;
        lastTick_ = tick;
        FILETIME fileTime;
        GetSystemTimeAsFileTime(&fileTime);
        std::uint64_t clock = (std::uint64_t{fileTime.dwHighDateTime} << 32) | fileTime.dwLowDateTime;

        if (!based_) Rebase(clock, tick);
        std::int64_t byClock = static_cast<std::int64_t>(clock - baseClock_) / 10000;
        std::int64_t byTick = static_cast<DWORD>(tick - baseTick_);
        if (byClock - byTick > 1100 || byTick - byClock > 1100) Rebase(clock, tick);
        std::uint64_t now = baseClock_ + std::uint64_t{static_cast<DWORD>(tick - baseTick_)} * 10000;

        std::uint64_t sinceEpoch = now - kUnixEpochIn100ns;
        std::int64_t seconds = static_cast<std::int64_t>(sinceEpoch / 10000000);
        unsigned remainder = static_cast<unsigned>(sinceEpoch % 10000000);
        if (seconds != cachedSecond_) {
            // The broken-down date changes once a second; most lines reuse it.
            cachedSecond_ = seconds;
            CivilDate date = CivilFromDays(seconds / 86400);
            int secondOfDay = static_cast<int>(seconds % 86400);
            cached_ = LogTime{date.year, date.month, date.day, secondOfDay / 3600,
                              secondOfDay / 60 % 60, secondOfDay % 60, 0, 0, 0};
        }
        LogTime time = cached_;
        time.millisecond = static_cast<int>(remainder / 10000);
        time.microsecond = static_cast<int>(remainder / 10 % 1000);
        time.nanosecond = static_cast<int>(remainder % 10) * 100;
        last_ = time;
        return time;
    }

private:
    void Rebase(std::uint64_t clock, DWORD tick) {
        based_ = true;
        baseClock_ = clock;
        baseTick_ = tick;
    }

    bool based_ = false;
    std::uint64_t baseClock_ = 0;
    DWORD baseTick_ = 0;
    std::int64_t cachedSecond_ = -1;
    LogTime cached_{};
    DWORD lastTick_ = 0;
    LogTime last_{};
};

LogClock& TheClock() {
    static LogClock clock;
    return clock;
}

// --- Line building helpers --------------------------------------------------

char* PutTwoDigits(char* out, int value) {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// The prefix "hh:mm:ss.mmm ; tttttttt ; " of each line, in UTF-8. Its
// second and thread parts are kept from line to line and rebuilt only when
// they change; the milliseconds are written for every line. Used only under
// the log's lock.
class LinePrefix {
public:
    // Writes the prefix for time and threadId to out (kPrefixLength bytes).
    void Put(char* out, const LogTime& time, DWORD threadId) {
        int secondOfDay = (time.hour * 60 + time.minute) * 60 + time.second;
        if (secondOfDay != secondOfDay_) {
            secondOfDay_ = secondOfDay;
            char* p = PutTwoDigits(text_, time.hour);
            *p++ = ':';
            p = PutTwoDigits(p, time.minute);
            *p++ = ':';
            PutTwoDigits(p, time.second);
        }
        if (!hasThread_ || threadId != threadId_) {
            hasThread_ = true;
            threadId_ = threadId;
            char* p = text_ + 15;
            for (int shift = 28; shift >= 0; shift -= 4) *p++ = zel_text::chars::kHexDigitsLower[(threadId >> shift) & 0xF];
        }
        text_[9] = static_cast<char>('0' + time.millisecond / 100);
        PutTwoDigits(text_ + 10, time.millisecond % 100);
        std::memcpy(out, text_, kPrefixLength);
    }

private:
    char text_[kPrefixLength] = {'0', '0', ':', '0', '0', ':', '0', '0', '.', '0', '0', '0', ' ', ';', ' ',
                                 '0', '0', '0', '0', '0', '0', '0', '0', ' ', ';', ' '};
    int secondOfDay_ = -1;
    bool hasThread_ = false;
    DWORD threadId_ = 0;
};

LinePrefix& ThePrefix() {
    static LinePrefix prefix;
    return prefix;
}

// True when codePage reads every ASCII byte, alone, as the same character.
// Its decoding then has no state (a byte that shifts into another character
// set yields no character alone), so ASCII text in it is already UTF-8.
bool KeepsAscii(UINT codePage) {
    for (int byte = 0; byte < 0x80; ++byte) {
        char narrow = static_cast<char>(byte);
        WCHAR wide = 0;
        if (MultiByteToWideChar(codePage, 0, &narrow, 1, &wide, 1) != 1 || wide != byte) return false;
    }
    return true;
}

// KeepsAscii for the process's code page 0, asked again only when that code
// page changes. Used only under the log's lock.
bool AnsiKeepsAscii() {
    static UINT checked = 0;
    static bool keeps = false;
    static bool known = false;
    UINT codePage = GetACP();
    if (!known || codePage != checked) {
        keeps = KeepsAscii(codePage);
        checked = codePage;
        known = true;
    }
    return keeps;
}

// --- The process's instance -----------------------------------------------

std::atomic<bool> gShutDown{false};

zel_text::CZelStringW StemOf(const zel_text::CZelStringW& path) {
    zel_text::CZelStringW name = path.Mid(zel_fs::LastPathSeparator(path) + 1);
    int dot = name.ReverseFind(ZW('.'));
    return dot >= 0 ? name.Left(dot) : name;
}

zel_text::CZelStringW ChooseLogFolder() {
    zel_text::CZelStringW folder = zel::folders::GetDataFolder();
    if (!folder.IsEmpty() && zel_fs::CreateFolderPath(folder)) return folder;
    WCHAR temp[MAX_PATH + 1] = {};
    DWORD length = GetTempPathW(MAX_PATH, temp);
    zel_text::CZelStringW fallback(temp, static_cast<int>(std::min<DWORD>(length, MAX_PATH)));
    int last = fallback.GetLength() - 1;
    if (last > 0 && (fallback.GetAt(last) == ZW('\\') || fallback.GetAt(last) == ZW('/'))) {
        fallback.Delete(last, 1);
    }
    return fallback;
}

// Ends a line whose text passed the cap.
constexpr char kCutMarker[] = " [line cut]";
constexpr std::size_t kCutMarkerLength = sizeof kCutMarker - 1;
// Room behind a line's text: the cut marker and CR LF.
constexpr std::size_t kLineTail = kCutMarkerLength + 2;

// The log once it is made (set once), which the fork handlers and LogLock
// serve also while the process shuts down.
std::atomic<LogFile*> gMadeLog{nullptr};

}  // namespace

union LogFile::Immortal {
    Immortal() : log() {}
    ~Immortal() {}
    LogFile log;
};

// Makes and opens the process's log on first use. The log itself is never
// freed: a thread may still be logging while the exit handlers run, so the
// holder's destructor only closes it.
struct LogFileHolder {
    LogFileHolder() : log(&storage.log) {
        zel_settings::SequenceCounter counter;
        counter.folder = ChooseLogFolder();
        counter.baseName = StemOf(zel::folders::GetProgramFilePath());
        if (counter.baseName.IsEmpty()) counter.baseName = ZW("zel");
        counter.extension = ZW(".log.txt");
        counter.limit = kLogFileCount;
        if (log->open(zel_settings::NextSequenceFileName(counter))) log->WriteStartLine();
        gMadeLog.store(log);
        zel_platform::RegisterForkHandlers(LogFile::LockBeforeFork, LogFile::UnlockInParent,
                                           LogFile::StartAfreshInChild);
    }
    ~LogFileHolder() {
        gShutDown.store(true);
        log->shutDown();
    }
    LogFile::Immortal storage;
    LogFile* const log;
};

namespace {
// The live log, or null once the process is shutting down.
LogFile* LiveLog() {
    if (gShutDown.load(std::memory_order_relaxed)) return nullptr;
    static LogFileHolder holder;
    return holder.log;
}
}  // namespace

LogFile::LogFile() : buffer_(64 * 1024), wideText_(1024) {}

LogFile& LogFile::instance() {
    if (LogFile* log = LiveLog()) return *log;
    // Asked for during shutdown: a closed log that drops every line, never
    // freed for the same reason as the live one.
    static Immortal* const closed = [] {
        static Immortal storage;
        storage.log.closed_ = true;
        return &storage;
    }();
    return closed->log;
}

LogFile::~LogFile() { shutDown(); }

void LogFile::shutDown() {
    // A thread the system ended at process exit may have held the lock; no
    // other thread is left to use the log, so it gets a fresh one. Its
    // half-built line never reached the buffer, which grows only by whole lines.
    if (zel_platform::OtherThreadsHaveEnded()) lock_.reset(lock_.levels());
    Lock lock(*this);
    if (closed_) return;
    if (writesClosingLine_) writeLine(kLogLevelNormal, ZW("Logging finished"));
    closed_ = true;
    flushBuffer();
    zel_fs::file_close_reset(handle_);
    isOpen_ = false;
}

void LogFile::Unlock() {
    // A flush requested while this thread held the lock is carried out
    // before the lock goes; a request that arrives after the check finds the
    // lock free, or is seen here again, so none is lost.
    for (;;) {
        // Read first: the exchange is a locked operation, and most lines
        // find no request.
        if (flushRequested_.load(std::memory_order_relaxed) && flushRequested_.exchange(false)) FlushNow();
        lock_.unlock();
        if (!flushRequested_.load() || !lock_.try_lock()) return;
    }
}

void LogFile::FlushNow() {
    if (!isOpen_) return;
    flushBuffer();
    zel_fs::file_flush(handle_);
}

void LogFile::LockBeforeFork() {
    LogFile* log = gMadeLog.load();
    if (log == nullptr) return;
    log->lock_.lock();
    // The parent's buffered lines reach the file before the child can write
    // its own: the two share the file offset, and a child that wrote first
    // would land its lines in front of the byte-order mark.
    if (log->isOpen_) log->flushBuffer();
}

void LogFile::UnlockInParent() {
    if (LogFile* log = gMadeLog.load()) log->Unlock();
}

void LogFile::StartAfreshInChild() {
    LogFile* log = gMadeLog.load();
    if (log == nullptr) return;
    // The lock may be held by threads the child does not have: it gets a
    // fresh one, which the forking thread holds as often as it did before
    // LockBeforeFork (it forked from inside a log line or a crash report,
    // and lets go of those holds as it returns from them). The buffered
    // lines are the parent's to write, and so is the closing line; the
    // child's own lines go to the same file.
    log->lock_.reset(log->lock_.levels() - 1);
    log->flushRequested_.store(false);
    log->bufferUsed_ = 0;
    log->writesClosingLine_ = false;
}

bool LogFile::open(const zel_text::CZelStringW& path) {
    Lock lock(*this);
    if (closed_) return false;
    bool created = false;
    int error = 0;
    // Lines still buffered belong to the file they were written for.
    flushBuffer();
    zel_fs::file_close_reset(handle_);
    HANDLE handle = zel_fs::file_open(path.GetString(), zel_fs::FO_CREATE_WRITE, &created, &error);
    if (handle == nullptr) handle = INVALID_HANDLE_VALUE;
    handle_ = handle;
    isOpen_ = handle_ != INVALID_HANDLE_VALUE && created && error == 0;
    if (!isOpen_) return false;
    openTick_ = previousLineTick_ = lastLineTick_ = zel_platform::TickCount();
    path_ = path;
    static const char kUtf8Bom[] = {'\xEF', '\xBB', '\xBF'};
    std::copy(kUtf8Bom, kUtf8Bom + 3, buffer_.begin() + static_cast<std::ptrdiff_t>(bufferUsed_));
    bufferUsed_ += 3;
    return true;
}

void LogFile::WriteStartLine() {
    Lock lock(*this);
    LogTime now = TheClock().Now(zel_platform::TickCount());
    zel_text::CZelStringW line;
    line.Format(ZW("Program %ls started on %d/%02d/%02d %02d:%02d:%02d.%03d UTC"),
                zel::folders::GetProgramFilePath().GetString(), now.year, now.month, now.day, now.hour,
                now.minute, now.second, now.millisecond);
    write(kLogLevelNormal, line.GetString(), line.GetLength());
}

char* LogFile::ReserveText(std::size_t bytes) {
    std::size_t need = bufferUsed_ + kPrefixLength + bytes + kLineTail;
    if (buffer_.size() < need) buffer_.resize(need);
    return buffer_.data() + bufferUsed_ + kPrefixLength;
}

void LogFile::EndLine(DWORD level, std::size_t textBytes, bool cut, const WCHAR* wideText, int wideLength) {
    previousLineTick_ = lastLineTick_;
    lastLineTick_ = zel_platform::TickCount();
    char* line = buffer_.data() + bufferUsed_;
    ThePrefix().Put(line, TheClock().Now(lastLineTick_), GetCurrentThreadId());
    char* end = line + kPrefixLength + textBytes;
    if (cut) end = std::copy(kCutMarker, kCutMarker + kCutMarkerLength, end);
    *end++ = '\r';
    *end++ = '\n';
    const std::size_t lineBytes = static_cast<std::size_t>(end - line);

    if ((level & kLogLevelDebuggerBit) == 0 || !zel_platform::DebugOutputWanted()) {
        CommitLine(lineBytes);
        return;
    }
    // The copy is made before the line can be flushed: a flush empties the
    // buffer, and the debugger's sink may log lines of its own.
    zel_text::CZelStringW debugCopy = WideLine(line, kPrefixLength + textBytes, lineBytes, wideText, wideLength);
    CommitLine(lineBytes);
    SendToDebugger(debugCopy.GetString(), debugCopy.GetLength());
}

void LogFile::CommitLine(std::size_t lineBytes) {
    if (!isOpen_) return;
    bufferUsed_ += lineBytes;
    if (bufferUsed_ > kBufferLimit || static_cast<DWORD>(lastLineTick_ - previousLineTick_) > kPauseMs) flushBuffer();
}

zel_text::CZelStringW LogFile::WideLine(const char* line, std::size_t textEnd, std::size_t lineEnd,
                                        const WCHAR* wideText, int wideLength) {
    // The prefix and the tail are ASCII; so is the text when it comes
    // without its wide form.
    auto widen = [](const char* from, const char* to, WCHAR* out) {
        for (; from != to; ++from) *out++ = static_cast<unsigned char>(*from);
        return out;
    };
    std::size_t textLength = wideText != nullptr ? static_cast<std::size_t>(wideLength) : textEnd - kPrefixLength;
    int length = static_cast<int>(kPrefixLength + textLength + (lineEnd - textEnd));
    zel_text::CZelStringW copy;
    WCHAR* out = widen(line, line + kPrefixLength, copy.GetBuffer(length));
    out = wideText != nullptr ? std::copy(wideText, wideText + wideLength, out)
                              : widen(line + kPrefixLength, line + textEnd, out);
    widen(line + textEnd, line + lineEnd, out);
    copy.ReleaseBuffer(length);
    return copy;
}

void LogFile::SendToDebugger(const WCHAR* line, int length) {
    WCHAR piece[kDebuggerPiece + 1];
    for (int start = 0; start < length; start += kDebuggerPiece) {
        int count = std::min(kDebuggerPiece, length - start);
        for (int i = 0; i < count; ++i) piece[i] = line[start + i] == 0 ? ZW('.') : line[start + i];
        piece[count] = 0;
        zel_platform::DebugOutput(piece);
    }
}

void LogFile::EndWideLine(DWORD level, const WCHAR* text, int length, bool cut) {
    // Three bytes of UTF-8 per UTF-16 unit at most.
    std::size_t room = static_cast<std::size_t>(length) * 3;
    char* out = ReserveText(room);
    int bytes = length == 0 ? 0
                            : WideCharToMultiByte(CP_UTF8, 0, text, length, out, static_cast<int>(room), nullptr,
                                                  nullptr);
    EndLine(level, static_cast<std::size_t>(std::max(bytes, 0)), cut, text, length);
}

void LogFile::EndNarrowLine(DWORD level, const char* text, int length, bool cut) {
    if (AnsiKeepsAscii() && zel_text::chars::IsAscii(text, static_cast<std::size_t>(length))) {
        char* out = ReserveText(static_cast<std::size_t>(length));
        if (out != text) std::memcpy(out, text, static_cast<std::size_t>(length));
        EndLine(level, static_cast<std::size_t>(length), cut, nullptr, 0);
        return;
    }
    // Code page 0 gives at most a unit per byte.
    if (wideText_.size() < static_cast<std::size_t>(length)) wideText_.resize(static_cast<std::size_t>(length));
    int wideLength = length == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, text, length, wideText_.data(), length);
    EndWideLine(level, wideText_.data(), std::max(wideLength, 0), cut);
}

void LogFile::write(DWORD level, const WCHAR* text, int length) {
    if ((levelMask_ & level) == 0) return;
    Lock lock(*this);
    WriteLocked(level, text, length);
}

void LogFile::WriteLocked(DWORD level, const WCHAR* text, long long length) {
    if (closed_) return;
    int kept = static_cast<int>(std::clamp<long long>(length, 0, kLogLineCap));
    EndWideLine(level, text, kept, length > kLogLineCap);
}

void LogFile::writeLine(DWORD level, const WCHAR* text) {
    write(level, text, zel_text::SafeStringLength(text));
}

void LogFile::writeNarrow(DWORD level, const char* text) {
    if ((levelMask_ & level) == 0) return;
    Lock lock(*this);
    if (closed_) return;
    long long length = zel_text::SafeStringLength(text);
    EndNarrowLine(level, text, static_cast<int>(std::clamp<long long>(length, 0, kLogLineCap)),
                  length > kLogLineCap);
}

namespace {
// The length of a formatted text that FormatBufferV cut at capacity, or
// ended within it: text past the cap counts as capacity + 1, a refused
// format (which leaves an empty text) as 0.
template <typename T>
long long FormattedLengthWithin(const T* buffer, int capacity) {
    const T* end = std::char_traits<T>::find(buffer, static_cast<std::size_t>(capacity), T());
    return end != nullptr ? end - buffer : capacity + 1LL;
}

// Formats into room characters at text; a text that does not fit is
// measured, and formatted again into the room that grow(capacity) returns,
// at most up to the cap. Returns the text's length, past the cap when it
// was cut there.
template <typename T, typename Grow>
long long FormatLine(T* text, std::size_t room, const T* format, va_list args, Grow grow) {
    va_list attempt;
    va_copy(attempt, args);
    long long length = zel_text::FormatBufferV(text, room, format, attempt);
    va_end(attempt);
    if (length >= 0) return length;
    va_copy(attempt, args);
    int measured = zel_text::FormattedLengthV(format, attempt);
    va_end(attempt);
    // -1 is a refused format or a text past INT_MAX: formatting it within
    // the cap tells which.
    int capacity = measured < 0 ? kLogLineCap : std::min(measured + 1, kLogLineCap);
    text = grow(static_cast<std::size_t>(capacity));
    va_copy(attempt, args);
    length = zel_text::FormatBufferV(text, static_cast<std::size_t>(capacity), format, attempt);
    va_end(attempt);
    return length >= 0 ? length : FormattedLengthWithin(text, capacity);
}
}  // namespace

void LogFile::printfW(DWORD level, const WCHAR* format, va_list args) {
    if ((levelMask_ & level) == 0) return;
    Lock lock(*this);
    if (closed_) return;
    long long length = FormatLine(wideText_.data(), wideText_.size(), format, args, [this](std::size_t capacity) {
        if (wideText_.size() < capacity) wideText_.resize(capacity);
        return wideText_.data();
    });
    EndWideLine(level, wideText_.data(), static_cast<int>(std::min<long long>(length, kLogLineCap)),
                length > kLogLineCap);
}

void LogFile::printf(DWORD level, const char* format, va_list args) {
    if ((levelMask_ & level) == 0) return;
    Lock lock(*this);
    if (closed_) return;
    // Formats straight into the buffer, behind the room for the prefix.
    char* text = ReserveText(0);
    std::size_t room = buffer_.size() - bufferUsed_ - kPrefixLength - kLineTail;
    long long length =
        FormatLine(text, room, format, args, [this](std::size_t capacity) { return ReserveText(capacity); });
    EndNarrowLine(level, ReserveText(0), static_cast<int>(std::min<long long>(length, kLogLineCap)),
                  length > kLogLineCap);
}

void LogFile::flushBuffer() {
    Lock lock(*this);
    if (bufferUsed_ == 0) return;
    if (handle_ != INVALID_HANDLE_VALUE) {
        zel_fs::file_write(handle_, buffer_.data(), static_cast<std::uint32_t>(bufferUsed_));
    }
    bufferUsed_ = 0;
}

void LogFile::flush() {
    flushRequested_.store(true);
    // Busy: the holder flushes before it lets the lock go (see Unlock).
    if (lock_.try_lock()) Unlock();
}

zel_text::CZelStringW LogFile::filePath() {
    Lock lock(*this);
    return isOpen_ ? path_ : zel_text::CZelStringW();
}

// --- Free functions ---------------------------------------------------------

namespace {
DWORD LevelOfCategory(unsigned category) { return category <= 3 ? kLogLevelNormal : kLogLevelLow; }

// Formats at level on the live log; lines logged during shutdown are dropped.
void LogAt(DWORD level, const char* format, va_list args) {
    if (LogFile* log = LiveLog()) log->printf(level, format, args);
}
void LogAt(DWORD level, const WCHAR* format, va_list args) {
    if (LogFile* log = LiveLog()) log->printfW(level, format, args);
}
}  // namespace

void logVPrintfW(const WCHAR* format, va_list args) { LogAt(kLogLevelNormal, format, args); }

void logPrintfW(const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(kLogLevelNormal, format, args);
    va_end(args);
}

void logPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(kLogLevelNormal, format, args);
    va_end(args);
}

void logPrintfLowW(const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(kLogLevelLow, format, args);
    va_end(args);
}

void logPrintfLow(const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(kLogLevelLow, format, args);
    va_end(args);
}

void logPrintfCatW(unsigned category, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(LevelOfCategory(category), format, args);
    va_end(args);
}

void logPrintfCat(unsigned category, const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogAt(LevelOfCategory(category), format, args);
    va_end(args);
}

void logBytes(const char* prefix, const void* data, std::size_t count) {
    LogFile* log = LiveLog();
    if (log == nullptr) return;
    // Built up to the cap, so that a block of gigabytes costs one line's
    // worth of memory; write() then cuts it with the marker.
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::size_t prefixLength = std::strlen(prefix == nullptr ? "" : prefix);
    const std::size_t limit = static_cast<std::size_t>(kLogLineCap) + 1;
    zel_text::CZelStringW line;
    WCHAR* const first = line.GetBuffer(static_cast<int>(limit + 1));
    WCHAR* out = first;
    for (std::size_t i = 0; i < prefixLength && static_cast<std::size_t>(out - first) < limit; ++i) {
        *out++ = static_cast<unsigned char>(prefix[i]);
    }
    for (std::size_t i = 0; i < count && static_cast<std::size_t>(out - first) < limit; ++i) {
        if (bytes[i] == 0) {
            *out++ = ZW('\\');
            *out++ = ZW('0');
        } else {
            *out++ = bytes[i];
        }
    }
    line.ReleaseBuffer(static_cast<int>(out - first));
    log->write(kLogLevelNormal, line.GetString(), line.GetLength());
}

LogLock::LogLock() {
    LiveLog();
    acquire();
}

void LogLock::acquire() {
    if (LogFile* log = gMadeLog.load()) log->lock_.lock();
}

void LogLock::release() {
    LogFile* log = gMadeLog.load();
    if (log != nullptr && log->lock_.levels() > 0) log->Unlock();
}

int LogLock::levels() {
    LogFile* log = gMadeLog.load();
    return log != nullptr ? log->lock_.levels() : 0;
}

void LogLock::releaseTo(int levels) {
    LogFile* log = gMadeLog.load();
    if (log == nullptr) return;
    for (int held = log->lock_.levels(); held > std::max(levels, 0); --held) log->Unlock();
}

void logFlush() {
    if (LogFile* log = LiveLog()) log->flush();
}

zel_text::CZelStringW logFilePath() {
    LogFile* log = LiveLog();
    return log != nullptr ? log->filePath() : zel_text::CZelStringW();
}

}  // namespace zel_core
