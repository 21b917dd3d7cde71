/// @file
/// The Win32 subset the library is written against. Portable modules include
/// this header (or the narrower headers it gathers) and call the Win32 names;
/// on Windows they are the real API, elsewhere the POSIX emulation.
#pragma once

#include "zelutils/platform/debugapi.h"
#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/fault_injection.h"
#include "zelutils/platform/fileapi.h"
#include "zelutils/platform/handleapi.h"
#include "zelutils/platform/interlockedapi.h"
#include "zelutils/platform/libloaderapi.h"
#include "zelutils/platform/memoryapi.h"
#include "zelutils/platform/minidumpapiset.h"
#include "zelutils/platform/native_path.h"
#include "zelutils/platform/oleauto.h"
#include "zelutils/platform/processthreadsapi.h"
#include "zelutils/platform/stringapiset.h"
#include "zelutils/platform/synchapi.h"
#include "zelutils/platform/sysinfoapi.h"
#include "zelutils/platform/timezoneapi.h"
#include "zelutils/platform/winbase.h"
#include "zelutils/platform/wchar.h"
#include "zelutils/platform/windef.h"
#include "zelutils/platform/winreg.h"
#include "zelutils/platform/window_system.h"
#include "zelutils/platform/winuser.h"
