#pragma once
// One loaded ONNX model. The runtime session is wrapped here and nowhere else, so the rest of
// the engine sees named tensors in and named tensors out.
//
// A session may be run from one thread at a time; the engine never runs one model concurrently.

#include <onnxruntime_cxx_api.h>

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace murmela {

// Where a model may run. The accelerator is used only where the runtime offers one; the CPU
// is always there.
enum class ComputeUnits { cpuOnly, cpuAndAccelerator };

// The runtime's process-wide environment, made on first use and never destroyed.
Ort::Env& runtimeEnvironment();

// Number of physical cores (not hardware threads): the runtime's intra-op thread count.
int physicalCoreCount();

class ModelSession {
public:
    // Loads the model file; the runtime's own exception (Ort::Exception) is passed on.
    ModelSession(const std::filesystem::path& file, ComputeUnits units);

    // Runs the model on the named inputs and returns every output the model declares, by name.
    // The runtime's own exception is passed on.
    std::map<std::string, Ort::Value> run(std::vector<std::pair<std::string, Ort::Value>> inputs);

    const std::vector<std::string>& inputNames() const { return inputNames_; }
    const std::vector<std::string>& outputNames() const { return outputNames_; }

private:
    Ort::Session session_;
    std::vector<std::string> inputNames_;
    std::vector<std::string> outputNames_;
};

}  // namespace murmela
