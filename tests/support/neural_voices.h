#pragma once
// The stand-ins for downloaded Kokoro and Piper voices (tools/make_test_voice.py, variant
// "neural"), and the reading of what their samples spell.

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/voice.h"

namespace murmela::testing {

// The folder of stand-ins as the build wrote it: piper/, piper-multi/, piper-16k/, kokoro/,
// kokoro-folder/ and bad/<one broken voice each>. Tests never modify it.
std::filesystem::path neuralVoiceDirectory();

// One stand-in: neuralVoiceDirectory() / name.
std::filesystem::path standIn(const std::string& name);

// What a voice handed over for a text, chunk by chunk.
struct SpokenChunks {
    std::vector<std::vector<int64_t>> ids;
    std::vector<std::vector<float>> samples;

    // Every chunk's samples, one after the other.
    std::vector<float> joined() const;
};
SpokenChunks speakAll(Voice& voice, std::string_view text, double speed);

// The stand-ins spell their inputs: a block of samples at full scale, then one block per value
// holding value / 1024. The first `count` values spelled from the start of `samples` (fewer
// when the samples end first).
std::vector<double> spelledValues(std::span<const float> samples, size_t count);

constexpr size_t spellingBlock = 32;

// Checks that `samples` spell `expected`, each value within 1e-3.
void expectSpelled(std::span<const float> samples, const std::vector<double>& expected);

}  // namespace murmela::testing
