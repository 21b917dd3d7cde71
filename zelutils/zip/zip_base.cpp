#include "zelutils/zip/zip_base.h"

#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

namespace zel_zip {

CZipBase::~CZipBase() = default;

void CZipBase::ClearError() {
    errorText_.clear();
    errorCode_ = 0;
    refused_ = false;
}

bool CZipBase::Fail(const char* message, int code) {
    zel_text::CZelStringW text(message, CP_UTF8);
    errorText_ = archivePath_;
    errorText_ += ZW(" archive error: ");
    errorText_.append(text.GetString(), static_cast<std::size_t>(text.GetLength()));
    errorCode_ = code;
    return false;
}

bool CZipBase::Refuse(const char* message, const WString& name, int code) {
    Fail(message, code);
    errorText_ += ZW(": ");
    errorText_ += name;
    refused_ = true;
    return false;
}

}  // namespace zel_zip
