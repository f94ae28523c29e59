#pragma once

#include <filesystem>
#include <string>

namespace murmela::testing {

// A fresh directory under the system's temporary directory, removed with everything in it
// when the object goes.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::string& prefix = "murmela-test");
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& child) const {
        return path_ / child;
    }

private:
    std::filesystem::path path_;
};

// Writes `content` to `path`, creating parent directories.
void writeText(const std::filesystem::path& path, const std::string& content);

// The whole content of `path`; throws when it can't be read.
std::string readText(const std::filesystem::path& path);

}  // namespace murmela::testing
