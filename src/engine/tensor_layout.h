#pragma once
// How tensors are laid out going into and coming out of the models: element type codes, the
// inputs padded to a bucket, and the checks and copies of what the models return.

#include <onnxruntime_c_api.h>
#include <onnxruntime_cxx_api.h>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace murmela {

// Tensors over vectors the caller keeps alive for as long as the tensor is used.

Ort::MemoryInfo cpuMemory();

template <typename T>
Ort::Value tensorOver(std::vector<T>& data, std::vector<int64_t> shape) {
    return Ort::Value::CreateTensor<T>(cpuMemory(), data.data(), data.size(), shape.data(),
                                       shape.size());
}

// float16 values given as their bit patterns.
Ort::Value halfTensorOver(std::vector<uint16_t>& data, std::vector<int64_t> shape);

// The numbers by which error texts name a tensor's element type: 0x10000 + bits for floating
// point and 0x20000 + bits for signed integers, whatever the runtime's own enumeration is.

constexpr int64_t float16Code = 65552;
constexpr int64_t float32Code = 65568;
constexpr int64_t int32Code = 131104;

// The code of a runtime element type. Types without such a code (unsigned, Boolean, string, ...)
// keep the runtime's own number, which can't be mistaken for one.
int64_t elementTypeCode(ONNXTensorElementDataType type);

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

// Copies out of model outputs, through their strides: a straight (or bulk-converting) copy of
// each row where the elements of a row are adjacent, an element-by-element walk otherwise.
// Each takes the leading `rows` x `columns` block of the matrix, which must hold it.

// The block as 32-bit floats, row-major and dense.
std::vector<float> denseRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns);

// The block converted to float16 bit patterns, row-major and dense.
std::vector<uint16_t> halfRows(const StridedMatrix<float>& matrix, int64_t rows, int64_t columns);

// The block of float16 values converted to 32-bit floats and transposed: the result is
// columns x rows, dense, with result[c * rows + r] = matrix(r, c).
std::vector<float> transposedFloats(const StridedMatrix<uint16_t>& matrix, int64_t rows,
                                    int64_t columns);

// The first bucket, in the order given, that holds `length`; nothing when none does. The list
// is deliberately not sorted: a voice lists its buckets smallest first.
inline std::optional<int64_t> chooseBucket(std::span<const int64_t> buckets, int64_t length) {
    for (int64_t bucket : buckets) {
        if (bucket >= length) {
            return bucket;
        }
    }
    return std::nullopt;
}

// The inputs of the encoder and the decoder, padded to a bucket size.

struct EncoderInput {
    std::vector<int32_t> ids;  // the tokens, then 0 up to the bucket
    std::vector<float> mask;   // 1 for each token, then 0
};

// `tokens` must fit in `bucket`; an id outside the 32-bit range is a programming error.
EncoderInput encoderInput(std::span<const int64_t> tokens, int64_t bucket);

struct DecoderInput {
    std::vector<float> x;     // bucket x 257: per frame its token's features and its position
    std::vector<float> mask;  // 1 for each of the frames, then 0
    std::vector<float> last;  // 1 at the last frame only
};

// `features` holds 256 values per token, token-major; `counts` the frames of each token, which
// sum to `frames` <= `bucket`. Frame j of a token lasting d frames carries the position
// (j + 0.5) / d. Padding frames stay zero.
DecoderInput decoderInput(std::span<const float> features, std::span<const int64_t> counts,
                          int64_t frames, int64_t bucket);

// Checks on what a model returned, before anything is read from it.

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

// The samples of a model that gives one float32 waveform: the tensor's elements when its rank
// lies in [lowestRank, highestRank] and every dimension but the last is 1. Throws VoiceError
// "<model>: an output is <code>, not <expected>" or "<model>: an output has shape [...]"
// otherwise.
std::vector<float> waveformOutput(const Ort::Value& tensor, size_t lowestRank, size_t highestRank,
                                  const std::string& model);

}  // namespace murmela
