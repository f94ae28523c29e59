// The speech-dispatcher module: its pieces without a process (line framing and data blocks, the
// audio encoding, the speech parameters, the SSML reader, the words said for characters, keys
// and punctuation), then the real sd_murmela program on pipes, with the test voice: what
// speech-dispatcher would write to it, and the replies and events it must answer with.

#include <sys/mman.h>
#include <unistd.h>
#include <cmath>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "speechd/module_client.h"
#include "speechd/protocol.h"
#include "speechd/settings.h"
#include "speechd/spoken_text.h"
#include "speechd/ssml.h"
#include "speechd/voices.h"
#include "support/temporary_directory.h"
#include "support/test_voice.h"

namespace murmela::speechd {
namespace {

namespace fs = std::filesystem;

// `input` in an anonymous file, open for reading from its start.
int inputFile(const std::string& input) {
    const int descriptor = ::memfd_create("input", MFD_CLOEXEC);
    EXPECT_EQ(::write(descriptor, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    ::lseek(descriptor, 0, SEEK_SET);
    return descriptor;
}

// The samples of an AUDIO event, checking its framing; its header lines go to `header`.
std::vector<int16_t> decodeAudio(const std::string& event, std::string& header) {
    const size_t start = event.find("705-AUDIO");
    const size_t end = event.rfind("\n705 AUDIO\n");
    header = event.substr(0, start);
    EXPECT_EQ(event[start + 9], '\0');
    EXPECT_EQ(end + 11, event.size());
    const std::string data = event.substr(start + 10, end - start - 10);
    EXPECT_EQ(data.find('\n'), std::string::npos);
    return audioSamples(data);
}

TEST(SpeechdProtocol, LinesAndDataBlocks) {
    const int input =
        inputFile("SPEAK\n<speak>\n..\n...and\nend</speak>\n.\nCHAR\n" + std::string(300000, 'y') +
                  "\n.\nSET\n12345\n67890\n.\nSET\nrate=1\n" + std::string(300, 'z'));
    LineReader reader(input, 100);
    EXPECT_EQ(reader.next()->text, "SPEAK");
    // A line of the text that starts with a dot was sent with one more; the lone dot ends it.
    DataBlock block = readDataBlock(reader, 1000);
    EXPECT_TRUE(block.ended && !block.tooLarge);
    EXPECT_EQ(block.lines, (std::vector<std::string>{"<speak>", ".", "..and", "end</speak>"}));
    EXPECT_EQ(block.bytes, std::string("<speak>\n.\n..and\nend</speak>").size());

    // A line past the line limit, or a block past its byte limit (line feeds counted), makes
    // the block too large; it is still read to its end.
    EXPECT_EQ(reader.next()->text, "CHAR");
    block = readDataBlock(reader, 1000);
    EXPECT_TRUE(block.ended && block.tooLarge && block.lines.empty());
    EXPECT_EQ(reader.next()->text, "SET");
    block = readDataBlock(reader, 10);
    EXPECT_TRUE(block.ended && block.tooLarge);

    // Input that ends before the closing dot, with an overlong last line cut at the limit.
    EXPECT_EQ(reader.next()->text, "SET");
    block = readDataBlock(reader, 1000);
    EXPECT_FALSE(block.ended);
    EXPECT_TRUE(block.tooLarge);
    const int tail = inputFile("A\n" + std::string(300, 'z'));
    LineReader tailReader(tail, 100);
    EXPECT_EQ(tailReader.next()->text, "A");
    std::optional<LineReader::Line> line = tailReader.next();
    EXPECT_TRUE(line->overlong);
    EXPECT_EQ(line->text, std::string(100, 'z'));
    EXPECT_FALSE(tailReader.next());
    ::close(input);
    ::close(tail);
}

TEST(SpeechdProtocol, AudioEventsAndUtf8) {
    const std::vector<float> samples = {
        0.0f, 1.0f,         -1.0f, 2.0f, 10 / 32767.0f, 0x7D / 32767.0f, 0x0A7D / 32767.0f,
        0.5f, std::nanf("")};
    std::string header;
    std::vector<int16_t> decoded = decodeAudio(audioEvent(samples, 1.0f), header);
    // Clipped to full scale, NaN included; the bytes 0x0A and 0x7D are escaped and come back
    // unchanged.
    EXPECT_EQ(decoded,
              (std::vector<int16_t>{0, 32767, -32767, 32767, 10, 0x7D, 0x0A7D, 16384, 32767}));
    EXPECT_EQ(header,
              "705-bits=16\n705-num_channels=1\n705-sample_rate=24000\n705-num_samples=9\n"
              "705-big_endian=0\n");
    decoded = decodeAudio(audioEvent(samples, 0.5f), header);
    EXPECT_EQ(decoded[1], 16384);
    EXPECT_EQ(decoded[3], 32767);

    EXPECT_EQ(indexMarkEvent("__spd_3"), "700-__spd_3\n700 INDEX MARK\n");
    // An SSML mark's name may hold a line feed; sent as it is, it would end the event early.
    EXPECT_EQ(indexMarkEvent("a\nb"), "700-a b\n700 INDEX MARK\n");

    EXPECT_TRUE(isValidUtf8("h\xc3\xa9llo \xf0\x9f\x99\x82"));
    for (const char* bad : {"\xff", "a\xc0\xaf", "\xe2\x82", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
    }
}

TEST(SpeechdSettings, ParametersAndTheirMeaning) {
    Settings settings;
    // What the voice cannot change (pitch on) is accepted too, whatever the server sends.
    for (const char* applied : {"rate=50", "volume=-100", "punctuation_mode=most",
                                "spelling_mode=on", "pitch=10", "pitch_range=0", "language=c",
                                "voice=male1", "synthesis_voice=NULL", "cap_let_recogn=none"}) {
        EXPECT_EQ(applySetting(settings, applied), SettingOutcome::applied) << applied;
    }
    // Bad values change nothing; NULL keeps the value.
    for (const char* bad : {"rate=101", "rate=fast", "rate=", "volume=-101",
                            "punctuation_mode=loud", "spelling_mode=yes", "colour=red"}) {
        EXPECT_EQ(applySetting(settings, bad), SettingOutcome::invalid) << bad;
    }
    EXPECT_EQ(applySetting(settings, "rate=NULL"), SettingOutcome::applied);
    EXPECT_EQ(applySetting(settings, "rate"), SettingOutcome::badSyntax);
    EXPECT_EQ(applySetting(settings, "=5"), SettingOutcome::badSyntax);
    EXPECT_EQ(settings.rate, 50);
    EXPECT_EQ(settings.volume, -100);
    EXPECT_EQ(settings.punctuation, PunctuationMode::most);
    EXPECT_TRUE(settings.spelling);
    EXPECT_EQ(applySetting(settings, "rate=+7"), SettingOutcome::applied);
    EXPECT_EQ(settings.rate, 7);

    // Screen-reader users listen fast: the top rate reaches three times the normal speed.
    EXPECT_DOUBLE_EQ(speedForRate(0), 1.0);
    EXPECT_NEAR(speedForRate(100), 3.0, 1e-12);
    EXPECT_NEAR(speedForRate(-100), 0.5, 1e-12);
    EXPECT_NEAR(speedForRate(50) * speedForRate(50), 3.0, 1e-12);
    EXPECT_FLOAT_EQ(gainForVolume(100), 1.0f);
    EXPECT_FLOAT_EQ(gainForVolume(0), 0.5f);
    EXPECT_FLOAT_EQ(gainForVolume(-100), 0.0f);
}

// Which voice speaks, as a screen reader picks by name or by language.
TEST(SpeechdVoices, ListedAndChosenByNameOrLanguage) {
    const std::vector<OfferedVoice> voices = {{"Murmela", "en-US", "none"},
                                              {"Amy", "en-GB", "female"},
                                              {"Eva", "de-DE", "female"},
                                              {"Tab\tbed", "en_GB", "male"}};
    EXPECT_EQ(voiceListLines(voices),
              (std::vector<std::string>{"Murmela\ten-US\tnone", "Amy\ten-GB\tfemale",
                                        "Eva\tde-DE\tfemale", "Tab bed\ten_GB\tmale"}));
    const auto chosen = [&](std::vector<std::string> lines, size_t current) {
        Settings settings;
        for (const std::string& line : lines) {
            EXPECT_EQ(applySetting(settings, line), SettingOutcome::applied) << line;
        }
        return chosenVoice(voices, settings, current);
    };
    EXPECT_EQ(chosen({}, 2), 2u);
    EXPECT_EQ(chosen({"synthesis_voice=amy"}, 0), 1u);
    EXPECT_EQ(chosen({"synthesis_voice=amy", "language=de"}, 0), 1u);  // the name wins
    EXPECT_EQ(chosen({"synthesis_voice=Nobody", "language=de"}, 0), 2u);
    EXPECT_EQ(chosen({"synthesis_voice=Amy", "synthesis_voice=NULL"}, 0), 0u);
    // A language the current voice speaks keeps it; another finds the first that speaks it,
    // spelled either way, or at least its primary language.
    EXPECT_EQ(chosen({"language=en"}, 1), 1u);
    EXPECT_EQ(chosen({"language=en-gb"}, 0), 1u);
    EXPECT_EQ(chosen({"language=en_GB"}, 3), 3u);
    EXPECT_EQ(chosen({"language=de-AT"}, 0), 2u);
    EXPECT_EQ(chosen({"language=en"}, 2), 0u);
    EXPECT_EQ(chosen({"language=fi"}, 2), 2u);  // none speaks it: no change
    EXPECT_EQ(chosenVoice({}, Settings{}, 0), 0u);
}

using Kind = SsmlPiece::Kind;

void expectPieces(std::string_view document, const std::vector<SsmlPiece>& expected) {
    const std::vector<SsmlPiece> pieces = parseSsml(document);
    ASSERT_EQ(pieces.size(), expected.size()) << document;
    for (size_t i = 0; i < pieces.size(); ++i) {
        EXPECT_EQ(pieces[i].kind, expected[i].kind) << document << " #" << i;
        EXPECT_EQ(pieces[i].text, expected[i].text) << document << " #" << i;
        EXPECT_EQ(pieces[i].milliseconds, expected[i].milliseconds) << document << " #" << i;
    }
}

TEST(SpeechdSsml, MarksBreaksEntitiesAndUnknownMarkup) {
    expectPieces(
        "<?xml version=\"1.0\"?><speak version=\"1.0\">Hello <mark name=\"a\"/>world"
        "<break time=\"250ms\"/>again<break strength='strong'/><mark name='b &amp; c' />"
        "<break time=\"1.5s\"/><break time=\"5000s\"/><break/></speak>",
        {{Kind::text, "Hello ", 0},
         {Kind::mark, "a", 0},
         {Kind::text, "world", 0},
         {Kind::pause, "", 250},
         {Kind::text, "again", 0},
         {Kind::pause, "", 700},
         {Kind::mark, "b & c", 0},
         {Kind::pause, "", 1500},
         {Kind::pause, "", 10000},
         {Kind::pause, "", 400}});
    expectPieces("<speak>Tom &amp; Jerry &lt;3 &#65;&#x42; &bogus; &#xD800; & x</speak>",
                 {{Kind::text, "Tom & Jerry <3 AB &bogus; &#xD800; & x", 0}});
    // Unknown elements, comments and instructions are dropped and never read; their text stays.
    expectPieces(
        "<speak><voice gender=\"female\"><prosody rate='fast' x=\"a>b\">quick</prosody></voice>"
        "<!-- not <this> --><!DOCTYPE speak><![CDATA[a<b]]><p>One</p><s>Two</s></speak>",
        {{Kind::text, "quicka<b One  Two ", 0}});
    expectPieces("a < b and c<2", {{Kind::text, "a < b and c<2", 0}});
    expectPieces("<speak><mark/></speak>", {});

    for (const char* unterminated :
         {"<speak>Hello <mark name=\"x\"", "<speak>Hello", "<speak>a <!-- b</speak>",
          "<speak><![CDATA[x</speak>", "<speak>Hi <mark name=\"a/></speak>",
          "<speak>Hi <b</speak>"}) {
        EXPECT_THROW(parseSsml(unterminated), SsmlError) << unterminated;
    }
}

TEST(SpeechdSpokenText, PunctuationSpellingCharactersAndKeys) {
    const std::string text = "Hi, you! (ok) 50% @home";
    EXPECT_EQ(spokenText(text, PunctuationMode::none, false), text);
    const std::string some = spokenText(text, PunctuationMode::some, false);
    EXPECT_NE(some.find("50 percent"), std::string::npos) << some;
    EXPECT_NE(some.find(" at home"), std::string::npos) << some;
    EXPECT_NE(some.find("(ok)"), std::string::npos) << some;
    const std::string most = spokenText(text, PunctuationMode::most, false);
    EXPECT_NE(most.find("left paren ok right paren"), std::string::npos) << most;
    EXPECT_NE(most.find("Hi,"), std::string::npos) << most;
    const std::string all = spokenText(text, PunctuationMode::all, false);
    EXPECT_EQ(all.find_first_of(",!()%@"), std::string::npos) << all;
    EXPECT_NE(all.find("Hi comma  you exclamation mark"), std::string::npos) << all;

    EXPECT_EQ(spokenText("Ab 1", PunctuationMode::none, true), "capital ay, bee, space, one, ");

    EXPECT_EQ(characterName("Z"), "capital zee");
    EXPECT_EQ(characterName("space"), "space");
    EXPECT_EQ(characterName("."), "dot");
    EXPECT_EQ(characterName("\xc3\xa9"), "\xc3\xa9");

    EXPECT_EQ(keyName("control_alt_delete"), "control alt delete");
    EXPECT_EQ(keyName("shift_kp-enter"), "shift keypad enter");
    EXPECT_EQ(keyName("kp-5"), "keypad five");
    EXPECT_EQ(keyName("f12"), "F 12");
    EXPECT_EQ(keyName("$"), "dollar");
    EXPECT_EQ(keyName("prior"), "page up");
}

class SpeechdModule : public ::testing::Test {
protected:
    // Besides the bundled voice, the user has added two: another that speaks differently, and
    // one whose model is damaged.
    SpeechdModule() {
        fs::create_directory_symlink(testing::testVoiceDirectory(), resources_ / "Voice");
        const fs::path added = resources_ / "data" / "murmela" / "voices";
        fs::create_directories(added);
        fs::create_directory_symlink(MURMELA_OTHER_VOICE_DIR, added / "other");
        fs::copy(testing::testVoiceDirectory(), added / "damaged", fs::copy_options::recursive);
        std::ofstream(added / "damaged" / "encoder.onnx") << "not a model";
        module_ = std::make_unique<ModuleClient>(
            MURMELA_SD_MODULE, std::vector<std::string>{"murmela.conf"},
            std::vector<std::string>{"MURMELA_RESOURCES=" + resources_.path().string(),
                                     "XDG_DATA_HOME=" + (resources_ / "data").string()});
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
        EXPECT_EQ(voices->lines,
                  (std::vector<std::string>{"Murmela\ten-US\tnone", "damaged\ten-US\tnone",
                                            "other\ten-US\tnone"}));
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

    // The lowest rate speaks at half speed, as near as the test voice's whole frames allow; half
    // the volume halves the samples.
    const std::string text = "<speak>How are you today?</speak>";
    const std::vector<int16_t> normal = spoken("SPEAK", text);
    set("rate=-100");
    const double slow = spoken("SPEAK", text).size();
    EXPECT_GT(slow / normal.size(), 1.5);
    EXPECT_LT(slow / normal.size(), 2.2);
    set("rate=0\nvolume=0");
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

TEST_F(SpeechdModule, SpeaksWithTheVoiceChosenAndSurvivesOneThatFails) {
    initialize();
    const std::string text = "<speak>How are you today?</speak>";
    const std::vector<int16_t> bundled = spoken("SPEAK", text);
    set("synthesis_voice=other");
    const std::vector<int16_t> other = spoken("SPEAK", text);
    EXPECT_FALSE(other.empty());
    EXPECT_NE(other, bundled);
    // A language the current voice speaks keeps it.
    set("synthesis_voice=NULL\nlanguage=en-US");
    EXPECT_EQ(spoken("SPEAK", text), other);

    // The damaged voice ends the message it was chosen for, and only that message.
    set("synthesis_voice=damaged");
    EXPECT_EQ(speak("SPEAK", text).back().code, 703);
    expectQuietAndAlive();
    set("synthesis_voice=Murmela");
    EXPECT_EQ(spoken("SPEAK", text), bundled);
    EXPECT_EQ(replyTo("QUIT\n"), "210 OK QUIT");
    EXPECT_EQ(module_->finish(), 0);
}

TEST_F(SpeechdModule, MalformedInputGetsErrorCodesAndTheModuleGoesOn) {
    EXPECT_EQ(replyTo("SPEAK\n<speak>Too early.</speak>\n.\n"), "202 OK RECEIVING MESSAGE");
    EXPECT_EQ(nextReply(), "307 ERROR NOT INITIALIZED");
    initialize();
    EXPECT_EQ(replyTo("FOO\n"), "300 ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo(std::string(1 << 20, 'S') + "\n"), "300 ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo("SET\nrate\n.\n"), "203 OK RECEIVING SETTINGS");
    EXPECT_EQ(nextReply(), "302 ERROR BAD SYNTAX");
    EXPECT_EQ(replyTo("SET\nrate=500\n.\n"), "203 OK RECEIVING SETTINGS");
    EXPECT_EQ(nextReply(), "303 ERROR INVALID PARAMETER OR VALUE");
    EXPECT_EQ(replyTo("AUDIO\naudio_output_method=alsa\n.\n"), "207 OK RECEIVING AUDIO SETTINGS");
    EXPECT_EQ(nextReply(), "303 ERROR INVALID PARAMETER OR VALUE");

    const std::vector<std::pair<std::string, std::string>> refused = {
        {"SPEAK\n<speak>Hello\n.\n", "305 ERROR MALFORMED SSML"},
        {"SPEAK\n<speak>Caf\xe9 \xff</speak>\n.\n", "304 ERROR INVALID UTF-8"},
        {"SPEAK\n" + std::string(1 << 20, 'x') + "\n.\n", "306 ERROR MESSAGE TOO LONG"},
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
