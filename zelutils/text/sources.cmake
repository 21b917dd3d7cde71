# Text: strings, conversions, the printf dialect, number formatting.
list(APPEND ZEL_SOURCES text/zel_printf.cpp)
