// The acoustic model runner on the test voice, whose outputs can be computed exactly, and on
// deliberately broken models, whose errors must read exactly as the user is meant to see them.

#include "engine/voice_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "engine/model_io.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace testing::test_voice;

using Programs = std::map<std::string, std::string>;
const Programs intactPrograms = {
    {"encoder", "encoder"}, {"decoder", "decoder"}, {"vocoder", "vocoder"}};

// A voice directory with the test voice's models, the broken ones beside them, and a
// voice.json of the test's choosing.
class VoiceModelTest : public ::testing::Test {
protected:
    VoiceModel open(std::vector<int64_t> encoderBuckets, std::vector<int64_t> decoderBuckets,
                    const Programs& programs = intactPrograms) {
        std::filesystem::copy(MURMELA_BROKEN_VOICES_DIR, voice.path(),
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::overwrite_existing);
        nlohmann::json description = {{"interface",
                                       {{"sampleRate", 24000},
                                        {"hop", 300},
                                        {"nFft", 1024},
                                        {"enc", 256},
                                        {"encoderBuckets", encoderBuckets},
                                        {"decoderBuckets", decoderBuckets}}},
                                      {"programs", programs}};
        testing::writeText(voice / "voice.json", description.dump());
        return VoiceModel(VoiceFiles(voice.path()));
    }

    VoiceModel openTestVoice() { return VoiceModel(VoiceFiles(testing::testVoiceDirectory())); }

    testing::TemporaryDirectory voice;
};

// What the test voice makes of framed tokens, computed from its formulas: each frame is one
// tone (the token's bin, amplitude and phase), inverse-transformed naively in double
// precision, Hann-windowed, overlap-added at 300 and normalised by the summed squared window.
std::vector<double> expectedSamples(const std::vector<int64_t>& tokens,
                                    const std::vector<int64_t>& counts) {
    constexpr int n = 1024, hop = 300, pad = 362;
    constexpr double pi = std::numbers::pi;
    std::vector<int64_t> tokenOfFrame;
    for (size_t i = 0; i < tokens.size(); ++i) {
        tokenOfFrame.insert(tokenOfFrame.end(), static_cast<size_t>(counts[i]), tokens[i]);
    }
    const auto frames = static_cast<int64_t>(tokenOfFrame.size());
    std::vector<double> sum(static_cast<size_t>((frames - 1) * hop + n), 0.0);
    std::vector<double> squares(sum.size(), 0.0);
    for (int64_t t = 0; t < frames; ++t) {
        int64_t id = tokenOfFrame[static_cast<size_t>(t)];
        for (int j = 0; j < n; ++j) {
            double value = 0.0;
            for (int k = 0; k <= n / 2; ++k) {
                double magnitude = k == toneBin(id) ? amplitude(id) : 0.0;
                if (magnitude == 0.0) {
                    continue;
                }
                double angle = 2.0 * pi * k * j / n + phase(id);
                value += (k == 0 || k == n / 2 ? 1.0 : 2.0) * magnitude * std::cos(angle) / n;
            }
            double window = 0.5 - 0.5 * std::cos(2.0 * pi * j / n);
            sum[static_cast<size_t>(t * hop + j)] += value * window;
            squares[static_cast<size_t>(t * hop + j)] += window * window;
        }
    }
    std::vector<double> samples(static_cast<size_t>(frames * hop));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = sum[pad + i] / std::max(squares[pad + i], 1e-11);
    }
    return samples;
}

std::string errorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const VoiceError& error) {
        return error.what();
    }
    return "(no VoiceError)";
}

TEST_F(VoiceModelTest, AChunksSamplesAreTheVoicesToneFrames) {
    VoiceModel model = openTestVoice();
    const std::vector<int64_t> ids = {43, 50, 1, 22, 7};
    SynthesisResult result = model.synthesizeChunk(ids, 1.0);

    // 2 * max(id % 4, 1) frames per token, the boundary tokens (0) included.
    const std::vector<int64_t> counts = {2, 6, 4, 2, 4, 6, 2};
    ASSERT_EQ(result.frameCounts, counts);
    ASSERT_EQ(result.samples.size(), 26u * 300u);
    std::vector<double> expected = expectedSamples({0, 43, 50, 1, 22, 7, 0}, counts);
    double loudest = 0.0;
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_NEAR(result.samples[i], expected[i], 2e-5) << "sample " << i;
        loudest = std::max(loudest, std::abs(expected[i]));
    }
    EXPECT_GT(loudest, 0.1);  // the comparison was not of silence
}

TEST_F(VoiceModelTest, SpeedShortensTheChunk) {
    VoiceModel model = openTestVoice();
    const std::vector<int64_t> ids = {43, 43};  // 43 % 4 = 3: v = 3 / speed
    EXPECT_EQ(model.synthesizeChunk(ids, 1.5).frameCounts, (std::vector<int64_t>{2, 4, 4, 2}));
    SynthesisResult slow = model.synthesizeChunk(ids, 0.75);
    EXPECT_EQ(slow.frameCounts, (std::vector<int64_t>{2, 8, 8, 2}));
    EXPECT_EQ(slow.samples.size(), 20u * 300u);
}

TEST_F(VoiceModelTest, BucketsKeepTheirFileOrder) {
    VoiceModel model = open({64, 16}, {1024, 256});
    EXPECT_EQ(model.encoderBuckets(), (std::vector<int64_t>{64, 16}));
    EXPECT_EQ(model.decoderBuckets(), (std::vector<int64_t>{1024, 256}));
    // The first that holds the length, not the smallest.
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 3), 64);
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 64), 64);
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 65), std::nullopt);
    EXPECT_EQ(chooseBucket(std::vector<int64_t>{16, 64}, 3), 16);
    EXPECT_EQ(chooseBucket(std::vector<int64_t>{16, 64}, 17), 64);
}

TEST_F(VoiceModelTest, ChunksFitTheSmallBucketsToo) {
    // [5] framed is three tokens in an encoder bucket of 16.
    VoiceModel model = open({16, 64}, {8, 256});
    const std::vector<int64_t> ids = {5};
    SynthesisResult result = model.synthesizeChunk(ids, 1.0);
    ASSERT_EQ(result.frameCounts, (std::vector<int64_t>{2, 2, 2}));
    std::vector<double> expected = expectedSamples({0, 5, 0}, result.frameCounts);
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_NEAR(result.samples[i], expected[i], 2e-5) << "sample " << i;
    }
}

TEST_F(VoiceModelTest, TooManyTokensForEveryEncoderBucket) {
    VoiceModel model = open({2}, {256});
    const std::vector<int64_t> ids = {5};
    EXPECT_EQ(errorText([&] { model.synthesizeChunk(ids, 1.0); }),
              "voice: 3 ids is past the encoder");
    EXPECT_EQ(errorText([&] { model.encode({}); }), "voice: 0 ids is past the encoder");
}

TEST_F(VoiceModelTest, FramesPastTheLargestDecoderBucketAreTooLong) {
    VoiceModel model = open({512}, {200, 800});
    // 132 tokens of 6 frames, one of 4 and the two boundary tokens: 800 frames exactly.
    std::vector<int64_t> ids(132, 3);
    ids.push_back(2);
    SynthesisResult fits = model.synthesizeChunk(ids, 1.0);
    EXPECT_EQ(fits.samples.size(), 800u * 300u);

    ids.push_back(1);  // two more frames
    try {
        model.synthesizeChunk(ids, 1.0);
        ADD_FAILURE() << "no TooLong";
    } catch (const TooLong& tooLong) {
        EXPECT_EQ(tooLong.frames, 802);
    }

    // decode on its own, with any counts.
    VoiceModel::Encoded one = model.encode(std::vector<int64_t>{43});
    try {
        model.decode(one.features, std::vector<int64_t>{801});
        ADD_FAILURE() << "no TooLong";
    } catch (const TooLong& tooLong) {
        EXPECT_EQ(tooLong.frames, 801);
    }
    VoiceModel::Spectrogram exact = model.decode(one.features, std::vector<int64_t>{800});
    EXPECT_EQ(exact.frames, 800);
    EXPECT_EQ(exact.mag.size(), 800u * 513u);
    EXPECT_EQ(exact.mag[799 * 513 + static_cast<size_t>(toneBin(43))], amplitude(43));
    EXPECT_EQ(exact.phase[799 * 513 + 500], phase(43));
}

TEST_F(VoiceModelTest, NoFramesIsAnError) {
    VoiceModel model = openTestVoice();
    VoiceModel::Encoded two = model.encode(std::vector<int64_t>{43, 44});
    EXPECT_EQ(errorText([&] { model.decode(two.features, std::vector<int64_t>{}); }),
              "voice: no frames");
    EXPECT_EQ(errorText([&] {
                  model.decode(two.features, std::vector<int64_t>{0, 0});
              }),
              "voice: no frames");
}

TEST_F(VoiceModelTest, TheRuntimesOwnErrorPassesThrough) {
    VoiceModel model = openTestVoice();
    const std::vector<int64_t> ids = {300};  // past the test encoder's table
    EXPECT_THROW(model.synthesizeChunk(ids, 1.0), Ort::Exception);
}

TEST(ElementTypeCode, NamesTypesByTheirOwnCodes) {
    EXPECT_EQ(elementTypeCode(ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16), 65552);
    EXPECT_EQ(elementTypeCode(ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT), 65568);
    EXPECT_EQ(elementTypeCode(ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32), 131104);
    EXPECT_EQ(elementTypeCode(ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE), 65600);
}

struct Broken {
    const char* model;
    const char* stem;
    const char* text;
};

TEST_F(VoiceModelTest, BrokenModelsGiveTheirExactErrors) {
    const Broken cases[] = {
        {"encoder", "encoder-no-logd", "voice: the encoder gave no e or logd"},
        {"encoder", "encoder-no-e", "voice: the encoder gave no e or logd"},
        {"encoder", "encoder-logd-sequence", "voice: the encoder gave no e or logd"},
        {"encoder", "encoder-e-float16", "voice: an output is 65552, not 65568"},
        {"encoder", "encoder-logd-int32", "voice: an output is 131104, not 65568"},
        {"encoder", "encoder-short-e", "voice: an output has shape [1, 2, 256]"},
        {"decoder", "decoder-no-mel", "voice: the decoder gave no mel"},
        {"decoder", "decoder-mel-float16", "voice: an output is 65552, not 65568"},
        {"vocoder", "vocoder-no-phase", "voice: the vocoder gave no mag or phase"},
        {"vocoder", "vocoder-no-mag", "voice: the vocoder gave no mag or phase"},
        {"vocoder", "vocoder-mag-float32", "voice: an output is 65568, not 65552"},
        {"vocoder", "vocoder-phase-float32", "voice: an output is 65568, not 65552"},
    };
    const std::vector<int64_t> ids = {5};
    for (const Broken& broken : cases) {
        Programs programs = intactPrograms;
        programs[broken.model] = broken.stem;
        VoiceModel model = open({32}, {256}, programs);
        EXPECT_EQ(errorText([&] { model.synthesizeChunk(ids, 1.0); }), broken.text) << broken.stem;
    }
}

}  // namespace
}  // namespace murmela
