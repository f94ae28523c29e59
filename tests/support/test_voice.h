#pragma once
// The generated test voice (tools/make_test_voice.py) and what its models compute, restated
// here so tests can predict every output.

#include <cstdint>
#include <filesystem>

namespace murmela::testing {

// The test voice as the build wrote it. Tests never modify it; copy it first.
std::filesystem::path testVoiceDirectory();

// Copies the test voice (models, vocabulary, espeak-ng data) into `destination`.
void copyTestVoice(const std::filesystem::path& destination);

// The test encoder's outputs for one token id.
namespace test_voice {
constexpr float amplitude(int64_t id) {
    return id == 0 ? 0.0f : 64.0f + (id % 7) * 16.0f;
}
constexpr float toneBin(int64_t id) {
    return id == 0 ? 0.0f : 10.0f + (id * 5) % 90;
}
constexpr float phase(int64_t id) {
    return id == 0 ? 0.0f : ((id % 8) - 4) * 0.25f;
}
constexpr float feature(int64_t id, int channel) {
    if (id == 0)
        return 0.0f;
    if (channel == 0)
        return amplitude(id);
    if (channel == 1)
        return toneBin(id);
    if (channel == 2)
        return phase(id);
    return ((id * 3 + channel) % 64) / 64.0f - 0.5f;
}
// log(1 + id % 4), as the generator rounds it to float.
float logDuration(int64_t id);
}  // namespace test_voice

}  // namespace murmela::testing
