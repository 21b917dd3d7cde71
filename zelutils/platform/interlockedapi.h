/// @file
/// Atomic operations on 32-bit values with full barriers, under their Win32
/// names. The string buffers' reference counts rely on them.
#pragma once

#include "zelutils/platform/windef.h"

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
}  // namespace zel_platform
