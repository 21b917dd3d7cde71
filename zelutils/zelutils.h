/// @file
/// Umbrella header: every public header of the library.
#pragma once

#include "zelutils/diag/checks.h"
#include "zelutils/diag/log_file.h"
#include "zelutils/fs/application_folders.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/fs/streams.h"
#include "zelutils/platform/fault_injection.h"
#include "zelutils/platform/win32.h"
#include "zelutils/settings/ini_file.h"
#include "zelutils/settings/sequence_counter.h"
#include "zelutils/text/zel_chars.h"
#include "zelutils/text/zel_encoding.h"
#include "zelutils/text/zel_number_format.h"
#include "zelutils/text/zel_printf.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zel_api.h"
#include "zelutils/zelsys/zel_time.h"
