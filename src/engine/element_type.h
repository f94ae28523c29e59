#pragma once
// The numbers by which error texts name a tensor's element type: 0x10000 + bits for floating
// point and 0x20000 + bits for signed integers, whatever the runtime's own enumeration is.

#include <onnxruntime_c_api.h>

#include <cstdint>

namespace murmela {

constexpr int64_t float16Code = 65552;
constexpr int64_t float32Code = 65568;
constexpr int64_t int32Code = 131104;

// The code of a runtime element type. Types without such a code (unsigned, Boolean, string, ...)
// keep the runtime's own number, which can't be mistaken for one.
int64_t elementTypeCode(ONNXTensorElementDataType type);

}  // namespace murmela
