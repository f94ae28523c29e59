#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace murmela {

// Replaces `destination` with `bytes` so that a reader sees either the old file or the whole new
// one, never a part: the bytes go to a new file beside the destination, are flushed to disk, and
// that file is renamed over the destination.
// Throws std::filesystem::filesystem_error with the system's error code on failure; then the
// scratch file is gone and an existing destination is as it was.
void writeFileAtomically(const std::filesystem::path& destination, std::span<const uint8_t> bytes);

}  // namespace murmela
