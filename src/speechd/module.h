#pragma once
// The output module: reads speech-dispatcher's commands on one descriptor and answers on
// another, while a worker thread turns the current message into AUDIO events.
//
// The reader never waits for synthesis, so STOP is answered at once: its STOP event is written
// by the reader itself, and from then on nothing of the stopped message is written. The worker
// checks between audio blocks, and the voice is interrupted in the middle of its model run.
//
// Of the voices offered, the first opens on INIT; another opens, on the worker, when a message
// is to be spoken with it, and the one before is let go first, so one voice is held at a time.

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
#include "speechd/voices.h"

namespace murmela::speechd {

class Module {
public:
    // The largest message accepted, in bytes; a longer one is refused and read to its end.
    static constexpr size_t longestMessage = 512 * 1024;

    // `openVoice` opens the voice at an index of `voices`: the first on INIT, where what it
    // throws is reported as the INIT failure, and later the one a message is to be spoken with,
    // where what it throws ends that message. A voice may be shared, as long as nothing else
    // speaks with it while the module lives.
    using VoiceOpener = std::function<std::shared_ptr<Voice>(size_t index)>;
    Module(int input, int output, std::vector<OfferedVoice> voices, VoiceOpener openVoice);
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
        size_t voice = 0;  // among voices_
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
    // Makes the job's voice the one open, letting the other go first.
    void switchVoice(size_t voice);
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
    const std::vector<OfferedVoice> voices_;
    VoiceOpener openVoice_;
    Settings settings_;
    size_t chosen_ = 0;  // the voice the next message is spoken with

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
    bool initialized_ = false;
    std::shared_ptr<Voice> voice_;  // set by the worker; the reader interrupts it
    size_t open_ = 0;               // which of voices_ voice_ is

    std::thread worker_;
};

}  // namespace murmela::speechd
