// A host application of zelutils: the code a new user copies first.
//
// Usage: host FOLDER
// Everything it writes goes below FOLDER: settings, an XML file, the log and
// a zip of the logs. It prints each step and exits 0 when every check held.
#include "zelutils/zelutils.h"

#include <cstdio>

using zel_text::CZelStringA;
using zel_text::CZelStringW;

namespace {

// The host's message boxes: here they print instead of showing a window.
class ConsoleMessages : public zel_ui::IZelUiMsg {
public:
    int ShowError(const CZelStringW& text, const CZelStringW& caption) override {
        std::printf("error box: %s: %s\n", CZelStringA(caption.GetString(), CP_UTF8).GetString(),
                    CZelStringA(text.GetString(), CP_UTF8).GetString());
        return IDOK;
    }
};

// The host's translation: a table of its own texts, the rest unchanged.
class Translations : public zel_ui::IZelUiTranslate {
public:
    CZelStringW Translate(const WCHAR* text) override {
        if (CZelStringW(text) == ZW("Settings saved")) return ZW("Einstellungen gespeichert");
        return zel_ui::IZelUiTranslate::Translate(text);
    }
};

// A worker thread's body: it runs under the crash guard, so a fault in it
// is reported (log lines, dump, log copy) and the process goes on.
DWORD CountPoints(void* count) {
    *static_cast<int*>(count) = 3;
    return 0;
}

bool Check(bool condition, const char* what) {
    std::printf("%s %s\n", condition ? "ok:  " : "FAIL:", what);
    return condition;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: host FOLDER\n");
        return 2;
    }
    bool good = true;

    // 1. UI services: the library asks these whenever it needs the user.
    static ConsoleMessages messages;
    static Translations translations;
    zel_ui::SetUiMsg(&messages);
    zel_ui::SetUiTranslate(&translations);
    good &= Check(zel_ui::GetUiTranslate()->Translate(ZW("Settings saved")) == ZW("Einstellungen gespeichert"),
                  "translation registered");

    // 2. Folders: data (and with it the log) below the host's folder.
    CZelStringW folder(argv[1], CP_UTF8);
    zel::folders::GetApplicationFileNameBuilder().SetDataFolder(folder + ZW("/data"), 0);
    zel_fs::CreateFolderPath(zel::folders::GetDataFolder());

    // 3. The log: one file per run in the data folder, flushed on demand.
    zel_core::logPrintf("host started with %d argument(s)", argc - 1);
    zel_core::logPrintfW(ZW("data folder: %ls"), zel::folders::GetDataFolder().GetString());
    zel_core::logFlush();
    good &= Check(zel_core::logFilePath().Find(ZW("/data/")) >= 0, "log in the data folder");

    // 4. Strings and files: wide text (UTF-16 everywhere) to a code page and
    // back, a whole file written at once, and read line by line whatever its
    // byte-order mark.
    CZelStringW city(ZW("K\u00f6ln"));
    CZelStringA latin1(city.GetString(), 1252);  // "K\xF6ln", one byte per character
    good &= Check(latin1.GetLength() == 4 && CZelStringW(latin1.GetString(), 1252) == city, "code page 1252 round trip");
    CZelStringW notesPath = zel::folders::GetDataFolder() + ZW("/notes.txt");
    const char notes[] = "\xEF\xBB\xBFfirst line\r\nK\xC3\xB6ln\n";
    good &= Check(zel_fs::WriteFile(notesPath.GetString(), notes, sizeof notes - 1, true), "text file written");
    zel_fs::CTextFile text;
    CZelStringW line, lastLine;
    int lines = 0;
    if (text.Open(notesPath)) {
        while (text.ReadLine(line)) {
            ++lines;
            lastLine = line;
        }
    }
    good &= Check(lines == 2 && lastLine == city, "text file read line by line");

    // 5. Settings: a table of sections and keys, saved atomically and loaded back.
    CZelStringW settingsPath = zel::folders::GetDataFolder() + ZW("/job.ini");
    zel_settings::IniSections settings;
    settings[ZW("Job")][ZW("Name")] = ZW("Survey \u00e9t\u00e9");
    settings[ZW("Job")][ZW("Points")] = ZW("3");
    good &= Check(zel_settings::SaveIniFileAtomic(settingsPath, settings, zel_settings::kIniUtf8), "settings saved");
    zel_settings::IniSections loaded;
    good &= Check(zel_settings::LoadIniFile(settingsPath, loaded) && loaded == settings, "settings read back");

    // 6. XML: write three records, then stream them back one subtree at a time.
    CZelStringW xmlPath = zel::folders::GetDataFolder() + ZW("/points.xml");
    {
        zel::XmlWriter writer(xmlPath);
        good &= Check(writer.Open(), "XML file created");
        writer.WriteStartTag(ZW("points"));
        for (int i = 1; i <= 3; ++i) {
            writer.WriteStartTag(ZW("point"), zel::XmlWriter::kOpenForAttributes);
            CZelStringW id;
            id.Format(ZW("%d"), i);
            writer.WriteAttribute(ZW("id"), id);
            writer.CloseEmptyTag();
        }
        writer.WriteEndTag(ZW("points"));
        good &= Check(writer.Close(), "XML file written");
    }
    int idSum = 0;
    zel::XmlExpatHybridParser parser;
    parser.RegisterHook(ZW("point"), [&idSum](zel::XmlExpatHybridParser&, const zel::XmlElementPtr& point) {
        idSum += point->GetInt(ZW("id"));
    });
    CZelStringW error;
    good &= Check(parser.ParseWholeFile(xmlPath, zel::XmlExpatParser::kDefaultBlockSize, &error) && idSum == 6,
                  "XML records read");

    // 7. Zip: the logs folder into one archive, then listed back.
    CZelStringW zipPath = folder + ZW("/logs.zip");
    zel_zip::CZipArchive zip;
    good &= Check(zip.Open(zipPath.GetString(), 0) &&
                      zip.AddFile(zel_core::logFilePath().GetString(), ZW("host.log.txt"), 6, nullptr, true) && zip.Close(),
                  "log zipped");
    zel_zip::CUnZipArchive unzip;
    good &= Check(unzip.Open(zipPath.GetString()) && unzip.ReadContent() && unzip.GetEntryCount() == 1 &&
                      unzip.GetEntries()[0].name == ZW("host.log.txt"),
                  "zip listed");

    // 8. A worker thread: its start and end are logged ("THR_S"/"THR_F"), and
    // a fault in its body becomes a crash report instead of ending the process.
    int counted = 0;
    HANDLE worker = zel::thread::CreateWorkerThread(__FILE__, __LINE__, "counter", CountPoints, &counted, 0, 0);
    DWORD exitCode = 1;
    good &= Check(worker != nullptr && zel::thread::WaitForWorkerThread(worker) &&
                      GetExitCodeThread(worker, &exitCode) && exitCode == 0 && counted == 3,
                  "worker thread ran");
    if (worker != nullptr) CloseHandle(worker);

    std::printf("%s\n", good ? "host: all checks passed" : "host: some checks failed");
    return good ? 0 : 1;
}
