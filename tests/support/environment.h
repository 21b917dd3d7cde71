// Setting an environment variable for the length of a test.
#pragma once

#include <optional>
#include <string>

namespace zel_test {

/// Whether this build runs under AddressSanitizer, whose shadow memory and
/// quarantine make peak-memory figures meaningless.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitized = true;
#else
constexpr bool kAddressSanitized = false;
#endif
#else
constexpr bool kAddressSanitized = false;
#endif

/// Sets (or, with a null value, removes) an environment variable and puts
/// the previous state back when it goes out of scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::string saved_;
    bool wasSet_;
};

/// Sets the time zone rule TZ (e.g. "CET-1CEST,M3.5.0,M10.5.0/3") for the
/// length of a test, making the C library reread it on the way in and out.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* rule);
    ~ScopedTimeZone();
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<ScopedEnvironment> tz_;
};

}  // namespace zel_test
