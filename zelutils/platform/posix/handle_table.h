// The process-wide handle table of the POSIX emulation (internal).
//
// Every HANDLE the emulation hands out names one slot of this table. A slot
// holds a shared kernel object (an open file descriptor, a find search, a
// thread, ...) and a generation number that is part of the handle value, so a
// closed handle never reaches the object that later reuses its slot. Lookups
// hand out a shared reference: a call in progress keeps its object alive even
// if another thread closes the handle meanwhile.
#pragma once

#ifndef ZEL_PLATFORM_INTERNAL
#error "private to the platform layer: portable code includes zelutils/platform/win32.h"
#endif

#include "zelutils/platform/windef.h"

#include <memory>

namespace zel_platform::posix {

enum class ObjectKind { File, Find, Thread, Event, Mapping };

/// Base of every object a handle can name. The object releases its OS
/// resource in its destructor, which runs when the last handle and the last
/// call using it are gone.
class KernelObject {
public:
    explicit KernelObject(ObjectKind kind) : kind_(kind) {}
    virtual ~KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;

    ObjectKind Kind() const { return kind_; }
    /// Releases the OS resource at once and tells whether that worked (false
    /// with the last error set), for CloseHandle on the last handle; the
    /// destructor releases whatever was not released here.
    virtual bool Release() { return true; }

private:
    ObjectKind kind_;
};

/// Enters object into the table. Returns its handle, never 0 or
/// INVALID_HANDLE_VALUE; null with ERROR_NO_SYSTEM_RESOURCES when the table
/// is full.
HANDLE InsertObject(std::shared_ptr<KernelObject> object);

/// The object named by handle when it is live and of the given kind;
/// otherwise null with ERROR_INVALID_HANDLE.
std::shared_ptr<KernelObject> FindObject(HANDLE handle, ObjectKind kind);

/// The object named by handle, whatever its kind; null with
/// ERROR_INVALID_HANDLE when the handle is not live.
std::shared_ptr<KernelObject> FindAnyObject(HANDLE handle);

/// Removes handle from the table and returns its object (so the caller may
/// finish with it); null with ERROR_INVALID_HANDLE when it is not live.
std::shared_ptr<KernelObject> RemoveObject(HANDLE handle);

/// Typed lookup: FindObject(handle, kind) cast to T.
template <class T>
std::shared_ptr<T> Find(HANDLE handle, ObjectKind kind) {
    return std::static_pointer_cast<T>(FindObject(handle, kind));
}

}  // namespace zel_platform::posix
