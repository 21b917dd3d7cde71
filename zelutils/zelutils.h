/// @file
/// Umbrella header: every public header of the library.
#pragma once

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/text/zel_encoding.h"
#include "zelutils/text/zel_printf.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zel_api.h"
