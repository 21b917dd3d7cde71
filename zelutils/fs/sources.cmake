# Files and streams: the platform file layer and what is built on it.
list(APPEND ZEL_SOURCES
  fs/application_folders.cpp
  fs/atomic_file.cpp
  fs/file_utils.cpp
  fs/mapped_file.cpp
  fs/platform_file.cpp
  fs/streams.cpp
  fs/text_file.cpp
)
