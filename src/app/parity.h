#pragma once
// The parity mode, its lines file and the millisecond timings of its report.
//
// The lines file of the parity mode: a JSON object whose "lines" array holds objects with an
// "id" (also the base name of the line's sample file), a "text" and an optional "speed".

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings.h"
#include "engine/voice.h"

namespace murmela {

struct ParityLine {
    std::string id;
    std::string text;
    double speed = 1.0;            // the speed to synthesise at
    nlohmann::json reportedSpeed;  // the number as the file gave it, or 1
};

// An entry the parity mode refuses to run: what() names the line's id.
class ParityLineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The entries of `linesFile` that have a string id and a string text, in file order; others
// are skipped without a trace. A speed that is not a number counts as absent (1).
// Throws the file system's error when the file can't be read, the JSON parser's when it is not
// JSON, VoiceError::damaged(<path>) when it is not an object with a "lines" array of objects,
// and ParityLineError for an id that can't be a file name directly inside the output directory
// or a speed out of range. Every entry is checked before this returns.
std::vector<ParityLine> readParityLines(const std::filesystem::path& linesFile);

// Whether "<id>.f32" names a file directly inside a directory: not empty, not "." or "..",
// without "/" or NUL, and short enough for a file name.
bool isPlainFileName(std::string_view id);

// Timings of the parity report as whole milliseconds. The two roundings differ on purpose:
// the load time is truncated, the render times are rounded half away from zero.

// The milliseconds between two readings of the monotonic clock, as a fraction.
double millisecondsBetween(std::chrono::steady_clock::time_point start,
                           std::chrono::steady_clock::time_point end);

// `milliseconds` truncated toward zero. A value that is not finite or lies outside the 64-bit
// range is a programming error and stops the process.
int64_t truncatedMilliseconds(double milliseconds);

// `milliseconds` rounded to the nearest integer, halves away from zero; fatal like the above.
int64_t roundedMilliseconds(double milliseconds);

// The parity mode: a batch run that loads the voice once, synthesises every line of a JSON
// lines file into "<id>.f32" (raw little-endian 32-bit float samples, 24000 Hz, mono) and
// writes "parity.json" with each line's ids, frame counts and timings, so that a run can be
// compared line by line and sample by sample with another implementation.
//
//   murmela -murmela.parity OUTDIR -murmela.lines FILE
//
// Exit codes: 0 done, 1 failed ("error.txt" in OUTDIR says why), 2 bad usage.

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
