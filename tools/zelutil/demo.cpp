// zelutil demo: the library's typical request on the sample data. The host
// points the folder register at its data folder, loads its settings (a
// UTF-16 INI file), logs what it does, formats the values it read, changes
// a setting and saves the file back atomically in UTF-8, converts a
// Windows-1252 text on a worker thread, writes an XML file and streams it
// back, and zips the log with the files it wrote.
#include "tools/zelutil/commands.h"
#include "tools/zelutil/demo_samples.h"

// The tour uses most of the library, and this is the one place its umbrella
// header is compiled.
#include "zelutils/zelutils.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace zelutil {
namespace {

using zel_text::CZelStringUtf8;
using zel_text::CZelStringW;

std::string Utf8(const CZelStringW& text) { return CZelStringUtf8(text).GetString(); }

// The demo's data folder: folder when given (created when missing), else a
// new folder under the system's temporary folder, so runs never share one.
bool MakeDataFolder(const Args& args, CZelStringW* folder) {
    if (!args.empty()) {
        *folder = PathArgument(args[0]);
        return zel_fs::CreateFolderPath(*folder);
    }
    WCHAR temp[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH, temp);
    const CZelStringW base(temp, static_cast<int>(length));
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        folder->Format(ZW("%szelutil-demo-%u"), base.GetString(), GetCurrentProcessId() + attempt * 100000u);
        if (CreateDirectoryW(folder->GetString(), nullptr)) return true;
        if (GetLastError() != ERROR_ALREADY_EXISTS) return false;
    }
    return false;
}

// Writes one of the built-in samples into folder as the host's file.
bool PutSample(const CZelStringW& path, const unsigned char* bytes, std::size_t count) {
    return zel_fs::ReplaceFileAtomically(path, [&](HANDLE file) {
        DWORD written = 0;
        return WriteFile(file, bytes, static_cast<DWORD>(count), &written, nullptr) != FALSE && written == count;
    });
}

CZelStringW Setting(const zel_settings::IniSections& table, const WCHAR* section, const WCHAR* key) {
    auto found = table.find(CZelStringW(section));
    if (found == table.end()) return CZelStringW();
    auto value = found->second.find(CZelStringW(key));
    return value == found->second.end() ? CZelStringW() : value->second;
}

bool DemoSettings(const CZelStringW& dataFolder) {
    const CZelStringW samplePath = dataFolder + ZW("/job-settings.ini");
    const std::string sample = Utf8(samplePath);
    const std::string bytes(reinterpret_cast<const char*>(kSample_job_settings_ini), sizeof kSample_job_settings_ini);
    if (!PutSample(samplePath, kSample_job_settings_ini, sizeof kSample_job_settings_ini)) {
        std::fprintf(stderr, "zelutil demo: cannot write '%s': %s\n", sample.c_str(), Reason(GetLastError()).c_str());
        return false;
    }
    std::size_t bomLength = 0;
    auto encoding = zel_text::DetectTextEncoding(bytes.data(), bytes.size(), &bomLength);
    std::printf("settings: %s, %zu bytes, encoding %u (byte-order mark of %zu bytes)\n", sample.c_str(),
                bytes.size(), static_cast<unsigned>(encoding), bomLength);

    zel_settings::IniSections table;
    if (!zel_settings::LoadIniFile(samplePath, table)) {
        std::fprintf(stderr, "zelutil demo: cannot load '%s' (error %u)\n", sample.c_str(),
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    zel_core::logPrintfW(ZW("Loaded %d sections from %S"), static_cast<int>(table.size()), sample.c_str());
    std::printf("  job: %s, operator: %s\n", Utf8(Setting(table, ZW("Job"), ZW("Name"))).c_str(),
                Utf8(Setting(table, ZW("Job"), ZW("Operator"))).c_str());

    double latitude = std::strtod(Utf8(Setting(table, ZW("Station"), ZW("Latitude"))).c_str(), nullptr);
    double height = std::strtod(Utf8(Setting(table, ZW("Station"), ZW("Height"))).c_str(), nullptr);
    DWORD colour = 0;
    zel_text::ParseColor(Setting(table, ZW("Station"), ZW("Colour")), colour);
    SYSTEMTIME created{};
    zel_text::ParseDateTime(Setting(table, ZW("Job"), ZW("Created")), created);
    std::printf("  station latitude %s (d:m:s %s), height %s m, colour 0x%06X, created %04u-%02u-%02u\n",
                Utf8(zel_text::FormatWithPrecision(latitude, 3)).c_str(),
                Utf8(zel_text::FormatDegreesMinutesSeconds(latitude)).c_str(),
                Utf8(zel_text::FormatWithoutTrailingZeros(height)).c_str(), static_cast<unsigned>(colour),
                created.wYear, created.wMonth, created.wDay);

    table[CZelStringW(ZW("Job"))][CZelStringW(ZW("Status"))] = ZW("opened by zelutil demo");
    CZelStringW saved = dataFolder + ZW("/job-settings.ini");
    if (!zel_settings::SaveIniFileAtomic(saved, table, zel_settings::kIniUtf8)) {
        std::fprintf(stderr, "zelutil demo: cannot save '%s' (error %u)\n", Utf8(saved).c_str(),
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    zel_settings::IniSections reloaded;
    bool same = zel_settings::LoadIniFile(saved, reloaded) && reloaded == table;
    zel_core::logPrintfW(ZW("Saved settings to %ls (%ls)"), saved.GetString(), same ? ZW("verified") : ZW("DIFFERENT"));
    std::printf("  saved with a new key as UTF-8 to %s: %s\n", Utf8(saved).c_str(),
                same ? "reloaded, identical" : "reloaded, DIFFERENT");
    return same;
}

bool DemoCodePages() {
    const std::string input(reinterpret_cast<const char*>(kSample_sample_1252_txt), sizeof kSample_sample_1252_txt);
    CZelStringW wide(input.data(), static_cast<int>(input.size()), 1252);
    CZelStringUtf8 utf8(wide);
    if (wide.IsEmpty() || utf8.IsEmpty()) {
        std::fprintf(stderr, "zelutil demo: code-page conversion failed (error %u)\n",
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    std::string text = utf8.GetString();
    std::printf("code pages: sample-1252.txt, %zu bytes of Windows-1252 -> %d UTF-16 units -> %d bytes of UTF-8\n",
                input.size(), wide.GetLength(), utf8.GetLength());
    std::printf("  first line: %s\n", text.substr(0, text.find_first_of("\r\n")).c_str());
    zel_core::logPrintf("Converted %d bytes of code page 1252", static_cast<int>(input.size()));
    return true;
}

DWORD CodePagesOnWorker(void*) { return DemoCodePages() ? 0 : 1; }

// Runs the code-page demo on a worker thread, under the crash guard, and
// shows the start and finish lines the worker left in the log.
bool DemoWorkerThread() {
    HANDLE worker = zel::thread::CreateWorkerThread(__FILE__, __LINE__, "demo worker", CodePagesOnWorker, nullptr, 0, 0);
    if (worker == nullptr) {
        std::fprintf(stderr, "zelutil demo: cannot start a worker thread (error %u)\n",
                     static_cast<unsigned>(GetLastError()));
        return false;
    }
    DWORD code = 1;
    bool ok = zel::thread::WaitForWorkerThread(worker) && GetExitCodeThread(worker, &code) && code == 0;
    CloseHandle(worker);
    zel_core::logFlush();
    std::printf("worker thread: exit code %u, its log lines:\n", static_cast<unsigned>(code));
    zel_fs::CTextFile log;
    CZelStringW line;
    if (log.Open(zel_core::logFilePath())) {
        while (log.ReadLine(line)) {
            if (line.Find(ZW("THR_S #")) >= 0 || line.Find(ZW("THR_F #")) >= 0) std::printf("  %s\n", Utf8(line).c_str());
        }
    }
    return ok;
}

// Writes a small XML document with the writer and streams it back with the
// hybrid parser, one record subtree at a time.
bool DemoXml(const CZelStringW& dataFolder) {
    const CZelStringW path = dataFolder + ZW("/points.xml");
    zel::XmlWriter writer(path);
    if (!writer.Open()) {
        std::fprintf(stderr, "zelutil demo: cannot write '%s': %s\n", Utf8(path).c_str(), Reason(GetLastError()).c_str());
        return false;
    }
    writer.WriteStartTag(ZW("points"));
    const double heights[] = {212.5, 198.25, 205.0};
    for (int i = 0; i < 3; ++i) {
        writer.WriteStartTag(ZW("point"), zel::XmlWriter::kOpenForAttributes);
        CZelStringW id;
        id.Format(ZW("P%d"), i + 1);
        writer.WriteAttribute(ZW("id"), id);
        writer.EndStartTag();
        writer.WriteNumber(ZW("height"), heights[i], 2);
        writer.WriteEndTag(ZW("point"));
    }
    writer.WriteEndTag(ZW("points"));
    if (!writer.Close()) return false;

    int records = 0;
    double total = 0;
    zel::XmlExpatHybridParser parser;
    parser.RegisterHook(ZW("point"), [&](zel::XmlExpatHybridParser&, const zel::XmlElementPtr& point) {
        ++records;
        zel::XmlElementPtr height;
        if (point->FindChild(ZW("height"), height)) total += std::strtod(Utf8(height->Text()).c_str(), nullptr);
    });
    CZelStringW error;
    const bool parsed = parser.ParseWholeFile(path, zel::XmlExpatParser::kDefaultBlockSize, &error);
    std::printf("xml: %s, %d point records streamed back, heights sum to %s%s%s\n", Utf8(path).c_str(), records,
                Utf8(zel_text::FormatWithPrecision(total, 2)).c_str(), parsed ? "" : ", error: ",
                Utf8(error).c_str());
    zel_core::logPrintf("XML: %d records read back", records);
    return parsed && records == 3;
}

// Zips the log and the files the demo wrote, and lists the archive.
bool DemoZip(const CZelStringW& dataFolder) {
    zel_core::logFlush();
    const CZelStringW archivePath = dataFolder + ZW("/support.zip");
    zel_zip::CZipArchive zip;
    bool ok = zip.Open(archivePath.GetString(), 0) &&
              zip.AddFile(zel_core::logFilePath().GetString(), ZW("log.txt"), 6, nullptr, true) &&
              zip.AddFile((dataFolder + ZW("/job-settings.ini")).GetString(), ZW("job-settings.ini"), 6, nullptr, true) &&
              zip.AddFile((dataFolder + ZW("/points.xml")).GetString(), ZW("points.xml"), 6, nullptr, true);
    ok = zip.Close() && ok;
    zel_zip::CUnZipArchive unzip;
    if (!ok || !unzip.Open(archivePath.GetString()) || !unzip.ReadContent()) {
        std::fprintf(stderr, "zelutil demo: zip failed: %s\n", Utf8(CZelStringW((zip.GetErrorText() + unzip.GetErrorText()).c_str())).c_str());
        return false;
    }
    std::printf("zip: %s, %zu entries:\n", Utf8(archivePath).c_str(), unzip.GetEntryCount());
    for (const zel_zip::ZipEntry& entry : unzip.GetEntries()) std::printf("  %s\n", Utf8(CZelStringW(entry.name.c_str())).c_str());
    return unzip.GetEntryCount() == 3;
}

}  // namespace

int RunDemo(const Args& args) {
    if (args.size() > 1) return UsageError("demo", "expected at most one FOLDER (see --help)");
    CZelStringW dataFolder;
    if (!MakeDataFolder(args, &dataFolder)) {
        return UsageError("demo", "cannot make the data folder: " + Reason(GetLastError()));
    }
    std::printf("output folder: %s\n", Utf8(dataFolder).c_str());
    zel::folders::GetApplicationFileNameBuilder().SetDataFolder(dataFolder, 0);
    std::puts("folders:");
    PrintFolders();
    zel_core::logPrintf("zelutil demo started");
    bool ok = DemoSettings(dataFolder) && DemoWorkerThread() && DemoXml(dataFolder) && DemoZip(dataFolder);
    zel_core::logPrintf("zelutil demo %s", ok ? "finished" : "failed");
    zel_core::logFlush();
    std::printf("log: %s\n", Utf8(zel_core::logFilePath()).c_str());
    return ok ? kExitOk : kExitFailure;
}

}  // namespace zelutil
