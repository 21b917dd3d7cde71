# The platform layer: the Win32 subset, emulated on POSIX, native on Windows.
if(WIN32)
  set(ZEL_PLATFORM_SOURCES
    platform/win32/fault_injection_win32.cpp
    platform/win32/native_path_win32.cpp
  )
else()
  set(ZEL_PLATFORM_SOURCES
    platform/posix/errhandlingapi_posix.cpp
    platform/posix/fault_injection_posix.cpp
    platform/posix/fileapi_posix.cpp
    platform/posix/handle_table.cpp
    platform/posix/handleapi_posix.cpp
    platform/posix/libloaderapi_posix.cpp
    platform/posix/native_path_posix.cpp
    platform/posix/oleauto_posix.cpp
    platform/posix/sysinfoapi_posix.cpp
    platform/posix/timezoneapi_posix.cpp
    platform/posix/winbase_posix.cpp
    platform/posix/winuser_posix.cpp
  )
endif()
list(APPEND ZEL_SOURCES ${ZEL_PLATFORM_SOURCES})
