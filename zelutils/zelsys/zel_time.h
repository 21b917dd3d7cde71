/// @file
/// A calendar time and a time span, both whole seconds in a signed 64-bit
/// number, with conversions from the platform's date forms: broken-down
/// fields, SYSTEMTIME, FILETIME and the zip/DOS date and time words. Fields
/// are local time. Invalid fields are a programming error and throw
/// TimeFieldError (code 0x80004005); a time the runtime library cannot
/// represent (the Windows runtime's range is 1970 to 3000 UTC; glibc's takes
/// every year the checks let through), or a file time the platform cannot
/// convert, ends the process through fatalErrorBox. Local time is that of
/// the instant on POSIX, but Windows converts file times with the offset in
/// force now.
#pragma once

#include "zelutils/diag/checks.h"
#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <cstdint>

namespace zel {

/// Thrown for a field outside its range; Code() is 0x80004005 (E_FAIL).
class ZEL_API TimeFieldError : public zel_core::runtime_exception {
public:
    /// An error whose what() is message.
    explicit TimeFieldError(const char* message);
    ~TimeFieldError() override;
    /// The result code the error carries.
    HRESULT Code() const { return static_cast<HRESULT>(0x80004005); }
};

/// A signed number of seconds.
class ZEL_API ZelTimeSpan {
public:
    /// A span of the given number of seconds.
    constexpr explicit ZelTimeSpan(std::int64_t seconds = 0) : seconds_(seconds) {}
    /// days, hours, minutes and seconds, each of any sign.
    ZelTimeSpan(std::int64_t days, int hours, int minutes, int seconds);

    /// Whole days (divisions here truncate toward zero).
    std::int64_t GetDays() const { return seconds_ / 86400; }
    /// Whole hours.
    std::int64_t GetTotalHours() const { return seconds_ / 3600; }
    /// Hours within the day: total hours - 24 * total days.
    std::int64_t GetHours() const { return GetTotalHours() - GetDays() * 24; }
    /// Whole minutes.
    std::int64_t GetTotalMinutes() const { return seconds_ / 60; }
    /// Minutes within the hour.
    std::int64_t GetMinutes() const { return GetTotalMinutes() - GetTotalHours() * 60; }
    /// The span in seconds.
    std::int64_t GetTotalSeconds() const { return seconds_; }
    /// Seconds within the minute.
    std::int64_t GetSeconds() const { return seconds_ - GetTotalMinutes() * 60; }

    ///@{
    /// Compare the numbers of seconds.
    bool operator==(const ZelTimeSpan& other) const { return seconds_ == other.seconds_; }
    bool operator!=(const ZelTimeSpan& other) const { return seconds_ != other.seconds_; }
    ///@}

private:
    std::int64_t seconds_;
};

/// Seconds since 1970-01-01 00:00 UTC; 0 stands for no time.
class ZEL_API ZelTime {
public:
    /// The time that is value seconds after 1970-01-01 00:00 UTC (0: no time).
    constexpr explicit ZelTime(std::int64_t value = 0) : value_(value) {}
    /// Local time from fields (year >= 1900, month 1-12, day 1-31, hour < 24,
    /// minute < 60, second < 60; checked in that order, each throwing
    /// TimeFieldError). Days past a month's end are carried over. dst: 1
    /// summer time, 0 standard time, negative: let the runtime decide.
    ZelTime(int year, int month, int day, int hour, int minute, int second, int dst = -1);
    /// Local time from a zip/DOS date word (day bits 0-4, month 5-8, year
    /// since 1980 9-15) and time word (seconds / 2 bits 0-4, minutes 5-10,
    /// hours 11-15). Not checked: out-of-range fields are carried over.
    ZelTime(WORD dosDate, WORD dosTime, int dst = -1);
    /// Local time from a SYSTEMTIME; a year below 1900 gives 0 (no time).
    ZelTime(const SYSTEMTIME& time, int dst = -1);
    /// A UTC file time, through its local time.
    ZelTime(const FILETIME& fileTime, int dst = -1);

    /// Seconds since 1970-01-01 00:00 UTC.
    std::int64_t GetTime() const { return value_; }
    /// The local date and time; false for a time the platform cannot convert
    /// (before 1601, or past the last file time, 30828-09-14 02:48:05 UTC).
    bool GetLocalTime(SYSTEMTIME& time) const;
    ///@{
    /// Local hour, minute and second (0 when the time cannot be converted).
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    ///@}

    ///@{
    /// Moves the time by span, later or earlier; returns this time.
    ZelTime& operator+=(const ZelTimeSpan& span);
    ZelTime& operator-=(const ZelTimeSpan& span);
    ///@}
    /// The span from other to this time.
    ZelTimeSpan operator-(const ZelTime& other) const { return ZelTimeSpan(value_ - other.value_); }
    ///@{
    /// Compare the time values.
    bool operator==(const ZelTime& other) const { return value_ == other.value_; }
    bool operator!=(const ZelTime& other) const { return value_ != other.value_; }
    ///@}

private:
    void FromFields(int year, int month, int day, int hour, int minute, int second, int dst);

    std::int64_t value_;
};

/// Converts a UTC file time to local time and then to a SYSTEMTIME; true
/// when both steps succeeded.
ZEL_API bool FileTimeToLocalSystemTime(const FILETIME& fileTime, SYSTEMTIME& localTime);

}  // namespace zel

namespace zel_text {
/// "%02d:%02d:%02d" of the local hours, minutes and seconds of time.
ZEL_API CZelStringW FormatTimeOfDay(const zel::ZelTime& time);
}  // namespace zel_text
