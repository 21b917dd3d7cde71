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
/// Marks a class or function as part of the library's exported interface
/// (default visibility on POSIX, dllexport/dllimport on Windows, nothing for a
/// static build).
#define ZEL_API __attribute__((visibility("default")))
#endif

/// Declares that the library holds the one exported instantiation of a class
/// template: ZEL_EXTERN_TEMPLATE_CLASS(CZelStringT<char>); and, in the
/// library's source, template class CZelStringT<char>;. Programs using a
/// Windows DLL declare nothing: MinGW's GCC does not export the inline
/// members of an exported instantiation, so they compile their own copies of
/// those and import the rest by name.
#if defined(_WIN32) && !defined(ZEL_STATIC) && !defined(ZEL_BUILDING_LIBRARY)
#define ZEL_EXTERN_TEMPLATE_CLASS(...) static_assert(true, "")
#else
#define ZEL_EXTERN_TEMPLATE_CLASS(...) extern template class ZEL_API __VA_ARGS__
#endif
