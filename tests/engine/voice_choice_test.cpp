// Choosing a voice: "DIR[:NAME]" and $MURMELA_VOICE.

#include "engine/voice_choice.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "support/temporary_directory.h"

namespace murmela {
namespace {

TEST(VoiceChoice, TheNameFollowsTheLastColonUnlessThatWouldBreakADirectory) {
    EXPECT_EQ(parseVoiceChoice("/voices/kokoro"), VoiceChoice("/voices/kokoro"));
    EXPECT_EQ(parseVoiceChoice("/voices/kokoro:bf_emma"), VoiceChoice("/voices/kokoro", "bf_emma"));
    EXPECT_EQ(parseVoiceChoice("a:b/c:d"), VoiceChoice("a:b/c", "d"));
    EXPECT_EQ(parseVoiceChoice("voices:"), VoiceChoice("voices", ""));
    // What follows a colon is a path when it holds a slash.
    EXPECT_EQ(parseVoiceChoice("/mnt/c:/voices"), VoiceChoice("/mnt/c:/voices"));
    // A directory whose own name holds a colon is taken whole.
    testing::TemporaryDirectory directory;
    const std::filesystem::path colon = directory / "piper:ryan";
    std::filesystem::create_directory(colon);
    EXPECT_EQ(parseVoiceChoice(colon.string()), VoiceChoice(colon));
    EXPECT_EQ(parseVoiceChoice(colon.string() + ":1"), VoiceChoice(colon, "1"));
}

TEST(VoiceChoice, TheEnvironmentChoosesWhenSetAndTheBundledVoiceOtherwise) {
    ::setenv("MURMELA_VOICE", "/voices/piper:alice", 1);
    EXPECT_EQ(voiceChoiceFromEnvironment(), VoiceChoice("/voices/piper", "alice"));
    EXPECT_EQ(defaultVoiceChoice(), VoiceChoice("/voices/piper", "alice"));
    ::setenv("MURMELA_VOICE", "", 1);
    EXPECT_EQ(voiceChoiceFromEnvironment(), std::nullopt);
    ::unsetenv("MURMELA_VOICE");
    EXPECT_EQ(voiceChoiceFromEnvironment(), std::nullopt);
    ::setenv("MURMELA_RESOURCES", "/opt/resources", 1);
    EXPECT_EQ(voiceChoiceFromEnvironment(), std::nullopt);
    EXPECT_THROW(defaultVoiceChoice(), std::runtime_error);  // no /opt/resources/Voice here
    testing::TemporaryDirectory resources;
    std::filesystem::create_directory(resources / "Voice");
    ::setenv("MURMELA_RESOURCES", resources.path().c_str(), 1);
    EXPECT_EQ(defaultVoiceChoice(), VoiceChoice(resources / "Voice"));
    ::unsetenv("MURMELA_RESOURCES");
}

}  // namespace
}  // namespace murmela
