# Strings, conversions, the printf dialect, number formatting, byte-order
# marks and Base64.
list(APPEND ZEL_SOURCES
  text/zel_encoding.cpp
  text/zel_number_format.cpp
  text/zel_printf.cpp
  text/zel_string.cpp
  text/zel_utf.cpp
)
