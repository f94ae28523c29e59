#include "speechd/module.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "common/voice_format.h"
#include "files/files.h"
#include "frontend/normalise.h"
#include "logging/log.h"
#include "speechd/spoken_text.h"

namespace murmela::speechd {
namespace {

// AUDIO events carry at most this many samples (0.2 s), so a stop never waits for a long write.
constexpr size_t samplesPerEvent = sampleRate / 5;
constexpr size_t samplesPerMillisecond = sampleRate / 1000;
// A command line never needs more; a message's lines are bounded by the message limit.
constexpr size_t longestCommand = 1024;

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}

}  // namespace

Module::Module(int input, int output, std::vector<OfferedVoice> voices, VoiceOpener openVoice)
    : output_(output),
      reader_(input, longestMessage),
      voices_(std::move(voices)),
      openVoice_(std::move(openVoice)) {}

Module::~Module() {
    {
        std::lock_guard lock(mutex_);
        quitting_ = true;
        ++message_;  // whatever is being spoken is dropped
        speaking_ = false;
        if (voice_) {
            voice_->interrupt();
        }
    }
    jobPosted_.notify_all();
    if (worker_.joinable()) {
        worker_.join();
    }
}

void Module::write(std::string_view text) {
    if (!outputBroken_ && writeAll(output_, text) != 0) {
        outputBroken_ = true;
        log::error("sd_murmela", "speech-dispatcher no longer reads the module's output");
    }
}

void Module::run() {
    while (std::optional<LineReader::Line> line = reader_.next()) {
        std::unique_lock lock(mutex_);
        const std::string& command = line->text;
        if (line->overlong || command.size() > longestCommand) {
            write(reply::unknownCommand);
        } else if (command == "INIT") {
            initialize();
        } else if (command == "SPEAK" || command == "CHAR" || command == "KEY" ||
                   command == "SOUND_ICON") {
            receiveMessage(command);
        } else if (command == "STOP") {
            stop();
        } else if (command == "PAUSE") {
            pause();
        } else if (command == "SET") {
            receiveParameters(Parameters::speech);
        } else if (command == "AUDIO") {
            receiveParameters(Parameters::audio);
        } else if (command == "LOGLEVEL") {
            receiveParameters(Parameters::logging);
        } else if (command == "LIST VOICES") {
            listVoices();
        } else if (command == "QUIT") {
            write(reply::quit);
            return;
        } else {
            write(reply::unknownCommand);
        }
        if (outputBroken_) {
            return;
        }
    }
}

void Module::initialize() {
    if (initialized_) {
        write(multiline("299", {"Murmela: already initialized"}, reply::loaded));
        return;
    }
    // No worker runs yet, so holding the lock while the voice opens keeps nothing waiting.
    std::string failure = "no voice is installed";
    try {
        if (!voices_.empty()) {
            voice_ = openVoice_(0);
        }
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (!voice_) {
        log::error("sd_murmela", failure);
        write(multiline("399", {failure}, reply::cannotInitialize));
        return;
    }
    // The worker takes no signals: they are the main thread's to handle.
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    worker_ = std::thread([this] { work(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    initialized_ = true;
    write(multiline("299", {"Murmela: voice loaded"}, reply::loaded));
}

void Module::receiveParameters(Parameters parameters) {
    write(parameters == Parameters::speech  ? reply::receivingSettings
          : parameters == Parameters::audio ? reply::receivingAudioSettings
                                            : reply::receivingLogLevel);
    const DataBlock block = readDataBlock(reader_, longestCommand * 16);
    if (!block.ended) {
        return;
    }
    if (block.tooLarge) {
        write(reply::messageTooLong);
        return;
    }
    std::string_view failure;
    for (const std::string& line : block.lines) {
        const size_t equals = line.find('=');
        SettingOutcome outcome = SettingOutcome::applied;
        if (equals == std::string::npos || equals == 0) {
            outcome = SettingOutcome::badSyntax;
        } else if (parameters == Parameters::speech) {
            outcome = applySetting(settings_, line);
        } else if (parameters == Parameters::audio) {
            // Only the server plays: this module has no audio output of its own.
            const std::string_view name = std::string_view(line).substr(0, equals);
            const std::string_view value = std::string_view(line).substr(equals + 1);
            if (name == "audio_output_method" && value != "server") {
                outcome = SettingOutcome::invalid;
            }
        }
        if (outcome == SettingOutcome::badSyntax) {
            failure = reply::badSyntax;
        } else if (outcome == SettingOutcome::invalid && failure.empty()) {
            failure = reply::invalidValue;
        }
    }
    write(!failure.empty()                   ? failure
          : parameters == Parameters::speech ? reply::settingsReceived
          : parameters == Parameters::audio  ? reply::audioInitialized
                                             : reply::logLevelSet);
}

void Module::receiveMessage(std::string_view command) {
    write(reply::receivingMessage);
    DataBlock block = readDataBlock(reader_, longestMessage);
    if (!block.ended) {
        return;
    }
    if (block.tooLarge) {
        write(reply::messageTooLong);
        return;
    }
    if (speaking_) {
        write(reply::alreadySpeaking);
        return;
    }
    const std::string text = joined(block.lines);
    if (!isValidUtf8(text)) {
        write(reply::invalidUtf8);
        return;
    }
    if (!initialized_) {
        write(reply::notInitialized);
        return;
    }
    std::vector<SsmlPiece> pieces;
    if (command == "SPEAK") {
        try {
            pieces = parseSsml(text);
        } catch (const SsmlError& error) {
            log::error("sd_murmela", error.what());
            write(reply::malformedSsml);
            return;
        }
        for (SsmlPiece& piece : pieces) {
            if (piece.kind == SsmlPiece::Kind::text) {
                piece.text = spokenText(piece.text, settings_.punctuation, settings_.spelling);
            }
        }
    } else {
        if (block.lines.size() != 1) {
            write(reply::badSyntax);
            return;
        }
        std::string words = command == "CHAR"  ? characterName(text)
                            : command == "KEY" ? keyName(text)
                                               : spokenText(text, PunctuationMode::none, false);
        if (command == "SOUND_ICON") {
            std::replace_if(
                words.begin(), words.end(), [](char c) { return c == '_' || c == '-'; }, ' ');
        }
        pieces.push_back({SsmlPiece::Kind::text, std::move(words), 0});
    }
    ++message_;
    speaking_ = true;
    beginSent_ = false;
    pauseRequested_ = false;
    chosen_ = chosenVoice(voices_, settings_, chosen_);
    pending_ = Job{message_, std::move(pieces), speedForRate(settings_.rate),
                   gainForVolume(settings_.volume), chosen_};
    write(reply::speaking);
    jobPosted_.notify_one();
}

void Module::stop() {
    if (!speaking_) {
        return;
    }
    if (!beginSent_) {
        write(reply::begin);
    }
    write(reply::stop);
    speaking_ = false;
    pending_.reset();
    // A screen reader stops and speaks again on every key: the next message must not wait for
    // the stopped one's chunk to be synthesised. (No voice is open while one is being opened.)
    if (voice_) {
        voice_->interrupt();
    }
}

void Module::pause() {
    // The worker stops at the next index mark, where the server knows how to resume.
    pauseRequested_ = speaking_;
}

void Module::listVoices() {
    write(multiline("200", voiceListLines(voices_), reply::voiceListSent));
}

void Module::work() {
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            jobPosted_.wait(lock, [this] { return quitting_ || pending_.has_value(); });
            if (quitting_) {
                return;
            }
            job = std::move(*pending_);
            pending_.reset();
        }
        try {
            switchVoice(job.voice);
            {
                std::lock_guard lock(mutex_);
                voice_->resume();
            }
            speakJob(job);
        } catch (const std::exception& error) {
            if (isCurrent(job.message)) {
                log::error("sd_murmela", error.what());
                finish(job.message, Ending::stop);
            }
        }
    }
}

void Module::switchVoice(size_t voice) {
    {
        std::lock_guard lock(mutex_);
        if (voice_ && open_ == voice) {
            return;
        }
        voice_.reset();
    }
    // Opening takes long; the reader goes on answering meanwhile.
    std::shared_ptr<Voice> opened = openVoice_(voice);
    std::lock_guard lock(mutex_);
    voice_ = std::move(opened);
    open_ = voice;
}

void Module::speakJob(const Job& job) {
    // Where the last mark is: a pause can wait for a mark only before it.
    size_t lastMark = 0;
    for (size_t index = 0; index < job.pieces.size(); ++index) {
        if (job.pieces[index].kind == SsmlPiece::Kind::mark) {
            lastMark = index + 1;
        }
    }
    size_t index = 0;
    auto sendSamples = [&](std::span<const float> samples) {
        for (size_t start = 0; start < samples.size(); start += samplesPerEvent) {
            if (index >= lastMark && pauseDue(job.message)) {
                finish(job.message, Ending::pause);
                return false;
            }
            const size_t count = std::min(samplesPerEvent, samples.size() - start);
            if (!sendForMessage(job.message, audioEvent(samples.subspan(start, count), job.gain))) {
                return false;
            }
        }
        return true;
    };
    for (; index < job.pieces.size(); ++index) {
        const SsmlPiece& piece = job.pieces[index];
        // A stopped message must not cost the next one a chunk's synthesis.
        bool going = isCurrent(job.message);
        switch (piece.kind) {
            case SsmlPiece::Kind::text:
                if (going && hasSomethingToSpeak(piece.text)) {
                    voice_->speak(piece.text, job.speed, [&](SpokenChunk&& chunk) {
                        going = sendSamples(chunk.result.samples);
                        return going;
                    });
                }
                break;
            case SsmlPiece::Kind::mark:
                going = going && sendForMessage(job.message, indexMarkEvent(piece.text));
                if (going && pauseDue(job.message)) {
                    finish(job.message, Ending::pause);
                    going = false;
                }
                break;
            case SsmlPiece::Kind::pause:
                going = going &&
                        sendSamples(std::vector<float>(
                            static_cast<size_t>(piece.milliseconds) * samplesPerMillisecond, 0.0f));
                break;
        }
        if (!going) {
            return;
        }
    }
    finish(job.message, Ending::end);
}

bool Module::sendForMessage(uint64_t message, std::string_view event) {
    std::lock_guard lock(mutex_);
    if (message != message_ || !speaking_ || outputBroken_) {
        return false;
    }
    if (!beginSent_) {
        write(reply::begin);
        beginSent_ = true;
    }
    write(event);
    return !outputBroken_;
}

void Module::finish(uint64_t message, Ending ending) {
    std::lock_guard lock(mutex_);
    if (message != message_ || !speaking_) {
        return;
    }
    if (!beginSent_) {
        write(reply::begin);
    }
    write(ending == Ending::end ? reply::end : ending == Ending::stop ? reply::stop : reply::pause);
    speaking_ = false;
}

bool Module::isCurrent(uint64_t message) {
    std::lock_guard lock(mutex_);
    return message == message_ && speaking_;
}

bool Module::pauseDue(uint64_t message) {
    std::lock_guard lock(mutex_);
    return message == message_ && speaking_ && pauseRequested_;
}

}  // namespace murmela::speechd
