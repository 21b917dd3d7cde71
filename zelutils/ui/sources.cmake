# UI services: the interfaces the host implements for boxes, translations,
# the wait cursor, notifications and reconnection.
list(APPEND ZEL_SOURCES
  ui/dialog_translation.cpp
  ui/ui_services.cpp
)
