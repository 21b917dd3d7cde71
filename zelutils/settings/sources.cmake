# Settings: INI files and sequence counters.
list(APPEND ZEL_SOURCES
  settings/sequence_counter.cpp
)
