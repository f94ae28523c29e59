// A speech whose text comes in parts, with the test voice and a simulated sound output: each
// part plays after the one before without cutting it off, the speech is over only once it is
// closed and all of it heard, and a failure or a stop ends it for good.

#include "cli/narrator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "audio/player_harness.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;

// Every signal of a narrator, in order.
struct Signals {
    explicit Signals(Narrator& narrator) {
        QObject::connect(&narrator, &Narrator::synthesised, &receiver,
                         [this](qint64 samples) { synthesised.push_back(samples); });
        QObject::connect(&narrator, &Narrator::heard, &receiver, [this] { ++heard; });
        QObject::connect(
            &narrator, &Narrator::voiceFailed, &receiver,
            [this](const QString& description) { failures.push_back(description.toStdString()); });
    }
    std::vector<qint64> synthesised;
    int heard = 0;
    std::vector<std::string> failures;
    QObject receiver;
};

class NarratorTest : public ::testing::Test {
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

TEST_F(NarratorTest, PlaysEachPartAfterTheOneBeforeUntilTheSpeechIsClosed) {
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
    // Once over, more parts are ignored.
    narrator.addToSpeech(first, 1.0);
    narrator.closeSpeech();
    testing::runEventsFor(200ms);
    EXPECT_EQ(record.synthesised.size(), 1u);
    EXPECT_EQ(record.heard, 1);
}

TEST_F(NarratorTest, EndsASpeechWithNothingToSpeakOrThatIsStopped) {
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

TEST(NarratorFailure, ReportsAVoiceThatCannotOpenOnceAndIgnoresTheRest) {
    ASSERT_STREQ(std::getenv("MURMELA_AUDIO"), "none") << "run with MURMELA_AUDIO=none";
    testing::ensureApplication();
    Narrator narrator([]() -> std::shared_ptr<Voice> { throw std::runtime_error("no voice"); });
    Signals record(narrator);
    narrator.openSpeech();
    narrator.addToSpeech("The weather is nice today.", 1.0);
    narrator.addToSpeech("We will meet at the station tomorrow.", 1.0);
    narrator.closeSpeech();
    ASSERT_TRUE(testing::runEventsUntil([&] { return !record.failures.empty(); }, 60s));
    testing::runEventsFor(300ms);
    EXPECT_EQ(record.failures, std::vector<std::string>{"no voice"});
    EXPECT_TRUE(record.synthesised.empty());
    EXPECT_EQ(record.heard, 0);
}

}  // namespace
}  // namespace murmela
