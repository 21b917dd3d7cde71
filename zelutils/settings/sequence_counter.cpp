#include "zelutils/settings/sequence_counter.h"

#include "zelutils/fs/atomic_file.h"
#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_printf.h"

namespace zel_settings {
namespace {

// Opens the counter file for reading. On Windows a replacement by another
// caller holds the name for a moment (a sharing violation); that is waited
// out, up to about a second, rather than read as "no counter", which would
// restart the series at 1.
bool OpenForReading(HANDLE& file, const zel_text::CZelStringW& path) {
    constexpr int kAttempts = 200;
    constexpr DWORD kPauseMilliseconds = 5;
    for (int attempt = 1;; ++attempt) {
        if (zel_fs::file_open_read(file, path.GetString())) return true;
        if (GetLastError() != ERROR_SHARING_VIOLATION || attempt == kAttempts) return false;
        Sleep(kPauseMilliseconds);
    }
}

// The number stored in the counter file, or 0 when there is none to read.
std::uint32_t ReadLastNumber(const zel_text::CZelStringW& path) {
    HANDLE file = INVALID_HANDLE_VALUE;
    if (!OpenForReading(file, path)) return 0;
    char text[32] = {};
    std::int32_t length = zel_fs::file_read(file, text, sizeof text - 1);
    zel_fs::file_close_reset(file);
    unsigned last = 0;
    if (length > 0 && zel_text::ScanText(text, "%u", &last) == 1) return last;
    return 0;
}

// Replaces the counter file whole: a reader in another process never finds
// it empty (which would restart the series at 1), and a write that fails, on
// a full disk say, keeps the old number, so the same name is handed out
// again next time.
void WriteLastNumber(const zel_text::CZelStringW& path, std::uint32_t number) {
    char text[16];
    int length = zel_text::FormatBuffer(text, sizeof text, "%u", number);
    zel_fs::ReplaceFileAtomically(path, [&](HANDLE file) {
        return zel_fs::file_write(file, text, length) == length;
    });
}

}  // namespace

zel_text::CZelStringW NextSequenceFileName(const SequenceCounter& counter) {
    zel_text::CZelStringW counterPath = counter.folder + ZW("/") + counter.baseName + ZW(".seq.ini");
    std::uint32_t last = ReadLastNumber(counterPath);
    std::uint32_t next = (last < counter.limit ? last : 0) + 1;
    WriteLastNumber(counterPath, next);
    zel_text::CZelStringW name;
    name.Format(ZW("%ls/%ls%u%ls"), counter.folder.GetString(), counter.baseName.GetString(), next,
                counter.extension.GetString());
    return name;
}

}  // namespace zel_settings
