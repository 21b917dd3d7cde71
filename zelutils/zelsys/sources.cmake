# Threads and time.
list(APPEND ZEL_SOURCES
  zelsys/zel_thread.cpp
  zelsys/zel_time.cpp
)
