# Strings, conversions, number formatting, byte-order marks and Base64.
list(APPEND ZEL_SOURCES
  text/zel_encoding.cpp
)
