// The real sd_murmela program on pipes, with the test voice: what speech-dispatcher would
// write to it, line by line, and the replies and events it must answer with.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/temporary_directory.h"
#include "support/test_voice.h"

extern char** environ;

namespace murmela {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// One reply or event: its code, the text of its continuation lines and of its last line, and
// for AUDIO the samples.
struct Reply {
    int code = 0;
    std::vector<std::string> lines;
    std::string last;
    std::vector<int16_t> samples;
};

class ModuleProcess {
public:
    explicit ModuleProcess(const fs::path& resources) {
        int input[2], output[2];
        EXPECT_EQ(::pipe(input), 0);
        EXPECT_EQ(::pipe(output), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        for (int end : {input[0], input[1], output[0], output[1]}) {
            posix_spawn_file_actions_addclose(&actions, end);
        }
        std::vector<std::string> variables = {"MURMELA_RESOURCES=" + resources.string()};
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (!std::string_view(*entry).starts_with("MURMELA_RESOURCES=")) {
                variables.emplace_back(*entry);
            }
        }
        std::vector<char*> envp;
        for (std::string& variable : variables) {
            envp.push_back(variable.data());
        }
        envp.push_back(nullptr);
        std::string program = MURMELA_SD_MODULE, configuration = "murmela.conf";
        char* argv[] = {program.data(), configuration.data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, envp.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }

    ~ModuleProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            finish();
        }
        ::close(output_);
    }

    void send(std::string_view text) {
        while (!text.empty()) {
            const ssize_t written = ::write(input_, text.data(), text.size());
            ASSERT_GT(written, 0);
            text.remove_prefix(static_cast<size_t>(written));
        }
    }

    // The next reply or event; code 0 when none comes within `patience`.
    Reply next(std::chrono::milliseconds patience = 60s) {
        Reply reply;
        for (;;) {
            std::string line;
            if (!nextLine(line, patience)) {
                return reply;
            }
            reply.code = std::stoi(line.substr(0, 3));
            if (line.size() > 3 && line[3] == ' ') {
                reply.last = line.substr(4);
                return reply;
            }
            const std::string text = line.substr(4);
            if (text.starts_with("AUDIO")) {
                reply.samples = decodeSamples(std::string_view(text).substr(6));
            } else {
                reply.lines.push_back(text);
            }
        }
    }

    // The next reply that is not an event; events on the way are kept in `passed`.
    Reply nextReply(std::vector<Reply>* passed = nullptr) {
        for (;;) {
            Reply reply = next();
            if (reply.code < 700) {
                return reply;
            }
            if (passed != nullptr) {
                passed->push_back(reply);
            }
        }
    }

    // Closes the module's input and gives its exit status (-1 when it had to be killed).
    int finish() {
        if (input_ >= 0) {
            ::close(input_);
            input_ = -1;
        }
        int status = 0;
        for (int waited = 0; waited < 300; ++waited) {
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(100ms);
        }
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return -1;
    }

private:
    bool nextLine(std::string& line, std::chrono::milliseconds patience) {
        for (;;) {
            const size_t newline = buffer_.find('\n');
            if (newline != std::string::npos) {
                line = buffer_.substr(0, newline);
                buffer_.erase(0, newline + 1);
                return true;
            }
            pollfd ready{output_, POLLIN, 0};
            if (::poll(&ready, 1, static_cast<int>(patience.count())) <= 0) {
                return false;
            }
            char chunk[65536];
            const ssize_t got = ::read(output_, chunk, sizeof chunk);
            if (got <= 0) {
                return false;
            }
            buffer_.append(chunk, static_cast<size_t>(got));
        }
    }

    static std::vector<int16_t> decodeSamples(std::string_view escaped) {
        std::string bytes;
        for (size_t at = 0; at < escaped.size(); ++at) {
            bytes.push_back(escaped[at] == 0x7D ? static_cast<char>(escaped[++at] ^ 0x20)
                                                : escaped[at]);
        }
        std::vector<int16_t> samples(bytes.size() / 2);
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                              (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
        }
        return samples;
    }

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
};

class SpeechdModule : public ::testing::Test {
protected:
    SpeechdModule() {
        fs::create_directory_symlink(testing::testVoiceDirectory(), resources_ / "Voice");
    }

    // Starts the module and initialises it as the server does.
    ModuleProcess& start() {
        module_ = std::make_unique<ModuleProcess>(resources_.path());
        module_->send("INIT\n");
        const Reply init = module_->next();
        EXPECT_EQ(init.code, 299) << init.last;
        EXPECT_EQ(init.last, "OK LOADED SUCCESSFULLY");
        module_->send("AUDIO\naudio_output_method=server\n.\n");
        EXPECT_EQ(module_->next().code, 207);
        EXPECT_EQ(module_->next().last, "OK AUDIO INITIALIZED");
        return *module_;
    }

    // Sends a message and expects it to be taken.
    void send(std::string_view command, std::string_view body) {
        module_->send(std::string(command) + "\n" + std::string(body) + "\n.\n");
        EXPECT_EQ(module_->nextReply().last, "OK RECEIVING MESSAGE");
        EXPECT_EQ(module_->nextReply().last, "OK SPEAKING");
    }

    // The events of the message under way, up to and with its closing event.
    std::vector<Reply> events() {
        std::vector<Reply> received;
        for (;;) {
            received.push_back(module_->next());
            const int code = received.back().code;
            if (code == 0 || code == 702 || code == 703 || code == 704) {
                return received;
            }
        }
    }

    // All samples of a message, checking the events come in the order the server needs.
    std::vector<int16_t> spoken(std::string_view command, std::string_view body) {
        send(command, body);
        std::vector<Reply> received = events();
        EXPECT_EQ(received.front().code, 701);
        EXPECT_EQ(received.back().code, 702);
        std::vector<int16_t> samples;
        for (const Reply& event : received) {
            samples.insert(samples.end(), event.samples.begin(), event.samples.end());
        }
        return samples;
    }

    void set(std::string_view settings) {
        module_->send("SET\n" + std::string(settings) + "\n.\n");
        EXPECT_EQ(module_->nextReply().code, 203);
        EXPECT_EQ(module_->nextReply().last, "OK SETTINGS RECEIVED");
    }

    // Whether the module answers at once and has nothing else to say first.
    void expectQuietAndAlive() {
        module_->send("LIST VOICES\n");
        const Reply voices = module_->next();
        EXPECT_EQ(voices.code, 200);
        EXPECT_EQ(voices.lines, std::vector<std::string>{"Murmela\ten-US\tnone"});
        EXPECT_EQ(voices.last, "OK VOICE LIST SENT");
    }

    testing::TemporaryDirectory resources_{"murmela-speechd"};
    std::unique_ptr<ModuleProcess> module_;
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
    ModuleProcess& module = start();
    module.send("LOGLEVEL\nlog_level=4\n.\n");
    EXPECT_EQ(module.next().code, 207);
    EXPECT_EQ(module.next().last, "OK LOGLEVEL SET");
    expectQuietAndAlive();
    set("pitch=0\nrate=0\nvolume=100\npunctuation_mode=none\nspelling_mode=off\n"
        "cap_let_recogn=none\nvoice=male1\nlanguage=c\nsynthesis_voice=NULL");

    send("SPEAK", "<speak>Hello there.<mark name=\"one\"/>\nHow are you?</speak>");
    std::vector<Reply> received = events();
    ASSERT_GE(received.size(), 4u);
    EXPECT_EQ(received.front().code, 701);
    EXPECT_EQ(received.back().code, 702);
    std::vector<int16_t> before, after;
    int marks = 0;
    for (const Reply& event : received) {
        if (event.code == 700) {
            EXPECT_EQ(event.lines, std::vector<std::string>{"one"});
            ++marks;
        } else if (event.code == 705) {
            EXPECT_EQ(event.lines[2], "sample_rate=24000");
            EXPECT_EQ(event.lines[3], "num_samples=" + std::to_string(event.samples.size()));
            (marks == 0 ? before : after)
                .insert((marks == 0 ? before : after).end(), event.samples.begin(),
                        event.samples.end());
        }
    }
    EXPECT_EQ(marks, 1);
    // The mark comes exactly where the first sentence's audio ends.
    EXPECT_EQ(before, spoken("SPEAK", "<speak>Hello there.</speak>"));
    EXPECT_EQ(after, spoken("SPEAK", "<speak>How are you?</speak>"));

    // Characters and keys are said by name; unknown markup is never read.
    const std::vector<int16_t> ay = spoken("SPEAK", "<speak>ay</speak>");
    EXPECT_FALSE(ay.empty());
    EXPECT_EQ(spoken("CHAR", "a"), ay);
    EXPECT_EQ(spoken("SPEAK", "<speak><voice name=\"x\"><emphasis>ay</emphasis></voice></speak>"),
              ay);
    EXPECT_EQ(spoken("KEY", "shift_a"), spoken("SPEAK", "<speak>shift ay</speak>"));
    EXPECT_EQ(spoken("SPEAK", "<speak>Tom &amp; Jerry</speak>"),
              spoken("SPEAK", "<speak>Tom &#38; Jerry</speak>"));

    // The lowest rate speaks at half speed and the top rate faster, as near as the test voice's
    // whole frames allow; half the volume halves the samples.
    const std::vector<int16_t> normal = spoken("SPEAK", "<speak>How are you today?</speak>");
    set("rate=-100");
    const double slow = spoken("SPEAK", "<speak>How are you today?</speak>").size();
    EXPECT_GT(slow / normal.size(), 1.5);
    EXPECT_LT(slow / normal.size(), 2.2);
    set("rate=100\nvolume=0");
    const std::vector<int16_t> fast = spoken("SPEAK", "<speak>How are you today?</speak>");
    EXPECT_LT(fast.size(), normal.size() * 3 / 4);
    set("rate=0");
    const std::vector<int16_t> quiet = spoken("SPEAK", "<speak>How are you today?</speak>");
    ASSERT_EQ(quiet.size(), normal.size());
    for (size_t i = 0; i < quiet.size(); ++i) {
        ASSERT_NEAR(quiet[i], normal[i] / 2.0, 1.0) << i;
    }
    // A break is silence of its length.
    const std::vector<int16_t> pause = spoken("SPEAK", "<speak><break time=\"500ms\"/></speak>");
    EXPECT_EQ(pause, std::vector<int16_t>(12000, 0));

    module.send("QUIT\n");
    EXPECT_EQ(module.next().last, "OK QUIT");
    EXPECT_EQ(module.finish(), 0);
}

TEST_F(SpeechdModule, StopEndsTheMessageAtOnceAndPauseAtAMark) {
    ModuleProcess& module = start();
    // STOP with nothing to stop says nothing.
    module.send("STOP\n");
    expectQuietAndAlive();

    for (int round = 0; round < 3; ++round) {
        send("SPEAK", longText(60));
        Reply first = module.next();
        EXPECT_EQ(first.code, 701);
        while (first.code != 705 && first.code != 0) {
            first = module.next();
        }
        ASSERT_EQ(first.code, 705);
        // The module writes into a full pipe by now; STOP must still end the message.
        module.send("STOP\n");
        std::vector<Reply> received = events();
        EXPECT_EQ(received.back().code, 703);
        // Nothing of the message follows its STOP event.
        expectQuietAndAlive();
    }

    send("SPEAK", longText(60));
    Reply first = module.next();
    while (first.code != 705 && first.code != 0) {
        first = module.next();
    }
    module.send("PAUSE\n");
    std::vector<Reply> received = events();
    ASSERT_GE(received.size(), 2u);
    EXPECT_EQ(received.back().code, 704);
    // It pauses right after a mark, where the server knows how to go on.
    EXPECT_EQ(received[received.size() - 2].code, 700);
    expectQuietAndAlive();

    // A message after a stopped one is spoken whole.
    EXPECT_FALSE(spoken("SPEAK", "<speak>Still here.</speak>").empty());
    EXPECT_EQ(module.finish(), 0);
}

TEST_F(SpeechdModule, MalformedInputGetsErrorCodesAndTheModuleGoesOn) {
    ModuleProcess& module = start();
    auto replyTo = [&module](const std::string& text) {
        module.send(text);
        return module.nextReply();
    };
    EXPECT_EQ(replyTo("FOO\n").last, "ERR UNKNOWN COMMAND");
    EXPECT_EQ(replyTo("speak\n").code, 300);
    EXPECT_EQ(replyTo(std::string(1 << 20, 'S') + "\n").code, 300);

    EXPECT_EQ(replyTo("SET\nrate\n.\n").code, 203);
    EXPECT_EQ(module.nextReply().last, "ERROR BAD SYNTAX");
    EXPECT_EQ(replyTo("SET\nrate=500\nvolume=20\n.\n").code, 203);
    EXPECT_EQ(module.nextReply().last, "ERROR INVALID PARAMETER OR VALUE");
    EXPECT_EQ(replyTo("AUDIO\naudio_output_method=alsa\n.\n").code, 207);
    EXPECT_EQ(module.nextReply().code, 303);

    const std::vector<std::pair<std::string, std::string>> refused = {
        {"SPEAK\n<speak>Hello <mark name=\"x\"\n.\n", "ERROR MALFORMED SSML"},
        {"SPEAK\n<speak>Hello\n.\n", "ERROR MALFORMED SSML"},
        {"SPEAK\n<speak>Caf\xe9 \xff</speak>\n.\n", "ERROR INVALID UTF-8"},
        {"SPEAK\n" + std::string(1 << 20, 'x') + "\n.\n", "ERROR MESSAGE TOO LONG"},
        {"CHAR\na\nb\n.\n", "ERROR BAD SYNTAX"},
    };
    for (const auto& [message, error] : refused) {
        EXPECT_EQ(replyTo(message).code, 202);
        EXPECT_EQ(module.nextReply().last, error);
    }
    // A megabyte in many short lines is refused too.
    std::string lines;
    for (int i = 0; i < 20000; ++i) {
        lines += "A line of words that goes on for a while, sixty bytes or so.\n";
    }
    EXPECT_EQ(replyTo("SPEAK\n" + lines + ".\n").code, 202);
    EXPECT_EQ(module.nextReply().last, "ERROR MESSAGE TOO LONG");
    expectQuietAndAlive();

    // A second message while the first is spoken is refused; the first goes on.
    send("SPEAK", longText(40));
    std::vector<Reply> passed;
    EXPECT_EQ(replyTo("SPEAK\n<speak>Interrupting.</speak>\n.\n").code, 202);
    EXPECT_EQ(module.nextReply(&passed).last, "ERROR ALREADY SPEAKING");
    module.send("STOP\n");
    EXPECT_EQ(events().back().code, 703);

    // The volume of the refused SET was applied; the rest of the module is as before.
    const std::vector<int16_t> samples = spoken("SPEAK", "<speak>Fine.</speak>");
    EXPECT_FALSE(samples.empty());
    EXPECT_EQ(module.finish(), 0);
}

TEST_F(SpeechdModule, AVoiceThatCannotOpenFailsInitOnly) {
    fs::remove(resources_ / "Voice");
    module_ = std::make_unique<ModuleProcess>(resources_.path());
    module_->send("SPEAK\n<speak>Too early.</speak>\n.\n");
    EXPECT_EQ(module_->nextReply().code, 202);
    EXPECT_EQ(module_->nextReply().last, "ERROR NOT INITIALIZED");
    module_->send("INIT\n");
    const Reply init = module_->nextReply();
    EXPECT_EQ(init.code, 399);
    ASSERT_EQ(init.lines.size(), 1u);
    EXPECT_NE(init.lines[0].find("voice: "), std::string::npos) << init.lines[0];
    EXPECT_NE(init.lines[0].find("missing"), std::string::npos) << init.lines[0];
    expectQuietAndAlive();
    module_->send("QUIT\n");
    EXPECT_EQ(module_->nextReply().code, 210);
    EXPECT_EQ(module_->finish(), 0);
}

}  // namespace
}  // namespace murmela
