#include "tests/support/environment.h"

#include <cstdlib>
#include <ctime>

namespace zel_test {
namespace {

void RereadTimeZone() {
#ifdef _WIN32
    _tzset();
#else
    tzset();
#endif
}

void Set(const std::string& name, const char* value) {
#ifdef _WIN32
    _putenv_s(name.c_str(), value != nullptr ? value : "");
#else
    if (value != nullptr) {
        setenv(name.c_str(), value, 1);
    } else {
        unsetenv(name.c_str());
    }
#endif
}

}  // namespace

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name_(name) {
    const char* saved = std::getenv(name);
    wasSet_ = saved != nullptr;
    if (wasSet_) saved_ = saved;
    Set(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() { Set(name_, wasSet_ ? saved_.c_str() : nullptr); }

ScopedTimeZone::ScopedTimeZone(const char* rule) {
    tz_.emplace("TZ", rule);
    RereadTimeZone();
}

ScopedTimeZone::~ScopedTimeZone() {
    tz_.reset();
    RereadTimeZone();
}

}  // namespace zel_test

#if defined(__SANITIZE_ADDRESS__)
// minizip 1.1 leaks a new entry's central-directory header when writing the
// local header fails; the zip fault sweep takes that path on purpose.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:zipOpenNewFileInZip4_64\n";
}
#endif
