#include "support/neural_voices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace murmela::testing {

std::filesystem::path neuralVoiceDirectory() {
    return MURMELA_NEURAL_VOICES_DIR;
}

std::filesystem::path standIn(const std::string& name) {
    return neuralVoiceDirectory() / name;
}

SpokenChunks speakAll(Voice& voice, std::string_view text, double speed) {
    SpokenChunks spoken;
    voice.speak(text, speed, [&](SpokenChunk&& chunk) {
        spoken.ids.push_back(chunk.ids);
        spoken.samples.push_back(chunk.result.samples);
        return true;
    });
    return spoken;
}

std::vector<float> SpokenChunks::joined() const {
    std::vector<float> all;
    for (const std::vector<float>& chunk : samples) {
        all.insert(all.end(), chunk.begin(), chunk.end());
    }
    return all;
}

std::vector<double> spelledValues(std::span<const float> samples, size_t count) {
    std::vector<double> values;
    if (samples.size() < spellingBlock) {
        return values;
    }
    // Read at the middle of each block, away from the edges a resampler softens.
    const double fullScale = samples[spellingBlock / 2];
    for (size_t block = 1; block <= count && (block + 1) * spellingBlock <= samples.size();
         ++block) {
        values.push_back(samples[block * spellingBlock + spellingBlock / 2] / fullScale * 1024.0);
    }
    return values;
}

void expectSpelled(std::span<const float> samples, const std::vector<double>& expected) {
    EXPECT_THAT(spelledValues(samples, expected.size()),
                ::testing::Pointwise(::testing::DoubleNear(1e-3), expected));
}

}  // namespace murmela::testing
