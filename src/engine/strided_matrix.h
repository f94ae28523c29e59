#pragma once

#include <cstdint>

namespace murmela {

// A read-only two-dimensional view of a tensor's elements: element (row, column) lies at
// data[row * rowStride + column * columnStride]. Strides count elements, not bytes.
template <typename T>
struct StridedMatrix {
    const T* data;
    int64_t rows;
    int64_t columns;
    int64_t rowStride;
    int64_t columnStride;

    const T& operator()(int64_t row, int64_t column) const {
        return data[row * rowStride + column * columnStride];
    }
    const T* row(int64_t index) const { return data + index * rowStride; }
};

}  // namespace murmela
