/// @file
/// The library's wide character. Wide text is UTF-16 on every platform:
/// WCHAR is wchar_t on Windows and char16_t elsewhere (where wchar_t holds
/// UTF-32). Wide literals are written ZW("text").
#pragma once

#ifdef _WIN32
// No min/max macros (they break std::min and std::max) and none of the COM,
// shell or sockets headers the library does not use.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#define ZW_(s) L##s
#else
/// A UTF-16 code unit.
typedef char16_t WCHAR;
/// Prefixes a literal for ZW after macro expansion of its argument.
#define ZW_(s) u##s
#endif

/// A wide (UTF-16) string or character literal: ZW("abc"), ZW('x').
#define ZW(s) ZW_(s)

static_assert(sizeof(WCHAR) == 2, "WCHAR must be a 16-bit code unit");
