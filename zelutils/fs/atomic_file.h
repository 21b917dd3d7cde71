/// @file
/// Replacing a whole file so that readers and crashes only ever see the old
/// content or the new one. The new content goes to a temporary file beside
/// the target, which is flushed to the disk and then renamed over the target.
/// Failures return false with the platform's last error and leave the target
/// as it was.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

#include <functional>

namespace zel_fs {

/// Replaces the file at `path` with what `writeContent` writes into the
/// handle of a new temporary file beside the target; the handle is open for
/// reading and writing at offset 0, and the helper closes it.
/// `writeContent` returns false (with the last error set) to abandon the
/// replacement.
///
/// The temporary file is created exclusively in the target's folder as
/// "<target file name>.~zel<8 hex digits>.tmp" (a name that only the target's
/// writers use, so a stale one of a crashed writer may be removed by whoever
/// holds the target's lock). It is flushed, takes the permission bits (and,
/// where the process may, the owner) of the file it replaces, and is renamed
/// over the target with the rename written through to the folder. A symbolic
/// link is followed and its target replaced; the link stays.
///
/// Returns false with the first error kept in the last error: the target is
/// then untouched and no temporary file is left, except when only the
/// folder's flush after the rename failed, when the target already holds the
/// new content. A path that names a folder or a read-only file fails with
/// ERROR_ACCESS_DENIED (a read-only file is never replaced, as Windows'
/// rename refuses to), a device, FIFO or socket with ERROR_NOT_SUPPORTED;
/// none is touched.
ZEL_API bool ReplaceFileAtomically(const zel_text::CZelStringW& path,
                                   const std::function<bool(HANDLE file)>& writeContent);

}  // namespace zel_fs
