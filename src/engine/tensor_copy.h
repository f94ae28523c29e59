#pragma once
// Copies out of model outputs, through their strides: a straight (or bulk-converting) copy of
// each row where the elements of a row are adjacent, an element-by-element walk otherwise.
// Each takes the leading `rows` x `columns` block of the matrix, which must hold it.

#include <cstdint>
#include <vector>

#include "engine/strided_matrix.h"

namespace murmela {

// The block as 32-bit floats, row-major and dense.
std::vector<float> denseRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns);

// The block converted to float16 bit patterns, row-major and dense.
std::vector<uint16_t> halfRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns);

// The block of float16 values converted to 32-bit floats and transposed: the result is
// columns x rows, dense, with result[c * rows + r] = matrix(r, c).
std::vector<float> transposedFloats(const StridedMatrix<uint16_t>& matrix, int64_t rows,
                                    int64_t columns);

}  // namespace murmela
