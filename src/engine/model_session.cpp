#include "engine/model_session.h"

#include <onnxruntime_session_options_config_keys.h>
#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace murmela {
namespace {

std::vector<std::string> names(size_t count, auto nameAt) {
    Ort::AllocatorWithDefaultOptions allocator;
    std::vector<std::string> result;
    result.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        result.emplace_back(nameAt(i, allocator).get());
    }
    return result;
}

Ort::SessionOptions sessionOptions() {
    Ort::SessionOptions options;
    options.SetIntraOpNumThreads(physicalCoreCount());
    // A desktop program shares its cores. Threads that spin between operators take the core
    // from the thread holding the work whenever another program keeps a core busy: on two
    // cores, one of them busy, the voices rendered 3 to 5 times slower than with blocking.
    options.AddConfigEntry(kOrtSessionOptionsConfigAllowIntraOpSpinning, "0");
    options.SetGraphOptimizationLevel(GraphOptimizationLevel::ORT_ENABLE_ALL);
    // Optimised graphs stay in memory: nothing is ever written beside the model.
    return options;
}

}  // namespace

Ort::Env& runtimeEnvironment() {
    static Ort::Env* environment = [] {
        // Every failure reaches the caller as an exception and is reported there, worded for
        // the user; the runtime's own log lines would only repeat it on standard error.
        auto* made = new Ort::Env(ORT_LOGGING_LEVEL_FATAL, "murmela");
        // An offline program reports nothing about itself to anyone.
        made->DisableTelemetryEvents();
        return made;
    }();
    return *environment;
}

int physicalCoreCount() {
    // Only the CPUs this thread may run on count (taskset, a container's cpuset): a pool with
    // more threads than those takes turns with itself, and on one core rendered at a third of
    // the speed.
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    const bool knowsAllowed = sched_getaffinity(0, sizeof allowed, &allowed) == 0;
    std::set<std::pair<std::string, std::string>> cores;
    for (unsigned cpu = 0;; ++cpu) {
        std::filesystem::path topology =
            "/sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology";
        std::ifstream package(topology / "physical_package_id");
        std::ifstream core(topology / "core_id");
        if (!package || !core) {
            break;
        }
        if (knowsAllowed && (cpu >= CPU_SETSIZE || !CPU_ISSET(cpu, &allowed))) {
            continue;
        }
        std::string packageId, coreId;
        package >> packageId;
        core >> coreId;
        cores.emplace(packageId, coreId);
    }
    if (!cores.empty()) {
        return static_cast<int>(cores.size());
    }
    if (knowsAllowed) {
        return std::max(1, CPU_COUNT(&allowed));
    }
    return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

ModelSession::ModelSession(const std::filesystem::path& file)
    : session_(runtimeEnvironment(), file.c_str(), sessionOptions()) {
    inputNames_ = names(session_.GetInputCount(), [this](size_t i, auto& allocator) {
        return session_.GetInputNameAllocated(i, allocator);
    });
    for (size_t i = 0; i < inputNames_.size(); ++i) {
        const Ort::TypeInfo type = session_.GetInputTypeInfo(i);
        inputTypes_.push_back(type.GetONNXType() == ONNX_TYPE_TENSOR
                                  ? type.GetTensorTypeAndShapeInfo().GetElementType()
                                  : ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED);
    }
    outputNames_ = names(session_.GetOutputCount(), [this](size_t i, auto& allocator) {
        return session_.GetOutputNameAllocated(i, allocator);
    });
}

std::map<std::string, Ort::Value> ModelSession::run(
    std::vector<std::pair<std::string, Ort::Value>> inputs, const Ort::RunOptions& options) {
    std::vector<const char*> inputNames;
    std::vector<Ort::Value> inputValues;
    inputNames.reserve(inputs.size());
    inputValues.reserve(inputs.size());
    for (auto& [name, value] : inputs) {
        inputNames.push_back(name.c_str());
        inputValues.push_back(std::move(value));
    }
    std::vector<const char*> outputNames;
    outputNames.reserve(outputNames_.size());
    for (const std::string& name : outputNames_) {
        outputNames.push_back(name.c_str());
    }
    std::vector<Ort::Value> outputs =
        session_.Run(options, inputNames.data(), inputValues.data(), inputValues.size(),
                     outputNames.data(), outputNames.size());
    std::map<std::string, Ort::Value> named;
    for (size_t i = 0; i < outputs.size(); ++i) {
        named.emplace(outputNames_[i], std::move(outputs[i]));
    }
    return named;
}

bool ModelSession::hasInput(std::string_view name, ONNXTensorElementDataType type) const {
    for (size_t i = 0; i < inputNames_.size(); ++i) {
        if (inputNames_[i] == name && inputTypes_[i] == type) {
            return true;
        }
    }
    return false;
}

}  // namespace murmela
