# Settings: INI files and sequence counters.
list(APPEND ZEL_SOURCES
  settings/ini_file.cpp
  settings/sequence_counter.cpp
)
