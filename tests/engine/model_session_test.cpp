// ONNX Runtime loads and runs each model of the test voice, and the outputs are what the
// generator says they are.

#include "engine/model_session.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace testing::test_voice;

Ort::MemoryInfo cpu() {
    return Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
}

template <typename T>
Ort::Value tensor(std::vector<T>& data, std::vector<int64_t> shape) {
    return Ort::Value::CreateTensor<T>(cpu(), data.data(), data.size(), shape.data(), shape.size());
}

ModelSession load(const char* stem, ComputeUnits units = ComputeUnits::cpuOnly) {
    return ModelSession(testing::testVoiceDirectory() / (std::string(stem) + ".onnx"), units);
}

TEST(ModelSession, EncoderGivesFeaturesAndDurationsPerToken) {
    ModelSession encoder = load("encoder");
    EXPECT_EQ(encoder.inputNames(), (std::vector<std::string>{"ids", "mask"}));
    std::vector<int32_t> ids(32, 0);
    std::vector<float> mask(32, 0.0f);
    const std::array<int32_t, 3> tokens = {0, 43, 0};
    for (size_t i = 0; i < tokens.size(); ++i) {
        ids[i] = tokens[i];
        mask[i] = 1.0f;
    }
    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back("ids", tensor(ids, {1, 32}));
    inputs.emplace_back("mask", tensor(mask, {1, 32}));
    auto outputs = encoder.run(std::move(inputs));

    Ort::Value& e = outputs.at("e");
    EXPECT_EQ(e.GetTensorTypeAndShapeInfo().GetShape(), (std::vector<int64_t>{1, 32, 256}));
    const float* features = e.GetTensorData<float>();
    for (int channel : {0, 1, 2, 3, 100, 255}) {
        EXPECT_EQ(features[1 * 256 + channel], feature(43, channel)) << channel;
        EXPECT_EQ(features[0 * 256 + channel], 0.0f);
    }
    const float* logd = outputs.at("logd").GetTensorData<float>();
    EXPECT_FLOAT_EQ(logd[1], logDuration(43));
    EXPECT_EQ(logd[5], 0.0f);
}

TEST(ModelSession, DecoderAndVocoderRunOnAnyBucketSize) {
    ModelSession decoder = load("decoder");
    ModelSession vocoder = load("vocoder", ComputeUnits::cpuAndAccelerator);
    for (int64_t frames : {8, 256}) {
        std::vector<float> x(static_cast<size_t>(frames) * 257, 0.0f);
        std::vector<float> mask(static_cast<size_t>(frames), 1.0f);
        std::vector<float> last(static_cast<size_t>(frames), 0.0f);
        x[0] = 100.0f;   // amplitude
        x[1] = 20.0f;    // tone bin
        x[2] = 0.5f;     // phase
        x[256] = 0.25f;  // position
        last[static_cast<size_t>(frames) - 1] = 1.0f;
        std::vector<std::pair<std::string, Ort::Value>> inputs;
        inputs.emplace_back("x", tensor(x, {1, frames, 257}));
        inputs.emplace_back("mask", tensor(mask, {1, frames}));
        inputs.emplace_back("last", tensor(last, {1, frames}));
        auto decoded = decoder.run(std::move(inputs));
        Ort::Value& mel = decoded.at("mel");
        ASSERT_EQ(mel.GetTensorTypeAndShapeInfo().GetShape(),
                  (std::vector<int64_t>{1, 100, frames}));
        const float* melData = mel.GetTensorData<float>();
        EXPECT_EQ(melData[0], 100.0f);
        EXPECT_EQ(melData[99 * frames], 0.25f);
        EXPECT_EQ(melData[98 * frames + frames - 1], 1.0f);

        std::vector<Ort::Float16_t> half(static_cast<size_t>(100 * frames));
        for (size_t i = 0; i < half.size(); ++i) {
            half[i] = Ort::Float16_t(melData[i]);
        }
        std::vector<std::pair<std::string, Ort::Value>> vocoderInputs;
        vocoderInputs.emplace_back("mel", tensor(half, {1, 100, frames}));
        auto spectra = vocoder.run(std::move(vocoderInputs));
        const auto* mag = spectra.at("mag").GetTensorData<Ort::Float16_t>();
        const auto* phase = spectra.at("phase").GetTensorData<Ort::Float16_t>();
        EXPECT_EQ(spectra.at("mag").GetTensorTypeAndShapeInfo().GetElementType(),
                  ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16);
        EXPECT_EQ(mag[20 * frames].ToFloat(), 100.0f);  // bin 20, frame 0
        EXPECT_EQ(mag[21 * frames].ToFloat(), 0.0f);
        EXPECT_EQ(phase[300 * frames].ToFloat(), 0.5f);
    }
}

TEST(ModelSession, InputOfTheWrongTypeGivesTheRuntimesError) {
    ModelSession vocoder = load("vocoder");
    std::vector<float> mel(100 * 4, 0.0f);  // float32 where float16 is declared
    std::vector<std::pair<std::string, Ort::Value>> inputs;
    inputs.emplace_back("mel", tensor(mel, {1, 100, 4}));
    EXPECT_THROW(vocoder.run(std::move(inputs)), Ort::Exception);
}

}  // namespace
}  // namespace murmela
