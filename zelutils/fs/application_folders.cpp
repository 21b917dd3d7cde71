#include "zelutils/fs/application_folders.h"

#include "zelutils/fs/platform_file.h"
#include "zelutils/platform/libloaderapi.h"

namespace zel::folders {

using zel_text::CZelStringW;

ApplicationFileNameBuilder::ApplicationFileNameBuilder() {
    WCHAR modulePath[MAX_PATH + 1] = {};
    DWORD length = GetModuleFileNameW(nullptr, modulePath, MAX_PATH);
    CZelStringW path(modulePath, static_cast<int>(length));
    int separator = zel_fs::LastPathSeparator(path);
    if (separator >= 0) {
        programFolder_ = path.Left(separator);
        programFileName_ = path.Mid(separator + 1);
        programFilePath_ = programFolder_ + ZW("/") + programFileName_;
        applicationFolder_ = programFolder_;
        dataFolder_ = programFolder_;
        workFolder_ = programFolder_;
        geoidsFolder_ = programFolder_ + ZW("/geoids");
        geoFolder_ = programFolder_ + ZW("/geo");
    }
    defaultWorkFolder_ = workFolder_;
    defaultDataFolder_ = dataFolder_;
    defaultProgramFolder_ = programFolder_;
}

void ApplicationFileNameBuilder::SetWorkFolder(const CZelStringW& path, int which) {
    (which == 1 ? defaultWorkFolder_ : workFolder_) = path;
}

void ApplicationFileNameBuilder::SetDataFolder(const CZelStringW& path, int which) {
    (which == 1 ? defaultDataFolder_ : dataFolder_) = path;
}

void ApplicationFileNameBuilder::SetProgramFolder(const CZelStringW& path, int which) {
    (which == 1 ? defaultProgramFolder_ : programFolder_) = path;
    RecomputeFromProgramFolder();
}

void ApplicationFileNameBuilder::ResetWorkFolder() { workFolder_ = defaultWorkFolder_; }

void ApplicationFileNameBuilder::SetGeoFolder(const CZelStringW& path) { geoFolder_ = path; }

void ApplicationFileNameBuilder::SetGeoidsFolder(const CZelStringW& path) { geoidsFolder_ = path; }

void ApplicationFileNameBuilder::RecomputeFromProgramFolder() {
    geoidsFolder_ = programFolder_ + ZW("/geoids");
    geoFolder_ = programFolder_ + ZW("/geo");
    programFilePath_ = programFolder_ + ZW("/") + programFileName_;
}

ApplicationFileNameBuilder& GetApplicationFileNameBuilder() {
    static ApplicationFileNameBuilder builder;
    return builder;
}

CZelStringW GetProgramFilePath() { return GetApplicationFileNameBuilder().ProgramFilePath(); }
CZelStringW GetProgramFolder() { return GetApplicationFileNameBuilder().ProgramFolder(); }
CZelStringW GetDataFolder() { return GetApplicationFileNameBuilder().DataFolder(); }
CZelStringW GetApplicationFolder() { return GetApplicationFileNameBuilder().ApplicationFolder(); }
CZelStringW GetWorkFolder() { return GetApplicationFileNameBuilder().WorkFolder(); }
CZelStringW GetGeoidsFolder() { return GetApplicationFileNameBuilder().GeoidsFolder(); }
CZelStringW GetGeoFolder() { return GetApplicationFileNameBuilder().GeoFolder(); }

namespace {
CZelStringW& ExtraFolder() {
    static CZelStringW folder;
    return folder;
}
}  // namespace

CZelStringW GetExtraFolder() { return ExtraFolder(); }

bool SetExtraFolder(const CZelStringW& folder) {
    CZelStringW& extra = ExtraFolder();
    if (extra.Compare(folder.GetString()) == 0) return false;
    extra = folder;
    return true;
}

}  // namespace zel::folders
