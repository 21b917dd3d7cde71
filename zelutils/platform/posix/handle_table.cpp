#include "zelutils/platform/posix/handle_table.h"

#include "zelutils/platform/errhandlingapi.h"

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace zel_platform::posix {
namespace {

// Handle value layout: bits 2..21 hold the slot index + 1, the bits above
// the generation; bits 0..1 are zero, as in Windows handle values. So no
// handle is 0 or all ones.
constexpr unsigned kIndexBits = 20;
constexpr std::uintptr_t kMaxSlots = (std::uintptr_t{1} << kIndexBits) - 1;

struct Slot {
    std::shared_ptr<KernelObject> object;
    std::uint32_t generation = 0;
};

class HandleTable {
public:
    HANDLE Insert(std::shared_ptr<KernelObject> object) {
        std::unique_lock lock(mutex_);
        std::size_t index;
        if (!free_.empty()) {
            index = free_.back();
            free_.pop_back();
        } else {
            if (slots_.size() >= kMaxSlots) {
                SetLastError(ERROR_NO_SYSTEM_RESOURCES);
                return nullptr;
            }
            index = slots_.size();
            slots_.emplace_back();
        }
        Slot& slot = slots_[index];
        slot.object = std::move(object);
        return Encode(index, slot.generation);
    }

    std::shared_ptr<KernelObject> Find(HANDLE handle) const {
        std::shared_lock lock(mutex_);
        const Slot* slot = Resolve(handle);
        if (slot == nullptr) return Invalid();
        return slot->object;
    }

    std::shared_ptr<KernelObject> Remove(HANDLE handle) {
        std::unique_lock lock(mutex_);
        Slot* slot = const_cast<Slot*>(Resolve(handle));
        if (slot == nullptr) return Invalid();
        std::shared_ptr<KernelObject> object = std::move(slot->object);
        ++slot->generation;
        free_.push_back(static_cast<std::size_t>(slot - slots_.data()));
        return object;
    }

private:
    static HANDLE Encode(std::size_t index, std::uint32_t generation) {
        std::uintptr_t value = ((std::uintptr_t{generation} << kIndexBits) | (index + 1)) << 2;
        return reinterpret_cast<HANDLE>(value);
    }

    const Slot* Resolve(HANDLE handle) const {
        auto value = reinterpret_cast<std::uintptr_t>(handle);
        if ((value & 3) != 0) return nullptr;
        value >>= 2;
        std::uintptr_t index = (value & kMaxSlots);
        if (index == 0 || index > slots_.size()) return nullptr;
        const Slot& slot = slots_[index - 1];
        std::uint32_t generation = static_cast<std::uint32_t>(value >> kIndexBits);
        if (!slot.object || slot.generation != generation) return nullptr;
        return &slot;
    }

    static std::shared_ptr<KernelObject> Invalid() {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }

    mutable std::shared_mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<std::size_t> free_;
};

HandleTable& Table() {
    // Never destroyed: handles may still be closed from exit handlers.
    static HandleTable* table = new HandleTable;
    return *table;
}

}  // namespace

HANDLE InsertObject(std::shared_ptr<KernelObject> object) { return Table().Insert(std::move(object)); }

std::shared_ptr<KernelObject> FindAnyObject(HANDLE handle) { return Table().Find(handle); }

std::shared_ptr<KernelObject> FindObject(HANDLE handle, ObjectKind kind) {
    std::shared_ptr<KernelObject> object = Table().Find(handle);
    if (object && object->Kind() != kind) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return object;
}

std::shared_ptr<KernelObject> RemoveObject(HANDLE handle) { return Table().Remove(handle); }

}  // namespace zel_platform::posix
