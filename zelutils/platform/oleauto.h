/// @file
/// BSTR: length-prefixed, NUL-terminated UTF-16 blocks owned by the caller.
/// On POSIX a BSTR points just behind a 32-bit byte count, as on Windows.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#ifdef _WIN32
#include <oleauto.h>
#else
namespace zel_win32 {
/// A new BSTR of length units copied from text (uninitialised when text is
/// null); null when memory runs out.
ZEL_API BSTR SysAllocStringLen(const OLECHAR* text, UINT length);
/// A new BSTR copied from a NUL-terminated text; null for a null text.
ZEL_API BSTR SysAllocString(const OLECHAR* text);
/// Replaces *bstr by a new BSTR of length units from text (text may lie in
/// the old block); FALSE, leaving *bstr as it was, when memory runs out.
ZEL_API INT SysReAllocStringLen(BSTR* bstr, const OLECHAR* text, UINT length);
/// Frees a BSTR; null is ignored.
ZEL_API void SysFreeString(BSTR bstr);
/// The length in units (0 for null).
ZEL_API UINT SysStringLen(BSTR bstr);
}  // namespace zel_win32
using namespace zel_win32;
#endif
