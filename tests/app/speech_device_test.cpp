// The model with the real player on a private sound server (a PulseAudio daemon with a null
// sink, started by tests/support/pulse-session): a server that goes away while speaking must
// end the utterance with the `failed` notice, leaving the model usable. What the player makes
// heard is checked on such a server in tests/audio.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <iostream>
#include <string>

#include "speech_harness.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;

TEST(SpeechOnASoundServer, AServerLostWhileSpeakingEndsTheUtteranceWithTheFailedNotice) {
    if (const char* reason = std::getenv("MURMELA_PULSE_UNAVAILABLE")) {
        GTEST_SKIP() << "no sound server for this test: " << reason;
    }
    if (std::getenv("MURMELA_PULSE_SINK") == nullptr) {
        GTEST_SKIP() << "run this test through tests/support/pulse-session";
    }
    // The real output, whatever the caller's environment says; read at the first player.
    ::unsetenv("MURMELA_AUDIO");
    ::unsetenv("MURMELA_MUTE");
    testing::PrivateSettings settings;
    testing::LogRecord log;
    std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
    ASSERT_TRUE(testing::loadAndWait(*speech));
    std::string longText;
    for (int i = 0; i < 6; ++i) {
        longText +=
            "The old farmer walked slowly towards the wooden bridge. My sister carefully "
            "opened a basket of apples, and the children painted the garden gate. ";
    }
    speech->setText(QString::fromStdString(longText));
    speech->speak();
    ASSERT_TRUE(testing::runEventsUntil([&] { return speech->player().pending() > 0; }, 30s));
    testing::runEventsFor(500ms);
    ASSERT_EQ(testing::run({"pactl", "exit"}), 0);

    ASSERT_TRUE(testing::waitForReady(*speech, 10s)) << "the utterance never ended";
    EXPECT_EQ(speech->notice(), Notice::failed());
    EXPECT_TRUE(speech->cancelled());
    const auto lines = log.startingWith("murmelaMain: audio output: ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::error);
    std::cout << lines[0].text << "\n";
    testing::runEventsFor(1s);  // what synthesis still delivers is dropped
    EXPECT_EQ(speech->phase(), Phase::ready);
    EXPECT_EQ(speech->player().pending(), 0);

    // Usable: a new attempt either plays or fails the same way, and ends in `ready`.
    speech->setText("Hello there, my friend.");
    speech->speak();
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    if (speech->notice()) {
        EXPECT_EQ(speech->notice(), Notice::failed());
        EXPECT_EQ(log.startingWith("murmelaMain: audio output: ").size(), 2u);
    }
}

}  // namespace
}  // namespace murmela
