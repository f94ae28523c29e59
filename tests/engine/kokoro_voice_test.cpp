// Kokoro voices as downloaded, through the stand-ins whose samples spell what the model got:
// both published layouts, the style row, the speed, British phonemes, and what goes wrong.

#include "engine/kokoro_voice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "common/voice_error.h"
#include "engine/voice.h"
#include "files/files.h"
#include "frontend/unicode.h"
#include "support/neural_voices.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

// The ids of `symbols` (one scalar each) in `vocabulary`.
std::vector<int64_t> idsOf(const Vocabulary& vocabulary, std::u32string_view symbols) {
    std::vector<int64_t> ids;
    for (char32_t symbol : symbols) {
        ids.push_back(vocabulary.at(std::u32string(1, symbol)));
    }
    return ids;
}

// What the stand-in spells for a chunk: the ids with a 0 at both ends, the style row's first two
// values (its row number and the voice's number in the pack) and the speed, each times 1024.
std::vector<double> expectedSpelling(const std::vector<int64_t>& ids, int voiceNumber,
                                     double speed) {
    std::vector<double> values = {0.0};
    values.insert(values.end(), ids.begin(), ids.end());
    values.push_back(0.0);
    values.push_back(static_cast<double>(ids.size()));  // row n for n ids
    values.push_back(voiceNumber);
    values.push_back(speed * 1024.0);
    return values;
}

// The spelling and nothing after it.
void expectSpelled(const std::vector<float>& samples, const std::vector<double>& expected) {
    ASSERT_EQ(samples.size(), (expected.size() + 1) * testing::spellingBlock);
    testing::expectSpelled(samples, expected);
}

TEST(KokoroVoice, TheNpzLayoutSpeaksTheFrontEndsSymbolsWithItsOwnVocabularyStyleRowAndSpeed) {
    const Vocabulary vocabulary =
        parseVocabulary(readFile(testing::standIn("kokoro") / "vocab.json"));
    Voice voice(VoiceChoice(testing::standIn("kokoro"), "am_michael"));
    const testing::SpokenChunks spoken =
        testing::speakAll(voice, "Hello, world! Button. She measured.", 1.25);
    ASSERT_EQ(spoken.ids.size(), 2u);
    // espeak-ng's "həlˈo^ʊ, wˈɜːld! bˈʌʔn̩." and "ʃiː mˈɛʒɚd." brought to the model's symbols.
    EXPECT_EQ(spoken.ids[0],
              idsOf(vocabulary, U"h\u0259l\u02c8O, w\u02c8\u025c\u0279ld! b\u02c8\u028ctn."));
    EXPECT_EQ(spoken.ids[1], idsOf(vocabulary, U"\u0283i m\u02c8\u025b\u0292\u0259\u0279d."));
    for (size_t chunk = 0; chunk < 2; ++chunk) {
        expectSpelled(spoken.samples[chunk], expectedSpelling(spoken.ids[chunk], 2, 1.25));
    }
    // Without a name the pack's af_heart speaks.
    Voice heart(VoiceChoice(testing::standIn("kokoro")));
    expectSpelled(testing::speakAll(heart, "She measured.", 1.0).samples.at(0),
                  expectedSpelling(spoken.ids[1], 1, 1.0));
}

TEST(KokoroVoice, TheFolderLayoutUsesTheDefaultVocabularyAndBritishVoicesBritishPhonemes) {
    const Vocabulary vocabulary = kokoroDefaultVocabulary();
    // Kokoro's published ids for a few symbols.
    EXPECT_EQ(vocabulary.at(U";"), 1);
    EXPECT_EQ(vocabulary.at(U" "), 16);
    EXPECT_EQ(vocabulary.at(U"\u02a4"), 82);   // ʤ
    EXPECT_EQ(vocabulary.at(U"\u1d7b"), 177);  // ᵻ
    EXPECT_EQ(vocabulary.size(), 114u);

    Voice american(VoiceChoice(testing::standIn("kokoro-folder"), "af_heart"));
    const testing::SpokenChunks us = testing::speakAll(american, "Hello.", 1.0);
    ASSERT_EQ(us.ids.size(), 1u);
    EXPECT_EQ(us.ids[0], idsOf(vocabulary, U"h\u0259l\u02c8O."));
    expectSpelled(us.samples[0], expectedSpelling(us.ids[0], 1, 1.0));

    Voice british(VoiceChoice(testing::standIn("kokoro-folder"), "bf_emma"));
    const testing::SpokenChunks gb = testing::speakAll(british, "Hello.", 0.8);
    ASSERT_EQ(gb.ids.size(), 1u);
    // en-gb's "həlˈə^ʊ": the diphthong the fix-ups leave as its two letters.
    EXPECT_EQ(gb.ids[0], idsOf(vocabulary, U"h\u0259l\u02c8\u0259\u028a."));
    expectSpelled(gb.samples[0], expectedSpelling(gb.ids[0], 3, 0.8));
}

TEST(KokoroVoice, ABadPackIsRefusedAtOpeningWithTheFileAndTheProblem) {
    EXPECT_EQ(testing::voiceErrorText(
                  [] { Voice(VoiceChoice(testing::standIn("kokoro"), "zz_nobody")); }),
              "voice: voices-v1.0.bin has no voice zz_nobody");
    EXPECT_EQ(testing::voiceErrorText(
                  [] { Voice(VoiceChoice(testing::standIn("kokoro-folder"), "zz_nobody")); }),
              "voice: voices/ has no voice zz_nobody");
    EXPECT_EQ(testing::voiceErrorText(
                  [] { Voice(VoiceChoice(testing::standIn("bad/kokoro-truncated"), "af_heart")); }),
              "voice: voices-v1.0.bin: not a complete zip archive");

    // A model without its pack, and a vocabulary beside it that holds no ids.
    testing::TemporaryDirectory directory;
    std::filesystem::copy(testing::standIn("kokoro"), directory.path());
    std::filesystem::remove(directory / "voices-v1.0.bin");
    EXPECT_EQ(testing::voiceErrorText([&] { Voice{VoiceChoice(directory.path())}; }),
              "voice: voices-v1.0.bin missing");
    std::filesystem::copy(testing::standIn("kokoro") / "voices-v1.0.bin", directory.path());
    testing::writeText(directory / "vocab.json", "[1, 2]");
    EXPECT_EQ(testing::voiceErrorText([&] { Voice{VoiceChoice(directory.path())}; }),
              "voice: vocab.json holds no table of ids");
}

TEST(KokoroVoice, AModelThatFailsWhileRunningIsThatVoicesErrorEachTime) {
    // The model looks the id count up in a table of 8: the warm-up's few ids pass, a sentence's
    // make the runtime refuse the run.
    const std::unique_ptr<Voice> voice =
        openWarmVoice(VoiceChoice(testing::standIn("bad/kokoro-failing")));
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_THROW(testing::speakAll(*voice, "Hello there.", 1.0), Ort::Exception);
    }
}

}  // namespace
}  // namespace murmela
