# Cross build for 64-bit Windows with Debian's MinGW-w64 (the POSIX-threads
# flavour, package g++-mingw-w64-x86-64-posix):
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
#
# The C and C++ runtimes (libgcc, libstdc++, winpthread) are linked
# statically into every .dll and .exe, so the binaries need nothing but the
# system's own DLLs and run under Wine as they are.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ZEL_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ZEL_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ZEL_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${ZEL_MINGW_TRIPLET}-windres)

# Libraries and headers come from the MinGW sysroot only; programs (the
# build's own tools) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${ZEL_MINGW_TRIPLET})
# Libraries Debian has no MinGW package of, built from its source packages by
# scripts/build-mingw-deps.sh into one prefix each.
if(DEFINED ENV{ZEL_MINGW_CACHE})
  set(ZEL_MINGW_CACHE $ENV{ZEL_MINGW_CACHE})
else()
  set(ZEL_MINGW_CACHE /var/cache/zelutils-mingw)
endif()
file(GLOB ZEL_MINGW_BUILT_PREFIXES LIST_DIRECTORIES true ${ZEL_MINGW_CACHE}/*)
list(APPEND CMAKE_FIND_ROOT_PATH ${ZEL_MINGW_BUILT_PREFIXES})
# The zip area finds minizip through ZEL_MINIZIP_ROOT.
file(GLOB ZEL_MINGW_MINIZIP LIST_DIRECTORIES true ${ZEL_MINGW_CACHE}/minizip-*)
if(ZEL_MINGW_MINIZIP AND NOT ZEL_MINIZIP_ROOT)
  list(GET ZEL_MINGW_MINIZIP 0 ZEL_MINIZIP_ROOT)
  set(ZEL_MINIZIP_ROOT ${ZEL_MINIZIP_ROOT} CACHE PATH "minizip built for MinGW")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -static makes the linker take the runtime archives instead of their import
# libraries; the system DLLs (kernel32, msvcrt, ...) exist only as import
# libraries and stay dynamic.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

