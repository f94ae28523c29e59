#pragma once

#include <filesystem>
#include <string>

namespace murmela {

// The whole content of a regular file (or whatever can be read like one).
// Throws std::filesystem::filesystem_error with the system's error code when it can't be read,
// a directory included.
std::string readFile(const std::filesystem::path& path);

}  // namespace murmela
