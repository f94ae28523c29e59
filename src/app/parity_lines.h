#pragma once
// The lines file of the parity mode: a JSON object whose "lines" array holds objects with an
// "id" (also the base name of the line's sample file), a "text" and an optional "speed".

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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

// Speeds outside this range are refused: far below it frame counts outgrow what the engine
// can count, far above it every token gets the shortest length and nothing is measured.
inline constexpr double minimumParitySpeed = 0.01;
inline constexpr double maximumParitySpeed = 100.0;

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

}  // namespace murmela
