// The in-process store of system settings, the same on every platform.
#include "zelutils/platform/winreg.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/fault_state.h"
#include "zelutils/platform/fileapi.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace zel_platform {
namespace {

using Text = std::basic_string<WCHAR>;

struct SystemValues {
    std::mutex mutex;
    std::map<std::pair<Text, Text>, Text> values;

    SystemValues() {
        WCHAR temp[MAX_PATH + 1];
        DWORD length = GetTempPathW(MAX_PATH + 1, temp);
        Text folder = length > 0 && length <= MAX_PATH ? Text(temp, length) : Text();
        values[{ZW("System\\ErrorReporting\\DumpSettings"), ZW("DumpDirectory")}] = folder + DumpFolderName();
    }
};

SystemValues& Store() {
    static SystemValues store;
    return store;
}

}  // namespace

DWORD ReadSystemValue(LPCWSTR key, LPCWSTR name, LPWSTR buffer, DWORD size) {
    if (key == nullptr || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    SystemValues& store = Store();
    std::lock_guard<std::mutex> lock(store.mutex);
    auto found = store.values.find({key, name});
    if (found == store.values.end()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    const Text& value = found->second;
    if (buffer == nullptr || size <= value.size()) return static_cast<DWORD>(value.size() + 1);
    value.copy(buffer, value.size());
    buffer[value.size()] = 0;
    return static_cast<DWORD>(value.size());
}

bool WriteSystemValue(LPCWSTR key, LPCWSTR name, LPCWSTR value) {
    if (key == nullptr || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    SystemValues& store = Store();
    std::lock_guard<std::mutex> lock(store.mutex);
    if (value == nullptr) {
        store.values.erase({key, name});
    } else {
        store.values[{key, name}] = value;
    }
    return true;
}

}  // namespace zel_platform
