// The model where no sound server can be reached: speaking fails at once with the `failed`
// notice and the "audio output: " log line, stays `ready`, and the model goes on working.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>

#include "speech_harness.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(SpeechWithoutASoundServer, SpeakingFailsWithTheNoticeAndTheModelStaysUsable) {
    // Read once per process, when the first player asks for a device.
    ::setenv("PULSE_SERVER", "unix:/nonexistent/murmela-no-sound-server", 1);
    ::unsetenv("MURMELA_AUDIO");
    testing::PrivateSettings settings;
    testing::LogRecord log;
    testing::TemporaryDirectory directory("murmela-no-server");
    std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
    ASSERT_TRUE(testing::loadAndWait(*speech));
    speech->setText("Hello there, my friend.");

    testing::SignalRecord record(*speech);
    for (int attempt = 0; attempt < 2; ++attempt) {
        speech->speak();
        EXPECT_EQ(speech->phase(), Phase::ready) << "attempt " << attempt;
        EXPECT_EQ(speech->notice(), Notice::failed()) << "attempt " << attempt;
    }
    testing::runEventsFor(300ms);
    EXPECT_TRUE(record.phases.empty());
    EXPECT_THAT(record.notices, ElementsAre(Notice::failed(), std::nullopt, Notice::failed()));
    const auto lines = log.startingWith("murmelaMain: audio output: ");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, log::Level::error);
    EXPECT_GT(lines[0].text.size(), std::string("murmelaMain: audio output: ").size());
    EXPECT_TRUE(log.startingWith("first audio after ").empty());

    // Saving needs no sound server.
    speech->save(directory / "saved.wav");
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    EXPECT_EQ(speech->notice(), Notice::saved("saved.wav"));
    EXPECT_TRUE(std::filesystem::exists(directory / "saved.wav"));
}

}  // namespace
}  // namespace murmela
