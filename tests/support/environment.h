#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace murmela::testing {

// Sets (or, given nullopt, removes) an environment variable while the object lives, then gives
// it back what it had, also when a failed assertion ends the test early.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)), saved_(saved(name_)) {
        set(value);
    }
    ~ScopedVariable() { set(saved_); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    static std::optional<std::string> saved(const std::string& name) {
        const char* value = std::getenv(name.c_str());
        return value ? std::optional<std::string>(value) : std::nullopt;
    }
    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_.c_str(), value->c_str(), 1) : ::unsetenv(name_.c_str());
    }

    std::string name_;
    std::optional<std::string> saved_;
};

}  // namespace murmela::testing
