# Files and streams: the platform file layer and what is built on it.
list(APPEND ZEL_SOURCES
  fs/platform_file.cpp
)
