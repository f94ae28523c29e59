// The speaking service with a simulated sound output. With the test voice: a speech whose text
// comes in parts plays each part after the one before without cutting it off, is over only once
// it is closed and all of it heard, and a failure or a stop ends it for good; a voice that
// cannot open is reported once. With the bundled voice, whose chunks take long enough to tell:
// a stop cuts into the chunk being made, so what comes next does not wait for it, while a save
// under way is never cut.

#include "app/narrator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/player_harness.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using testing::runEventsFor;
using testing::runEventsUntil;

// Every signal of a narrator, in order.
struct Signals {
    explicit Signals(Narrator& narrator) {
        QObject::connect(&narrator, &Narrator::synthesised, &receiver,
                         [this](qint64 samples) { synthesised.push_back(samples); });
        QObject::connect(&narrator, &Narrator::heard, &receiver, [this] { ++heard; });
        QObject::connect(&narrator, &Narrator::firstChunkPlayed, &receiver,
                         [this](qint64, qint64 ids) { firstChunkIds.push_back(ids); });
        QObject::connect(
            &narrator, &Narrator::voiceFailed, &receiver,
            [this](const QString& description) { failures.push_back(description.toStdString()); });
    }
    std::vector<qint64> synthesised;
    int heard = 0;
    std::vector<qint64> firstChunkIds;
    std::vector<std::string> failures;
    QObject receiver;
};

class NarratorPartsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_STREQ(std::getenv("MURMELA_AUDIO"), "none") << "run with MURMELA_AUDIO=none";
        testing::ensureApplication();
    }

    // The samples `text` gives when spoken on its own.
    qint64 samplesOf(const std::string& text) {
        Signals record(narrator);
        narrator.speak(text, 1.0);
        EXPECT_TRUE(testing::runEventsUntil([&] { return record.heard == 1; }, 60s));
        return record.synthesised.empty() ? -1 : record.synthesised.front();
    }

    std::shared_ptr<Voice> voice = openWarmVoice(testing::testVoiceDirectory());
    Narrator narrator{[this] { return voice; }};
};

TEST_F(NarratorPartsTest, PlaysEachPartAfterTheOneBeforeUntilTheSpeechIsClosed) {
    const std::string first = "The weather is nice today.";
    const std::string second = "We will meet at the station tomorrow.";
    const qint64 expected = samplesOf(first) + samplesOf(second);

    Signals record(narrator);
    narrator.openSpeech();
    narrator.addToSpeech(first, 1.0);
    // The first part is made and played to its end; the speech goes on, waiting for more.
    ASSERT_TRUE(testing::runEventsUntil([&] { return narrator.speechBacklog() == 0; }, 60s));
    testing::runEventsFor(200ms);
    EXPECT_EQ(record.heard, 0);
    EXPECT_TRUE(record.synthesised.empty());
    // A second part while the first is still playing does not cut it off.
    narrator.addToSpeech(second, 1.0);
    narrator.addToSpeech("...", 1.0);  // nothing to speak, and no harm
    EXPECT_GT(narrator.speechBacklog(), 0);
    narrator.closeSpeech();
    ASSERT_TRUE(testing::runEventsUntil([&] { return record.heard == 1; }, 60s));
    EXPECT_EQ(record.synthesised, std::vector<qint64>{expected});
    EXPECT_TRUE(record.failures.empty());
    // Each part that gave sound announced its first chunk, with the ids it was made of.
    ASSERT_EQ(record.firstChunkIds.size(), 2u);
    EXPECT_GT(record.firstChunkIds[0], 0);
    EXPECT_GT(record.firstChunkIds[1], record.firstChunkIds[0]);
    // Once over, more parts are ignored.
    narrator.addToSpeech(first, 1.0);
    narrator.closeSpeech();
    testing::runEventsFor(200ms);
    EXPECT_EQ(record.synthesised.size(), 1u);
    EXPECT_EQ(record.heard, 1);
}

TEST_F(NarratorPartsTest, SwitchingVoicesLetsTheOldOneGoBeforeTheNewOneOpens) {
    const qint64 before = samplesOf("Good morning.");
    ASSERT_GT(before, 0);
    ASSERT_GT(voice.use_count(), 1) << "the narrator does not hold its voice";
    long heldWhileOpening = -1;
    int openings = 0;
    narrator.useVoice([&]() -> std::shared_ptr<Voice> {
        ++openings;
        heldWhileOpening = voice.use_count();
        return openWarmVoice(testing::testVoiceDirectory());
    });
    EXPECT_EQ(samplesOf("Good morning."), before);
    EXPECT_EQ(samplesOf("Good evening."), samplesOf("Good evening."));
    EXPECT_EQ(openings, 1) << "the new voice is opened once, by the first job that needs it";
    EXPECT_EQ(heldWhileOpening, 1) << "the old voice was still held while the new one opened";
    EXPECT_EQ(voice.use_count(), 1);
}

TEST_F(NarratorPartsTest, EndsASpeechWithNothingToSpeakOrThatIsStopped) {
    Signals record(narrator);
    narrator.openSpeech();
    narrator.addToSpeech("... --- !", 1.0);
    narrator.closeSpeech();
    ASSERT_TRUE(testing::runEventsUntil([&] { return !record.synthesised.empty(); }, 60s));
    EXPECT_EQ(record.synthesised, std::vector<qint64>{0});

    narrator.openSpeech();
    narrator.addToSpeech("The weather is nice today.", 1.0);
    EXPECT_TRUE(narrator.stop());
    narrator.addToSpeech("We will meet at the station tomorrow.", 1.0);
    narrator.closeSpeech();
    testing::runEventsFor(500ms);
    EXPECT_EQ(record.synthesised, std::vector<qint64>{0});
    EXPECT_EQ(record.heard, 0);
    EXPECT_EQ(narrator.speechBacklog(), 0);
}

TEST(NarratorFailure, ReportsAVoiceThatCannotOpenOnceAndTriesAgainAtTheNextJob) {
    ASSERT_STREQ(std::getenv("MURMELA_AUDIO"), "none") << "run with MURMELA_AUDIO=none";
    testing::ensureApplication();
    // Counted on the render thread, where the second part may still be trying.
    std::atomic<int> openings = 0;
    Narrator narrator([&openings]() -> std::shared_ptr<Voice> {
        ++openings;
        throw std::runtime_error("no voice");
    });
    std::optional<Narrator::LoadResult> loaded;
    narrator.load([&](Narrator::LoadResult result) { loaded = result; });
    ASSERT_TRUE(runEventsUntil([&] { return loaded.has_value(); }, 60s));
    EXPECT_EQ(loaded->error, "no voice");

    Signals record(narrator);
    narrator.openSpeech();
    narrator.addToSpeech("The weather is nice today.", 1.0);
    narrator.addToSpeech("We will meet at the station tomorrow.", 1.0);
    narrator.closeSpeech();
    ASSERT_TRUE(runEventsUntil([&] { return !record.failures.empty(); }, 60s));
    runEventsFor(300ms);
    EXPECT_EQ(record.failures, std::vector<std::string>{"no voice"});
    EXPECT_TRUE(record.synthesised.empty());
    EXPECT_EQ(record.heard, 0);
    EXPECT_GE(openings.load(), 2) << "a failed opening was not tried again";
}

#ifdef MURMELA_VOICE_DIR

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

class NarratorStopTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        testing::ensureApplication();
        voice_ = openWarmVoice(VoiceChoice(MURMELA_VOICE_DIR));
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

std::shared_ptr<Voice> NarratorStopTest::voice_;
double NarratorStopTest::chunkSeconds_ = 0;

TEST_F(NarratorStopTest, AStopCutsIntoTheChunkBeingMadeAndTheNextSpeechStartsAtOnce) {
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

TEST_F(NarratorStopTest, AStopNeverCutsIntoASave) {
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

#endif  // MURMELA_VOICE_DIR

}  // namespace
}  // namespace murmela
