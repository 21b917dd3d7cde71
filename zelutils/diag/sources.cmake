# Diagnostics: the log file, checks and boxes.
list(APPEND ZEL_SOURCES
  diag/checks.cpp
  diag/log_file.cpp
  diag/module_load.cpp
)
