/// @file
/// Zip archives over minizip: what reading (CUnZipArchive) and writing
/// (CZipArchive) share. Archive operations never throw: each returns a bool
/// and leaves a readable error text and a code on the object, the text
/// framed as "<archive path> archive error: <message>". The code is 0 after
/// success, minizip's result code where minizip failed, and -1 (or the code
/// a message names) otherwise.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <string>

namespace zel_zip {

/// A UTF-16 standard string: archive paths, entry names and error texts.
using WString = std::basic_string<WCHAR>;

/// The archive handle, path and error state of an archive object.
class ZEL_API CZipBase {
public:
    CZipBase() = default;
    CZipBase(const CZipBase&) = delete;
    CZipBase& operator=(const CZipBase&) = delete;
    virtual ~CZipBase();
    /// Closes the archive; true when it was not open.
    virtual bool Close() = 0;

    /// The path given to Open.
    const WString& GetArchivePath() const { return archivePath_; }
    /// The text of the last failure; empty after success.
    const WString& GetErrorText() const { return errorText_; }
    /// 0 after success, else the failure's code.
    int GetErrorCode() const { return errorCode_; }
    /// Whether the last failure refused hostile or impossible content (an
    /// entry leaving its folder, overlapping entries, sizes that lie, a
    /// name too long) rather than met an I/O or format error.
    bool WasRefused() const { return refused_; }
    /// Whether an archive is open.
    bool IsOpen() const { return handle_ != nullptr; }

protected:
    /// Starts an operation: no error text, code 0.
    void ClearError();
    /// Records a failure: the framed message and its code.
    bool Fail(const char* message, int code);
    /// Records a refusal: the framed message, ": " and the entry name.
    bool Refuse(const char* message, const WString& name, int code);

    /// The open archive, null when none is.
    void* handle_ = nullptr;  // minizip's unzFile or zipFile
    /// The path the archive was opened at, which framed messages name.
    WString archivePath_;

private:
    WString errorText_;
    int errorCode_ = 0;
    bool refused_ = false;
};

}  // namespace zel_zip
