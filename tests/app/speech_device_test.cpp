// Speaking through the model and the real player on a private sound server (a PulseAudio daemon
// with a null sink, started by tests/support/pulse-session), recording the sink's monitor with
// parec: what is heard must be what the voice synthesised, whole and once, and the model must
// return to `ready` only after the last of it could have been heard. A server that goes away
// while speaking must end the utterance with the `failed` notice, leaving the model usable.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "engine/voice.h"
#include "speech_harness.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;

constexpr double sampleRate = 24000.0;
// How long after its end a block may still be on its way through the sink and the server.
constexpr double latency = 0.75;

const char* const text =
    "The old farmer walked slowly towards the wooden bridge. My sister carefully opened a "
    "basket of apples, and the children painted the garden gate.";

// The samples the player is given for `text`: every chunk the test voice makes, back to back,
// clamped as the player clamps them.
std::vector<float> expectedSamples(const std::string& words) {
    Voice voice(testing::testVoiceDirectory());
    std::vector<float> samples;
    for (const std::vector<int64_t>& ids : voice.phonemizer().chunks(words)) {
        const SynthesisResult result = voice.synthesize(ids, 1.0);
        samples.insert(samples.end(), result.samples.begin(), result.samples.end());
    }
    for (float& sample : samples) {
        sample = std::fmax(std::fmin(sample, 1.0f), -1.0f);
    }
    return samples;
}

// When the model logged its first block's hand-over.
class FirstAudioClock {
public:
    FirstAudioClock()
        : capture_([this](log::Level, const std::string& line) {
              if (line.starts_with("first audio after ")) {
                  std::lock_guard lock(mutex_);
                  if (!at_) {
                      at_ = Clock::now();
                  }
              }
          }) {}

    std::optional<Clock::time_point> at() const {
        std::lock_guard lock(mutex_);
        return at_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<Clock::time_point> at_;
    log::Capture capture_;
};

class SpeechOnASoundServer : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* reason = std::getenv("MURMELA_PULSE_UNAVAILABLE")) {
            GTEST_SKIP() << "no sound server for this test: " << reason;
        }
        if (std::getenv("MURMELA_PULSE_SINK") == nullptr) {
            GTEST_SKIP() << "run this test through tests/support/pulse-session";
        }
        // The real output, whatever the caller's environment says; read at the first player.
        ::unsetenv("MURMELA_AUDIO");
        ::unsetenv("MURMELA_MUTE");
        speech = testing::makeSpeech(settings);
        ASSERT_TRUE(testing::loadAndWait(*speech));
    }

    testing::PrivateSettings settings;
    testing::LogRecord log;
    testing::TemporaryDirectory directory{"murmela-speech-device"};
    std::unique_ptr<Speech> speech;
};

TEST_F(SpeechOnASoundServer, WhatIsHeardIsTheSynthesisedSpeechAndReadyComesOnlyAfterIt) {
    const std::vector<float> expected = expectedSamples(text);
    const double duration = static_cast<double>(expected.size()) / sampleRate;
    testing::MonitorRecording recording(directory / "monitor.f32");
    ASSERT_TRUE(recording.started()) << "parec did not start";

    FirstAudioClock firstAudio;
    speech->setText(text);
    speech->speak();
    ASSERT_EQ(speech->phase(), Phase::speaking);
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    const Clock::time_point readyAt = Clock::now();
    runEventsFor(500ms);
    const std::vector<float> recorded = recording.stop();

    EXPECT_EQ(speech->notice(), std::nullopt);
    ASSERT_TRUE(firstAudio.at().has_value());
    const double heardFor = secondsBetween(*firstAudio.at(), readyAt);
    std::cout << "speech of " << duration << " s; ready " << heardFor
              << " s after the first block was handed over\n";
    EXPECT_GE(heardFor, duration) << "ready before the last block could have been heard";
    EXPECT_LE(heardFor, duration + latency + 3.0) << "ready long after the speech ended";

    testing::expectHeardWhole(recorded, expected);
    // Nothing else was heard: no chunk twice, nothing after the end.
    EXPECT_NEAR(static_cast<double>(testing::soundingSamples(recorded)),
                static_cast<double>(testing::soundingSamples(expected)), 0.01 * sampleRate);
}

// Last, because it ends the sound server.
TEST_F(SpeechOnASoundServer, AServerLostWhileSpeakingEndsTheUtteranceWithTheFailedNotice) {
    std::string longText;
    for (int i = 0; i < 6; ++i) {
        longText += std::string(text) + " ";
    }
    speech->setText(QString::fromStdString(longText));
    speech->speak();
    ASSERT_TRUE(runEventsUntil([&] { return speech->player().pending() > 0; }, 30s));
    runEventsFor(500ms);
    ASSERT_EQ(testing::run({"pactl", "exit"}), 0);

    ASSERT_TRUE(testing::waitForReady(*speech, 10s)) << "the utterance never ended";
    EXPECT_EQ(speech->notice(), Notice::failed());
    EXPECT_TRUE(speech->cancelled());
    const auto lines = log.startingWith("murmelaMain: audio output: ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::error);
    std::cout << lines[0].text << "\n";
    runEventsFor(1s);  // what synthesis still delivers is dropped
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
