// The library's file layer as minizip's I/O function table (internal), so
// archives open by UTF-16 path on every platform and every archive read and
// write passes the platform layer (and its fault injection).
#pragma once

#include "zelutils/platform/windef.h"

#include <minizip/ioapi.h>

namespace zel_zip::detail {

/// The function table; the file name minizip passes on is a NUL-terminated
/// WCHAR path, handed to unzOpen2_64 / zipOpen2_64 as is.
zlib_filefunc64_def PlatformFileFunctions();

/// Whether path holds nothing but an end-of-central-directory record that
/// lists no entries (and its comment): the empty archive, which minizip
/// refuses to open.
bool IsEmptyArchive(const WCHAR* path);

}  // namespace zel_zip::detail
