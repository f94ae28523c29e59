// Reading model outputs through their strides: the row-at-a-time paths for adjacent elements
// and the element-by-element paths for any other layout must agree.

#include "engine/model_io.h"

#include <gtest/gtest.h>

#include <bit>
#include <vector>

namespace murmela {
namespace {

constexpr int64_t rows = 5;
constexpr int64_t columns = 7;

// Every value is exact in float16.
float valueAt(int64_t row, int64_t column) {
    return static_cast<float>(row * 16 + column) + 0.5f - (row % 2 == 0 ? 200.0f : 0.0f);
}

struct Layout {
    const char* name;
    int64_t rowStride;
    int64_t columnStride;
};

// Dense, rows with padding, and two column-major layouts (the strided path).
const Layout layouts[] = {
    {"dense", columns, 1},
    {"padded rows", columns + 3, 1},
    {"column-major", 1, rows},
    {"padded columns", 2, 2 * rows + 1},
};

template <typename T, typename Convert>
std::vector<T> storage(const Layout& layout, Convert convert) {
    std::vector<T> data(static_cast<size_t>((rows - 1) * layout.rowStride +
                                            (columns - 1) * layout.columnStride + 1),
                        convert(-1.0f));
    for (int64_t r = 0; r < rows; ++r) {
        for (int64_t c = 0; c < columns; ++c) {
            data[static_cast<size_t>(r * layout.rowStride + c * layout.columnStride)] =
                convert(valueAt(r, c));
        }
    }
    return data;
}

uint16_t half(float value) {
    return std::bit_cast<uint16_t>(static_cast<_Float16>(value));
}

// The leading 4 x 6 block, so a reader that walks the whole matrix is caught too.
constexpr int64_t blockRows = 4;
constexpr int64_t blockColumns = 6;

TEST(TensorCopy, DenseRowsReadEveryLayout) {
    for (const Layout& layout : layouts) {
        std::vector<float> data = storage<float>(layout, [](float v) { return v; });
        StridedMatrix<float> matrix{data.data(), rows, columns, layout.rowStride,
                                    layout.columnStride};
        std::vector<float> copied = denseRows(matrix, blockRows, blockColumns);
        ASSERT_EQ(copied.size(), static_cast<size_t>(blockRows * blockColumns));
        for (int64_t r = 0; r < blockRows; ++r) {
            for (int64_t c = 0; c < blockColumns; ++c) {
                ASSERT_EQ(copied[static_cast<size_t>(r * blockColumns + c)], valueAt(r, c))
                    << layout.name << " " << r << "," << c;
            }
        }
    }
}

TEST(TensorCopy, HalfRowsConvertEveryLayout) {
    for (const Layout& layout : layouts) {
        std::vector<float> data = storage<float>(layout, [](float v) { return v; });
        StridedMatrix<float> matrix{data.data(), rows, columns, layout.rowStride,
                                    layout.columnStride};
        std::vector<uint16_t> copied = halfRows(matrix, blockRows, blockColumns);
        ASSERT_EQ(copied.size(), static_cast<size_t>(blockRows * blockColumns));
        for (int64_t r = 0; r < blockRows; ++r) {
            for (int64_t c = 0; c < blockColumns; ++c) {
                ASSERT_EQ(copied[static_cast<size_t>(r * blockColumns + c)], half(valueAt(r, c)))
                    << layout.name << " " << r << "," << c;
            }
        }
    }
}

TEST(TensorCopy, TransposedFloatsTurnBinsByFramesIntoFramesByBins) {
    for (const Layout& layout : layouts) {
        std::vector<uint16_t> data = storage<uint16_t>(layout, half);
        StridedMatrix<uint16_t> matrix{data.data(), rows, columns, layout.rowStride,
                                       layout.columnStride};
        std::vector<float> copied = transposedFloats(matrix, blockRows, blockColumns);
        ASSERT_EQ(copied.size(), static_cast<size_t>(blockRows * blockColumns));
        for (int64_t r = 0; r < blockRows; ++r) {
            for (int64_t c = 0; c < blockColumns; ++c) {
                ASSERT_EQ(copied[static_cast<size_t>(c * blockRows + r)], valueAt(r, c))
                    << layout.name << " " << r << "," << c;
            }
        }
    }
}

TEST(TensorCopy, TransposeCrossesTileBoundaries) {
    // Larger than one 32 x 32 tile in both directions, with ragged edges. Every value is a
    // distinct integer below 2048, so exact in float16.
    constexpr int64_t bins = 70, frames = 45;
    auto valueOf = [](int64_t k, int64_t f) { return static_cast<float>((k - 35) * 50 + f); };
    std::vector<uint16_t> data(static_cast<size_t>(bins * frames));
    for (int64_t k = 0; k < bins; ++k) {
        for (int64_t f = 0; f < frames; ++f) {
            data[static_cast<size_t>(k * frames + f)] = half(valueOf(k, f));
        }
    }
    StridedMatrix<uint16_t> matrix{data.data(), bins, frames, frames, 1};
    std::vector<float> copied = transposedFloats(matrix, bins, frames - 1);
    for (int64_t f = 0; f < frames - 1; ++f) {
        for (int64_t k = 0; k < bins; ++k) {
            ASSERT_EQ(copied[static_cast<size_t>(f * bins + k)], valueOf(k, f)) << f << "," << k;
        }
    }
}

}  // namespace
}  // namespace murmela
