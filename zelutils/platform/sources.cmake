# The platform layer: the Win32 subset, emulated on POSIX, native on Windows.
# It builds as a target of its own (zelutils/CMakeLists.txt) so that only its
# sources see the headers private to it (posix/*.h, win32/*.h).
# hooks.cpp holds what both have in common (the replaceable tick source,
# debug-output sink and message-box handler), errno_table.cpp the one errno
# translation, winreg.cpp the store of system settings, memoryapi.cpp what
# the mapping calls share.
if(WIN32)
  set(ZEL_PLATFORM_SOURCES
    platform/win32/debugapi_win32.cpp
    platform/win32/errhandlingapi_win32.cpp
    platform/win32/fault_injection_win32.cpp
    platform/win32/fileapi_win32.cpp
    platform/win32/libloaderapi_win32.cpp
    platform/win32/memoryapi_win32.cpp
    platform/win32/minidumpapiset_win32.cpp
    platform/win32/native_path_win32.cpp
    platform/win32/processthreadsapi_win32.cpp
    platform/win32/stringapiset_win32.cpp
    platform/win32/winuser_win32.cpp
  )
else()
  set(ZEL_PLATFORM_SOURCES
    platform/posix/debugapi_posix.cpp
    platform/posix/errhandlingapi_posix.cpp
    platform/posix/fault_injection_posix.cpp
    platform/posix/fileapi_posix.cpp
    platform/posix/handle_table.cpp
    platform/posix/handleapi_posix.cpp
    platform/posix/iconv_codec.cpp
    platform/posix/libloaderapi_posix.cpp
    platform/posix/memoryapi_posix.cpp
    platform/posix/minidumpapiset_posix.cpp
    platform/posix/native_path_posix.cpp
    platform/posix/oleauto_posix.cpp
    platform/posix/processthreadsapi_posix.cpp
    platform/posix/stderr_text.cpp
    platform/posix/stringapiset_posix.cpp
    platform/posix/synchapi_posix.cpp
    platform/posix/sysinfoapi_posix.cpp
    platform/posix/timezoneapi_posix.cpp
    platform/posix/utf8_codec.cpp
    platform/posix/utf8_kernels_avx2.cpp
    platform/posix/utf8_kernels_sse41.cpp
    platform/posix/winbase_posix.cpp
    platform/posix/winuser_posix.cpp
    platform/posix/winuser_windows_posix.cpp
  )
  # The UTF-8 codec's vector kernels: each file alone is compiled for its
  # instruction set, which the codec checks the processor for at run time.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i[3-6]86)$")
    set_source_files_properties(platform/posix/utf8_kernels_sse41.cpp PROPERTIES COMPILE_OPTIONS "-mssse3;-msse4.1;-mpopcnt")
    set_source_files_properties(platform/posix/utf8_kernels_avx2.cpp PROPERTIES COMPILE_OPTIONS "-mavx2;-mpopcnt")
  endif()
endif()
list(APPEND ZEL_PLATFORM_SOURCES platform/errno_table.cpp platform/hooks.cpp platform/memoryapi.cpp platform/winreg.cpp)
