#pragma once
// Writing a WAV file while its samples are still being made, for audio too long to hold in
// memory: the samples go to a scratch file beside the destination as they come, the header's
// sizes are filled in at the end, and only then does the file replace the destination, so a
// reader never sees a half-written file and an abandoned write leaves nothing behind.

#include <cstdint>
#include <filesystem>
#include <span>

#include "audio/wav.h"

namespace murmela {

// Starts `file` (which must not be open) on a new scratch file for `destination`, with room for
// the header. Throws std::filesystem::filesystem_error when the scratch file cannot be made:
// the destination is a directory, or its directory is missing or not writable.
void openWavFile(WavFile& file, const std::filesystem::path& destination, bool isFloat);

// Appends the samples, encoded as the file's header says. Throws
// std::filesystem::filesystem_error on a write error, and with EFBIG when the file would grow
// past what the format's 32-bit sizes can describe.
void appendToWavFile(WavFile& file, std::span<const float> samples);

// Writes the header for every sample appended, at `sampleRate`, and puts the file in place of
// the destination. Throws std::filesystem::filesystem_error on failure; the scratch file is
// gone either way and `file` is closed.
void finishWavFile(WavFile& file, int64_t sampleRate);

}  // namespace murmela
