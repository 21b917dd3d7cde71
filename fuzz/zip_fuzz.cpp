// Fuzz target: archive bytes of any kind are opened, listed and extracted
// into a scratch folder without crashing, and nothing ever lands outside
// the destination folder.
#include "zelutils/fs/file_utils.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"
#include "zelutils/zip/unzip_archive.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

const std::filesystem::path& Scratch() {
    static const std::filesystem::path folder = [] {
        std::filesystem::path made =
            std::filesystem::temp_directory_path() / ("zel-zip-fuzz-" + std::to_string(GetCurrentProcessId()));
        std::filesystem::create_directories(made / "out");
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(Scratch(), ignored);
        });
        return made;
    }();
    return folder;
}

zel_zip::WString Wide(const std::filesystem::path& path) {
    zel_text::CZelStringW wide = zel_text::CZelStringUtf8(path.string().c_str()).ToWide();
    return zel_zip::WString(wide.GetString(), static_cast<std::size_t>(wide.GetLength()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path archivePath = Scratch() / "input.zip";
    {
        std::ofstream out(archivePath, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    {
        zel_zip::CUnZipArchive archive;
        if (archive.Open(Wide(archivePath).c_str())) {
            archive.SetDestinationFolder(Wide(Scratch() / "out"));
            if (archive.ReadContent()) {
                for (const zel_zip::ZipEntry& entry : archive.GetEntries()) (void)entry.name.size();
            }
            archive.ExtractAll(true, true, "password");
        }
    }
    // Only the input and the destination folder may be in the scratch folder.
    for (const auto& entry : std::filesystem::directory_iterator(Scratch())) {
        if (entry.path() != archivePath && entry.path() != Scratch() / "out") std::abort();
    }
    zel_fs::EmptyFolder(Wide(Scratch() / "out").c_str());
    return 0;
}
