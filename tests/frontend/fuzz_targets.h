#pragma once
// What the fuzzers and the random-input test feed arbitrary bytes to. Each returns normally
// for any input; a broken promise aborts, which both harnesses report.

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace murmela::fuzzing {

// The bytes as the user's text: every chunk holds 1 to 400 ids of the voice's vocabulary.
void chunks(const std::filesystem::path& voice, const uint8_t* data, size_t size);

// The bytes as a vocab.json: a vocabulary, the JSON parser's error or VoiceError, nothing else.
void vocabulary(const uint8_t* data, size_t size);

}  // namespace murmela::fuzzing
