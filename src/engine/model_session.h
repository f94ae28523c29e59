#pragma once
// The model runtime, wrapped here and nowhere else: one loaded ONNX model per session, so the
// rest of the engine sees named tensors in and named tensors out.
//
// A session may be run from one thread at a time; the engine never runs one model concurrently.

#include <onnxruntime_c_api.h>
#include <onnxruntime_cxx_api.h>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace murmela {

// The runtime's process-wide environment, made on first use and never destroyed.
Ort::Env& runtimeEnvironment();

// Number of physical cores (not hardware threads) that the calling thread may run on, read
// afresh on every call: the runtime's intra-op thread count.
int physicalCoreCount();

class ModelSession {
public:
    // Loads the model file to run on the CPU, the one provider every build of the runtime has;
    // the runtime's own exception (Ort::Exception) is passed on.
    explicit ModelSession(const std::filesystem::path& file);

    // Runs the model on the named inputs and returns every output the model declares, by name.
    // The runtime's own exception is passed on, also when `options` asks the run to end early.
    std::map<std::string, Ort::Value> run(std::vector<std::pair<std::string, Ort::Value>> inputs,
                                          const Ort::RunOptions& options);

    const std::vector<std::string>& inputNames() const { return inputNames_; }
    const std::vector<std::string>& outputNames() const { return outputNames_; }

    // Whether the model has an input of this name and element type.
    bool hasInput(std::string_view name, ONNXTensorElementDataType type) const;

private:
    Ort::Session session_;
    std::vector<std::string> inputNames_;
    // The element type of each input, in the order of inputNames_; a non-tensor input has
    // ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED.
    std::vector<ONNXTensorElementDataType> inputTypes_;
    std::vector<std::string> outputNames_;
};

}  // namespace murmela
