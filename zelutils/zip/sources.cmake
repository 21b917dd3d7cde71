# Zip archives over minizip and zlib (private: no header of theirs is public).
# minizip is found as a plain library so that a MinGW build can point
# ZEL_MINIZIP_ROOT at the copy built for it; zlib through CMake's module.
if(WIN32)
  # MinGW's zlib comes without its DLL: link it into the library.
  set(ZLIB_USE_STATIC_LIBS ON)
endif()
find_package(ZLIB REQUIRED)
find_path(ZEL_MINIZIP_INCLUDE_DIR minizip/unzip.h HINTS ${ZEL_MINIZIP_ROOT}/include)
find_library(ZEL_MINIZIP_LIBRARY NAMES minizip HINTS ${ZEL_MINIZIP_ROOT}/lib)
if(NOT ZEL_MINIZIP_INCLUDE_DIR OR NOT ZEL_MINIZIP_LIBRARY)
  message(FATAL_ERROR "minizip not found (libminizip-dev; for MinGW set ZEL_MINIZIP_ROOT)")
endif()
include_directories(${ZEL_MINIZIP_INCLUDE_DIR})
list(APPEND ZEL_SOURCES
  zip/unzip_archive.cpp
  zip/zip_archive.cpp
  zip/zip_base.cpp
  zip/zip_crypto.cpp
  zip/zip_io.cpp
)
list(APPEND ZEL_PRIVATE_LIBS ${ZEL_MINIZIP_LIBRARY} ZLIB::ZLIB)
list(APPEND ZEL_PC_REQUIRES_PRIVATE minizip zlib)
list(APPEND ZEL_CONFIG_DEPENDENCIES ZLIB)
