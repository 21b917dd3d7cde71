/// @file
/// Atomic operations on 32-bit values with full barriers, under their Win32
/// names. The string buffers' reference counts rely on them.
#pragma once

#include "zelutils/platform/windef.h"

// glibc from 2.32 says whether the process has ever had a second thread.
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
#define ZEL_KNOWS_SINGLE_THREADED 1
#include <sys/single_threaded.h>
#endif

#ifndef _WIN32
namespace zel_win32 {
/// Adds 1 and returns the new value.
inline LONG InterlockedIncrement(LONG volatile* target) {
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}
/// Subtracts 1 and returns the new value.
inline LONG InterlockedDecrement(LONG volatile* target) {
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
/// Adds value and returns the value before the addition.
inline LONG InterlockedExchangeAdd(LONG volatile* target, LONG value) {
    return __atomic_fetch_add(target, value, __ATOMIC_SEQ_CST);
}
/// Stores value and returns the value before the store.
inline LONG InterlockedExchange(LONG volatile* target, LONG value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
/// Stores exchange when *target equals comparand; returns the value before.
inline LONG InterlockedCompareExchange(LONG volatile* target, LONG exchange, LONG comparand) {
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}
}  // namespace zel_win32
using namespace zel_win32;
#endif

namespace zel_platform {
/// Reads a count that other threads change with the interlocked calls above,
/// with acquire ordering: a plain atomic load, without the locked bus cycle
/// of InterlockedExchangeAdd(target, 0). Win32 has no such call in every
/// toolchain's headers, so it lives here for both systems.
inline LONG ReadAcquire32(const LONG volatile* target) {
    return __atomic_load_n(target, __ATOMIC_ACQUIRE);
}

/// Adds 1 to a reference count and returns the new value: interlocked once
/// the process has more than one thread, a plain increment while it has only
/// the one (glibc tells, and never takes back that there were others; a
/// thread's creation orders everything before it), as libstdc++'s shared
/// pointers do. Windows always takes the interlocked path.
inline LONG AddReference(LONG volatile* count) {
#ifdef ZEL_KNOWS_SINGLE_THREADED
    if (__libc_single_threaded) {
        LONG value = __atomic_load_n(count, __ATOMIC_RELAXED) + 1;
        __atomic_store_n(count, value, __ATOMIC_RELAXED);
        return value;
    }
#endif
    return InterlockedIncrement(count);
}
/// Subtracts 1 from a reference count and returns the new value, on the same
/// terms as AddReference.
inline LONG DropReference(LONG volatile* count) {
#ifdef ZEL_KNOWS_SINGLE_THREADED
    if (__libc_single_threaded) {
        LONG value = __atomic_load_n(count, __ATOMIC_RELAXED) - 1;
        __atomic_store_n(count, value, __ATOMIC_RELAXED);
        return value;
    }
#endif
    return InterlockedDecrement(count);
}
}  // namespace zel_platform
