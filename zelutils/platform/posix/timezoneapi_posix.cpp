// Calendar fields of file times, by day arithmetic on the proleptic
// Gregorian calendar (no time zone is involved).
#include "zelutils/platform/timezoneapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/file_time.h"

namespace {

using zel_platform::posix::kMaxFileTime;
using zel_platform::posix::kTicksPerSecond;

constexpr ULONGLONG kTicksPerDay = 86400ULL * kTicksPerSecond;

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days since 0000-03-01 of a civil date (years counted from March, so the
// leap day comes last).
constexpr LONGLONG DaysFromCivil(int year, int month, int day) {
    if (month <= 2) --year;
    LONGLONG era = year / 400;
    LONGLONG yearOfEra = year - era * 400;
    LONGLONG dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
}

// 1601-01-01, the origin of file times.
constexpr LONGLONG kDaysTo1601 = DaysFromCivil(1601, 1, 1);

void CivilFromDays(LONGLONG days, int* year, int* month, int* day) {
    LONGLONG era = days / 146097;
    LONGLONG dayOfEra = days - era * 146097;
    LONGLONG yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    LONGLONG dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    LONGLONG monthIndex = (5 * dayOfYear + 2) / 153;
    *day = static_cast<int>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    *month = static_cast<int>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
    *year = static_cast<int>(yearOfEra + era * 400 + (*month <= 2 ? 1 : 0));
}

}  // namespace

BOOL zel_win32::FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime) {
    if (fileTime == nullptr || systemTime == nullptr ||
        zel_platform::posix::TicksOf(*fileTime) >= kMaxFileTime) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    ULONGLONG ticks = zel_platform::posix::TicksOf(*fileTime);
    LONGLONG days = static_cast<LONGLONG>(ticks / kTicksPerDay);
    ULONGLONG inDay = ticks % kTicksPerDay;
    int year, month, day;
    CivilFromDays(days + kDaysTo1601, &year, &month, &day);
    systemTime->wYear = static_cast<WORD>(year);
    systemTime->wMonth = static_cast<WORD>(month);
    systemTime->wDay = static_cast<WORD>(day);
    systemTime->wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1601-01-01 was a Monday
    systemTime->wHour = static_cast<WORD>(inDay / (3600 * kTicksPerSecond));
    systemTime->wMinute = static_cast<WORD>(inDay / (60 * kTicksPerSecond) % 60);
    systemTime->wSecond = static_cast<WORD>(inDay / kTicksPerSecond % 60);
    systemTime->wMilliseconds = static_cast<WORD>(inDay / 10000 % 1000);
    return TRUE;
}

BOOL zel_win32::SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime) {
    if (systemTime == nullptr || fileTime == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const SYSTEMTIME& t = *systemTime;
    if (t.wYear < 1601 || t.wYear > 30827 || t.wMonth < 1 || t.wMonth > 12 || t.wDay < 1 ||
        t.wDay > DaysInMonth(t.wYear, t.wMonth) || t.wHour > 23 || t.wMinute > 59 ||
        t.wSecond > 59 || t.wMilliseconds > 999) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    LONGLONG days = DaysFromCivil(t.wYear, t.wMonth, t.wDay) - kDaysTo1601;
    ULONGLONG seconds =
        static_cast<ULONGLONG>(days) * 86400 + t.wHour * 3600ULL + t.wMinute * 60ULL + t.wSecond;
    *fileTime =
        zel_platform::posix::FileTimeOf(seconds * kTicksPerSecond + t.wMilliseconds * 10000ULL);
    return TRUE;
}
