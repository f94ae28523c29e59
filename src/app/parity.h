#pragma once
// The parity mode: a batch run that loads the voice once, synthesises every line of a JSON
// lines file into "<id>.f32" (raw little-endian 32-bit float samples, 24000 Hz, mono) and
// writes "parity.json" with each line's ids, frame counts and timings, so that a run can be
// compared line by line and sample by sample with another implementation.
//
//   murmela -murmela.parity OUTDIR -murmela.lines FILE
//
// Exit codes: 0 done, 1 failed ("error.txt" in OUTDIR says why), 2 bad usage.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/settings.h"
#include "engine/voice.h"

namespace murmela {

// Reads "murmela.parity" and "murmela.lines" from `settings` (the standard store), loads the
// voice from the resources and runs the lines. Logs one line and returns the exit code.
// Never throws.
int runParity(const SettingsStore& settings);

// Runs the lines of `linesFile` with `voice`, writing one sample file per line and the report
// (`info` with "loadMs" and "lines" added) into `outDir`, which is created when missing.
// Returns the number of lines reported. Throws whatever fails: the file system's, the JSON
// parser's and the engine's errors, VoiceError::damaged(<lines file>) for a lines file of the
// wrong shape, ParityLineError for an entry it refuses; every entry is checked before the
// first line is synthesised.
size_t writeParityReport(Voice& voice, const std::filesystem::path& linesFile,
                         const std::filesystem::path& outDir, int64_t loadMs,
                         const nlohmann::json& info);

}  // namespace murmela
