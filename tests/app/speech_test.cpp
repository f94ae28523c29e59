// The application model with the test voice and a simulated audio output (MURMELA_AUDIO=none,
// set by the test's registration): every operation in and out of its phase, what speaking and
// saving give, what the model logs and signals, and what a stop or the model's end does to work
// still under way.

#include "app/speech.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "engine/voice.h"
#include "speech_harness.h"
#include "support/test_voice.h"

namespace murmela {
namespace {

using namespace std::chrono_literals;
using testing::Clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::runEventsFor;
using testing::runEventsUntil;
using testing::secondsBetween;

constexpr double sampleRate = 24000.0;

const char* const twoSentences =
    "The old farmer walked slowly towards the wooden bridge. My sister opened the gate.";

// A sentence of about 130 ids, several seconds of speech with the test voice.
std::string longSentence(int number) {
    return "Sentence " + std::to_string(number) +
           " tells how the quiet student carried a basket of apples along the river bank, "
           "past the market square and the church tower, before the sun went down. ";
}

// What the test voice makes of `text` at `speed`, chunk by chunk, from a voice of its own.
std::vector<std::vector<float>> synthesisedChunks(const std::string& text, double speed) {
    Voice voice(testing::testVoiceDirectory());
    std::vector<std::vector<float>> chunks;
    for (const std::vector<int64_t>& ids : voice.phonemizer().chunks(text)) {
        chunks.push_back(voice.synthesize(ids, speed).samples);
    }
    return chunks;
}

double seconds(const std::vector<std::vector<float>>& chunks) {
    size_t count = 0;
    for (const auto& chunk : chunks) {
        count += chunk.size();
    }
    return static_cast<double>(count) / sampleRate;
}

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        files.push_back(entry.path().filename());
    }
    return files;
}

// A directory nobody may write to: by its permissions, and for root, who ignores those, by the
// immutable attribute (where the file system has it).
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(std::filesystem::path path) : path_(std::move(path)) {
        std::filesystem::create_directory(path_);
        ::chmod(path_.c_str(), 0555);
        if (::access(path_.c_str(), W_OK) == 0) {
            setImmutable(true);
        }
    }
    ~ReadOnlyDirectory() {
        setImmutable(false);
        ::chmod(path_.c_str(), 0755);
    }

    const std::filesystem::path& path() const { return path_; }
    bool refusesWrites() const { return ::access(path_.c_str(), W_OK) != 0; }

private:
    void setImmutable(bool on) {
        const int fd = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) {
            return;
        }
        int flags = 0;
        if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0) {
            flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
            ::ioctl(fd, FS_IOC_SETFLAGS, &flags);
        }
        ::close(fd);
    }

    std::filesystem::path path_;
};

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

    testing::PrivateSettings settings;
    testing::LogRecord log;
    testing::TemporaryDirectory directory{"murmela-speech"};
};

TEST_F(SpeechTest, LoadingOpensTheVoiceOnceAndSaysHowLongItTook) {
    std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
    testing::SignalRecord record(*speech);
    EXPECT_EQ(speech->phase(), Phase::loading);
    EXPECT_FALSE(speech->hasVoice());

    // A second request while the first is under way joins it.
    speech->load();
    speech->load();
    ASSERT_TRUE(testing::waitForReady(*speech, 60s));
    runEventsFor(200ms);
    EXPECT_TRUE(speech->hasVoice());
    EXPECT_THAT(record.phases, ElementsAre(Phase::ready));
    EXPECT_EQ(record.voiceChanges, 1);
    const auto lines = log.startingWith("voice ready in ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::info);
    EXPECT_TRUE(std::regex_match(lines[0].text, std::regex("voice ready in [0-9]+ ms")))
        << lines[0].text;

    // Once loaded, loading again only confirms `ready`.
    speech->load();
    runEventsFor(200ms);
    EXPECT_EQ(speech->phase(), Phase::ready);
    EXPECT_EQ(record.voiceChanges, 1);
    EXPECT_EQ(log.startingWith("voice ready in ").size(), 1u);
}

TEST_F(SpeechTest, AVoiceThatIsNotThereFailsToLoadAndEveryRetryTriesAgain) {
    Speech speech(settings.store(), directory / "no-voice");
    testing::SignalRecord record(speech);
    for (int attempt = 0; attempt < 2; ++attempt) {
        speech.load();
        EXPECT_EQ(speech.phase(), Phase::loading);
        ASSERT_TRUE(runEventsUntil([&] { return speech.phase() == Phase::failed; }, 30s));
    }
    EXPECT_THAT(record.phases, ElementsAre(Phase::failed, Phase::loading, Phase::failed));
    EXPECT_FALSE(speech.hasVoice());
    const auto lines = log.startingWith("murmelaMain: load failed: ");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, log::Level::error);
    EXPECT_EQ(lines[0].text, "murmelaMain: load failed: voice: Voice/ missing");

    // Without a voice there is nothing to speak or save with.
    speech.setText("Hello there, my friend.");
    speech.speak();
    speech.save(directory / "out.wav");
    EXPECT_EQ(speech.phase(), Phase::failed);
    runEventsFor(100ms);
    EXPECT_FALSE(std::filesystem::exists(directory / "out.wav"));
}

TEST_F(SpeechTest, OperationsOutsideTheirPhaseChangeNothing) {
    std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
    speech->setText("Hello there, my friend.");
    {
        // Before the voice is loaded.
        testing::SignalRecord record(*speech);
        speech->speak();
        speech->save(directory / "early.wav");
        speech->stop();
        EXPECT_EQ(speech->phase(), Phase::loading);
        EXPECT_TRUE(record.phases.empty());
        EXPECT_EQ(record.cancelChanges, 0);
    }
    ASSERT_TRUE(testing::loadAndWait(*speech));

    // Blank text: nothing to speak, and nothing happens.
    speech->setText(" \n\t \r\n\u00a0 ");
    EXPECT_FALSE(speech->canSpeak());
    {
        testing::SignalRecord record(*speech);
        speech->speak();
        speech->save(directory / "blank.wav");
        runEventsFor(100ms);
        EXPECT_TRUE(record.phases.empty());
        EXPECT_TRUE(record.notices.empty());
        EXPECT_EQ(record.cancelChanges, 0);
    }
    EXPECT_EQ(speech->text(), " \n\t \r\n\u00a0 ");  // never trimmed

    // stop() while ready.
    speech->setText(QString::fromStdString(longSentence(1) + longSentence(2)));
    {
        testing::SignalRecord record(*speech);
        speech->stop();
        EXPECT_TRUE(record.phases.empty());
        EXPECT_EQ(record.cancelChanges, 0);
        EXPECT_FALSE(speech->cancelled());
    }

    // While speaking, neither another speak nor a save starts.
    speech->speak();
    ASSERT_EQ(speech->phase(), Phase::speaking);
    {
        testing::SignalRecord record(*speech);
        speech->speak();
        speech->save(directory / "during-speech.wav");
        EXPECT_TRUE(record.phases.empty());
        EXPECT_EQ(record.cancelChanges, 0);
    }
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

TEST_F(SpeechTest, SpeakingPlaysEveryChunkAndIsReadyOnlyOnceAllHasBeenHeard) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    speech->setText(twoSentences);
    speech->setSpeed(1.25);
    // A notice from before is cleared by the new utterance.
    speech->save(directory / "first.wav");
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    ASSERT_EQ(speech->notice(), Notice::saved("first.wav"));

    const std::vector<std::vector<float>> expected = synthesisedChunks(twoSentences, 1.25);
    ASSERT_EQ(expected.size(), 2u);
    const Voice voice(testing::testVoiceDirectory());
    const size_t firstIds = voice.phonemizer().chunks(twoSentences).front().size();

    testing::SignalRecord record(*speech);
    testing::CompletionTrace trace(speech->player());
    const Clock::time_point begin = Clock::now();
    speech->speak();
    EXPECT_EQ(speech->phase(), Phase::speaking);
    EXPECT_EQ(speech->notice(), std::nullopt);
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    const double took = secondsBetween(begin, Clock::now());
    runEventsFor(50ms);  // for the trace to see the last completion

    EXPECT_GE(took, seconds(expected)) << "ready before the last block could have been heard";
    EXPECT_EQ(trace.completions().size(), expected.size());
    EXPECT_THAT(record.phases, ElementsAre(Phase::speaking, Phase::ready));
    EXPECT_EQ(speech->notice(), std::nullopt);
    EXPECT_EQ(record.cancelChanges, 1);  // a fresh flag
    EXPECT_FALSE(speech->cancelled());
    const auto lines = log.startingWith("first audio after ");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, log::Level::info);
    EXPECT_TRUE(std::regex_match(lines[0].text, std::regex("first audio after [0-9]+ ms \\(" +
                                                           std::to_string(firstIds) + " ids\\)")))
        << lines[0].text;
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
    std::string stoppedText;
    for (int i = 1; i <= 6; ++i) {
        stoppedText += longSentence(i);
    }
    const std::vector<std::vector<float>> stoppedChunks = synthesisedChunks(stoppedText, 1.0);
    double shortestStopped = seconds({stoppedChunks.front()});
    for (const auto& chunk : stoppedChunks) {
        shortestStopped = std::min(shortestStopped, seconds({chunk}));
    }
    const std::string newText = "Hello there, my friend.";
    const double newSeconds = seconds(synthesisedChunks(newText, 1.0));
    ASSERT_GT(shortestStopped, newSeconds + 1.0);

    testing::CompletionTrace trace(speech->player());
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
    EXPECT_FALSE(trace.wentNegative());
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
    std::vector<float> samples;
    for (const auto& chunk : synthesisedChunks(twoSentences, 0.8)) {
        samples.insert(samples.end(), chunk.begin(), chunk.end());
    }
    const std::vector<uint8_t> expected = encodeWav(samples, false, 24000);
    const std::string written = testing::readText(destination);
    ASSERT_EQ(written.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(),
                           reinterpret_cast<const uint8_t*>(written.data())));
    // Nothing but the file: no scratch file left beside it.
    EXPECT_THAT(filesIn(directory.path()), ElementsAre(destination.filename()));
    EXPECT_TRUE(log.startingWith("murmelaMain: ").empty());
}

TEST_F(SpeechTest, ASaveThatCannotBeWrittenFailsAndLeavesNoFile) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    speech->setText(twoSentences);

    // Below a plain file, and in a directory that refuses writes, also to root where possible.
    testing::writeText(directory / "plain-file", "not a directory");
    std::vector<std::filesystem::path> destinations = {directory / "plain-file" / "out.wav"};
    ReadOnlyDirectory readOnly(directory / "read-only");
    if (readOnly.refusesWrites()) {
        destinations.push_back(readOnly.path() / "out.wav");
    } else {
        std::cout << "no read-only directory can be made here; only the plain-file case runs\n";
    }

    for (const std::filesystem::path& destination : destinations) {
        const size_t logged = log.startingWith("murmelaMain: save failed: ").size();
        speech->save(destination);
        ASSERT_TRUE(testing::waitForReady(*speech, 30s));
        EXPECT_EQ(speech->notice(), Notice::saveFailed()) << destination;
        const auto lines = log.startingWith("murmelaMain: save failed: ");
        ASSERT_EQ(lines.size(), logged + 1) << destination;
        EXPECT_EQ(lines.back().level, log::Level::error);
        EXPECT_THAT(lines.back().text, ::testing::HasSubstr(destination.string()));
    }
    EXPECT_THAT(filesIn(directory.path()),
                ::testing::UnorderedElementsAre("plain-file", "read-only"));
    EXPECT_THAT(filesIn(readOnly.path()), IsEmpty());

    // The model goes on working.
    speech->save(directory / "good.wav");
    ASSERT_TRUE(testing::waitForReady(*speech, 30s));
    EXPECT_EQ(speech->notice(), Notice::saved("good.wav"));
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
    speech.speak();
    ASSERT_TRUE(testing::waitForReady(speech, 30s));
    EXPECT_EQ(speech.notice(), Notice::failed());
    EXPECT_EQ(speech.player().pending(), 0);
    EXPECT_EQ(log.startingWith("first audio after ").size(), 1u);

    speech.save(directory / "failed.wav");
    ASSERT_TRUE(testing::waitForReady(speech, 30s));
    EXPECT_EQ(speech.notice(), Notice::saveFailed());
    EXPECT_THAT(filesIn(directory.path()), IsEmpty());

    EXPECT_THAT(record.phases,
                ElementsAre(Phase::speaking, Phase::ready, Phase::saving, Phase::ready));
    const std::regex tooLong(".* failed: voice: [0-9]+ ids is past the encoder");
    for (const char* prefix : {"murmelaMain: speak failed: ", "murmelaMain: save failed: "}) {
        const auto lines = log.startingWith(prefix);
        ASSERT_EQ(lines.size(), 1u) << prefix;
        EXPECT_EQ(lines[0].level, log::Level::error);
        EXPECT_TRUE(std::regex_match(lines[0].text, tooLong)) << lines[0].text;
    }
}

TEST_F(SpeechTest, TheSpeedIsNormalisedStoredAndReadBackByTheNextModel) {
    settings.store().setValue("speed", 0.5);
    {
        Speech speech(settings.store(), testing::testVoiceDirectory());
        EXPECT_EQ(speech.speed(), 0.75);
        std::vector<double> signalled;
        QObject::connect(&speech, &Speech::speedChanged,
                         [&](double speed) { signalled.push_back(speed); });
        speech.setSpeed(2.0);
        speech.setSpeed(1.5);  // no change, no signal
        speech.setSpeed(0.8);
        EXPECT_THAT(signalled, ElementsAre(1.5, 0.8));
        EXPECT_EQ(speech.speed(), 0.8);
    }
    EXPECT_THAT(settings.fileText(), ::testing::HasSubstr("speed=0.8\n"));
    {
        Speech speech(settings.store(), testing::testVoiceDirectory());
        EXPECT_EQ(speech.speed(), 0.8);
        speech.setSpeed(1.03);
    }
    EXPECT_EQ(Speech(settings.store(), testing::testVoiceDirectory()).speed(), 1.05);

    for (const auto& [stored, read] : std::vector<std::pair<QVariant, double>>{
             {QVariant(QString("quick")), 1.0},
             {QVariant(std::numeric_limits<double>::quiet_NaN()), 1.0},
             {QVariant(1.02), 1.0},
             {QVariant(QString("1.35")), 1.35}}) {
        settings.store().setValue("speed", stored);
        EXPECT_EQ(Speech(settings.store(), testing::testVoiceDirectory()).speed(), read)
            << stored.toString().toStdString();
    }
}

TEST_F(SpeechTest, PropertiesSignalOnlyWhenTheirValueChanges) {
    std::unique_ptr<Speech> speech = loadedSpeech();
    testing::SignalRecord record(*speech);
    std::vector<QString> texts;
    QObject::connect(speech.get(), &Speech::textChanged,
                     [&](const QString& text) { texts.push_back(text); });
    speech->setText("Hello.");
    speech->setText("Hello.");
    speech->setText("** --");
    EXPECT_THAT(texts, ElementsAre("Hello.", "** --"));

    speech->load();  // already loaded: stays ready, says nothing
    speech->speak();
    ASSERT_TRUE(testing::waitForReady(*speech, 10s));
    speech->speak();
    ASSERT_TRUE(testing::waitForReady(*speech, 10s));
    EXPECT_THAT(record.phases,
                ElementsAre(Phase::speaking, Phase::ready, Phase::speaking, Phase::ready));
    EXPECT_THAT(record.notices, ElementsAre(Notice::empty(), std::nullopt, Notice::empty()));
    EXPECT_EQ(record.cancelChanges, 2);

    EXPECT_TRUE(Notice::saved("a.wav") == Notice::saved("a.wav"));
    EXPECT_FALSE(Notice::saved("a.wav") == Notice::saved("b.wav"));
    EXPECT_FALSE(Notice::failed() == Notice::saveFailed());
}

TEST_F(SpeechTest, AModelDestroyedWhileItWorksNeitherHangsNorCallsBack) {
    std::string longText;
    for (int i = 1; i <= 100; ++i) {
        longText += longSentence(i);
    }
    {
        // Loading.
        std::unique_ptr<Speech> speech = testing::makeSpeech(settings);
        speech->load();
        speech.reset();
    }
    {
        // Speaking, with chunks still to come.
        std::unique_ptr<Speech> speech = loadedSpeech();
        speech->setText(QString::fromStdString(longText));
        speech->speak();
        ASSERT_TRUE(runEventsUntil([&] { return speech->player().pending() > 0; }, 30s));
        speech.reset();
    }
    {
        // Saving, which cannot be stopped otherwise: the file is abandoned, not half written.
        std::unique_ptr<Speech> speech = loadedSpeech();
        speech->setText(QString::fromStdString(longText));
        speech->save(directory / "abandoned.wav");
        runEventsFor(50ms);
        speech.reset();
    }
    const size_t logged = log.lines().size();
    runEventsFor(500ms);  // results still on their way lapse
    EXPECT_EQ(log.lines().size(), logged);
    EXPECT_THAT(filesIn(directory.path()), IsEmpty());
}

}  // namespace
}  // namespace murmela
