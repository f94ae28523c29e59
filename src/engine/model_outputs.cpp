#include "engine/model_outputs.h"

#include <string>
#include <vector>

#include "common/voice_error.h"
#include "engine/element_type.h"

namespace murmela {
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

}  // namespace murmela
