// String resources: tables registered by the host, one per module.
#include "zelutils/platform/winuser.h"

#include "zelutils/platform/errhandlingapi.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>

namespace {
using ResourceString = std::basic_string<WCHAR>;
using StringTable = std::map<UINT, ResourceString>;

struct Registry {
    std::mutex mutex;
    std::map<HMODULE, StringTable> tables;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}
}  // namespace

int LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int bufferMax) {
    if (buffer == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const ResourceString* text = nullptr;
    auto table = registry.tables.find(module);
    if (table != registry.tables.end()) {
        auto entry = table->second.find(id);
        if (entry != table->second.end()) text = &entry->second;
    }
    if (text == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        if (bufferMax > 0) buffer[0] = 0;
        return 0;
    }
    if (bufferMax == 0) {
        // The resource stays registered until replaced; Windows hands out a
        // pointer into the module's image in the same way.
        *reinterpret_cast<LPCWSTR*>(buffer) = text->c_str();
        return static_cast<int>(text->size());
    }
    int copied = std::min(static_cast<int>(text->size()), bufferMax - 1);
    std::copy_n(text->data(), copied, buffer);
    buffer[copied] = 0;
    return copied;
}

namespace zel_platform {

bool RegisterStringTable(HMODULE module, const StringResource* entries, size_t count) {
    StringTable table;
    for (size_t i = 0; i < count; ++i) {
        if (entries[i].text != nullptr) table[entries[i].id] = entries[i].text;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tables[module] = std::move(table);
    return true;
}

void UnregisterStringTable(HMODULE module) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tables.erase(module);
}

}  // namespace zel_platform
