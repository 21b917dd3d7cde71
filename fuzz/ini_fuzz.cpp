// Fuzz target: INI text of any bytes must load or be refused without
// crashing, and every key and section it produced must be well formed.
#include "zelutils/settings/ini_file.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zel_settings::IniSections table;
    bool loaded = zel_settings::ParseIniText(data, size, table);
    for (const auto& [section, keys] : table) {
        for (const auto& [key, value] : keys) {
            // A stored key always starts with a letter, a digit or '_' and
            // never holds the '=' that ended it.
            if (key.IsEmpty() || key.Find(static_cast<WCHAR>('=')) >= 0) std::abort();
            (void)value;
        }
        if (section.Find(static_cast<WCHAR>('\r')) >= 0 || section.Find(static_cast<WCHAR>('\n')) >= 0) std::abort();
    }
    (void)loaded;
    return 0;
}
