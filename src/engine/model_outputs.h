#pragma once
// Checks on what a model returned, before anything is read from it.

#include <onnxruntime_cxx_api.h>

#include <cstdint>
#include <map>
#include <string>

#include "engine/strided_matrix.h"

namespace murmela {

// The named output if the model gave it and it is a tensor; otherwise null.
const Ort::Value* tensorOutput(const std::map<std::string, Ort::Value>& outputs,
                               const std::string& name);

// Throws VoiceError "an output is <code>, not <expected>" when the element type differs.
void requireElementType(const Ort::Value& tensor, int64_t expectedCode);

// The first batch of a [1, a] tensor as a rows x 1 matrix, or of a [1, a, b] tensor as an
// a x b one, with the strides of the runtime's dense row-major layout. Throws VoiceError
// "an output has shape [...]" for another rank or when it has fewer than `rows` rows or
// `columns` columns. The element type must have been checked.
StridedMatrix<float> floatOutput(const Ort::Value& tensor, int64_t rows, int64_t columns);
StridedMatrix<uint16_t> halfOutput(const Ort::Value& tensor, int64_t rows, int64_t columns);

}  // namespace murmela
