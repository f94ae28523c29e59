// The real sd_murmela program on pipes, with the test voice: what speech-dispatcher would
// write to it, and the replies and events it must answer with.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "speechd/module_client.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela::speechd {
namespace {

namespace fs = std::filesystem;

class SpeechdModule : public ::testing::Test {
protected:
    SpeechdModule() {
        fs::create_directory_symlink(testing::testVoiceDirectory(), resources_ / "Voice");
        module_ = std::make_unique<ModuleClient>(
            MURMELA_SD_MODULE, std::vector<std::string>{"murmela.conf"},
            std::vector<std::string>{"MURMELA_RESOURCES=" + resources_.path().string()});
    }

    // The last line of the next reply, skipping the events before it.
    std::string nextReply() {
        std::optional<Reply> reply = module_->nextReply();
        return reply ? std::to_string(reply->code) + " " + reply->last : "nothing";
    }
    std::string replyTo(const std::string& text) {
        module_->send(text);
        return nextReply();
    }

    void initialize() {
        ASSERT_EQ(replyTo("INIT\n"), "299 OK LOADED SUCCESSFULLY");
        ASSERT_EQ(replyTo("AUDIO\naudio_output_method=server\n.\n"),
                  "207 OK RECEIVING AUDIO SETTINGS");
        ASSERT_EQ(nextReply(), "203 OK AUDIO INITIALIZED");
    }

    void set(const std::string& settings) {
        EXPECT_EQ(replyTo("SET\n" + settings + "\n.\n"), "203 OK RECEIVING SETTINGS");
        EXPECT_EQ(nextReply(), "203 OK SETTINGS RECEIVED");
    }

    // Sends a message, expects it taken and gives its events, checking BEGIN comes first.
    std::vector<Reply> speak(const std::string& command, const std::string& body) {
        EXPECT_EQ(replyTo(command + "\n" + body + "\n.\n"), "202 OK RECEIVING MESSAGE");
        EXPECT_EQ(nextReply(), "200 OK SPEAKING");
        std::vector<Reply> events = module_->events();
        EXPECT_EQ(events.front().code, 701);
        return events;
    }

    // All samples of a message that must be spoken to its end.
    std::vector<int16_t> spoken(const std::string& command, const std::string& body) {
        std::vector<Reply> events = speak(command, body);
        EXPECT_EQ(events.back().code, 702);
        std::vector<int16_t> samples;
        for (const Reply& event : events) {
            samples.insert(samples.end(), event.samples.begin(), event.samples.end());
        }
        return samples;
    }

    // Sends a message and waits for its first audio.
    void startSpeaking(const std::string& body) {
        EXPECT_EQ(replyTo("SPEAK\n" + body + "\n.\n"), "202 OK RECEIVING MESSAGE");
        EXPECT_EQ(nextReply(), "200 OK SPEAKING");
        std::optional<Reply> event;
        while ((event = module_->next()) && event->code != 705) {
        }
        ASSERT_TRUE(event);
    }

    // The module answers at once, with nothing of an earlier message in the way.
    void expectQuietAndAlive() {
        module_->send("LIST VOICES\n");
        std::optional<Reply> voices = module_->next();
        ASSERT_TRUE(voices);
        EXPECT_EQ(voices->lines, std::vector<std::string>{"Murmela\ten-US\tnone"});
        EXPECT_EQ(voices->last, "OK VOICE LIST SENT");
    }

    testing::TemporaryDirectory resources_{"murmela-speechd"};
    std::unique_ptr<ModuleClient> module_;
};

std::string longText(int sentences) {
    std::string text = "<speak>";
    for (int i = 0; i < sentences; ++i) {
        text += "This is sentence number " + std::to_string(i) +
                " of a long text.<mark name=\"__spd_" + std::to_string(i) + "\"/> ";
    }
    return text + "</speak>";
}

TEST_F(SpeechdModule, SpeaksMessagesAsAudioWithTheirMarksInPlace) {
    initialize();
    EXPECT_EQ(replyTo("LOGLEVEL\nlog_level=4\n.\n"), "207 OK RECEIVING LOGLEVEL SETTINGS");
    EXPECT_EQ(nextReply(), "203 OK LOGLEVEL SET");
    expectQuietAndAlive();
    set("pitch=0\nrate=0\nvolume=100\npunctuation_mode=none\nspelling_mode=off\n"
        "cap_let_recogn=none\nvoice=male1\nlanguage=c\nsynthesis_voice=NULL");

    std::vector<int16_t> before, after;
    int marks = 0;
    for (const Reply& event : speak("SPEAK",
                                    "<speak>Hello there.<mark name=\"one\"/>\n"
                                    "How are you?</speak>")) {
        if (event.code == 700) {
            EXPECT_EQ(event.lines, std::vector<std::string>{"one"});
            ++marks;
        } else if (event.code == 705) {
            EXPECT_EQ(event.lines[2], "sample_rate=24000");
            EXPECT_EQ(event.lines[3], "num_samples=" + std::to_string(event.samples.size()));
            std::vector<int16_t>& part = marks == 0 ? before : after;
            part.insert(part.end(), event.samples.begin(), event.samples.end());
        }
    }
    EXPECT_EQ(marks, 1);
    // The mark comes exactly where the first sentence's audio ends.
    EXPECT_EQ(before, spoken("SPEAK", "<speak>Hello there.</speak>"));
    EXPECT_EQ(after, spoken("SPEAK", "<speak>How are you?</speak>"));

    // Characters and keys are said by name.
    const std::vector<int16_t> ay = spoken("SPEAK", "<speak>ay</speak>");
    EXPECT_FALSE(ay.empty());
    EXPECT_EQ(spoken("CHAR", "a"), ay);
    EXPECT_EQ(spoken("KEY", "shift_a"), spoken("SPEAK", "<speak>shift ay</speak>"));

    // The lowest rate speaks at half speed and the top rate faster, as near as the test voice's
    // whole frames allow; half the volume halves the samples.
    const std::string text = "<speak>How are you today?</speak>";
    const std::vector<int16_t> normal = spoken("SPEAK", text);
    set("rate=-100");
    const double slow = spoken("SPEAK", text).size();
    EXPECT_GT(slow / normal.size(), 1.5);
    EXPECT_LT(slow / normal.size(), 2.2);
    set("rate=100\nvolume=0");
    EXPECT_LT(spoken("SPEAK", text).size(), normal.size() * 3 / 4);
    set("rate=0");
    const std::vector<int16_t> quiet = spoken("SPEAK", text);
    ASSERT_EQ(quiet.size(), normal.size());
    for (size_t i = 0; i < quiet.size(); ++i) {
        ASSERT_NEAR(quiet[i], normal[i] / 2.0, 1.0) << i;
    }
    // A break is silence of its length.
    EXPECT_EQ(spoken("SPEAK", "<speak><break time=\"500ms\"/></speak>"),
              std::vector<int16_t>(12000, 0));

    EXPECT_EQ(replyTo("QUIT\n"), "210 OK QUIT");
    EXPECT_EQ(module_->finish(), 0);
}

TEST_F(SpeechdModule, StopEndsTheMessageAtOnceAndPauseAtAMark) {
    initialize();
    // STOP with nothing to stop says nothing.
    module_->send("STOP\n");
    expectQuietAndAlive();

    for (int round = 0; round < 3; ++round) {
        // The module is writing into a full pipe by now; STOP must still end the message, and
        // nothing of it may follow the STOP event.
        startSpeaking(longText(60));
        module_->send("STOP\n");
        EXPECT_EQ(module_->events().back().code, 703);
        expectQuietAndAlive();
    }

    // PAUSE stops right after a mark, where the server knows how to go on.
    startSpeaking(longText(60));
    module_->send("PAUSE\n");
    std::vector<Reply> events = module_->events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.back().code, 704);
    EXPECT_EQ(events[events.size() - 2].code, 700);
    expectQuietAndAlive();

    EXPECT_FALSE(spoken("SPEAK", "<speak>Still here.</speak>").empty());
    EXPECT_EQ(module_->finish(), 0);
}

TEST_F(SpeechdModule, MalformedInputGetsErrorCodesAndTheModuleGoesOn) {
    EXPECT_EQ(replyTo("SPEAK\n<speak>Too early.</speak>\n.\n"), "202 OK RECEIVING MESSAGE");
    EXPECT_EQ(nextReply(), "307 ERROR NOT INITIALIZED");
    initialize();
    EXPECT_EQ(replyTo("FOO\n"), "300 ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo("speak\n"), "300 ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo(std::string(1 << 20, 'S') + "\n"), "300 ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo("SET\nrate\n.\n"), "203 OK RECEIVING SETTINGS");
    EXPECT_EQ(nextReply(), "302 ERROR BAD SYNTAX");
    EXPECT_EQ(replyTo("SET\nrate=500\n.\n"), "203 OK RECEIVING SETTINGS");
    EXPECT_EQ(nextReply(), "303 ERROR INVALID PARAMETER OR VALUE");
    EXPECT_EQ(replyTo("AUDIO\naudio_output_method=alsa\n.\n"), "207 OK RECEIVING AUDIO SETTINGS");
    EXPECT_EQ(nextReply(), "303 ERROR INVALID PARAMETER OR VALUE");

    std::string manyLines;
    for (int i = 0; i < 20000; ++i) {
        manyLines += "A line of words that goes on for a while, sixty bytes or so.\n";
    }
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"SPEAK\n<speak>Hello\n.\n", "305 ERROR MALFORMED SSML"},
        {"SPEAK\n<speak>Caf\xe9 \xff</speak>\n.\n", "304 ERROR INVALID UTF-8"},
        {"SPEAK\n" + std::string(1 << 20, 'x') + "\n.\n", "306 ERROR MESSAGE TOO LONG"},
        {"SPEAK\n" + manyLines + ".\n", "306 ERROR MESSAGE TOO LONG"},
        {"CHAR\na\nb\n.\n", "302 ERROR BAD SYNTAX"},
    };
    for (const auto& [message, error] : refused) {
        EXPECT_EQ(replyTo(message), "202 OK RECEIVING MESSAGE");
        EXPECT_EQ(nextReply(), error);
    }
    expectQuietAndAlive();

    // A second message while the first is spoken is refused; the first goes on.
    startSpeaking(longText(40));
    EXPECT_EQ(replyTo("SPEAK\n<speak>Interrupting.</speak>\n.\n"), "202 OK RECEIVING MESSAGE");
    EXPECT_EQ(nextReply(), "301 ERROR ALREADY SPEAKING");
    module_->send("STOP\n");
    EXPECT_EQ(module_->events().back().code, 703);

    EXPECT_FALSE(spoken("SPEAK", "<speak>Fine.</speak>").empty());
    EXPECT_EQ(module_->finish(), 0);
}

TEST_F(SpeechdModule, AVoiceThatCannotOpenFailsInitOnly) {
    fs::remove(resources_ / "Voice");
    module_->send("INIT\n");
    std::optional<Reply> init = module_->nextReply();
    EXPECT_EQ(init->code, 399);
    EXPECT_TRUE(init->lines.at(0).starts_with("voice: ") && init->lines[0].ends_with(" missing"));
    expectQuietAndAlive();
    EXPECT_EQ(replyTo("QUIT\n"), "210 OK QUIT");
    EXPECT_EQ(module_->finish(), 0);
}

}  // namespace
}  // namespace murmela::speechd
