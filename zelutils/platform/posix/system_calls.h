// The system calls of the POSIX emulation (internal).
//
// Every call the emulation makes to the operating system goes through these
// wrappers, which pass one table of function pointers and the fault hooks of
// fault_injection.h. They behave as the system calls they wrap (result and
// errno), except that open, read, write, fsync and ftruncate retry calls
// interrupted by a signal, so no caller has to.
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

namespace zel_platform::posix::sys {

int Open(const char* path, int flags, mode_t mode);
int Close(int fd);
ssize_t Read(int fd, void* buffer, std::size_t count);
ssize_t Write(int fd, const void* buffer, std::size_t count);
off_t Seek(int fd, off_t offset, int whence);
int Truncate(int fd, off_t length);
int Sync(int fd);
/// statx: an open descriptor with path "" and AT_EMPTY_PATH, or a path.
int Stat(int dirFd, const char* path, int flags, struct statx* status);
int SetTimes(int fd, const struct timespec times[2]);
/// renameat2 in the current directory; flags 0, RENAME_NOREPLACE or RENAME_EXCHANGE.
int Rename(const char* from, const char* to, unsigned flags);
int Unlink(const char* path);
int MakeDirectory(const char* path, mode_t mode);
int RemoveDirectory(const char* path);
DIR* OpenDirectory(const char* path);
/// readdir; errno is 0 when null means the end of the folder.
dirent* ReadDirectory(DIR* directory);
int CloseDirectory(DIR* directory);
/// readlink: the link's text (not terminated) and its length, or -1.
ssize_t ReadLink(const char* path, char* buffer, std::size_t size);
int ChangeMode(int fd, mode_t mode);
/// fchmodat in the current directory, following a symbolic link.
int ChangeModeOf(const char* path, mode_t mode);
int ChangeOwner(int fd, uid_t owner, gid_t group);
/// flock (LOCK_SH, LOCK_EX, LOCK_UN, with LOCK_NB); a wait interrupted by a
/// signal is resumed.
int Lock(int fd, int operation);

}  // namespace zel_platform::posix::sys
