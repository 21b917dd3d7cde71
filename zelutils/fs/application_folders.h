/// @file
/// The process-wide register of the application's folders: where the program
/// lies and where its data, logs, work files and geodetic data go. It is made
/// on first use from the running program's own path and can be re-pointed by
/// the host. Folder strings carry no trailing separator; sub-folders are
/// appended with "/". Nothing here fails: a program path without a separator
/// leaves the folders empty.
///
/// Not locked: the first use should happen on one thread before others ask,
/// and the setters are meant for start-up.
#pragma once

#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

namespace zel::folders {

/// The folders of the running application. One instance per process,
/// reached through GetApplicationFileNameBuilder(); hosts call its setters.
class ZEL_API ApplicationFileNameBuilder {
public:
    /// Fills every folder from the running program's path.
    ApplicationFileNameBuilder();

    /// which == 1 sets the default work folder, any other value the work folder.
    virtual void SetWorkFolder(const zel_text::CZelStringW& path, int which);
    /// which == 1 sets the default data folder, any other value the data folder.
    virtual void SetDataFolder(const zel_text::CZelStringW& path, int which);
    /// which == 1 sets the default program folder, any other value the program
    /// folder; either way the geoids and geo folders and the program file path
    /// are then recomputed from the current program folder.
    virtual void SetProgramFolder(const zel_text::CZelStringW& path, int which);
    /// Work folder := default work folder.
    virtual void ResetWorkFolder();
    /// Replaces the geo folder.
    virtual void SetGeoFolder(const zel_text::CZelStringW& path);
    /// Replaces the geoids folder.
    virtual void SetGeoidsFolder(const zel_text::CZelStringW& path);

    /// The running program's full path (program folder, "/", file name).
    const zel_text::CZelStringW& ProgramFilePath() const { return programFilePath_; }
    /// The folder the program is taken to lie in.
    const zel_text::CZelStringW& ProgramFolder() const { return programFolder_; }
    /// The folder for the application's data.
    const zel_text::CZelStringW& DataFolder() const { return dataFolder_; }
    /// The application's folder: the program's folder at start.
    const zel_text::CZelStringW& ApplicationFolder() const { return applicationFolder_; }
    /// The folder for work files.
    const zel_text::CZelStringW& WorkFolder() const { return workFolder_; }
    /// The geoids folder: the program folder's "geoids" unless set.
    const zel_text::CZelStringW& GeoidsFolder() const { return geoidsFolder_; }
    /// The geodetic data folder: the program folder's "geo" unless set.
    const zel_text::CZelStringW& GeoFolder() const { return geoFolder_; }
    /// The work folder ResetWorkFolder returns to.
    const zel_text::CZelStringW& DefaultWorkFolder() const { return defaultWorkFolder_; }
    /// The data folder as first set: the program's folder unless a host set it.
    const zel_text::CZelStringW& DefaultDataFolder() const { return defaultDataFolder_; }
    /// The program folder as first set: the program's folder unless a host set it.
    const zel_text::CZelStringW& DefaultProgramFolder() const { return defaultProgramFolder_; }

private:
    void RecomputeFromProgramFolder();

    zel_text::CZelStringW programFilePath_;
    zel_text::CZelStringW programFolder_;
    zel_text::CZelStringW dataFolder_;
    zel_text::CZelStringW applicationFolder_;
    zel_text::CZelStringW workFolder_;
    zel_text::CZelStringW geoidsFolder_;
    zel_text::CZelStringW geoFolder_;
    zel_text::CZelStringW defaultWorkFolder_;
    zel_text::CZelStringW defaultDataFolder_;
    zel_text::CZelStringW defaultProgramFolder_;
    zel_text::CZelStringW programFileName_;  // the running program's file name, kept for recomputation
};

/// The process's builder, made on first use.
ZEL_API ApplicationFileNameBuilder& GetApplicationFileNameBuilder();

///@{
/// Copies of the builder's folders.
ZEL_API zel_text::CZelStringW GetProgramFilePath();
ZEL_API zel_text::CZelStringW GetProgramFolder();
ZEL_API zel_text::CZelStringW GetDataFolder();
ZEL_API zel_text::CZelStringW GetApplicationFolder();
ZEL_API zel_text::CZelStringW GetWorkFolder();
ZEL_API zel_text::CZelStringW GetGeoidsFolder();
ZEL_API zel_text::CZelStringW GetGeoFolder();
///@}

/// A further folder the host may keep here (empty at start).
ZEL_API zel_text::CZelStringW GetExtraFolder();
/// Stores folder; false, changing nothing, when it equals the current value
/// (compared by code unit).
ZEL_API bool SetExtraFolder(const zel_text::CZelStringW& folder);

}  // namespace zel::folders
