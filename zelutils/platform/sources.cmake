# The platform layer: the Win32 subset, emulated on POSIX, native on Windows.
if(WIN32)
  set(ZEL_PLATFORM_SOURCES
  )
else()
  set(ZEL_PLATFORM_SOURCES
    platform/posix/errhandlingapi_posix.cpp
    platform/posix/handle_table.cpp
    platform/posix/handleapi_posix.cpp
    platform/posix/libloaderapi_posix.cpp
    platform/posix/oleauto_posix.cpp
    platform/posix/winuser_posix.cpp
  )
endif()
list(APPEND ZEL_SOURCES ${ZEL_PLATFORM_SOURCES})
