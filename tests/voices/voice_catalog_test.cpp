// What voice directories of each kind say about their voices, read without loading a model, and
// damaged describing files refused with the file's name.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temporary_directory.h"
#include "support/test_voice.h"
#include "voices/voice_catalog.h"

namespace murmela {
namespace {

using murmela::testing::TemporaryDirectory;
using murmela::testing::writeText;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// `size` bytes of `value`, least significant first; zeros beyond its eight.
void appendLittleEndian(std::string& bytes, uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
        bytes += static_cast<char>(i < 8 ? (value >> (8 * i)) & 0xFF : 0);
    }
}

// A zip archive of empty stored members, laid out as NumPy's savez writes one: local headers,
// then the central directory, then the end record.
std::string zipOf(const std::vector<std::string>& names) {
    std::string archive;
    std::string directory;
    for (const std::string& name : names) {
        const uint64_t offset = archive.size();
        archive += std::string("PK\3\4");
        appendLittleEndian(archive, 20, 2);  // version
        appendLittleEndian(archive, 0, 2 + 2 + 2 + 2 + 4 + 4 + 4);
        appendLittleEndian(archive, name.size(), 2);
        appendLittleEndian(archive, 0, 2);
        archive += name;
        directory += std::string("PK\1\2");
        appendLittleEndian(directory, 20, 2);
        appendLittleEndian(directory, 20, 2);
        appendLittleEndian(directory, 0, 2 + 2 + 2 + 2 + 4 + 4 + 4);
        appendLittleEndian(directory, name.size(), 2);
        appendLittleEndian(directory, 0, 2 + 2 + 2 + 2 + 4);
        appendLittleEndian(directory, offset, 4);
        directory += name;
    }
    const uint64_t directoryOffset = archive.size();
    archive += directory;
    archive += std::string("PK\5\6");
    appendLittleEndian(archive, 0, 4);
    appendLittleEndian(archive, names.size(), 2);
    appendLittleEndian(archive, names.size(), 2);
    appendLittleEndian(archive, directory.size(), 4);
    appendLittleEndian(archive, directoryOffset, 4);
    appendLittleEndian(archive, 0, 2);
    return archive;
}

const char* lessacDescription = R"({
  "dataset": "lessac",
  "audio": {"sample_rate": 22050, "quality": "medium"},
  "espeak": {"voice": "en-us"},
  "language": {"code": "en_US", "family": "en", "region": "US", "name_native": "English",
               "name_english": "English", "country_english": "United States"},
  "num_speakers": 1, "speaker_id_map": {}
})";

void writePiper(const std::filesystem::path& directory, const std::string& stem,
                const std::string& description) {
    writeText(directory / (stem + ".onnx"), "model");
    writeText(directory / (stem + ".onnx.json"), description);
}

std::string errorOf(const std::filesystem::path& directory) {
    return testing::voiceErrorText([&] { readVoiceDirectory(directory); });
}

TEST(VoiceCatalog, PiperDescriptionGivesLanguageQualityRateAndOneVoicePerSpeaker) {
    TemporaryDirectory root;
    writePiper(root / "single", "en_US-lessac-medium", lessacDescription);
    const std::vector<VoiceDetails> single = readVoiceDirectory(root / "single");
    ASSERT_EQ(single.size(), 1u);
    EXPECT_EQ(single[0].kind, VoiceKind::piper);
    EXPECT_EQ(single[0].name, "lessac");
    EXPECT_EQ(single[0].language, "en-US");
    EXPECT_EQ(single[0].quality, "medium");
    EXPECT_EQ(single[0].sampleRate, 22050);
    EXPECT_EQ(single[0].style, "");

    // Speakers in the order of their numbers, not their names; no language object falls back
    // to espeak-ng's voice.
    writePiper(root / "many", "en_GB-vctk-low", R"({
        "dataset": "vctk", "audio": {"sample_rate": 16000.0, "quality": "low"},
        "espeak": {"voice": "en-gb"},
        "num_speakers": 3, "speaker_id_map": {"p239": 2, "p225": 1, "p300": 0}})");
    std::vector<std::string> styles;
    for (const VoiceDetails& voice : readVoiceDirectory(root / "many")) {
        styles.push_back(voice.style);
        EXPECT_EQ(voice.language, "en-GB");
        EXPECT_EQ(voice.sampleRate, 16000);
    }
    EXPECT_THAT(styles, ElementsAre("p300", "p225", "p239"));
}

TEST(VoiceCatalog, DamagedPiperDescriptionsAreRefusedNamingTheFile) {
    TemporaryDirectory root;
    writePiper(root / "text", "a", "not json {");
    EXPECT_EQ(errorOf(root / "text"), "voice: a.onnx.json unreadable");
    writePiper(root / "array", "a", "[1, 2]");
    EXPECT_EQ(errorOf(root / "array"), "voice: a.onnx.json unreadable");
    writePiper(root / "rate", "a", R"({"audio": {"sample_rate": 0}})");
    EXPECT_THAT(errorOf(root / "rate"), HasSubstr("a.onnx.json: audio.sample_rate"));
    writePiper(root / "no-rate", "a", R"({"audio": "fast"})");
    EXPECT_THAT(errorOf(root / "no-rate"), HasSubstr("audio.sample_rate"));
    writePiper(root / "speakers", "a",
               R"({"audio": {"sample_rate": 22050}, "speaker_id_map": [1, 2]})");
    EXPECT_THAT(errorOf(root / "speakers"), HasSubstr("speaker_id_map is not a map"));
    writePiper(root / "speaker", "a",
               R"({"audio": {"sample_rate": 22050}, "speaker_id_map": {"x": "one", "y": 2}})");
    EXPECT_THAT(errorOf(root / "speaker"), HasSubstr("speaker x has no number"));
    writeText(root / "no-model" / "a.onnx.json", lessacDescription);
    EXPECT_THAT(errorOf(root / "no-model"), HasSubstr("NAME.onnx with NAME.onnx.json"));
    writeText(root / "nothing" / "README", "hello");
    EXPECT_THAT(errorOf(root / "nothing"), HasSubstr("no voice.json"));
    EXPECT_EQ(errorOf(root / "absent"), "voice: absent/ missing");
}

TEST(VoiceCatalog, KokoroPackGivesOneVoicePerStyleWithLanguageAndGenderFromItsName) {
    TemporaryDirectory root;
    writeText(root / "npz" / "kokoro-v1.0.onnx", "model");
    writeText(root / "npz" / "voices-v1.0.bin",
              zipOf({"bf_emma.npy", "af_heart.npy", "am_michael.npy", "xx.npy"}));
    const std::vector<VoiceDetails> voices = readVoiceDirectory(root / "npz");
    ASSERT_EQ(voices.size(), 4u);
    EXPECT_EQ(voices[0].style, "af_heart");
    EXPECT_EQ(voices[0].name, "Heart");
    EXPECT_EQ(voices[0].language, "en-US");
    EXPECT_EQ(voices[0].gender, "female");
    EXPECT_EQ(voices[1].style, "am_michael");
    EXPECT_EQ(voices[1].gender, "male");
    EXPECT_EQ(voices[2].language, "en-GB");
    // A name outside the convention is still a voice, described by its name alone.
    EXPECT_EQ(voices[3].name, "xx");
    EXPECT_EQ(voices[3].language, "");
    for (const VoiceDetails& voice : voices) {
        EXPECT_EQ(voice.kind, VoiceKind::kokoro);
        EXPECT_EQ(voice.sampleRate, 24000);
    }

    // The layout with one file per style.
    writeText(root / "folder" / "onnx" / "model.onnx", "model");
    writeText(root / "folder" / "voices" / "jf_alpha.bin", "510 x 256 floats");
    writeText(root / "folder" / "voices" / "notes.txt", "not a style");
    const std::vector<VoiceDetails> folder = readVoiceDirectory(root / "folder");
    ASSERT_EQ(folder.size(), 1u);
    EXPECT_EQ(folder[0].style, "jf_alpha");
    EXPECT_EQ(folder[0].language, "ja");

    writeText(root / "no-pack" / "kokoro-v1.0.onnx", "model");
    EXPECT_THAT(errorOf(root / "no-pack"), HasSubstr("voices-v1.0.bin missing"));
}

TEST(VoiceCatalog, ThreeStageVoiceTakesNameAndLicenceFromVoiceJson) {
    TemporaryDirectory root;
    murmela::testing::copyTestVoice(root / "tones");
    std::vector<VoiceDetails> voices = readVoiceDirectory(root / "tones");
    ASSERT_EQ(voices.size(), 1u);
    EXPECT_EQ(voices[0].kind, VoiceKind::threeStage);
    EXPECT_EQ(voices[0].name, "tones");  // the test voice names itself nothing
    EXPECT_EQ(voices[0].language, "en-US");
    EXPECT_EQ(voices[0].sampleRate, 24000);

    std::string description = murmela::testing::readText(root / "tones" / "voice.json");
    description.insert(description.rfind('}'), R"(, "name": "Tones", "license": "MIT")");
    writeText(root / "tones" / "voice.json", description);
    voices = readVoiceDirectory(root / "tones");
    EXPECT_EQ(voices[0].name, "Tones");
    EXPECT_EQ(voices[0].license, "MIT");

    writeText(root / "tones" / "voice.json", "{ broken");
    EXPECT_EQ(errorOf(root / "tones"), "voice: voice.json unreadable");
}

}  // namespace
}  // namespace murmela
