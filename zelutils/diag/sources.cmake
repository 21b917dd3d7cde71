# Diagnostics: the log file, checks and boxes, the crash guard.
list(APPEND ZEL_SOURCES
  diag/checks.cpp
  diag/crash_handler.cpp
  diag/log_file.cpp
  diag/module_load.cpp
)
