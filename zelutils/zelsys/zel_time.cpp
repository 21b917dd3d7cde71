#include "zelutils/zelsys/zel_time.h"

#include "zelutils/platform/win32.h"

#include <cstdint>
#include <ctime>

namespace zel {
namespace {

constexpr const char* kModule = "zelutils/zelsys/zel_time";
constexpr std::int64_t kUnixEpochIn100ns = 116444736000000000LL;

void Require(bool condition, const char* message) {
    if (!condition) throw TimeFieldError(message);
}

}  // namespace

TimeFieldError::TimeFieldError(const char* message) : zel_core::runtime_exception(message) {}

TimeFieldError::~TimeFieldError() = default;

ZelTimeSpan::ZelTimeSpan(std::int64_t days, int hours, int minutes, int seconds)
    : seconds_(((days * 24 + hours) * 60 + minutes) * 60 + seconds) {}

ZelTime::ZelTime(int year, int month, int day, int hour, int minute, int second, int dst) {
    Require(year >= 1900, "year before 1900");
    Require(month >= 1 && month <= 12, "month outside 1-12");
    Require(day >= 1 && day <= 31, "day outside 1-31");
    Require(hour < 24, "hour not below 24");
    Require(minute < 60, "minute not below 60");
    Require(second < 60, "second not below 60");
    FromFields(year, month, day, hour, minute, second, dst);
    if (value_ == -1) zel_core::fatalErrorBox(kModule, 265, "Illegal input time");
}

ZelTime::ZelTime(WORD dosDate, WORD dosTime, int dst) {
    FromFields(1980 + (dosDate >> 9), (dosDate >> 5) & 0x0F, dosDate & 0x1F, dosTime >> 11,
               (dosTime >> 5) & 0x3F, 2 * (dosTime & 0x1F), dst);
    if (value_ == -1) zel_core::fatalErrorBox(kModule, 283, "Illegal input time");
}

ZelTime::ZelTime(const SYSTEMTIME& time, int dst) : value_(0) {
    if (time.wYear < 1900) return;
    *this = ZelTime(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, dst);
}

ZelTime::ZelTime(const FILETIME& fileTime, int dst) : value_(0) {
    FILETIME local;
    if (!FileTimeToLocalFileTime(&fileTime, &local)) {
        zel_core::fatalErrorBox(kModule, 313, "Invalid argument");
    }
    SYSTEMTIME time;
    if (!FileTimeToSystemTime(&local, &time)) {
        zel_core::fatalErrorBox(kModule, 322, "Invalid argument");
    }
    *this = ZelTime(time, dst);
}

void ZelTime::FromFields(int year, int month, int day, int hour, int minute, int second, int dst) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = dst;
    value_ = static_cast<std::int64_t>(std::mktime(&fields));
}

bool ZelTime::GetLocalTime(SYSTEMTIME& time) const {
    // Only times from 1601 whose 100 ns ticks fit 63 bits have a file time.
    constexpr std::int64_t kFirst = -kUnixEpochIn100ns / 10000000;
    constexpr std::int64_t kLast = (INT64_MAX - kUnixEpochIn100ns) / 10000000;
    if (value_ < kFirst || value_ > kLast) return false;
    std::int64_t ticks = value_ * 10000000 + kUnixEpochIn100ns;
    FILETIME utc{static_cast<DWORD>(ticks), static_cast<DWORD>(static_cast<std::uint64_t>(ticks) >> 32)};
    return FileTimeToLocalSystemTime(utc, time);
}

int ZelTime::GetHour() const {
    SYSTEMTIME time{};
    return GetLocalTime(time) ? time.wHour : 0;
}

int ZelTime::GetMinute() const {
    SYSTEMTIME time{};
    return GetLocalTime(time) ? time.wMinute : 0;
}

int ZelTime::GetSecond() const {
    SYSTEMTIME time{};
    return GetLocalTime(time) ? time.wSecond : 0;
}

ZelTime& ZelTime::operator+=(const ZelTimeSpan& span) {
    value_ += span.GetTotalSeconds();
    return *this;
}

ZelTime& ZelTime::operator-=(const ZelTimeSpan& span) {
    value_ -= span.GetTotalSeconds();
    return *this;
}

bool FileTimeToLocalSystemTime(const FILETIME& fileTime, SYSTEMTIME& localTime) {
    FILETIME local;
    return FileTimeToLocalFileTime(&fileTime, &local) && FileTimeToSystemTime(&local, &localTime);
}

}  // namespace zel

namespace zel_text {

CZelStringW FormatTimeOfDay(const zel::ZelTime& time) {
    SYSTEMTIME local{};
    time.GetLocalTime(local);
    CZelStringW text;
    text.Format(ZW("%02d:%02d:%02d"), local.wHour, local.wMinute, local.wSecond);
    return text;
}

}  // namespace zel_text
