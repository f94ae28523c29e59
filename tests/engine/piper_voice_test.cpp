// Piper voices as downloaded, through the stand-ins whose samples spell what the model got: the
// id sequence from espeak-ng's IPA, the scales and the speaker, resampling, and what goes wrong.

#include "engine/piper_voice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "engine/voice.h"
#include "files/files.h"
#include "frontend/unicode.h"
#include "support/neural_voices.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

// The ids the rule gives for IPA: "^", "_", each code point's ids followed by "_" (a code
// point the voice's map lacks is dropped), "$".
std::vector<int64_t> expectedIds(const std::filesystem::path& settingsFile,
                                 std::u32string_view ipa) {
    const nlohmann::json map = nlohmann::json::parse(readFile(settingsFile))["phoneme_id_map"];
    std::vector<int64_t> ids;
    auto add = [&](char32_t symbol) {
        const std::string key = encodeUtf8(std::u32string(1, symbol));
        if (!map.contains(key)) {
            return false;
        }
        for (int64_t id : map[key]) {
            ids.push_back(id);
        }
        return true;
    };
    add(U'^');
    add(U'_');
    for (char32_t symbol : ipa) {
        if (add(symbol)) {
            add(U'_');
        }
    }
    add(U'$');
    return ids;
}

// The stand-in spells the ids, their count, the three scales (times 1024) and the speaker.
std::vector<double> expectedSpelling(const std::vector<int64_t>& ids, double lengthScale,
                                     int64_t speaker) {
    std::vector<double> values(ids.begin(), ids.end());
    values.push_back(static_cast<double>(ids.size()));
    values.insert(values.end(), {0.667 * 1024, lengthScale * 1024, 0.8 * 1024});
    values.push_back(static_cast<double>(speaker));
    return values;
}

TEST(PiperVoice, EachSentenceIsEspeaksIpaInCodePointsFramedAndPaddedThenSilence) {
    const std::filesystem::path settings =
        testing::standIn("piper-multi") / "en_US-multi-medium.onnx.json";
    Voice voice(VoiceChoice(testing::standIn("piper-multi"), "bob"));
    // espeak-ng's own IPA, punctuation kept, stress marks as they are; the syllabic n of
    // "button" is two code points, its glottal stop is missing from the map and dropped, and
    // "ʃ" maps to two ids.
    const testing::SpokenChunks spoken =
        testing::speakAll(voice, "Hello, world! Button. She measured.", 1.0);
    // (The first sentence needs three words before a full stop may close it.)
    const std::u32string sentences[] = {
        U"h\u0259l\u02c8o\u028a, w\u02c8\u025c\u02d0ld! b\u02c8\u028c\u0294n\u0329.",
        U"\u0283i\u02d0 m\u02c8\u025b\u0292\u025ad."};
    ASSERT_EQ(spoken.ids.size(), 2u);
    for (size_t index = 0; index < 2; ++index) {
        const std::vector<int64_t> ids = expectedIds(settings, sentences[index]);
        EXPECT_EQ(spoken.ids[index], ids) << index;
        // At 24 kHz nothing is resampled: the spelling, then exactly 0.2 s of silence.
        const std::vector<double> spelling = expectedSpelling(ids, 1.0, 1);
        const size_t spelled = (spelling.size() + 1) * testing::spellingBlock;
        ASSERT_EQ(spoken.samples[index].size(), spelled + 4800);
        testing::expectSpelled(spoken.samples[index], spelling);
        EXPECT_TRUE(std::all_of(spoken.samples[index].begin() + spelled,
                                spoken.samples[index].end(), [](float s) { return s == 0.0f; }));
    }
    // An interruption stops a downloaded voice as it stops the bundled one, until resumed.
    voice.interrupt();
    EXPECT_EQ(voice.speak("Hello, world! Button.", 1.0, [](SpokenChunk&&) { return true; }), 0u);
    voice.resume();
    EXPECT_EQ(voice.speak("Hello, world! Button.", 1.0, [](SpokenChunk&&) { return true; }), 1u);
    // The length scale is divided by the speed; the first speaker is the default.
    Voice first(VoiceChoice(testing::standIn("piper-multi")));
    const testing::SpokenChunks faster = testing::speakAll(first, "She measured.", 1.25);
    testing::expectSpelled(faster.samples.at(0), expectedSpelling(faster.ids.at(0), 0.8, 0));
}

TEST(PiperVoice, AnotherRateIsResampledTo24kHzKeepingLengthAndPitch) {
    // 22050 Hz: the spelling survives the resampler at the middle of each block.
    Voice voice(VoiceChoice(testing::standIn("piper")));
    const testing::SpokenChunks spoken = testing::speakAll(voice, "She measured.", 1.0);
    ASSERT_EQ(spoken.ids.size(), 1u);
    const std::vector<int64_t>& ids = spoken.ids[0];
    const size_t made = (expectedSpelling(ids, 1, 0).size() + 1) * testing::spellingBlock;
    const double expected = (static_cast<double>(made) + 0.2 * 22050) * 24000 / 22050;
    // The resampler holds back the last few tens of milliseconds of a speech, all silence.
    EXPECT_NEAR(static_cast<double>(spoken.samples[0].size()), expected, 24000 * 0.05);

    // 16000 Hz: a 1000 Hz tone of 160 samples per id.
    Voice tone(VoiceChoice(testing::standIn("piper-16k")));
    const testing::SpokenChunks toneSpoken =
        testing::speakAll(tone, "Hello, world! Button. She measured.", 1.0);
    ASSERT_EQ(toneSpoken.ids.size(), 2u);
    double total = 0, made16 = 0;
    for (size_t index = 0; index < 2; ++index) {
        total += static_cast<double>(toneSpoken.samples[index].size());
        made16 += static_cast<double>(toneSpoken.ids[index].size()) * 160 + 0.2 * 16000;
    }
    EXPECT_NEAR(total, made16 * 1.5, 24000 * 0.05);
    // Upward zero crossings in the middle of the first sentence's tone: 1000 a second.
    const std::vector<float>& samples = toneSpoken.samples[0];
    const size_t from = 2400, to = static_cast<size_t>(toneSpoken.ids[0].size() * 160 * 1.5) - 480;
    ASSERT_LT(from + 4800, to);
    int crossings = 0;
    for (size_t i = from + 1; i < to; ++i) {
        crossings += samples[i - 1] < 0.0f && samples[i] >= 0.0f ? 1 : 0;
    }
    const double seconds = static_cast<double>(to - from) / 24000;
    EXPECT_NEAR(crossings / seconds, 1000.0, 1000.0 * 0.01);
    EXPECT_NEAR(*std::max_element(samples.begin() + from, samples.begin() + to), 0.5, 0.01);
}

TEST(PiperVoice, ABadVoiceIsRefusedAtOpeningWithTheFileAndTheProblem) {
    auto opening = [](const std::string& name, const std::string& speaker = {}) {
        return testing::voiceErrorText(
            [&] { Voice(VoiceChoice(testing::standIn(name), speaker)); });
    };
    EXPECT_EQ(opening("bad/piper-no-settings"), "voice: en_US-lost-medium.onnx.json missing");
    EXPECT_EQ(opening("bad/piper-wrong-inputs"),
              "voice: en_US-int32-medium.onnx: no int64 input input");
    EXPECT_EQ(opening("bad/piper-map-of-numbers"),
              "voice: en_US-numbers-medium.onnx.json: phoneme_id_map is not a map of lists");
    EXPECT_EQ(opening("bad/piper-rate-zero"),
              "voice: en_US-silent-medium.onnx.json: audio.sample_rate is not a positive number "
              "of samples a second");
    EXPECT_EQ(opening("piper-multi", "dave"),
              "voice: en_US-multi-medium.onnx.json has no speaker dave");
}

TEST(PiperVoice, SettingsOfTheWrongShapeNameTheMember) {
    const nlohmann::json good = nlohmann::json::parse(
        readFile(testing::standIn("piper-multi") / "en_US-multi-medium.onnx.json"));
    auto problem = [&](const nlohmann::json& change) {
        nlohmann::json settings = good;
        settings.merge_patch(change);
        return testing::voiceErrorText([&] { parsePiperSettings(settings.dump(), "x.onnx.json"); });
    };
    const PiperSettings parsed = parsePiperSettings(good.dump(), "x.onnx.json");
    EXPECT_EQ(parsed.sampleRate, 24000);
    EXPECT_EQ(parsed.espeakVoice, "en-us");
    EXPECT_EQ(parsed.speakers, 3);
    EXPECT_EQ(parsed.speakerIds.at("carol"), 2);
    EXPECT_EQ(parsed.phonemeIds.at(U'\u0283'), (std::vector<int64_t>{200, 201}));
    EXPECT_EQ(problem({{"audio", {{"sample_rate", "fast"}}}}),
              "voice: x.onnx.json: audio.sample_rate is not a positive number of samples a second");
    EXPECT_EQ(problem({{"espeak", nullptr}}),
              "voice: x.onnx.json: espeak.voice is not a voice name");
    EXPECT_EQ(problem({{"inference", {{"noise_w", nullptr}}}}),
              "voice: x.onnx.json: inference.noise_w is not a number");
    EXPECT_EQ(problem({{"phoneme_id_map", {{"ab", {1}}}}}),
              "voice: x.onnx.json: phoneme_id_map is not a map of lists");
    EXPECT_EQ(problem({{"phoneme_id_map", {{"a", {-1}}}}}),
              "voice: x.onnx.json: phoneme_id_map is not a map of lists");
    EXPECT_EQ(problem({{"phoneme_id_map", {{"$", nullptr}}}}),
              "voice: x.onnx.json: phoneme_id_map has no $");
    EXPECT_EQ(problem({{"speaker_id_map", {{"eve", 3}}}}),
              "voice: x.onnx.json: speaker_id_map is not a map of numbers below num_speakers");
    EXPECT_THROW(parsePiperSettings("{\"audio\": ", "x.onnx.json"), nlohmann::json::exception);
}

TEST(PiperVoice, AnOutputOfTheWrongShapeIsThatVoicesErrorNotAnAbort) {
    // [1, T] instead of [1, 1, T]: the warm-up's run already shows it, as does every later one.
    EXPECT_TRUE(testing::voiceErrorText([] {
                    openWarmVoice(VoiceChoice(testing::standIn("bad/piper-wrong-shape")));
                }).starts_with("voice: en_US-flat-medium.onnx: an output has shape [1, "));
    Voice voice(VoiceChoice(testing::standIn("bad/piper-wrong-shape")));
    EXPECT_THROW(testing::speakAll(voice, "Hello.", 1.0), VoiceError);
    EXPECT_THROW(testing::speakAll(voice, "Hello.", 1.0), VoiceError);
}

}  // namespace
}  // namespace murmela
