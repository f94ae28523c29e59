#pragma once
// The output module: reads speech-dispatcher's commands on one descriptor and answers on
// another, while a worker thread turns the current message into AUDIO events.
//
// The reader never waits for synthesis, so STOP is answered at once: its STOP event is written
// by the reader itself, and from then on nothing of the stopped message is written. The worker
// checks between audio blocks, and the voice is interrupted in the middle of its model run.

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "engine/voice.h"
#include "speechd/protocol.h"
#include "speechd/settings.h"
#include "speechd/ssml.h"

namespace murmela::speechd {

class Module {
public:
    // The largest message accepted, in bytes; a longer one is refused and read to its end.
    static constexpr size_t longestMessage = 512 * 1024;

    // `openVoice` is called on INIT; what it throws is reported as the INIT failure. The voice
    // may be shared, as long as nothing else speaks with it while the module lives.
    Module(int input, int output, std::function<std::shared_ptr<Voice>()> openVoice);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Answers commands until QUIT or the end of the input.
    void run();

private:
    enum class Ending { end, stop, pause };

    struct Job {
        uint64_t message = 0;
        std::vector<SsmlPiece> pieces;
        double speed = 1;
        float gain = 1;
    };

    // Each handler runs with mutex_ held, so no event comes between a command and its reply.
    void initialize();
    enum class Parameters { speech, audio, logging };
    void receiveParameters(Parameters parameters);
    void receiveMessage(std::string_view command);
    void stop();
    void pause();
    void listVoices();

    void work();
    void speakJob(const Job& job);
    // Writes `event` if `message` is still being spoken, after BEGIN if that is still due.
    bool sendForMessage(uint64_t message, std::string_view event);
    // Writes BEGIN if due and then the closing event, if `message` is still being spoken.
    void finish(uint64_t message, Ending ending);
    bool isCurrent(uint64_t message);
    bool pauseDue(uint64_t message);
    void write(std::string_view text);  // with mutex_ held

    int output_;
    LineReader reader_;
    std::function<std::shared_ptr<Voice>()> openVoice_;
    std::shared_ptr<Voice> voice_;
    Settings settings_;

    // Shared with the worker; also serialises every write.
    std::mutex mutex_;
    std::condition_variable jobPosted_;
    std::optional<Job> pending_;
    bool quitting_ = false;
    uint64_t message_ = 0;   // the number of the latest message
    bool speaking_ = false;  // between "200 OK SPEAKING" and the message's closing event
    bool beginSent_ = false;
    bool pauseRequested_ = false;
    bool outputBroken_ = false;

    std::thread worker_;
};

}  // namespace murmela::speechd
