// File mappings over mmap: mapping objects in the handle table, views
// recorded by address, and mapping names shared by the processes of a user
// through a registry of small files in /dev/shm.
#include "zelutils/platform/memoryapi.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/file_descriptor.h"
#include "zelutils/platform/posix/handle_table.h"
#include "zelutils/platform/posix/system_calls.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace zel_platform::posix {
namespace {

constexpr ULONGLONG kAllocationGranularity = 64 * 1024;

HANDLE Fail(DWORD error) {
    SetLastError(error);
    return nullptr;
}

// A mapping object: its own descriptor of the file (or of an anonymous
// memory file for the paging file), the protection and the size. A creator
// of a shared name removes the name's registry entry when the object goes.
class MappingObject final : public KernelObject {
public:
    MappingObject(int fd, DWORD protect, ULONGLONG size)
        : KernelObject(ObjectKind::Mapping), fd_(fd), protect_(protect), size_(size) {}
    ~MappingObject() override;

    int Fd() const { return fd_; }
    DWORD Protect() const { return protect_; }
    ULONGLONG Size() const { return size_; }
    void OwnRegistryEntry(std::string path) { registryEntry_ = std::move(path); }
    void SetLocalName(std::basic_string<WCHAR> name) { localName_ = std::move(name); }

private:
    int fd_;
    DWORD protect_;
    ULONGLONG size_;
    std::string registryEntry_;
    std::basic_string<WCHAR> localName_;
};

// Names seen by this process (both the process-only ones and the shared ones
// it created or opened), so that repeated opens reach one object, and the
// views by start address.
struct MappingState {
    std::mutex mutex;
    std::map<std::basic_string<WCHAR>, std::weak_ptr<MappingObject>> names;
    struct View {
        std::shared_ptr<MappingObject> mapping;
        std::size_t length;
    };
    std::map<const void*, View> views;
};

MappingState& State() {
    // Never destroyed: views and handles may be released from exit handlers.
    static MappingState* state = new MappingState;
    return *state;
}

// Process-only names live in a space of their own, told apart by a prefix
// that the UTF-16 text of a shared name cannot start with (a lone low
// surrogate).
const std::basic_string<WCHAR> kProcessPrefix(1, static_cast<WCHAR>(0xDC00));

// --- The registry of shared names --------------------------------------------
// An entry is a file named after the mapping name, holding the creator's pid
// and descriptor number (the object is reopened through /proc), its device
// and inode (to tell a stale entry whose pid or descriptor was reused), the
// protection and the size. Entries are published whole with link().

struct RegistryRecord {
    long pid = 0;
    int fd = -1;
    unsigned long long device = 0;
    unsigned long long inode = 0;
    DWORD protect = 0;
    ULONGLONG size = 0;
};

std::string RegistryFolder() {
    struct stat status {};
    return stat("/dev/shm", &status) == 0 && S_ISDIR(status.st_mode) ? "/dev/shm" : "/tmp";
}

// The entry's path: the name in UTF-8 with '/', '%' and control characters
// escaped, under a prefix with the user id. Empty, with 206, when too long.
std::string RegistryPath(const std::basic_string<WCHAR>& name) {
    std::string escaped;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char32_t c = name[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < name.size() && name[i + 1] >= 0xDC00 &&
            name[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (name[++i] - 0xDC00);
        }
        char buffer[16];
        if (c < 0x20 || c == '/' || c == '%' || c == 0x7F || (c >= 0xD800 && c < 0xE000)) {
            std::snprintf(buffer, sizeof buffer, "%%%04X", static_cast<unsigned>(c));
        } else if (c < 0x80) {
            buffer[0] = static_cast<char>(c);
            buffer[1] = 0;
        } else if (c < 0x800) {
            buffer[0] = static_cast<char>(0xC0 | (c >> 6));
            buffer[1] = static_cast<char>(0x80 | (c & 0x3F));
            buffer[2] = 0;
        } else if (c < 0x10000) {
            buffer[0] = static_cast<char>(0xE0 | (c >> 12));
            buffer[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            buffer[2] = static_cast<char>(0x80 | (c & 0x3F));
            buffer[3] = 0;
        } else {
            buffer[0] = static_cast<char>(0xF0 | (c >> 18));
            buffer[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            buffer[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            buffer[3] = static_cast<char>(0x80 | (c & 0x3F));
            buffer[4] = 0;
        }
        escaped += buffer;
    }
    std::string leaf = "zel-mapping-" + std::to_string(getuid()) + "-" + escaped;
    if (leaf.size() > 255) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return std::string();
    }
    return RegistryFolder() + "/" + leaf;
}

bool ReadRecord(const std::string& path, RegistryRecord* record) {
    int fd = sys::Open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0) return false;
    char text[160] = {};
    ssize_t length = sys::Read(fd, text, sizeof text - 1);
    sys::Close(fd);
    unsigned long protect = 0;
    return length > 0 &&
           std::sscanf(text, "%ld %d %llu %llu %lu %" SCNu64, &record->pid, &record->fd,
                       &record->device, &record->inode, &protect, &record->size) == 6 &&
           (record->protect = static_cast<DWORD>(protect), true);
}

// Reopens the object an entry names; -1 when the entry is stale.
int OpenRecorded(const RegistryRecord& record) {
    std::string source = "/proc/" + std::to_string(record.pid) + "/fd/" + std::to_string(record.fd);
    int fd = sys::Open(source.c_str(), (record.protect == PAGE_READWRITE ? O_RDWR : O_RDONLY) | O_CLOEXEC, 0);
    if (fd < 0) return -1;
    struct stat status {};
    if (fstat(fd, &status) != 0 || status.st_dev != record.device || status.st_ino != record.inode) {
        sys::Close(fd);
        return -1;
    }
    return fd;
}

// Publishes an entry for object at path. 0 when published, 183 when another
// live entry holds the name (record then filled from it), else an error.
DWORD Publish(const std::string& path, const MappingObject& object, RegistryRecord* existing) {
    struct stat status {};
    if (fstat(object.Fd(), &status) != 0) return ErrorFromErrno(errno);
    char text[160];
    int length = std::snprintf(text, sizeof text, "%ld %d %llu %llu %lu %" PRIu64 "\n",
                               static_cast<long>(getpid()), object.Fd(),
                               static_cast<unsigned long long>(status.st_dev),
                               static_cast<unsigned long long>(status.st_ino),
                               static_cast<unsigned long>(object.Protect()), object.Size());
    std::string draft = path + ".draft-" + std::to_string(getpid());
    int fd = sys::Open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return ErrorFromErrno(errno);
    bool written = sys::Write(fd, text, static_cast<std::size_t>(length)) == length;
    sys::Close(fd);
    DWORD result = ERROR_SUCCESS;
    // Two rounds: an entry whose creator is gone is removed and replaced.
    for (int round = 0; written && round < 2; ++round) {
        if (link(draft.c_str(), path.c_str()) == 0) {
            result = ERROR_SUCCESS;
            break;
        }
        if (errno != EEXIST) {
            result = ErrorFromErrno(errno);
            break;
        }
        // Stays 183 when the second round loses a race too.
        result = ERROR_ALREADY_EXISTS;
        int opened = -1;
        if (ReadRecord(path, existing) && (opened = OpenRecorded(*existing)) >= 0) {
            sys::Close(opened);
            break;
        }
        sys::Unlink(path.c_str());
    }
    if (!written) result = ERROR_WRITE_FAULT;
    sys::Unlink(draft.c_str());
    return result;
}

MappingObject::~MappingObject() {
    if (!registryEntry_.empty()) {
        // The entry may have been replaced by a new creator after a stale check.
        RegistryRecord record;
        if (ReadRecord(registryEntry_, &record) && record.pid == getpid() && record.fd == fd_) {
            sys::Unlink(registryEntry_.c_str());
        }
    }
    if (!localName_.empty()) {
        MappingState& state = State();
        std::lock_guard<std::mutex> lock(state.mutex);
        auto found = state.names.find(localName_);
        // A new object may have taken the name since this one's last handle went.
        if (found != state.names.end() && found->second.expired()) state.names.erase(found);
    }
    sys::Close(fd_);
}

// --- Creating mapping objects ------------------------------------------------

bool ValidProtect(DWORD protect) {
    return protect == PAGE_READONLY || protect == PAGE_READWRITE || protect == PAGE_WRITECOPY;
}

// The descriptor and size of a new object: a duplicate of file's descriptor
// (grown to size under PAGE_READWRITE), or an anonymous memory file.
std::shared_ptr<MappingObject> MakeObject(HANDLE file, DWORD protect, ULONGLONG size) {
    if (file == INVALID_HANDLE_VALUE) {
        if (size == 0 || size > static_cast<ULONGLONG>(INT64_MAX)) {
            Fail(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        int fd = memfd_create("zel-mapping", MFD_CLOEXEC);
        if (fd < 0 || ftruncate(fd, static_cast<off_t>(size)) != 0) {
            SetLastError(errno == EFBIG || errno == EINVAL ? ERROR_NOT_ENOUGH_MEMORY : ErrorFromErrno(errno));
            if (fd >= 0) sys::Close(fd);
            return nullptr;
        }
        return std::make_shared<MappingObject>(fd, protect, size);
    }
    int fd = DuplicateFileDescriptor(file, protect == PAGE_READWRITE);
    if (fd < 0) return nullptr;
    struct stat status {};
    DWORD error = ERROR_SUCCESS;
    if (fstat(fd, &status) != 0) {
        error = ErrorFromErrno(errno);
    } else if (!S_ISREG(status.st_mode)) {
        error = ERROR_INVALID_PARAMETER;
    } else if (size == 0) {
        size = static_cast<ULONGLONG>(status.st_size);
        if (size == 0) error = ERROR_FILE_INVALID;
    } else if (size > static_cast<ULONGLONG>(status.st_size)) {
        if (protect != PAGE_READWRITE || size > static_cast<ULONGLONG>(INT64_MAX)) {
            error = ERROR_NOT_ENOUGH_MEMORY;
        } else if (sys::Truncate(fd, static_cast<off_t>(size)) != 0) {
            error = ErrorFromErrno(errno);
        }
    }
    if (error != ERROR_SUCCESS) {
        sys::Close(fd);
        SetLastError(error);
        return nullptr;
    }
    return std::make_shared<MappingObject>(fd, protect, size);
}

// A handle to object, with `error` (0 or 183) as the last error on success.
HANDLE HandleTo(std::shared_ptr<MappingObject> object, DWORD error) {
    HANDLE handle = InsertObject(std::move(object));
    if (handle != nullptr) SetLastError(error);
    return handle;
}

HANDLE CreateMapping(HANDLE file, DWORD protect, DWORD sizeHigh, DWORD sizeLow, LPCWSTR name,
                     bool processOnly) {
    if (!ValidProtect(protect)) return Fail(ERROR_INVALID_PARAMETER);
    ULONGLONG size = (static_cast<ULONGLONG>(sizeHigh) << 32) | sizeLow;
    if (name == nullptr || name[0] == 0) {
        std::shared_ptr<MappingObject> object = MakeObject(file, protect, size);
        return object ? HandleTo(std::move(object), ERROR_SUCCESS) : nullptr;
    }
    std::basic_string<WCHAR> key = name;
    if (processOnly) key.insert(0, kProcessPrefix);
    MappingState& state = State();
    // Held throughout, so two threads opening one name agree on its object.
    std::unique_lock<std::mutex> lock(state.mutex);
    auto known = state.names.find(key);
    if (known != state.names.end()) {
        if (std::shared_ptr<MappingObject> object = known->second.lock()) {
            lock.unlock();
            return HandleTo(std::move(object), ERROR_ALREADY_EXISTS);
        }
    }
    std::string registryPath;
    if (!processOnly) {
        registryPath = RegistryPath(key);
        if (registryPath.empty()) return nullptr;
    }
    std::shared_ptr<MappingObject> object = MakeObject(file, protect, size);
    if (!object) return nullptr;
    DWORD error = ERROR_SUCCESS;
    if (!processOnly) {
        RegistryRecord existing;
        error = Publish(registryPath, *object, &existing);
        if (error == ERROR_ALREADY_EXISTS) {
            // Another process's object: this one is dropped (a file it grew
            // stays grown, as a failed Windows call leaves it).
            int fd = OpenRecorded(existing);
            if (fd < 0) return Fail(ERROR_ALREADY_EXISTS);
            object = std::make_shared<MappingObject>(fd, existing.protect, existing.size);
        } else if (error != ERROR_SUCCESS) {
            return Fail(error);
        } else {
            object->OwnRegistryEntry(registryPath);
        }
    }
    object->SetLocalName(key);
    state.names[key] = object;
    lock.unlock();
    return HandleTo(std::move(object), error);
}

}  // namespace
}  // namespace zel_platform::posix

using namespace zel_platform::posix;
using zel_platform::ErrorFromErrno;

HANDLE zel_win32::CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES /*securityAttributes*/,
                                     DWORD protect, DWORD maximumSizeHigh, DWORD maximumSizeLow,
                                     LPCWSTR name) {
    return CreateMapping(file, protect, maximumSizeHigh, maximumSizeLow, name, false);
}

HANDLE zel_platform::CreateProcessFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES /*securityAttributes*/,
                                              DWORD protect, DWORD maximumSizeHigh,
                                              DWORD maximumSizeLow, LPCWSTR name) {
    return CreateMapping(file, protect, maximumSizeHigh, maximumSizeLow, name, true);
}

LPVOID zel_win32::MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                                SIZE_T bytes) {
    std::shared_ptr<MappingObject> object = Find<MappingObject>(mapping, ObjectKind::Mapping);
    if (!object) return nullptr;
    ULONGLONG offset = (static_cast<ULONGLONG>(offsetHigh) << 32) | offsetLow;
    if (offset % kAllocationGranularity != 0) return Fail(ERROR_MAPPED_ALIGNMENT);
    bool copy = access == FILE_MAP_COPY;
    bool write = !copy && (access & FILE_MAP_WRITE) != 0;
    if (!copy && (access & (FILE_MAP_READ | FILE_MAP_WRITE)) == 0) return Fail(ERROR_INVALID_PARAMETER);
    if (write && object->Protect() != PAGE_READWRITE) return Fail(ERROR_ACCESS_DENIED);
    // A start at or past the end is a bad argument; a range that runs past
    // the end is a denied access (Windows' two errors).
    if (offset >= object->Size()) return Fail(ERROR_INVALID_PARAMETER);
    ULONGLONG available = object->Size() - offset;
    ULONGLONG length = bytes == 0 ? available : static_cast<ULONGLONG>(bytes);
    if (length > available) return Fail(ERROR_ACCESS_DENIED);
    if (length > SIZE_MAX) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    int protection = PROT_READ | (write || copy ? PROT_WRITE : 0);
    void* view = mmap(nullptr, static_cast<std::size_t>(length), protection,
                      copy ? MAP_PRIVATE : MAP_SHARED, object->Fd(), static_cast<off_t>(offset));
    if (view == MAP_FAILED) return Fail(errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ErrorFromErrno(errno));
    MappingState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.views[view] = MappingState::View{std::move(object), static_cast<std::size_t>(length)};
    return view;
}

BOOL zel_win32::UnmapViewOfFile(LPCVOID address) {
    MappingState& state = State();
    std::shared_ptr<MappingObject> mapping;  // released after the lock
    std::unique_lock<std::mutex> lock(state.mutex);
    auto found = state.views.find(address);
    if (found == state.views.end()) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    }
    munmap(const_cast<void*>(address), found->second.length);
    mapping = std::move(found->second.mapping);
    state.views.erase(found);
    lock.unlock();
    return TRUE;
}
