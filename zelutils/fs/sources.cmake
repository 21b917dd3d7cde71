# Files and streams.
list(APPEND ZEL_SOURCES
  fs/application_folders.cpp
  fs/streams.cpp
)
