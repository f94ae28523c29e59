// Opening a voice and synthesising through it, with chunks split when the decoder can't hold
// them. Runs the test voice's real models with small decoder buckets.

#include "engine/voice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "logging/log.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using nlohmann::json;

// Ids of the test voice (vocab.json): "," lasts 6 frames, " " and "a" 2 frames each.
constexpr int64_t comma = 7;
constexpr int64_t space = 40;
constexpr int64_t letter = 61;

class VoiceTest : public ::testing::Test {
protected:
    void SetUp() override { testing::copyTestVoice(directory.path()); }

    void setBuckets(std::vector<int64_t> encoder, std::vector<int64_t> decoder) {
        json description = json::parse(testing::readText(directory / "voice.json"));
        description["interface"]["encoderBuckets"] = encoder;
        description["interface"]["decoderBuckets"] = decoder;
        testing::writeText(directory / "voice.json", description.dump());
    }

    std::vector<std::string> logged;
    log::Capture capture{[this](log::Level, const std::string& line) { logged.push_back(line); }};
    testing::TemporaryDirectory directory;
};

std::vector<int64_t> lettersWith(size_t count, int64_t separator, std::vector<size_t> at) {
    std::vector<int64_t> ids(count, letter);
    for (size_t position : at) {
        ids[position] = separator;
    }
    return ids;
}

// What synthesising the parts of `ids` cut at `ends` one by one and joining them gives.
SynthesisResult joinedParts(Voice& voice, std::span<const int64_t> ids, std::vector<size_t> ends) {
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

TEST_F(VoiceTest, AChunkThatFitsIsSynthesisedWholeWithoutALogLine) {
    Voice voice(directory.path());
    const std::vector<int64_t> ids = lettersWith(40, comma, {10, 30});
    expectSame(voice.synthesize(ids, 1.0), joinedParts(voice, ids, {40}));
    EXPECT_TRUE(logged.empty());
}

TEST_F(VoiceTest, TooManyFramesSplitsAfterTheCommaNearestTheMiddleAndJoinsThePartsAsTheyAre) {
    // 92 frames in all; the last bucket (not the largest) is the one the log line names.
    setBuckets({512}, {64, 32});
    Voice voice(directory.path());
    // Commas at 10 and 30 are equally near the middle: the earlier wins, and the right part
    // (66 frames) is split again after its own comma.
    const std::vector<int64_t> ids = lettersWith(40, comma, {10, 30});
    expectSame(voice.synthesize(ids, 1.0), joinedParts(voice, ids, {11, 31, 40}));
    EXPECT_EQ(logged,
              (std::vector<std::string>{"voice: 92 frames is past 32; splitting the chunk",
                                        "voice: 66 frames is past 32; splitting the chunk"}));
    // Without commas, the space nearest the middle.
    setBuckets({512}, {64});
    Voice spaces(directory.path());
    const std::vector<int64_t> spaced = lettersWith(40, space, {3, 25});
    expectSame(spaces.synthesize(spaced, 1.0), joinedParts(spaces, spaced, {26, 40}));
}

TEST_F(VoiceTest, OneIdTooLongForTheDecoderIsAnErrorAndOtherErrorsAreNotSplit) {
    setBuckets({8}, {8});
    Voice voice(directory.path());
    auto errorText = [&](std::vector<int64_t> ids) {
        try {
            voice.synthesize(ids, 1.0);
        } catch (const VoiceError& error) {
            return std::string(error.what());
        }
        return std::string("(no VoiceError)");
    };
    EXPECT_EQ(errorText({comma}), "voice: 10 frames for one id");  // 2 + 6 + 2 frames
    EXPECT_TRUE(logged.empty());
    // Two such ids are split once, and then the first part fails the same way.
    EXPECT_EQ(errorText({comma, comma}), "voice: 10 frames for one id");
    EXPECT_EQ(logged.size(), 1u);
    EXPECT_EQ(errorText(lettersWith(20, comma, {5})), "voice: 22 ids is past the encoder");
    EXPECT_EQ(logged.size(), 1u);
}

TEST_F(VoiceTest, OpeningChecksEspeakThenTheVocabularyThenTheModels) {
    testing::writeText(directory / "voice.json", "{}");
    std::filesystem::remove(directory / "vocab.json");
    std::filesystem::rename(directory / "espeak-ng-data", directory / "moved");
    // espeak-ng's data is checked before the vocabulary.
    try {
        Voice voice(directory.path());
        FAIL() << "expected an error";
    } catch (const VoiceError& error) {
        EXPECT_STREQ(error.what(), "voice: espeak-ng data unreadable");
    }
    // The vocabulary is read before voice.json is looked at.
    std::filesystem::rename(directory / "moved", directory / "espeak-ng-data");
    EXPECT_THROW(Voice{directory.path()}, std::filesystem::filesystem_error);
}

TEST_F(VoiceTest, SpeakingHandsOverEachChunkAsItIsMadeAndStopsWhenTold) {
    Voice voice(directory.path());
    const std::string text = "Hello there, my friend. This is Murmela, speaking slowly!";
    std::vector<std::vector<int64_t>> chunks = voice.phonemizer().chunks(text);
    ASSERT_EQ(chunks.size(), 2u);

    std::vector<SpokenChunk> spoken;
    EXPECT_EQ(voice.speak(text, 1.25,
                          [&](SpokenChunk&& chunk) {
                              spoken.push_back(std::move(chunk));
                              return true;
                          }),
              2u);
    ASSERT_EQ(spoken.size(), 2u);
    for (size_t index = 0; index < chunks.size(); ++index) {
        EXPECT_EQ(spoken[index].index, index);
        EXPECT_EQ(spoken[index].ids, chunks[index]);
        SynthesisResult direct = voice.synthesize(chunks[index], 1.25);
        EXPECT_EQ(spoken[index].result.frameCounts, direct.frameCounts);
        EXPECT_EQ(spoken[index].result.samples, direct.samples);
        EXPECT_GT(*std::max_element(direct.samples.begin(), direct.samples.end()), 0.01f);
    }

    // Refusing the first chunk ends the utterance there: the second is never synthesised.
    size_t calls = 0;
    EXPECT_EQ(voice.speak(text, 1.0, [&](SpokenChunk&&) { return ++calls < 1; }), 1u);
    EXPECT_EQ(calls, 1u);

    // A chunk the model can't take ends it with that error, after what was already handed over.
    ASSERT_LT(chunks[0].size(), chunks[1].size());
    setBuckets({static_cast<int64_t>(chunks[0].size()) + 2}, {512});
    Voice small(directory.path());
    calls = 0;
    EXPECT_THROW(small.speak(text, 1.0,
                             [&](SpokenChunk&&) {
                                 ++calls;
                                 return true;
                             }),
                 VoiceError);
    EXPECT_EQ(calls, 1u);
}

}  // namespace
}  // namespace murmela
