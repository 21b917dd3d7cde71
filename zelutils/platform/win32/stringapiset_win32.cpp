// What Windows leaves to the system: the ANSI and OEM code pages.
#include "zelutils/platform/stringapiset.h"

// Code pages 0 and 1 are the system's settings on Windows; a process cannot
// choose its own.
bool zel_platform::SetProcessCodePages(UINT, UINT) { return false; }
