#include "engine/element_type.h"

namespace murmela {

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

}  // namespace murmela
