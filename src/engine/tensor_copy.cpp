#include "engine/tensor_copy.h"

#include <algorithm>
#include <string>

#include "engine/half_float.h"
#include "logging/log.h"

namespace murmela {
namespace {

void requireBlock(int64_t matrixRows, int64_t matrixColumns, int64_t rows, int64_t columns) {
    if (rows < 0 || columns < 0 || rows > matrixRows || columns > matrixColumns) {
        programmingError("copying " + std::to_string(rows) + " x " + std::to_string(columns) +
                         " out of " + std::to_string(matrixRows) + " x " +
                         std::to_string(matrixColumns));
    }
}

size_t size(int64_t rows, int64_t columns) {
    return static_cast<size_t>(rows) * static_cast<size_t>(columns);
}

// A tile of the transpose fits in the first-level cache whichever way it is read.
constexpr int64_t tile = 32;

}  // namespace

std::vector<float> denseRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns) {
    requireBlock(matrix.rows, matrix.columns, rows, columns);
    std::vector<float> result(size(rows, columns));
    for (int64_t r = 0; r < rows; ++r) {
        float* out = result.data() + r * columns;
        if (matrix.columnStride == 1) {
            std::copy_n(matrix.row(r), columns, out);
        } else {
            for (int64_t c = 0; c < columns; ++c) {
                out[c] = matrix(r, c);
            }
        }
    }
    return result;
}

std::vector<uint16_t> halfRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns) {
    requireBlock(matrix.rows, matrix.columns, rows, columns);
    std::vector<uint16_t> result(size(rows, columns));
    for (int64_t r = 0; r < rows; ++r) {
        uint16_t* out = result.data() + r * columns;
        if (matrix.columnStride == 1) {
            floatToHalf(matrix.row(r), out, static_cast<size_t>(columns));
        } else {
            for (int64_t c = 0; c < columns; ++c) {
                out[c] = halfFromFloat(matrix(r, c));
            }
        }
    }
    return result;
}

std::vector<float> transposedFloats(const StridedMatrix<uint16_t>& matrix, int64_t rows,
                                    int64_t columns) {
    requireBlock(matrix.rows, matrix.columns, rows, columns);
    std::vector<float> result(size(rows, columns));
    if (matrix.columnStride == 1) {
        // Converted a tile at a time, so the floats are written out while still in cache.
        float converted[tile * tile];
        for (int64_t r0 = 0; r0 < rows; r0 += tile) {
            const int64_t r1 = std::min(r0 + tile, rows);
            for (int64_t c0 = 0; c0 < columns; c0 += tile) {
                const int64_t width = std::min(tile, columns - c0);
                for (int64_t r = r0; r < r1; ++r) {
                    halfToFloat(matrix.row(r) + c0, converted + (r - r0) * tile,
                                static_cast<size_t>(width));
                }
                for (int64_t c = 0; c < width; ++c) {
                    float* out = result.data() + (c0 + c) * rows;
                    for (int64_t r = r0; r < r1; ++r) {
                        out[r] = converted[(r - r0) * tile + c];
                    }
                }
            }
        }
    } else {
        for (int64_t r = 0; r < rows; ++r) {
            for (int64_t c = 0; c < columns; ++c) {
                result[static_cast<size_t>(c * rows + r)] = floatFromHalf(matrix(r, c));
            }
        }
    }
    return result;
}

}  // namespace murmela
