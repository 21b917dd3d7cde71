# The platform layer: the Win32 subset, emulated on POSIX, native on Windows.
if(WIN32)
  set(ZEL_PLATFORM_SOURCES
    platform/win32/stringapiset_win32.cpp
  )
else()
  set(ZEL_PLATFORM_SOURCES
    platform/posix/errhandlingapi_posix.cpp
    platform/posix/handle_table.cpp
    platform/posix/handleapi_posix.cpp
    platform/posix/iconv_codec.cpp
    platform/posix/libloaderapi_posix.cpp
    platform/posix/oleauto_posix.cpp
    platform/posix/stringapiset_posix.cpp
    platform/posix/utf8_codec.cpp
    platform/posix/winuser_posix.cpp
  )
endif()
list(APPEND ZEL_SOURCES ${ZEL_PLATFORM_SOURCES})
