// Process environment for tests: a scoped time zone.
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace zel_test {

/// Sets TZ for the life of the object (a POSIX TZ rule such as
/// "CET-1CEST,M3.5.0,M10.5.0/3") and restores the previous value.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* rule) {
        const char* previous = std::getenv("TZ");
        hadPrevious_ = previous != nullptr;
        if (hadPrevious_) previous_ = previous;
        Set(rule);
    }
    ~ScopedTimeZone() { Set(hadPrevious_ ? previous_.c_str() : nullptr); }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    static void Set(const char* rule) {
#ifdef _WIN32
        _putenv_s("TZ", rule != nullptr ? rule : "");
        _tzset();
#else
        if (rule != nullptr) {
            setenv("TZ", rule, 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
#endif
    }

    bool hadPrevious_ = false;
    std::string previous_;
};

}  // namespace zel_test
