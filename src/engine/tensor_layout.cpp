#include "engine/tensor_layout.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "engine/vector_math.h"
#include "logging/log.h"

namespace murmela {

Ort::MemoryInfo cpuMemory() {
    return Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
}

Ort::Value halfTensorOver(std::vector<uint16_t>& data, std::vector<int64_t> shape) {
    return Ort::Value::CreateTensor(cpuMemory(), data.data(), data.size() * sizeof(uint16_t),
                                    shape.data(), shape.size(),
                                    ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16);
}

int64_t elementTypeCode(ONNXTensorElementDataType type) {
    constexpr int64_t floating = 0x10000;
    constexpr int64_t signedInteger = 0x20000;
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
            return floating + 16;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
            return floating + 32;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
            return floating + 64;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8:
            return signedInteger + 8;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16:
            return signedInteger + 16;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
            return signedInteger + 32;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
            return signedInteger + 64;
        default:
            return static_cast<int64_t>(type);
    }
}

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

using model_dimensions::decoderWidth;
using model_dimensions::encoderWidth;

EncoderInput encoderInput(std::span<const int64_t> tokens, int64_t bucket) {
    const int64_t length = static_cast<int64_t>(tokens.size());
    if (length > bucket) {
        programmingError(std::to_string(length) + " tokens in an encoder bucket of " +
                         std::to_string(bucket));
    }
    EncoderInput input{std::vector<int32_t>(static_cast<size_t>(bucket), 0),
                       std::vector<float>(static_cast<size_t>(bucket), 0.0f)};
    for (size_t i = 0; i < tokens.size(); ++i) {
        int64_t id = tokens[i];
        if (id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<int32_t>::max()) {
            programmingError("token id " + std::to_string(id) + " is outside 32 bits");
        }
        input.ids[i] = static_cast<int32_t>(id);
        input.mask[i] = 1.0f;
    }
    return input;
}

DecoderInput decoderInput(std::span<const float> features, std::span<const int64_t> counts,
                          int64_t frames, int64_t bucket) {
    if (static_cast<int64_t>(features.size()) <
            static_cast<int64_t>(counts.size()) * encoderWidth ||
        frames > bucket || frames < 1) {
        programmingError("decoder input of " + std::to_string(frames) + " frames in " +
                         std::to_string(bucket) + " from " + std::to_string(counts.size()) +
                         " tokens");
    }
    // A bucket from voice.json that no vector can hold fails like any allocation that's too big.
    if (bucket > std::numeric_limits<int64_t>::max() / decoderWidth) {
        throw std::length_error("decoder bucket of " + std::to_string(bucket) + " frames");
    }
    const auto rows = static_cast<size_t>(bucket);
    DecoderInput input{std::vector<float>(rows * decoderWidth, 0.0f),
                       std::vector<float>(rows, 0.0f), std::vector<float>(rows, 0.0f)};
    int64_t frame = 0;
    for (size_t token = 0; token < counts.size(); ++token) {
        const int64_t count = counts[token];
        if (count < 0 || count > frames - frame) {
            programmingError("token frame counts do not sum to " + std::to_string(frames));
        }
        const float* source = features.data() + token * encoderWidth;
        for (int64_t j = 0; j < count; ++j, ++frame) {
            float* row = input.x.data() + frame * decoderWidth;
            std::copy_n(source, encoderWidth, row);
            row[encoderWidth] = (static_cast<float>(j) + 0.5f) / static_cast<float>(count);
        }
    }
    if (frame != frames) {
        programmingError("token frame counts do not sum to " + std::to_string(frames));
    }
    std::fill_n(input.mask.begin(), frames, 1.0f);
    input.last[static_cast<size_t>(frames - 1)] = 1.0f;
    return input;
}

namespace {

std::string shapeText(const std::vector<int64_t>& shape) {
    std::string text = "[";
    for (size_t i = 0; i < shape.size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(shape[i]);
    }
    return text + "]";
}

template <typename T>
StridedMatrix<T> outputMatrix(const Ort::Value& tensor, int64_t rows, int64_t columns) {
    std::vector<int64_t> shape = tensor.GetTensorTypeAndShapeInfo().GetShape();
    bool fits = false;
    StridedMatrix<T> matrix{static_cast<const T*>(tensor.GetTensorRawData()), 0, 1, 1, 1};
    if (shape.size() == 2 && shape[0] >= 1) {
        matrix.rows = shape[1];
        fits = shape[1] >= rows && columns <= 1;
    } else if (shape.size() == 3 && shape[0] >= 1) {
        matrix.rows = shape[1];
        matrix.columns = shape[2];
        matrix.rowStride = shape[2];
        fits = shape[1] >= rows && shape[2] >= columns;
    }
    if (!fits) {
        throw VoiceError::failed("an output has shape " + shapeText(shape));
    }
    return matrix;
}

}  // namespace

const Ort::Value* tensorOutput(const std::map<std::string, Ort::Value>& outputs,
                               const std::string& name) {
    auto output = outputs.find(name);
    if (output == outputs.end() || !output->second || !output->second.IsTensor()) {
        return nullptr;
    }
    return &output->second;
}

void requireElementType(const Ort::Value& tensor, int64_t expectedCode) {
    int64_t code = elementTypeCode(tensor.GetTensorTypeAndShapeInfo().GetElementType());
    if (code != expectedCode) {
        throw VoiceError::failed("an output is " + std::to_string(code) + ", not " +
                                 std::to_string(expectedCode));
    }
}

StridedMatrix<float> floatOutput(const Ort::Value& tensor, int64_t rows, int64_t columns) {
    return outputMatrix<float>(tensor, rows, columns);
}

StridedMatrix<uint16_t> halfOutput(const Ort::Value& tensor, int64_t rows, int64_t columns) {
    return outputMatrix<uint16_t>(tensor, rows, columns);
}

std::vector<float> waveformOutput(const Ort::Value& tensor, size_t lowestRank, size_t highestRank,
                                  const std::string& model) {
    const Ort::TensorTypeAndShapeInfo info = tensor.GetTensorTypeAndShapeInfo();
    const int64_t code = elementTypeCode(info.GetElementType());
    if (code != float32Code) {
        throw VoiceError::failed(model + ": an output is " + std::to_string(code) + ", not " +
                                 std::to_string(float32Code));
    }
    const std::vector<int64_t> shape = info.GetShape();
    const bool fits = shape.size() >= lowestRank && shape.size() <= highestRank && !shape.empty() &&
                      shape.back() >= 0 &&
                      std::all_of(shape.begin(), shape.end() - 1,
                                  [](int64_t dimension) { return dimension == 1; });
    if (!fits) {
        throw VoiceError::failed(model + ": an output has shape " + shapeText(shape));
    }
    const auto* samples = static_cast<const float*>(tensor.GetTensorRawData());
    return std::vector<float>(samples, samples + shape.back());
}

}  // namespace murmela
