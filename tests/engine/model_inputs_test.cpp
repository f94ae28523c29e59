// The encoder's and the decoder's inputs: tokens and frames in place, padding zero, masks and
// the position channel exact.

#include "engine/model_io.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace murmela {
namespace {

TEST(EncoderInput, TokensAndMaskArePaddedWithZerosToTheBucket) {
    std::vector<int64_t> tokens = {0, 5, 0};
    EncoderInput input = encoderInput(tokens, 16);
    std::vector<int32_t> ids(16, 0);
    ids[1] = 5;
    std::vector<float> mask(16, 0.0f);
    mask[0] = mask[1] = mask[2] = 1.0f;
    EXPECT_EQ(input.ids, ids);
    EXPECT_EQ(input.mask, mask);

    // The 32-bit extremes still fit.
    std::vector<int64_t> extremes = {std::numeric_limits<int32_t>::min(),
                                     std::numeric_limits<int32_t>::max()};
    EXPECT_EQ(encoderInput(extremes, 2).ids,
              (std::vector<int32_t>{std::numeric_limits<int32_t>::min(),
                                    std::numeric_limits<int32_t>::max()}));
}

TEST(EncoderInputDeathTest, IdsOutside32BitsStopTheProgram) {
    std::vector<int64_t> tooLarge = {0, int64_t{1} << 31, 0};
    std::vector<int64_t> tooSmall = {0, -(int64_t{1} << 31) - 1, 0};
    EXPECT_DEATH(encoderInput(tooLarge, 16), "outside 32 bits");
    EXPECT_DEATH(encoderInput(tooSmall, 16), "outside 32 bits");
}

// Two tokens whose 256 features differ everywhere.
std::vector<float> twoTokens() {
    std::vector<float> features(2 * 256);
    for (size_t i = 0; i < features.size(); ++i) {
        features[i] = static_cast<float>(i) + 1.0f;
    }
    return features;
}

TEST(DecoderInput, EachFrameCarriesItsTokensFeaturesAndPosition) {
    std::vector<float> features = twoTokens();
    std::vector<int64_t> counts = {2, 4};
    DecoderInput input = decoderInput(features, counts, 6, 8);
    ASSERT_EQ(input.x.size(), 8u * 257u);

    const std::vector<int> tokenOfFrame = {0, 0, 1, 1, 1, 1};
    const std::vector<float> position = {0.25f, 0.75f, 0.125f, 0.375f, 0.625f, 0.875f};
    for (size_t frame = 0; frame < 6; ++frame) {
        for (size_t channel = 0; channel < 256; ++channel) {
            ASSERT_EQ(input.x[frame * 257 + channel],
                      features[static_cast<size_t>(tokenOfFrame[frame]) * 256 + channel])
                << "frame " << frame << " channel " << channel;
        }
        EXPECT_EQ(input.x[frame * 257 + 256], position[frame]) << "frame " << frame;
    }
    for (size_t i = 6 * 257; i < input.x.size(); ++i) {
        ASSERT_EQ(input.x[i], 0.0f) << "padding at " << i;
    }
    EXPECT_EQ(input.mask, (std::vector<float>{1, 1, 1, 1, 1, 1, 0, 0}));
    EXPECT_EQ(input.last, (std::vector<float>{0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(DecoderInput, AnExactFitMarksTheBucketsLastFrame) {
    std::vector<float> features = twoTokens();
    std::vector<int64_t> counts = {2, 4};
    DecoderInput input = decoderInput(features, counts, 6, 6);
    EXPECT_EQ(input.mask, std::vector<float>(6, 1.0f));
    EXPECT_EQ(input.last, (std::vector<float>{0, 0, 0, 0, 0, 1}));
}

TEST(DecoderInputDeathTest, CountsThatMissTheFrameTotalStopTheProgram) {
    std::vector<float> features = twoTokens();
    std::vector<int64_t> counts = {2, 4};
    EXPECT_DEATH(decoderInput(features, counts, 5, 8), "do not sum");
    EXPECT_DEATH(decoderInput(features, counts, 7, 8), "do not sum");
    std::vector<int64_t> negative = {8, -2};
    EXPECT_DEATH(decoderInput(features, negative, 6, 8), "do not sum");
}

}  // namespace
}  // namespace murmela
