# Text: strings, conversions, the printf dialect, number formatting.
list(APPEND ZEL_SOURCES text/zel_string.cpp)
list(APPEND ZEL_SOURCES text/zel_utf.cpp)
