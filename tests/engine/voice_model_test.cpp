// The acoustic model runner on the test voice, whose outputs can be computed exactly, and on
// deliberately broken models, whose errors must read exactly as the user is meant to see them.

#include "engine/voice_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "engine/model_io.h"
#include "istft_reference.h"
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

// The test voice's samples for `ids` framed by boundary tokens, `counts` frames each: each
// frame one tone of the token's bin, amplitude and phase, through the reference transform.
void expectToneFrames(const SynthesisResult& result, std::vector<int64_t> ids,
                      const std::vector<int64_t>& counts) {
    ids.insert(ids.begin(), 0);
    ids.push_back(0);
    ASSERT_EQ(result.frameCounts, counts);
    std::vector<float> mag, phases;
    for (size_t token = 0; token < ids.size(); ++token) {
        for (int64_t frame = 0; frame < counts[token]; ++frame) {
            const size_t start = mag.size();
            mag.resize(start + 513, 0.0f);
            phases.resize(start + 513, 0.0f);
            mag[start + static_cast<size_t>(toneBin(ids[token]))] = amplitude(ids[token]);
            phases[start + static_cast<size_t>(toneBin(ids[token]))] = phase(ids[token]);
        }
    }
    const std::vector<double> expected =
        testing::referenceIstft(mag, phases, static_cast<int64_t>(mag.size() / 513));
    ASSERT_EQ(result.samples.size(), expected.size());
    double loudest = 0.0;
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_NEAR(result.samples[i], expected[i], 2e-5) << "sample " << i;
        loudest = std::max(loudest, std::abs(expected[i]));
    }
    EXPECT_GT(loudest, 0.1);  // the comparison was not of silence
}

std::string errorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const VoiceError& error) {
        return error.what();
    }
    return "(no VoiceError)";
}

TEST_F(VoiceModelTest, AChunksSamplesAreTheVoicesToneFramesAtTheSpeed) {
    VoiceModel model = openTestVoice();
    // 2 * max(id % 4, 1) frames per token, the boundary tokens (0) included.
    const std::vector<int64_t> ids = {43, 50, 1, 22, 7};
    expectToneFrames(model.synthesizeChunk(ids, 1.0), ids, {2, 6, 4, 2, 4, 6, 2});
    const std::vector<int64_t> twice = {43, 43};  // 43 % 4 = 3: v = 3 / speed
    EXPECT_EQ(model.synthesizeChunk(twice, 1.5).frameCounts, (std::vector<int64_t>{2, 4, 4, 2}));
    expectToneFrames(model.synthesizeChunk(twice, 0.75), twice, {2, 8, 8, 2});
}

TEST_F(VoiceModelTest, TheFirstBucketThatHoldsTheChunkInFileOrderIsUsed) {
    VoiceModel model = open({16, 64}, {8, 256});
    EXPECT_EQ(model.encoderBuckets(), (std::vector<int64_t>{16, 64}));
    EXPECT_EQ(model.decoderBuckets(), (std::vector<int64_t>{8, 256}));
    const std::vector<int64_t> largerFirst = {64, 16};
    EXPECT_EQ(chooseBucket(largerFirst, 3), 64);
    EXPECT_EQ(chooseBucket(largerFirst, 65), std::nullopt);
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 3), 16);
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 17), 64);
    // [5] framed is three tokens in an encoder bucket of 16 and 6 frames in one of 8.
    const std::vector<int64_t> ids = {5};
    expectToneFrames(model.synthesizeChunk(ids, 1.0), ids, {2, 2, 2});
}

TEST_F(VoiceModelTest, TooManyTokensOrNoFramesAreErrors) {
    VoiceModel model = open({2}, {256});
    EXPECT_EQ(errorText([&] { model.synthesizeChunk(std::vector<int64_t>{5}, 1.0); }),
              "voice: 3 ids is past the encoder");
    EXPECT_EQ(errorText([&] { model.encode({}); }), "voice: 0 ids is past the encoder");
    VoiceModel::Encoded two = model.encode(std::vector<int64_t>{43, 44});
    EXPECT_EQ(errorText([&] { model.decode(two.features, std::vector<int64_t>{}); }),
              "voice: no frames");
    EXPECT_EQ(errorText([&] {
                  model.decode(two.features, std::vector<int64_t>{0, 0});
              }),
              "voice: no frames");
}

TEST_F(VoiceModelTest, FramesPastTheLargestDecoderBucketAreTooLong) {
    VoiceModel model = open({512}, {200, 800});
    // 132 tokens of 6 frames, one of 4 and the two boundary tokens: 800 frames exactly.
    std::vector<int64_t> ids(132, 3);
    ids.push_back(2);
    EXPECT_EQ(model.synthesizeChunk(ids, 1.0).samples.size(), 800u * 300u);
    ids.push_back(1);  // two more frames
    try {
        model.synthesizeChunk(ids, 1.0);
        ADD_FAILURE() << "no TooLong";
    } catch (const TooLong& tooLong) {
        EXPECT_EQ(tooLong.frames, 802);
    }
    // decode on its own, with any counts.
    VoiceModel::Encoded one = model.encode(std::vector<int64_t>{43});
    EXPECT_THROW(model.decode(one.features, std::vector<int64_t>{801}), TooLong);
    VoiceModel::Spectrogram exact = model.decode(one.features, std::vector<int64_t>{800});
    EXPECT_EQ(exact.frames, 800);
    EXPECT_EQ(exact.mag.size(), 800u * 513u);
    EXPECT_EQ(exact.mag[799 * 513 + static_cast<size_t>(toneBin(43))], amplitude(43));
    EXPECT_EQ(exact.phase[799 * 513 + 500], phase(43));
}

TEST_F(VoiceModelTest, BrokenModelsGiveTheirExactErrorsAndTheRuntimesOwnPassesThrough) {
    const struct {
        const char* model;
        const char* stem;
        const char* text;
    } cases[] = {
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
    for (const auto& broken : cases) {
        Programs programs = intactPrograms;
        programs[broken.model] = broken.stem;
        VoiceModel model = open({32}, {256}, programs);
        EXPECT_EQ(errorText([&] { model.synthesizeChunk(ids, 1.0); }), broken.text) << broken.stem;
    }
    const std::vector<int64_t> pastTheTable = {300};
    EXPECT_THROW(openTestVoice().synthesizeChunk(pastTheTable, 1.0), Ort::Exception);
}

}  // namespace
}  // namespace murmela
