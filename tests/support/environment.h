// Setting an environment variable for the length of a test.
#pragma once

#include <string>

namespace zel_test {

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

}  // namespace zel_test
