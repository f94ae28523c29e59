// Opening a voice directory: voice.json's checks, model loading and every error text.

#include "engine/voice_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "common/voice_error.h"
#include "files/files.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using nlohmann::json;
using testing::TemporaryDirectory;
using testing::writeText;

json validDescription() {
    return json::parse(R"({
        "interface": {"sampleRate": 24000, "hop": 300, "nFft": 1024, "enc": 256,
                      "encoderBuckets": [32, 128], "decoderBuckets": [256, 1024]},
        "programs": {"encoder": "encoder", "decoder": "decoder", "vocoder": "vocoder"}
    })");
}

// The text of the VoiceError that `action` throws, or a note that it threw none.
std::string voiceErrorText(const std::function<void()>& action) {
    try {
        action();
    } catch (const VoiceError& error) {
        return error.what();
    }
    return "(no VoiceError)";
}

class VoiceFilesTest : public ::testing::Test {
protected:
    void SetUp() override { testing::copyTestVoice(voice.path()); }

    void describe(const json& description) { writeText(voice / "voice.json", description.dump()); }

    TemporaryDirectory voice;
};

TEST(VoiceError, DescriptionsAreExactlyTheUsersTexts) {
    EXPECT_STREQ(VoiceError::missing("vocab.json").what(), "voice: vocab.json missing");
    EXPECT_STREQ(VoiceError::damaged("vocab").what(), "voice: vocab unreadable");
    EXPECT_STREQ(VoiceError::failed("no frames").what(), "voice: no frames");
    EXPECT_EQ(VoiceError::damaged("x").kind(), VoiceError::Kind::damaged);
    EXPECT_EQ(VoiceError::failed("x y").payload(), "x y");
}

TEST_F(VoiceFilesTest, ReadsTheInterfaceWithBucketsInFileOrder) {
    json description = validDescription();
    description["interface"]["encoderBuckets"] = {512, 32, 128, 32};
    description["interface"]["decoderBuckets"] = {1024.0};
    description["interface"]["sampleRate"] = 24000.0;  // integer value of a float counts
    description["extra"] = "ignored";
    describe(description);
    VoiceInterface read = VoiceFiles(voice.path()).readInterface();
    EXPECT_EQ(read.encoderBuckets, (std::vector<int64_t>{512, 32, 128, 32}));
    EXPECT_EQ(read.decoderBuckets, (std::vector<int64_t>{1024}));
    EXPECT_EQ(read.programs.at("vocoder"), "vocoder");
}

TEST_F(VoiceFilesTest, AnAbsentUnreadableOrMalformedVoiceJsonHasItsOwnError) {
    auto read = [&] { VoiceFiles(voice.path()).readInterface(); };
    std::filesystem::remove(voice / "voice.json");
    EXPECT_EQ(voiceErrorText(read), "voice: voice.json missing");
    std::filesystem::create_directory(voice / "voice.json");  // exists, but can't be read
    EXPECT_EQ(voiceErrorText(read), "voice: voice.json missing");
    std::filesystem::remove(voice / "voice.json");
    for (const char* text : {R"({"interface": {"sampleRate": 24000,)", "\xff\xfe{}"}) {
        writeText(voice / "voice.json", text);
        EXPECT_THROW(read(), json::parse_error) << text;
    }
}

TEST_F(VoiceFilesTest, EveryValueIsChecked) {
    const std::string file = "voice: voice.json unreadable";
    const std::string interface = "voice: voice.json interface unreadable";
    const std::pair<std::function<void(json&)>, std::string> cases[] = {
        {[](json& d) { d = json::array({d}); }, file},
        {[](json& d) { d.erase("interface"); }, file},
        {[](json& d) { d["interface"] = json::array(); }, file},
        {[](json& d) { d.erase("programs"); }, file},
        {[](json& d) { d["programs"] = "encoder"; }, file},
        {[](json& d) {
             d["programs"] = {{"encoder", 5}};
         },
         file},
        // The programs are checked before the interface's values.
        {[](json& d) {
             d["programs"]["decoder"] = nullptr;
             d["interface"]["hop"] = 256;
         },
         file},
        {[](json& d) { d["interface"]["sampleRate"] = 22050; }, interface},
        {[](json& d) { d["interface"]["sampleRate"] = "24000"; }, interface},
        {[](json& d) { d["interface"]["hop"] = 256; }, interface},
        {[](json& d) { d["interface"].erase("nFft"); }, interface},
        {[](json& d) { d["interface"]["enc"] = 512; }, interface},
        {[](json& d) { d["interface"]["enc"] = true; }, interface},
        {[](json& d) { d["interface"]["encoderBuckets"] = json::array(); }, interface},
        {[](json& d) { d["interface"]["decoderBuckets"] = 1024; }, interface},
        {[](json& d) {
             d["interface"]["decoderBuckets"] = {256, "x"};
         },
         interface},
        {[](json& d) { d["interface"].erase("decoderBuckets"); }, interface},
        {[](json& d) { d["interface"]["encoderBuckets"] = {64}; }, "(no VoiceError)"},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        json description = validDescription();
        cases[i].first(description);
        describe(description);
        EXPECT_EQ(voiceErrorText([&] { VoiceFiles(voice.path()).readInterface(); }),
                  cases[i].second)
            << "case " << i;
    }
}

TEST_F(VoiceFilesTest, LoadsEachModelAndNamesWhatIsMissing) {
    json description = validDescription();
    description["programs"].erase("vocoder");
    description["programs"]["decoder"] = "absent-decoder";
    describe(description);
    VoiceFiles files(voice.path());
    VoiceInterface read = files.readInterface();

    ModelSession encoder = files.loadModel("encoder", read.programs);
    EXPECT_EQ(encoder.outputNames(), (std::vector<std::string>{"e", "logd"}));
    EXPECT_EQ(voiceErrorText([&] { files.loadModel("decoder", read.programs); }),
              "voice: absent-decoder missing");
    EXPECT_EQ(voiceErrorText([&] { files.loadModel("vocoder", read.programs); }),
              "voice: voice.json programs.vocoder unreadable");
}

TEST_F(VoiceFilesTest, AModelTheRuntimeRefusesGivesTheRuntimesError) {
    writeText(voice / "encoder.onnx", "this is not a model");
    VoiceFiles files(voice.path());
    VoiceInterface read = files.readInterface();
    EXPECT_THROW(files.loadModel("encoder", read.programs), Ort::Exception);
    // A directory where the file should be exists, so it is the runtime that refuses it.
    std::filesystem::remove(voice / "decoder.onnx");
    std::filesystem::create_directory(voice / "decoder.onnx");
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

}  // namespace
}  // namespace murmela
