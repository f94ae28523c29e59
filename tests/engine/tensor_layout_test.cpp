// The encoder's and the decoder's inputs, and model outputs read through their strides.

#include "engine/tensor_layout.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <vector>

namespace murmela {
namespace {

TEST(TensorLayoutDeathTest, ImpossibleInputsStopTheProgram) {
    EXPECT_DEATH(encoderInput(std::vector<int64_t>{0, int64_t{1} << 31, 0}, 16), "outside 32 bits");
    EXPECT_DEATH(encoderInput(std::vector<int64_t>{-(int64_t{1} << 31) - 1}, 16),
                 "outside 32 bits");

    const std::vector<float> features(2 * 256, 1.0f);
    EXPECT_DEATH(decoderInput(features, std::vector<int64_t>{2, 4}, 5, 8), "do not sum");
    EXPECT_DEATH(decoderInput(features, std::vector<int64_t>{2, 4}, 7, 8), "do not sum");
    EXPECT_DEATH(decoderInput(features, std::vector<int64_t>{8, -2}, 6, 8), "do not sum");
}

TEST(ModelInputs, PaddedToTheBucketWithMasksAndPositionsExact) {
    const EncoderInput tokens = encoderInput(std::vector<int64_t>{0, 5, 0}, 6);
    EXPECT_EQ(tokens.ids, (std::vector<int32_t>{0, 5, 0, 0, 0, 0}));
    EXPECT_EQ(tokens.mask, (std::vector<float>{1, 1, 1, 0, 0, 0}));
    // The 32-bit extremes still fit.
    const std::vector<int32_t> extremes = {std::numeric_limits<int32_t>::min(),
                                           std::numeric_limits<int32_t>::max()};
    EXPECT_EQ(encoderInput(std::vector<int64_t>(extremes.begin(), extremes.end()), 2).ids,
              extremes);
    // Each decoder frame carries its token's features and its position within the token.
    std::vector<float> features(2 * 256);  // two tokens whose features differ everywhere
    for (size_t i = 0; i < features.size(); ++i) {
        features[i] = static_cast<float>(i) + 1.0f;
    }
    const std::vector<int64_t> counts = {2, 4};
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
    // An exact fit marks the bucket's last frame.
    EXPECT_EQ(decoderInput(features, counts, 6, 6).last, (std::vector<float>{0, 0, 0, 0, 0, 1}));
}

uint16_t half(float value) {
    return std::bit_cast<uint16_t>(static_cast<_Float16>(value));
}

// Every layout of a 70 x 45 matrix (dense, padded rows, and two column-major ones for the
// strided path) read through its strides. The leading block asked for leaves a row and a column
// out, so a reader that walks the whole matrix is caught, and crosses the transpose's 32 x 32
// tiles with ragged edges. Every value is a distinct integer, exact in float16.
TEST(TensorCopy, EveryLayoutReadsTheSameRows) {
    constexpr int64_t rows = 70, columns = 45, blockRows = rows - 1, blockColumns = columns - 1;
    auto valueAt = [](int64_t row, int64_t column) {
        return static_cast<float>((row - 35) * 50 + column);
    };
    const struct {
        const char* name;
        int64_t rowStride, columnStride;
    } layouts[] = {{"dense", columns, 1},
                   {"padded rows", columns + 3, 1},
                   {"column-major", 1, rows},
                   {"padded columns", 2, 2 * rows + 1}};
    for (const auto& layout : layouts) {
        const auto size = static_cast<size_t>((rows - 1) * layout.rowStride +
                                              (columns - 1) * layout.columnStride + 1);
        std::vector<float> floats(size, -1.0f);
        std::vector<uint16_t> halves(size, half(-1.0f));
        for (int64_t r = 0; r < rows; ++r) {
            for (int64_t c = 0; c < columns; ++c) {
                const auto at = static_cast<size_t>(r * layout.rowStride + c * layout.columnStride);
                floats[at] = valueAt(r, c);
                halves[at] = half(valueAt(r, c));
            }
        }
        const StridedMatrix<float> floatMatrix{floats.data(), rows, columns, layout.rowStride,
                                               layout.columnStride};
        const StridedMatrix<uint16_t> halfMatrix{halves.data(), rows, columns, layout.rowStride,
                                                 layout.columnStride};
        const std::vector<float> dense = denseRows(floatMatrix, blockRows, blockColumns);
        const std::vector<uint16_t> halfDense = halfRows(floatMatrix, blockRows, blockColumns);
        const std::vector<float> transposed = transposedFloats(halfMatrix, blockRows, blockColumns);
        const size_t count = blockRows * blockColumns;
        ASSERT_TRUE(dense.size() == count && halfDense.size() == count &&
                    transposed.size() == count);
        for (int64_t r = 0; r < blockRows; ++r) {
            for (int64_t c = 0; c < blockColumns; ++c) {
                const auto rowMajor = static_cast<size_t>(r * blockColumns + c);
                ASSERT_EQ(dense[rowMajor], valueAt(r, c)) << layout.name << " " << r << "," << c;
                ASSERT_EQ(halfDense[rowMajor], half(valueAt(r, c))) << layout.name;
                ASSERT_EQ(transposed[static_cast<size_t>(c * blockRows + r)], valueAt(r, c))
                    << layout.name;
            }
        }
    }
}

}  // namespace
}  // namespace murmela
