// The application model with the test voice and a simulated audio output (MURMELA_AUDIO=none,
// set by the test's registration): every operation in and out of its phase, what speaking and
// saving give, what the model logs and signals, and what a stop or the model's end does to work
// still under way. And its settings: from the command line first, then from the right file, the
// speed brought into the voice's range, onto its steps, without floating-point residue.

#include "app/speech.h"

#include <stdlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QStringList>
#include <chrono>
#include <filesystem>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "engine/voice.h"
#include "speech_harness.h"
#include "support/environment.h"
#include "support/neural_voices.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;

const char* const twoSentences =
    "The old farmer walked slowly towards the wooden bridge. My sister opened the gate.";

// A sentence of about 130 ids, several seconds of speech with the test voice.
std::string longSentences(int from, int to) {
    std::string text;
    for (int number = from; number <= to; ++number) {
        text += "Sentence " + std::to_string(number) +
                " tells how the quiet student carried a basket of apples along the river bank, "
                "past the market square and the church tower, before the sun went down. ";
    }
    return text;
}

// What the test voice makes of `text` at `speed`, chunk by chunk, from a voice of its own.
testing::SpokenChunks spokenByTheTestVoice(const std::string& text, double speed) {
    Voice voice(testing::testVoiceDirectory());
    return testing::speakAll(voice, text, speed);
}

// Checks that `file` holds `samples` as a 16-bit WAV file.
void expectWavOf(const std::filesystem::path& file, const std::vector<float>& samples) {
    const std::vector<uint8_t> wav = encodeWav(samples, false, 24000);
    EXPECT_EQ(testing::readText(file), std::string(wav.begin(), wav.end()));
}

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        files.push_back(entry.path().filename());
    }
    return files;
}

// Saves to `destination` and waits for `ready`: the notice the save ended with.
std::optional<Notice> saveAndWait(Speech& speech, const std::filesystem::path& destination) {
    speech.save(destination);
    EXPECT_TRUE(testing::waitForReady(speech, 60s)) << "the save did not end";
    return speech.notice();
}

// Speaks and waits for `ready`: the notice speaking ended with.
std::optional<Notice> speakAndWait(Speech& speech) {
    speech.speak();
    EXPECT_TRUE(testing::waitForReady(speech, 30s)) << "speaking did not end";
    return speech.notice();
}

// The log lines that start with `prefix`, checked to be errors, without their level.
std::vector<std::string> errors(const testing::LogRecord& log, const std::string& prefix) {
    std::vector<std::string> texts;
    for (const auto& line : log.startingWith(prefix)) {
        EXPECT_EQ(line.level, log::Level::error) << line.text;
        texts.push_back(line.text);
    }
    return texts;
}

class SpeechTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_STREQ(std::getenv("MURMELA_AUDIO"), "none") << "run with MURMELA_AUDIO=none";
    }

    // A model whose voice has been loaded.
    std::unique_ptr<Speech> loadedSpeech() {
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        EXPECT_TRUE(testing::loadAndWait(*speech)) << "the test voice did not load";
        return speech;
    }

    // Loads and waits for the outcome.
    Phase loadOnce(Speech& speech) {
        speech.load();
        EXPECT_EQ(speech.phase(), Phase::loading);
        EXPECT_TRUE(runEventsUntil([&] { return speech.phase() != Phase::loading; }, 60s));
        return speech.phase();
    }

    // Runs `operations` and checks that the model signalled no phase, notice or cancel flag.
    void expectIgnored(Speech& speech, const std::function<void()>& operations) {
        testing::SignalRecord record(speech);
        operations();
        runEventsFor(100ms);
        EXPECT_TRUE(record.phases.empty());
        EXPECT_TRUE(record.notices.empty());
        EXPECT_EQ(record.cancelChanges, 0);
    }

    testing::PrivateSettings settings;
    testing::LogRecord log;
    testing::TemporaryDirectory directory{"murmela-speech"};
};

constexpr const char* freshProcessVariable = "MURMELA_TEST_FRESH_PROCESS";

// This program again, limited to `test`, with `variable` set; its exit status, or -1.
int runInFreshProcess(const char* test, const char* variable, const char* value) {
    const testing::ScopedVariable fresh(freshProcessVariable, "1");
    const testing::ScopedVariable given(variable, value);
    return testing::run({"/proc/self/exe", std::string("--gtest_filter=") + test});
}

// MURMELA_FAIL_LOAD=once fails the first injected load of a process, which no other test here
// makes; the check runs once more in a fresh process (this program, limited to this test and to
// its first part), where it must fail again.
TEST_F(SpeechTest, LoadFailuresAreLoggedAndEveryRetryTriesAgain) {
    const std::string injected = "murmelaMain: load failed: voice: load failure injected ";
    {
        const testing::ScopedVariable failing("MURMELA_FAIL_LOAD", "once");
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        EXPECT_EQ(loadOnce(*speech), Phase::failed);
        EXPECT_EQ(loadOnce(*speech), Phase::ready);  // the retry
        // Another model in the same process: the one failure has been spent.
        EXPECT_EQ(loadOnce(*testing::makeSpeech(settings)), Phase::ready);
    }
    EXPECT_THAT(errors(log, "murmelaMain: load failed: "),
                ElementsAre(injected + "(MURMELA_FAIL_LOAD=once)"));
    if (std::getenv(freshProcessVariable) != nullptr) {
        return;
    }
    EXPECT_EQ(runInFreshProcess("SpeechTest.LoadFailuresAreLoggedAndEveryRetryTriesAgain",
                                "MURMELA_FAIL_LOAD", "once"),
              0)
        << "a fresh process did not fail its first load once";

    // "always" fails every load, even after "once" has been spent; any other value, none.
    ::setenv("MURMELA_FAIL_LOAD", "always", 1);
    {
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        EXPECT_EQ(loadOnce(*speech), Phase::failed);
        EXPECT_EQ(loadOnce(*speech), Phase::failed);
    }
    EXPECT_EQ(errors(log, "murmelaMain: load failed: ").back(),
              injected + "(MURMELA_FAIL_LOAD=always)");
    ::setenv("MURMELA_FAIL_LOAD", "twice", 1);
    EXPECT_EQ(loadOnce(*testing::makeSpeech(settings)), Phase::ready);
    ::unsetenv("MURMELA_FAIL_LOAD");

    // A voice that is not there.
    Speech speech(settings.store(), directory / "no-voice");
    testing::SignalRecord record(speech);
    EXPECT_EQ(loadOnce(speech), Phase::failed);
    EXPECT_EQ(loadOnce(speech), Phase::failed);
    EXPECT_THAT(record.phases, ElementsAre(Phase::failed, Phase::loading, Phase::failed));
    EXPECT_FALSE(speech.hasVoice());
    const std::vector<std::string> failures = errors(log, "murmelaMain: load failed: ");
    ASSERT_EQ(failures.size(), 5u);
    EXPECT_EQ(failures.back(), "murmelaMain: load failed: voice: Voice/ missing");

    // Without a voice there is nothing to speak or save with.
    speech.setText("Hello there, my friend.");
    speech.speak();
    speech.save(directory / "out.wav");
    EXPECT_EQ(speech.phase(), Phase::failed);
    runEventsFor(100ms);
    EXPECT_FALSE(std::filesystem::exists(directory / "out.wav"));
}

// With no sound server to reach (its address is read once per process, at the first player,
// hence a fresh process): speaking fails at once with the `failed` notice and the
// "audio output: " log line, stays `ready`, and saving still works.
TEST(SpeechWithoutASoundServer, SpeakingFailsWithTheNoticeAndTheModelStaysUsable) {
    if (std::getenv(freshProcessVariable) == nullptr) {
        const testing::ScopedVariable server("PULSE_SERVER",
                                             "unix:/nonexistent/murmela-no-sound-server");
        EXPECT_EQ(runInFreshProcess("SpeechWithoutASoundServer.*", "MURMELA_AUDIO", "device"), 0);
        return;
    }
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
    runEventsFor(300ms);
    EXPECT_TRUE(record.phases.empty());
    EXPECT_THAT(record.notices, ElementsAre(Notice::failed(), std::nullopt, Notice::failed()));
    const std::vector<std::string> lines = errors(log, "murmelaMain: audio output: ");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_GT(lines[0].size(), std::string("murmelaMain: audio output: ").size());
    EXPECT_TRUE(log.startingWith("first audio after ").empty());

    EXPECT_EQ(saveAndWait(*speech, directory / "saved.wav"), Notice::saved("saved.wav"));
}

TEST_F(SpeechTest, OperationsOutsideTheirPhaseChangeNothing) {
    std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
    speech->setText("Hello there, my friend.");
    // Before the voice is loaded.
    EXPECT_EQ(speech->phase(), Phase::loading);
    EXPECT_FALSE(speech->hasVoice());
    expectIgnored(*speech, [&] {
        speech->speak();
        speech->save(directory / "early.wav");
        speech->stop();
    });
    // A second load while the first is under way joins it; once loaded, loading again only
    // confirms `ready`.
    {
        testing::SignalRecord record(*speech);
        speech->load();
        speech->load();
        ASSERT_TRUE(testing::waitForReady(*speech, 60s));
        speech->load();
        runEventsFor(200ms);
        EXPECT_EQ(speech->phase(), Phase::ready);
        EXPECT_TRUE(speech->hasVoice());
        EXPECT_THAT(record.phases, ElementsAre(Phase::ready));
        EXPECT_EQ(record.voiceChanges, 1);
    }
    const auto lines = log.startingWith("voice ready in ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::info);
    EXPECT_THAT(lines[0].text, MatchesRegex("voice ready in [0-9]+ ms"));

    // Blank text: nothing to speak, and nothing happens; stop() while ready neither.
    speech->setText(" \n\t \r\n\u00a0 ");
    EXPECT_FALSE(speech->canSpeak());
    expectIgnored(*speech, [&] {
        speech->speak();
        speech->save(directory / "blank.wav");
        speech->stop();
    });
    EXPECT_FALSE(speech->cancelled());
    EXPECT_EQ(speech->text(), " \n\t \r\n\u00a0 ");  // never trimmed

    // While speaking, neither another speak nor a save starts.
    speech->setText(QString::fromStdString(longSentences(1, 2)));
    speech->speak();
    ASSERT_EQ(speech->phase(), Phase::speaking);
    expectIgnored(*speech, [&] {
        speech->speak();
        speech->save(directory / "during-speech.wav");
    });
    speech->stop();

    // While saving, neither speak nor stop nor another save changes anything.
    speech->save(directory / "saved.wav");
    ASSERT_EQ(speech->phase(), Phase::saving);
    {
        testing::SignalRecord record(*speech);
        speech->speak();
        speech->stop();
        speech->save(directory / "second.wav");
        EXPECT_EQ(speech->phase(), Phase::saving);
        ASSERT_TRUE(testing::waitForReady(*speech, 60s));
        EXPECT_THAT(record.phases, ElementsAre(Phase::ready));
        EXPECT_EQ(record.cancelChanges, 0);
    }
    EXPECT_EQ(speech->notice(), Notice::saved("saved.wav"));
    EXPECT_THAT(filesIn(directory.path()), ElementsAre("saved.wav"));
}

// When speaking ends is the player's to say (its own tests); here, what the model shows and logs.
TEST_F(SpeechTest, SpeakingClearsTheNoticeSignalsItsPhasesAndLogsTheFirstAudio) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    speech->setText(twoSentences);
    speech->setSpeed(1.25);
    ASSERT_EQ(saveAndWait(*speech, directory / "first.wav"), Notice::saved("first.wav"));

    testing::SignalRecord record(*speech);
    speech->speak();
    EXPECT_EQ(speech->phase(), Phase::speaking);
    EXPECT_EQ(speech->notice(), std::nullopt);
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    EXPECT_THAT(record.phases, ElementsAre(Phase::speaking, Phase::ready));
    EXPECT_EQ(speech->notice(), std::nullopt);
    EXPECT_EQ(record.cancelChanges, 1);  // a fresh flag
    EXPECT_FALSE(speech->cancelled());
    const auto lines = log.startingWith("first audio after ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::info);
    const std::string ids =
        std::to_string(spokenByTheTestVoice(twoSentences, 1.25).ids.front().size());
    EXPECT_THAT(lines[0].text, MatchesRegex("first audio after [0-9]+ ms \\(" + ids + " ids\\)"));
}

TEST_F(SpeechTest, ATextThatGivesNoChunkEndsAtOnceWithTheEmptyNoticeAndWritesNoFile) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    speech->setText("** ... ?! --");
    ASSERT_TRUE(speech->canSpeak());
    testing::SignalRecord record(*speech);

    speech->speak();
    ASSERT_TRUE(testing::waitForReady(*speech, 10s));
    EXPECT_EQ(speech->notice(), Notice::empty());
    EXPECT_EQ(speech->player().pending(), 0);

    speech->save(directory / "nothing.wav");
    EXPECT_EQ(speech->phase(), Phase::saving);
    ASSERT_TRUE(testing::waitForReady(*speech, 10s));
    EXPECT_EQ(speech->notice(), Notice::empty());
    EXPECT_THAT(filesIn(directory.path()), IsEmpty());

    EXPECT_THAT(record.phases,
                ElementsAre(Phase::speaking, Phase::ready, Phase::saving, Phase::ready));
    // Each operation cleared the notice before giving it again.
    EXPECT_THAT(record.notices, ElementsAre(Notice::empty(), std::nullopt, Notice::empty()));
    EXPECT_TRUE(log.startingWith("first audio after ").empty());
    EXPECT_TRUE(log.startingWith("murmelaMain: ").empty());
}

TEST_F(SpeechTest, AStopFollowedAtOnceByANewSpeakHearsOnlyTheNewUtterance) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    const std::string stoppedText = longSentences(1, 6);
    const auto chunkSize = [](const std::vector<float>& chunk) { return chunk.size(); };
    const double shortestStopped =
        std::ranges::min(spokenByTheTestVoice(stoppedText, 1.0).samples, {}, chunkSize).size() /
        24000.0;
    const std::string newText = "Hello there, my friend.";
    const double newSeconds = spokenByTheTestVoice(newText, 1.0).joined().size() / 24000.0;
    ASSERT_GT(shortestStopped, newSeconds + 1.0);

    speech->setText(QString::fromStdString(stoppedText));
    speech->speak();
    // Stopped once the first block plays, while later chunks are still being made.
    ASSERT_TRUE(runEventsUntil([&] { return speech->player().pending() > 0; }, 30s));
    speech->stop();
    EXPECT_EQ(speech->phase(), Phase::ready);
    EXPECT_TRUE(speech->cancelled());
    EXPECT_EQ(speech->player().pending(), 0);

    testing::SignalRecord record(*speech);
    speech->setText(QString::fromStdString(newText));
    const Clock::time_point begin = Clock::now();
    speech->speak();
    EXPECT_FALSE(speech->cancelled());
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    const double took = secondsBetween(begin, Clock::now());
    // Only the new utterance's own last block ends it: not sooner, and not after a chunk of the
    // stopped one that slipped in.
    EXPECT_GE(took, newSeconds);
    EXPECT_LT(took, newSeconds + shortestStopped) << "a chunk of the stopped utterance was played";

    runEventsFor(1500ms);  // whatever the stopped utterance still had in flight arrives
    EXPECT_THAT(record.phases, ElementsAre(Phase::speaking, Phase::ready));
    EXPECT_EQ(speech->player().pending(), 0);
    EXPECT_EQ(log.startingWith("first audio after ").size(), 2u);
}

TEST_F(SpeechTest, SavingWritesTheSynthesisedSamplesAtTheSpeedAsA16BitWav) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    speech->setText(twoSentences);
    speech->setSpeed(0.8);
    testing::SignalRecord record(*speech);
    const std::filesystem::path destination = directory / "Speech \u00e9t\u00e9.wav";

    speech->save(destination);
    EXPECT_EQ(speech->phase(), Phase::saving);
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));

    EXPECT_EQ(speech->notice(), Notice::saved("Speech \u00e9t\u00e9.wav"));
    EXPECT_THAT(record.phases, ElementsAre(Phase::saving, Phase::ready));
    expectWavOf(destination, spokenByTheTestVoice(twoSentences, 0.8).joined());
    // Nothing but the file: no scratch file left beside it.
    EXPECT_THAT(filesIn(directory.path()), ElementsAre(destination.filename()));
    EXPECT_TRUE(log.startingWith("murmelaMain: ").empty());

    // A destination that cannot be written (below a plain file) fails, logs and leaves nothing;
    // the model goes on working.
    testing::writeText(directory / "plain-file", "not a directory");
    const std::filesystem::path unwritable = directory / "plain-file" / "out.wav";
    EXPECT_EQ(saveAndWait(*speech, unwritable), Notice::saveFailed());
    const std::vector<std::string> failures = errors(log, "murmelaMain: save failed: ");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_THAT(failures[0], ::testing::HasSubstr(unwritable.string()));
    EXPECT_THAT(filesIn(directory.path()),
                ::testing::UnorderedElementsAre(destination.filename(), "plain-file"));
    EXPECT_EQ(saveAndWait(*speech, directory / "good.wav"), Notice::saved("good.wav"));
}

TEST_F(SpeechTest, ASynthesisErrorEndsSpeakingAndSavingWithTheirFailureNotices) {
    // A voice whose encoder takes "Hi." (the warm-up) and a short first sentence but not a
    // longer chunk: the second sentence fails after the first has been handed to the player.
    testing::TemporaryDirectory voiceDirectory{"murmela-small-encoder"};
    testing::copyTestVoice(voiceDirectory.path());
    nlohmann::json description =
        nlohmann::json::parse(testing::readText(voiceDirectory / "voice.json"));
    description["interface"]["encoderBuckets"] = {32};
    testing::writeText(voiceDirectory / "voice.json", description.dump());
    Speech speech(settings.store(), voiceDirectory.path());
    ASSERT_TRUE(testing::loadAndWait(speech));
    speech.setText(QString("We go now. ") + twoSentences);

    testing::SignalRecord record(speech);
    EXPECT_EQ(speakAndWait(speech), Notice::failed());
    EXPECT_EQ(speech.player().pending(), 0);
    EXPECT_EQ(log.startingWith("first audio after ").size(), 1u);

    EXPECT_EQ(saveAndWait(speech, directory / "failed.wav"), Notice::saveFailed());
    EXPECT_THAT(filesIn(directory.path()), IsEmpty());

    EXPECT_THAT(record.phases,
                ElementsAre(Phase::speaking, Phase::ready, Phase::saving, Phase::ready));
    for (const char* prefix : {"murmelaMain: speak failed: ", "murmelaMain: save failed: "}) {
        const std::vector<std::string> lines = errors(log, prefix);
        ASSERT_EQ(lines.size(), 1u) << prefix;
        EXPECT_THAT(lines[0], MatchesRegex(".* failed: voice: [0-9]+ ids is past the encoder"));
    }
}

// Without a voice of its own the window's model speaks MURMELA_VOICE's: here the Piper stand-in,
// whose every sample the engine predicts, and a Kokoro one that fails while it runs.
TEST_F(SpeechTest, TheEnvironmentsDownloadedVoiceSpeaksAndItsFailuresAreNotices) {
    const std::string text = "Hello, world! Button. She measured.";
    const VoiceChoice piper(testing::standIn("piper-multi"), "bob");
    std::optional<testing::ScopedVariable> chosen(std::in_place, "MURMELA_VOICE",
                                                  piper.directory.string() + ":bob");
    Speech speech(settings.store(), std::nullopt);
    ASSERT_TRUE(testing::loadAndWait(speech));
    speech.setText(QString::fromStdString(text));
    EXPECT_EQ(saveAndWait(speech, directory / "piper.wav"), Notice::saved("piper.wav"));
    Voice expected(piper);
    expectWavOf(directory / "piper.wav", testing::speakAll(expected, text, 1.0).joined());

    chosen.emplace("MURMELA_VOICE", testing::standIn("bad/kokoro-failing"));
    Speech failing(settings.store(), std::nullopt);
    ASSERT_TRUE(testing::loadAndWait(failing));  // the voice is looked for when it is loaded
    chosen.reset();
    failing.setText("She measured it.");
    EXPECT_EQ(speakAndWait(failing), Notice::failed());
    EXPECT_EQ(saveAndWait(failing, directory / "failed.wav"), Notice::saveFailed());
    EXPECT_FALSE(std::filesystem::exists(directory / "failed.wav"));
}

TEST_F(SpeechTest, TextAndSpeedSignalOnlyChangesAndTheSpeedIsStoredForTheNextModel) {
    settings.store().setValue("speed", 0.5);
    {
        Speech speech(settings.store(), testing::testVoiceDirectory());
        EXPECT_EQ(speech.speed(), 0.75);
        std::vector<double> speeds;
        QObject::connect(&speech, &Speech::speedChanged,
                         [&](double speed) { speeds.push_back(speed); });
        speech.setSpeed(2.0);
        speech.setSpeed(1.5);  // no change, no signal
        speech.setSpeed(0.8);
        EXPECT_THAT(speeds, ElementsAre(1.5, 0.8));

        std::vector<QString> texts;
        QObject::connect(&speech, &Speech::textChanged,
                         [&](const QString& text) { texts.push_back(text); });
        speech.setText("Hello.");
        speech.setText("Hello.");
        speech.setText("** --");
        EXPECT_THAT(texts, ElementsAre("Hello.", "** --"));
    }
    EXPECT_THAT(settings.fileText(), ::testing::HasSubstr("speed=0.8\n"));
    EXPECT_EQ(Speech(settings.store(), testing::testVoiceDirectory()).speed(), 0.8);
}

// The user has added a voice that speaks differently from the bundled one; it is picked, opened
// in place of the other, remembered for the next model, and missed once it is gone.
TEST_F(SpeechTest, AChosenVoiceSpeaksIsRememberedAndIsReplacedByTheBundledOneWhenGone) {
    const std::filesystem::path data = directory / "data";
    std::filesystem::create_directories(data / "murmela" / "voices");
    std::filesystem::create_directory_symlink(MURMELA_OTHER_VOICE_DIR,
                                              data / "murmela" / "voices" / "other");
    const testing::ScopedVariable dataHome("XDG_DATA_HOME", data);
    // Resources without voices for all users, so that only the voices placed here are listed.
    const testing::ScopedVariable resources("MURMELA_RESOURCES", directory.path());
    const auto savedBy = [&](Speech& speech, const std::string& name) {
        speech.setText("Please close the window.");
        EXPECT_EQ(saveAndWait(speech, directory / name),
                  Notice::saved(QString::fromStdString(name)));
        return testing::readText(directory / name);
    };
    {
        std::unique_ptr<Speech> speech = loadedSpeech();
        ASSERT_EQ(speech->voices().size(), 2u);
        EXPECT_EQ(speech->voices()[0].id, "murmela");
        EXPECT_EQ(speech->voices()[1].id, "other");
        EXPECT_EQ(speech->voiceId(), "murmela");
        const std::string bundled = savedBy(*speech, "bundled.wav");

        testing::SignalRecord record(*speech);
        speech->setVoiceId("nobody");  // not installed: nothing changes
        speech->setVoiceId("other");
        EXPECT_EQ(speech->voiceId(), "other");
        EXPECT_FALSE(speech->hasVoice());
        ASSERT_TRUE(testing::waitForReady(*speech, 60s));
        EXPECT_THAT(record.phases, ElementsAre(Phase::loading, Phase::ready));
        EXPECT_NE(savedBy(*speech, "other.wav"), bundled);
    }
    EXPECT_THAT(settings.fileText(), ::testing::HasSubstr("voice=other\n"));
    QString added;  // the id of the voice added below, which is then gone too
    {
        Speech speech(settings.store(), testing::testVoiceDirectory());
        EXPECT_EQ(speech.voiceId(), "other");
        ASSERT_TRUE(testing::loadAndWait(speech));
        EXPECT_EQ(speech.notice(), std::nullopt);

        // Files that make no voice are refused, installing nothing; a voice folder is added,
        // checked and made the voice that speaks.
        testing::writeText(directory / "fake.onnx", "not a model");
        testing::SignalRecord record(speech);
        speech.addVoice({directory / "fake.onnx"});
        ASSERT_TRUE(testing::waitForReady(speech, 60s));
        ASSERT_TRUE(speech.notice() && speech.notice()->kind == Notice::Kind::voiceNotAdded);
        EXPECT_FALSE(speech.notice()->name.isEmpty());
        EXPECT_EQ(speech.voices().size(), 2u);
        speech.addVoice({testing::testVoiceDirectory()});
        EXPECT_EQ(speech.phase(), Phase::loading);
        ASSERT_TRUE(runEventsUntil([&] { return speech.voices().size() == 3; }, 60s));
        ASSERT_TRUE(testing::waitForReady(speech, 60s));
        EXPECT_EQ(speech.voiceId(), speech.voices()[2].id);
        EXPECT_TRUE(std::filesystem::is_directory(data / "murmela" / "voices" /
                                                  speech.voiceId().toStdString()));
        EXPECT_EQ(speech.notice(), std::nullopt);
        added = speech.voiceId();
        std::filesystem::remove_all(data / "murmela" / "voices" / added.toStdString());
    }
    std::filesystem::remove(data / "murmela" / "voices" / "other");
    {
        Speech speech(settings.store(), testing::testVoiceDirectory());
        EXPECT_EQ(speech.voiceId(), "murmela");
        EXPECT_EQ(speech.voices().size(), 1u);
        ASSERT_TRUE(testing::loadAndWait(speech));
        EXPECT_EQ(speech.notice(), Notice::voiceGone(added));
    }
}

TEST_F(SpeechTest, AModelDestroyedWhileItWorksNeitherHangsNorCallsBack) {
    const QString longText = QString::fromStdString(longSentences(1, 100));
    {
        // Loading.
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        speech->load();
        speech.reset();
    }
    {
        // Speaking, with chunks still to come.
        std::unique_ptr<Speech> speech = loadedSpeech();
        speech->setText(longText);
        speech->speak();
        ASSERT_TRUE(runEventsUntil([&] { return speech->player().pending() > 0; }, 30s));
        speech.reset();
    }
    {
        // Saving, which cannot be stopped otherwise: the file is abandoned, not half written.
        std::unique_ptr<Speech> speech = loadedSpeech();
        speech->setText(longText);
        speech->save(directory / "abandoned.wav");
        runEventsFor(50ms);
        speech.reset();
    }
    const size_t logged = log.lines().size();
    runEventsFor(500ms);  // results still on their way lapse
    EXPECT_EQ(log.lines().size(), logged);
    EXPECT_THAT(filesIn(directory.path()), IsEmpty());
}

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope,
                           QString::fromStdString(config.path().string()));
    }

    testing::TemporaryDirectory config;
    testing::ScopedVariable suite{"MURMELA_DEFAULTS_SUITE", std::nullopt};
};

ArgumentDomain arguments(std::vector<const char*> words) {
    words.insert(words.begin(), "murmela");
    return ArgumentDomain::fromCommandLine(static_cast<int>(words.size()), words.data());
}

TEST(ArgumentDomain, TakesDashKeyValuePairsOnly) {
    ArgumentDomain domain = arguments({"-murmela.parity", "/tmp/out", "stray", "-murmela.lines",
                                       "-odd", "-speed", "1.25", "-speed", "0.8", "-dangling"});
    EXPECT_EQ(domain.value("murmela.parity"), "/tmp/out");
    EXPECT_EQ(domain.value("murmela.lines"), "-odd");  // the word after a key is its value
    EXPECT_EQ(domain.value("speed"), "0.8");           // the later pair wins
    EXPECT_EQ(domain.value("dangling"), std::nullopt);
    EXPECT_EQ(domain.value("stray"), std::nullopt);
    EXPECT_EQ(arguments({}).value("murmela.parity"), std::nullopt);
}

TEST_F(SettingsTest, UnusableSuiteNamesFallBackToTheStandardStore) {
    for (const char* name : {"", "murmela", "..", "a/b"}) {
        ::setenv("MURMELA_DEFAULTS_SUITE", name, 1);
        EXPECT_EQ(SettingsStore::forModel({}).fileName(), SettingsStore::standard({}).fileName())
            << name;
    }
}

TEST_F(SettingsTest, TheCommandLineWinsOverTheFileAndIsNeverWritten) {
    SettingsStore file = SettingsStore::standard({});
    file.setValue("murmela.lines", "/from/file.json");
    SettingsStore store = SettingsStore::standard(arguments({"-murmela.lines", "/from/args.json"}));
    EXPECT_EQ(store.value("murmela.lines")->toString(), "/from/args.json");
    store.setValue("murmela.lines", "/written.json");
    EXPECT_EQ(store.value("murmela.lines")->toString(), "/from/args.json");
    EXPECT_EQ(SettingsStore::standard({}).value("murmela.lines")->toString(), "/written.json");
}

TEST(Speed, ValuesAreClampedSteppedAndFreeOfResidueAndUnusableSettingsMeanNormal) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    const struct {
        double given;
        double expected;
    } cases[] = {{0.5, 0.75},  {2.0, 1.5},   {nan, 1.0},    {infinity, 1.0}, {-infinity, 1.0},
                 {1.03, 1.05}, {1.02, 1.0},  {1.126, 1.15}, {0.8, 0.8},      {0.75, 0.75},
                 {1.5, 1.5},   {-3.0, 0.75}, {0.774, 0.75}, {1.15, 1.15},    {1.35, 1.35}};
    for (const auto& [given, expected] : cases) {
        // Exactly the decimal value: 0.8, not 0.8000000000000002.
        EXPECT_EQ(normalisedSpeed(given), expected) << given;
        EXPECT_EQ(normalisedSpeed(expected), expected) << expected;
    }

    EXPECT_EQ(speedFromSetting(std::nullopt), 1.0);
    for (const QVariant& unusable : {QVariant(QString("fast")), QVariant(QString()),
                                     QVariant(QStringList{"1", "2"}), QVariant(QString("nan"))}) {
        EXPECT_EQ(speedFromSetting(unusable), 1.0) << unusable.toString().toStdString();
    }
    // A settings file or the command line hands numbers over as text.
    EXPECT_EQ(speedFromSetting(QVariant(QString("1.25"))), 1.25);
    EXPECT_EQ(speedFromSetting(QVariant(QString("0.5"))), 0.75);
    EXPECT_EQ(speedFromSetting(QVariant(1.03)), 1.05);
}

}  // namespace
}  // namespace murmela
