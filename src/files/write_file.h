#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace murmela {

// Writes `bytes` to `path` in place, creating the file or emptying an existing one first. A
// symbolic link at `path` is refused rather than followed, so the bytes land exactly where the
// path says and nowhere else.
// Throws std::filesystem::filesystem_error with the system's error code on failure; what was
// written by then stays.
void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes);

}  // namespace murmela
