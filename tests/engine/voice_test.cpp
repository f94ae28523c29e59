// Opening a voice and running it, on the test voice, whose outputs can be computed exactly, and
// on deliberately broken ones, whose errors must read exactly as the user is meant to see them:
// voice.json's checks, the models, buckets, splitting what the decoder can't hold, speaking.

#include "engine/voice.h"
#include "engine/three_stage_voice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "common/voice_error.h"
#include "engine/tensor_layout.h"
#include "files/files.h"
#include "istft_reference.h"
#include "logging/log.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace testing::test_voice;

// Ids of the test voice (vocab.json): "," lasts 6 frames, "a" 2 frames.
constexpr int64_t comma = 7;
constexpr int64_t letter = 61;

// The test voice with the broken models beside its own, and a voice.json of the test's choosing.
class VoiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::copy(MURMELA_BROKEN_VOICES_DIR, directory.path(),
                              std::filesystem::copy_options::recursive);
    }

    // Changes voice.json by a JSON merge patch: null removes a member.
    void patch(const nlohmann::json& change) {
        auto description = nlohmann::json::parse(testing::readText(directory / "voice.json"));
        description.merge_patch(change);
        testing::writeText(directory / "voice.json", description.dump());
    }

    void describe(std::vector<int64_t> encoderBuckets, std::vector<int64_t> decoderBuckets,
                  const std::map<std::string, std::string>& programs = {}) {
        patch({{"interface",
                {{"encoderBuckets", encoderBuckets}, {"decoderBuckets", decoderBuckets}}},
               {"programs", programs}});
    }

    VoiceModel openModel() { return VoiceModel(VoiceFiles(directory.path())); }
    VoiceModel openModel(std::vector<int64_t> encoderBuckets, std::vector<int64_t> decoderBuckets,
                         const std::map<std::string, std::string>& programs = {}) {
        describe(encoderBuckets, decoderBuckets, programs);
        return openModel();
    }

    std::vector<std::string> logged;
    log::Capture capture{[this](log::Level, const std::string& line) { logged.push_back(line); }};
    testing::TemporaryDirectory directory;
};

TEST_F(VoiceTest, AnAbsentUnreadableMalformedOrWrongVoiceJsonHasItsOwnError) {
    auto read = [&] { VoiceFiles(directory.path()).readInterface(); };
    const std::string original = testing::readText(directory / "voice.json");
    std::filesystem::remove(directory / "voice.json");
    EXPECT_EQ(testing::voiceErrorText(read), "voice: voice.json missing");
    std::filesystem::create_directory(directory / "voice.json");  // exists, but can't be read
    EXPECT_EQ(testing::voiceErrorText(read), "voice: voice.json missing");
    std::filesystem::remove(directory / "voice.json");
    for (const char* text : {R"({"interface": {"sampleRate": 24000,)", "\xff\xfe{}"}) {
        testing::writeText(directory / "voice.json", text);
        EXPECT_THROW(read(), nlohmann::json::parse_error) << text;
    }

    const std::string file = "voice: voice.json unreadable";
    const std::string interface = "voice: voice.json interface unreadable";
    const std::pair<const char*, std::string> cases[] = {
        {R"([1])", file},
        {R"({"interface": null})", file},
        {R"({"programs": null})", file},
        {R"({"programs": {"encoder": 5}})", file},
        {R"({"programs": {"decoder": 5}, "interface": {"hop": 256}})", file},  // programs first
        {R"({"interface": {"sampleRate": 22050}})", interface},
        {R"({"interface": {"hop": 256}})", interface},
        {R"({"interface": {"nFft": null}})", interface},
        {R"({"interface": {"enc": 512}})", interface},
        {R"({"interface": {"encoderBuckets": []}})", interface},
        {R"({"interface": {"decoderBuckets": 1024}})", interface},
        {R"({"interface": {"decoderBuckets": [256, "x"]}})", interface},
        {R"({"interface": {"encoderBuckets": [64]}})", "(no VoiceError)"},  // one is enough
    };
    for (const auto& [change, text] : cases) {
        testing::writeText(directory / "voice.json", original);
        patch(nlohmann::json::parse(change));
        EXPECT_EQ(testing::voiceErrorText(read), text) << change;
    }
}

TEST_F(VoiceTest, LoadsEachModelAndNamesWhatIsMissingOrRefused) {
    patch({{"programs", {{"vocoder", nullptr}, {"decoder", "absent-decoder"}}}});
    VoiceFiles files(directory.path());
    VoiceInterface read = files.readInterface();
    EXPECT_EQ(files.loadModel("encoder", read.programs).outputNames(),
              (std::vector<std::string>{"e", "logd"}));
    EXPECT_EQ(testing::voiceErrorText([&] { files.loadModel("decoder", read.programs); }),
              "voice: absent-decoder missing");
    EXPECT_EQ(testing::voiceErrorText([&] { files.loadModel("vocoder", read.programs); }),
              "voice: voice.json programs.vocoder unreadable");
    // What the runtime refuses gives its own error; a directory where the file should be exists,
    // so it is the runtime that refuses it.
    testing::writeText(directory / "encoder.onnx", "this is not a model");
    EXPECT_THROW(files.loadModel("encoder", read.programs), Ort::Exception);
    std::filesystem::create_directory(directory / "absent-decoder.onnx");
    EXPECT_THROW(files.loadModel("decoder", read.programs), Ort::Exception);
}

TEST(Resources, VoiceIsLocatedInTheConfiguredOrDefaultResources) {
    ::setenv("MURMELA_RESOURCES", "/opt/somewhere/resources", 1);
    EXPECT_EQ(VoiceFiles::locate()->directory(), "/opt/somewhere/resources/Voice");
    ::setenv("MURMELA_RESOURCES", "", 1);
    std::filesystem::path expected =
        (*executableDirectory() / ".." / "share" / "murmela").lexically_normal() / "Voice";
    EXPECT_EQ(VoiceFiles::locate()->directory(), expected);
    ::unsetenv("MURMELA_RESOURCES");
    EXPECT_EQ(VoiceFiles::locate()->directory(), expected);
}

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

TEST_F(VoiceTest, AChunksSamplesAreTheVoicesToneFramesAtTheSpeed) {
    VoiceModel model = openModel();
    // 2 * max(id % 4, 1) frames per token, the boundary tokens (0) included.
    const std::vector<int64_t> ids = {43, 50, 1, 22, 7};
    expectToneFrames(model.synthesizeChunk(ids, 1.0), ids, {2, 6, 4, 2, 4, 6, 2});
    const std::vector<int64_t> twice = {43, 43};  // 43 % 4 = 3: v = 3 / speed
    EXPECT_EQ(model.synthesizeChunk(twice, 1.5).frameCounts, (std::vector<int64_t>{2, 4, 4, 2}));
    expectToneFrames(model.synthesizeChunk(twice, 0.75), twice, {2, 8, 8, 2});
}

TEST_F(VoiceTest, TheFirstBucketThatHoldsTheChunkInFileOrderIsUsed) {
    VoiceModel model = openModel({64, 16}, {8, 256});
    EXPECT_EQ(model.encoderBuckets(), (std::vector<int64_t>{64, 16}));
    EXPECT_EQ(model.decoderBuckets(), (std::vector<int64_t>{8, 256}));
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 3), 64);  // not the smallest
    EXPECT_EQ(chooseBucket(model.encoderBuckets(), 65), std::nullopt);
    EXPECT_EQ(chooseBucket(model.decoderBuckets(), 9), 256);
    // [5] framed is three tokens of 2 frames, in a decoder bucket of 8.
    const std::vector<int64_t> ids = {5};
    expectToneFrames(model.synthesizeChunk(ids, 1.0), ids, {2, 2, 2});
}

TEST_F(VoiceTest, TooManyTokensOrNoFramesAreErrors) {
    VoiceModel model = openModel({2}, {256});
    EXPECT_EQ(testing::voiceErrorText([&] { model.synthesizeChunk(std::vector<int64_t>{5}, 1.0); }),
              "voice: 3 ids is past the encoder");
    EXPECT_EQ(testing::voiceErrorText([&] { model.encode({}); }),
              "voice: 0 ids is past the encoder");
    VoiceModel::Encoded two = model.encode(std::vector<int64_t>{43, 44});
    for (const std::vector<int64_t>& counts : {std::vector<int64_t>{}, {0, 0}}) {
        EXPECT_EQ(testing::voiceErrorText([&] { model.decode(two.features, counts); }),
                  "voice: no frames");
    }
}

TEST_F(VoiceTest, FramesPastTheLargestDecoderBucketAreTooLong) {
    VoiceModel model = openModel({512}, {200, 800});
    // 132 tokens of 6 frames, one of 4 and the two boundary tokens: 800 frames exactly.
    std::vector<int64_t> ids(132, 3);
    ids.push_back(2);
    EXPECT_EQ(model.synthesizeChunk(ids, 1.0).samples.size(), 800u * 300u);
    ids.push_back(1);  // two more frames
    EXPECT_THAT([&] { model.synthesizeChunk(ids, 1.0); },
                ::testing::Throws<TooLong>(::testing::Field(&TooLong::frames, 802)));
    // decode on its own, with any counts.
    VoiceModel::Encoded one = model.encode(std::vector<int64_t>{43});
    EXPECT_THROW(model.decode(one.features, std::vector<int64_t>{801}), TooLong);
    VoiceModel::Spectrogram exact = model.decode(one.features, std::vector<int64_t>{800});
    EXPECT_EQ(exact.frames, 800);
    EXPECT_EQ(exact.mag.size(), 800u * 513u);
    EXPECT_EQ(exact.mag[799 * 513 + static_cast<size_t>(toneBin(43))], amplitude(43));
    EXPECT_EQ(exact.phase[799 * 513 + 500], phase(43));
}

TEST_F(VoiceTest, BrokenModelsGiveTheirExactErrorsAndTheRuntimesOwnPassesThrough) {
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
        std::map<std::string, std::string> programs = {
            {"encoder", "encoder"}, {"decoder", "decoder"}, {"vocoder", "vocoder"}};
        programs[broken.model] = broken.stem;
        VoiceModel model = openModel({32}, {256}, programs);
        EXPECT_EQ(testing::voiceErrorText([&] { model.synthesizeChunk(ids, 1.0); }), broken.text)
            << broken.stem;
    }
    const std::vector<int64_t> pastTheTable = {300};
    EXPECT_THROW(openModel().synthesizeChunk(pastTheTable, 1.0), Ort::Exception);
}

std::vector<int64_t> lettersWith(size_t count, int64_t separator, std::vector<size_t> at) {
    std::vector<int64_t> ids(count, letter);
    for (size_t position : at) {
        ids[position] = separator;
    }
    return ids;
}

// What synthesising the parts of `ids` cut at `ends` one by one and joining them gives.
SynthesisResult joinedParts(ThreeStageVoice& voice, std::span<const int64_t> ids,
                            std::vector<size_t> ends) {
    SynthesisResult joined;
    size_t begin = 0;
    for (size_t end : ends) {
        SynthesisResult part = voice.model().synthesizeChunk(ids.subspan(begin, end - begin), 1.0);
        joined.frameCounts.insert(joined.frameCounts.end(), part.frameCounts.begin(),
                                  part.frameCounts.end());
        joined.samples.insert(joined.samples.end(), part.samples.begin(), part.samples.end());
        begin = end;
    }
    return joined;
}

void expectSame(const SynthesisResult& actual, const SynthesisResult& expected) {
    EXPECT_EQ(actual.frameCounts, expected.frameCounts);
    EXPECT_EQ(actual.samples, expected.samples);
}

TEST_F(VoiceTest, TooManyFramesSplitsAfterTheCommaNearestTheMiddleAndJoinsThePartsAsTheyAre) {
    const std::vector<int64_t> ids = lettersWith(40, comma, {10, 30});  // 92 frames in all
    {
        ThreeStageVoice whole(
            directory.path());  // what fits is synthesised whole, without a log line
        expectSame(whole.synthesize(ids, 1.0), joinedParts(whole, ids, {40}));
        EXPECT_TRUE(logged.empty());
    }
    // The last bucket (not the largest) is the one the log line names. Commas at 10 and 30 are
    // equally near the middle: the earlier wins, and the right part (66 frames) is split again
    // after its own comma.
    describe({512}, {64, 32});
    ThreeStageVoice voice(directory.path());
    expectSame(voice.synthesize(ids, 1.0), joinedParts(voice, ids, {11, 31, 40}));
    EXPECT_EQ(logged,
              (std::vector<std::string>{"voice: 92 frames is past 32; splitting the chunk",
                                        "voice: 66 frames is past 32; splitting the chunk"}));
}

TEST_F(VoiceTest, OneIdTooLongForTheDecoderIsAnErrorAndOtherErrorsAreNotSplit) {
    describe({8}, {8});
    Voice voice(directory.path());
    auto synthesize = [&](std::vector<int64_t> ids) {
        return testing::voiceErrorText([&] { voice.synthesize(ids, 1.0); });
    };
    EXPECT_EQ(synthesize({comma}), "voice: 10 frames for one id");  // 2 + 6 + 2 frames
    EXPECT_TRUE(logged.empty());
    // Two such ids are split once, and then the first part fails the same way.
    EXPECT_EQ(synthesize({comma, comma}), "voice: 10 frames for one id");
    EXPECT_EQ(logged.size(), 1u);
    EXPECT_EQ(synthesize(lettersWith(20, comma, {5})), "voice: 22 ids is past the encoder");
    EXPECT_EQ(logged.size(), 1u);
}

TEST_F(VoiceTest, OpeningChecksEspeakThenTheVocabularyThenTheModels) {
    testing::writeText(directory / "voice.json", "{}");
    std::filesystem::remove(directory / "vocab.json");
    std::filesystem::rename(directory / "espeak-ng-data", directory / "moved");
    // espeak-ng's data is checked before the vocabulary.
    EXPECT_EQ(testing::voiceErrorText([&] { Voice{directory.path()}; }),
              "voice: espeak-ng data unreadable");
    // The vocabulary is read before voice.json is looked at.
    std::filesystem::rename(directory / "moved", directory / "espeak-ng-data");
    EXPECT_THROW(Voice{directory.path()}, std::filesystem::filesystem_error);
}

TEST_F(VoiceTest, SpeakingHandsOverEachChunkAsItIsMadeAndStopsWhenTold) {
    const std::string text = "Hello there, my friend. This is Murmela, speaking slowly!";
    std::vector<SpokenChunk> spoken;
    // Speaks `text`, taking at most `wanted` chunks.
    auto speak = [&](Voice& voice, double speed, size_t wanted) {
        spoken.clear();
        return voice.speak(text, speed, [&](SpokenChunk&& chunk) {
            spoken.push_back(std::move(chunk));
            return spoken.size() < wanted;
        });
    };
    Voice voice(directory.path());
    const std::vector<std::vector<int64_t>> chunks = testing::allChunks(voice, text);
    ASSERT_EQ(chunks.size(), 2u);
    EXPECT_EQ(speak(voice, 1.25, 3), 2u);
    ASSERT_EQ(spoken.size(), 2u);
    for (size_t index = 0; index < chunks.size(); ++index) {
        EXPECT_EQ(spoken[index].index, index);
        EXPECT_EQ(spoken[index].ids, chunks[index]);
        expectSame(spoken[index].result, voice.synthesize(chunks[index], 1.25));
        EXPECT_GT(std::ranges::max(spoken[index].result.samples), 0.01f);
    }
    // Refusing the first chunk ends the utterance there: the second is never synthesised.
    EXPECT_EQ(speak(voice, 1.0, 1), 1u);
    EXPECT_EQ(spoken.size(), 1u);
    // A chunk the model can't take ends it with that error, after what was already handed over.
    ASSERT_LT(chunks[0].size(), chunks[1].size());
    describe({static_cast<int64_t>(chunks[0].size()) + 2}, {512});
    Voice small(directory.path());
    EXPECT_THROW(speak(small, 1.0, 3), VoiceError);
    EXPECT_EQ(spoken.size(), 1u);
}

// A speech-dispatcher client stops and speaks again on every key, so a stop must not wait for
// the chunk being synthesised, and must never look like the voice failing.
TEST_F(VoiceTest, AnInterruptionEndsSpeakingQuietlyWhenEverItComesUntilResumed) {
    auto kind = std::make_unique<ThreeStageVoice>(directory.path());
    ThreeStageVoice& threeStage = *kind;
    Voice voice(std::move(kind));
    const std::string text = "Hello there, my friend. This is Murmela, speaking slowly!";
    auto speakAll = [&] { return voice.speak(text, 1.0, [](SpokenChunk&&) { return true; }); };
    EXPECT_EQ(voice.speak(text, 1.0,
                          [&](SpokenChunk&&) {
                              voice.interrupt();
                              return true;
                          }),
              1u);
    // Until resumed the runtime refuses every run, and speaking hands nothing over.
    EXPECT_THROW(threeStage.model().synthesizeChunk(testing::allChunks(voice, text)[0], 1.0),
                 Ort::Exception);
    EXPECT_EQ(speakAll(), 0u);
    voice.resume();
    EXPECT_EQ(speakAll(), 2u);

    // From another thread, at any moment of a run or between runs.
    for (int attempt = 0; attempt < 20; ++attempt) {
        voice.resume();
        std::thread interrupter([&voice, attempt] {
            std::this_thread::sleep_for(std::chrono::microseconds(150 * attempt));
            voice.interrupt();
        });
        EXPECT_NO_THROW(speakAll());
        interrupter.join();
    }

    // A run that fails when nobody interrupted the voice is still an error.
    voice.resume();
    threeStage.model().interrupt();
    EXPECT_THROW(speakAll(), Ort::Exception);
}

}  // namespace
}  // namespace murmela
