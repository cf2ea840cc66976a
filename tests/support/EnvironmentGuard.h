#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace velmo::test {

/// Sets or, without a value, unsets an environment variable until the end of the scope.
class EnvironmentGuard {
  public:
    EnvironmentGuard(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        apply(value);
    }
    ~EnvironmentGuard() { apply(old_); }
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;

  private:
    void apply(const std::optional<std::string>& value) {
        if (value)
            setenv(name_, value->c_str(), 1);
        else
            unsetenv(name_);
    }

    const char* name_;
    std::optional<std::string> old_;
};

}
