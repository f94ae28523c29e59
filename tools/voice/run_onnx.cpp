// Runs one ONNX model on inputs read from raw files and writes every output the same way, so
// the voice recipe (Python, which has no ONNX runtime here) can check its exported models
// against its numpy reference and time them.
//
//   run_onnx MODEL OUTDIR [--repeat N] [--profile PREFIX] NAME=TYPE:D0xD1x...:FILE ...
//
// TYPE is f32, f16 or i32; FILE holds the tensor's values, row-major, little-endian. Each
// output NAME is written to OUTDIR/NAME.bin with its type and shape in OUTDIR/NAME.shape.
// The model runs on one thread; the time of the fastest run is printed in milliseconds (on a
// shared machine the others measure the neighbours too).

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Input {
    std::string name;
    ONNXTensorElementDataType type;
    std::vector<int64_t> shape;
    std::vector<char> bytes;
};

[[noreturn]] void fail(const std::string& message) {
    std::cerr << "run_onnx: " << message << "\n";
    std::exit(2);
}

size_t elementSize(ONNXTensorElementDataType type) {
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
            return 4;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
            return 2;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
            return 8;
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
            return 1;
        default:
            fail("unsupported element type " + std::to_string(type));
    }
}

std::string typeName(ONNXTensorElementDataType type) {
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
            return "f32";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
            return "f16";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
            return "i32";
        default:
            return std::to_string(type);
    }
}

Input parseInput(const std::string& argument) {
    const size_t equals = argument.find('=');
    const size_t colon1 = argument.find(':', equals);
    const size_t colon2 = argument.find(':', colon1 + 1);
    if (equals == std::string::npos || colon1 == std::string::npos || colon2 == std::string::npos) {
        fail("bad input " + argument);
    }
    Input input;
    input.name = argument.substr(0, equals);
    const std::string type = argument.substr(equals + 1, colon1 - equals - 1);
    if (type == "f32") {
        input.type = ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
    } else if (type == "f16") {
        input.type = ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16;
    } else if (type == "i32") {
        input.type = ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32;
    } else {
        fail("bad type " + type);
    }
    std::stringstream dims(argument.substr(colon1 + 1, colon2 - colon1 - 1));
    std::string dim;
    size_t count = 1;
    while (std::getline(dims, dim, 'x')) {
        input.shape.push_back(std::stoll(dim));
        count *= static_cast<size_t>(input.shape.back());
    }
    std::ifstream file(argument.substr(colon2 + 1), std::ios::binary);
    input.bytes.assign(std::istreambuf_iterator<char>(file), {});
    if (input.bytes.size() != count * elementSize(input.type)) {
        fail("file size does not match the shape of " + input.name);
    }
    return input;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fail("usage: run_onnx MODEL OUTDIR [--repeat N] NAME=TYPE:DIMS:FILE ...");
    }
    const std::string outdir = argv[2];
    int repeat = 1;
    std::string profile;
    std::vector<Input> inputs;
    for (int i = 3; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--repeat" && i + 1 < argc) {
            repeat = std::max(1, std::atoi(argv[++i]));
        } else if (argument == "--profile" && i + 1 < argc) {
            profile = argv[++i];
        } else {
            inputs.push_back(parseInput(argument));
        }
    }

    Ort::Env env(ORT_LOGGING_LEVEL_WARNING, "run_onnx");
    Ort::SessionOptions options;
    options.SetIntraOpNumThreads(1);
    options.SetInterOpNumThreads(1);
    if (!profile.empty()) {
        options.EnableProfiling(profile.c_str());
    }
    Ort::Session session(env, argv[1], options);
    Ort::MemoryInfo memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);

    std::vector<const char*> inputNames;
    std::vector<Ort::Value> values;
    for (Input& input : inputs) {
        inputNames.push_back(input.name.c_str());
        values.push_back(Ort::Value::CreateTensor(memory, input.bytes.data(), input.bytes.size(),
                                                  input.shape.data(), input.shape.size(),
                                                  input.type));
    }
    Ort::AllocatorWithDefaultOptions allocator;
    std::vector<std::string> outputNames;
    for (size_t i = 0; i < session.GetOutputCount(); ++i) {
        outputNames.push_back(session.GetOutputNameAllocated(i, allocator).get());
    }
    std::vector<const char*> outputPointers;
    for (const std::string& name : outputNames) {
        outputPointers.push_back(name.c_str());
    }

    std::vector<Ort::Value> outputs;
    double milliseconds = 0;
    for (int run = 0; run < repeat; ++run) {
        const auto started = std::chrono::steady_clock::now();
        outputs = session.Run(Ort::RunOptions{nullptr}, inputNames.data(), values.data(),
                              values.size(), outputPointers.data(), outputPointers.size());
        const double took =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started)
                .count();
        milliseconds = run == 0 ? took : std::min(milliseconds, took);
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
        const auto info = outputs[i].GetTensorTypeAndShapeInfo();
        const auto type = info.GetElementType();
        const auto shape = info.GetShape();
        std::ofstream data(outdir + "/" + outputNames[i] + ".bin", std::ios::binary);
        data.write(static_cast<const char*>(outputs[i].GetTensorRawData()),
                   static_cast<std::streamsize>(info.GetElementCount() * elementSize(type)));
        std::ofstream description(outdir + "/" + outputNames[i] + ".shape");
        description << typeName(type);
        for (int64_t dim : shape) {
            description << " " << dim;
        }
        description << "\n";
    }
    std::printf("%.3f\n", milliseconds);
    return 0;
}
