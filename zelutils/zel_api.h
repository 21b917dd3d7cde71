/// @file
/// Export control for the library's public interface. Symbols are hidden by
/// default; every exported class and function is marked ZEL_API.
#pragma once

#if defined(ZEL_STATIC)
#define ZEL_API
#elif defined(_WIN32)
#if defined(ZEL_BUILDING_LIBRARY)
#define ZEL_API __declspec(dllexport)
#else
#define ZEL_API __declspec(dllimport)
#endif
#else
#define ZEL_API __attribute__((visibility("default")))
#endif
