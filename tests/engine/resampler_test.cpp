// Streamed resampling: chunk edges leave no trace.

#include "engine/resampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace murmela {
namespace {

std::vector<float> tone(size_t count, double frequency, double rate) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<float>(
            0.5 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
    }
    return samples;
}

TEST(Resampler, ChunksGiveWhatTheWholeGivesAndResetStartsAfresh) {
    const std::vector<float> input = tone(22050, 440, 22050);
    Resampler whole(22050, 24000);
    const std::vector<float> expected = whole.process(input);
    // One second in, a second out, less what the filter still holds (a few tens of ms).
    EXPECT_NEAR(static_cast<double>(expected.size()), 24000.0, 24000 * 0.05);

    Resampler chunked(22050, 24000);
    std::vector<float> joined;
    for (size_t start = 0; start < input.size(); start += 1000) {
        const size_t end = std::min(input.size(), start + 1000);
        const std::vector<float> part =
            chunked.process(std::span<const float>(input).subspan(start, end - start));
        joined.insert(joined.end(), part.begin(), part.end());
    }
    ASSERT_EQ(joined.size(), expected.size());
    for (size_t i = 0; i < joined.size(); ++i) {
        ASSERT_NEAR(joined[i], expected[i], 1e-5f) << i;
    }
    // The tone's neighbouring samples never jump: no click where the chunks met.
    const float largestStep = 0.5f * 2 * std::numbers::pi_v<float> * 440 / 24000 * 1.05f;
    for (size_t i = 2400; i + 1 < joined.size(); ++i) {
        ASSERT_LT(std::fabs(joined[i + 1] - joined[i]), largestStep) << i;
    }

    chunked.reset();
    EXPECT_EQ(chunked.process(input), expected);
}

}  // namespace
}  // namespace murmela
