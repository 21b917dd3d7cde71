// File times (100-nanosecond ticks since 1601-01-01 UTC) and POSIX times
// (internal).
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/windef.h"

#include <ctime>

namespace zel_platform::posix {

constexpr ULONGLONG kTicksPerSecond = 10000000;
/// Seconds from 1601-01-01 to 1970-01-01.
constexpr LONGLONG kEpochDifference = 11644473600LL;
/// File times at and above this value are refused, as Windows does.
constexpr ULONGLONG kMaxFileTime = 0x8000000000000000ULL;

inline ULONGLONG TicksOf(const FILETIME& time) {
    return (ULONGLONG{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

inline FILETIME FileTimeOf(ULONGLONG ticks) {
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

/// The file time of a POSIX time; 0 for times before 1601.
inline FILETIME FileTimeOf(LONGLONG seconds, long nanoseconds) {
    if (seconds < -kEpochDifference) return FileTimeOf(0);
    return FileTimeOf(static_cast<ULONGLONG>(seconds + kEpochDifference) * kTicksPerSecond +
                      static_cast<ULONGLONG>(nanoseconds / 100));
}

/// Moves ticks (below kMaxFileTime) by delta ticks; false, and shifted
/// untouched, when the result would leave [0, kMaxFileTime).
inline bool ShiftTicks(ULONGLONG ticks, LONGLONG delta, ULONGLONG* shifted) {
    ULONGLONG magnitude = delta < 0 ? 0 - static_cast<ULONGLONG>(delta) : static_cast<ULONGLONG>(delta);
    if (delta < 0 ? magnitude > ticks : magnitude >= kMaxFileTime - ticks) return false;
    *shifted = delta < 0 ? ticks - magnitude : ticks + magnitude;
    return true;
}

/// The POSIX time of a file time below kMaxFileTime.
inline timespec TimespecOf(ULONGLONG ticks) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(ticks / kTicksPerSecond) - kEpochDifference;
    result.tv_nsec = static_cast<long>(ticks % kTicksPerSecond) * 100;
    return result;
}

}  // namespace zel_platform::posix
