// The narrator with the bundled voice and a simulated sound device: a stop cuts into the chunk
// being made, so what comes next does not wait for it, while a save under way is never cut.

#include "cli/narrator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "audio/player_harness.h"
#include "support/temporary_directory.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::runEventsFor;
using testing::runEventsUntil;

// One sentence, of about the longest chunk the voice makes, which spoken slowly takes it a
// good while.
const std::string longSentence =
    "The old farmer walked slowly towards the wooden bridge while his daughter, who had "
    "been waiting by the gate since the early morning, counted the sheep that came down "
    "from the hills one after another in the cold and windy weather, and their neighbour "
    "carried the heavy baskets of apples and pears back to the kitchen";

constexpr int attempts = 5;

constexpr double slowly = 0.15;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class NarratorTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        testing::ensureApplication();
        voice_ = openWarmVoice(MURMELA_VOICE_DIR);
        // How long the long sentence's first chunk takes the voice by itself. Times here are
        // the least of a few tries: a busy machine makes some slow, none fast.
        chunkSeconds_ = 1e9;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            const Clock::time_point start = Clock::now();
            voice_->speak(longSentence, slowly, [](SpokenChunk&&) { return false; });
            chunkSeconds_ = std::min(chunkSeconds_, secondsSince(start));
        }
    }
    static void TearDownTestSuite() { voice_.reset(); }

    std::unique_ptr<Narrator> makeNarrator() {
        return std::make_unique<Narrator>([] { return voice_; });
    }

    // Saves `text` and waits for the result.
    static std::optional<Narrator::SaveResult> saved(Narrator& narrator, const std::string& text,
                                                     const std::filesystem::path& path) {
        std::optional<Narrator::SaveResult> result;
        narrator.save(text, slowly, path, [&](Narrator::SaveResult outcome) { result = outcome; });
        runEventsUntil([&] { return result.has_value(); }, 120s);
        return result;
    }

    static std::shared_ptr<Voice> voice_;
    static double chunkSeconds_;
    testing::TemporaryDirectory directory_{"murmela-narrator"};
};

std::shared_ptr<Voice> NarratorTest::voice_;
double NarratorTest::chunkSeconds_ = 0;

TEST_F(NarratorTest, AStopCutsIntoTheChunkBeingMadeAndTheNextSpeechStartsAtOnce) {
    auto narrator = makeNarrator();
    bool synthesised = false;
    QObject receiver;
    QObject::connect(narrator.get(), &Narrator::synthesised, &receiver,
                     [&](qint64) { synthesised = true; });
    auto spoken = [&] { return runEventsUntil([&] { return synthesised; }, 120s); };
    // Warm: the voice is open and a speech has run; then how long a short one takes alone.
    narrator->speak("Hi.", 1.0);
    ASSERT_TRUE(spoken());
    double shortSeconds = 1e9;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        synthesised = false;
        const Clock::time_point shortStart = Clock::now();
        narrator->speak("Hi.", 1.0);
        ASSERT_TRUE(spoken());
        shortSeconds = std::min(shortSeconds, secondsSince(shortStart));
    }
    ASSERT_GT(chunkSeconds_, 3 * shortSeconds) << "the long chunk is not long enough to tell";
    const auto aFifthOfTheChunk = std::chrono::milliseconds(static_cast<int>(chunkSeconds_ * 200));

    for (const bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "a new speak replaces it" : "stop");
        double afterStop = 1e9;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            synthesised = false;
            narrator->speak(longSentence, slowly);
            runEventsFor(aFifthOfTheChunk);
            ASSERT_FALSE(synthesised) << "the long chunk was made before the stop";
            const Clock::time_point stopped = Clock::now();
            if (!replace) {
                EXPECT_TRUE(narrator->stop());
            }
            narrator->speak("Hi.", 1.0);
            ASSERT_TRUE(spoken());
            afterStop = std::min(afterStop, secondsSince(stopped));
        }
        // Without the interruption the rest of the long chunk comes first, four fifths of it.
        EXPECT_LT(afterStop, shortSeconds + chunkSeconds_ / 2)
            << "the speech after the stop waited for the stopped chunk (" << chunkSeconds_
            << " s alone)";
    }

    // The narrator's end does not wait for the chunk either.
    narrator->speak(longSentence, slowly);
    runEventsFor(aFifthOfTheChunk);
    const Clock::time_point ending = Clock::now();
    narrator.reset();
    EXPECT_LT(secondsSince(ending), chunkSeconds_ / 2);
}

TEST_F(NarratorTest, AStopNeverCutsIntoASave) {
    auto narrator = makeNarrator();
    const std::filesystem::path whole = directory_ / "whole.wav";
    const std::optional<Narrator::SaveResult> alone = saved(*narrator, longSentence, whole);
    ASSERT_TRUE(alone && !alone->error && alone->samples > 0);

    // A speech stopped while the save is made, before it, and a stop with no speech at all.
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        std::optional<Narrator::SaveResult> result;
        if (round == 1) {
            narrator->speak(longSentence, slowly);
            runEventsFor(20ms);
            narrator->stop();
        }
        narrator->save(longSentence, slowly, directory_ / "again.wav",
                       [&](Narrator::SaveResult outcome) { result = outcome; });
        runEventsFor(std::chrono::milliseconds(static_cast<int>(chunkSeconds_ * 200)));
        if (round == 0) {
            narrator->speak("Hi.", 1.0);
        }
        narrator->stop();
        ASSERT_TRUE(runEventsUntil([&] { return result.has_value(); }, 120s));
        EXPECT_EQ(result->error, std::nullopt);
        EXPECT_EQ(result->samples, alone->samples);
        EXPECT_EQ(std::filesystem::file_size(directory_ / "again.wav"),
                  std::filesystem::file_size(whole));
    }
}

}  // namespace
}  // namespace murmela
