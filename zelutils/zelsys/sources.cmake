# Threads and time.
list(APPEND ZEL_SOURCES
  zelsys/zel_time.cpp
)
