#include "app/narrator.h"

#include <QPointer>

#include <chrono>

#include "app/render_work.h"
#include "app/speech_output.h"
#include "audio/wav_stream.h"

namespace murmela {

Narrator::Narrator(std::function<std::shared_ptr<Voice>()> openVoice, QObject* parent)
    : QObject(parent), openVoice_(std::move(openVoice)) {
    connect(&player_, &Player::outputFailed, this, [this](const QString& description) {
        if (current_) {
            end();
            emit soundFailed(description);
        }
    });
}

Narrator::~Narrator() {
    if (current_) {
        current_->cancel();
    }
    closing_->cancel();
    {
        // Whatever runs, a save included, is abandoned: it need not finish its chunk.
        std::lock_guard lock(voiceLock_);
        if (voice_) {
            voice_->interrupt();
        }
    }
    renderQueue_.close();
}

Voice& Narrator::voice() {
    {
        std::lock_guard lock(voiceLock_);
        if (voice_) {
            return *voice_;
        }
    }
    // Opening takes long; a stop meanwhile has no voice to interrupt, and the job's cancel
    // flag ends it before it speaks.
    std::shared_ptr<Voice> opened = openVoice_();
    std::lock_guard lock(voiceLock_);
    voice_ = std::move(opened);
    return *voice_;
}

void Narrator::interruptSpeech() {
    std::lock_guard lock(voiceLock_);
    if (synthesising_) {
        voice_->interrupt();
    }
}

std::shared_ptr<CancelFlag> Narrator::startPlaying() {
    stop();
    auto flag = std::make_shared<CancelFlag>();
    player_.start([self = QPointer<Narrator>(this), flag] {
        if (self && self->current_ == flag) {
            self->current_ = nullptr;
            emit self->heard();
        }
    });
    current_ = flag;
    return flag;
}

void Narrator::load(std::function<void(LoadResult)> done) {
    renderQueue_.post([self = this, done = std::move(done)] {
        const auto start = std::chrono::steady_clock::now();
        LoadResult result;
        try {
            self->voice();
        } catch (...) {
            result.error = errorDescription(std::current_exception());
        }
        result.milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  std::chrono::steady_clock::now() - start)
                                  .count();
        self->inbox_.post([done, result] { done(result); });
    });
}

void Narrator::useVoice(std::function<std::shared_ptr<Voice>()> openVoice) {
    renderQueue_.post([self = this, openVoice = std::move(openVoice)]() mutable {
        self->openVoice_ = std::move(openVoice);
        std::lock_guard lock(self->voiceLock_);
        self->voice_.reset();
    });
}

void Narrator::runBetweenJobs(std::function<void()> work,
                              std::function<void(std::optional<std::string> error)> done) {
    renderQueue_.post([self = this, work = std::move(work), done = std::move(done)] {
        std::optional<std::string> error;
        try {
            work();
        } catch (...) {
            error = errorDescription(std::current_exception());
        }
        self->inbox_.post([done, error] { done(error); });
    });
}

std::shared_ptr<const CancelFlag> Narrator::speak(std::string text, double speed) {
    const std::shared_ptr<CancelFlag> flag = startPlaying();
    synthesise(std::move(text), speed, flag,
               [this, flag](const UtteranceEnd& end) { utteranceSynthesised(flag, end); });
    return flag;
}

void Narrator::synthesise(std::string text, double speed, const std::shared_ptr<CancelFlag>& flag,
                          std::function<void(const UtteranceEnd&)> ended) {
    speakInBackground(
        renderQueue_, inbox_,
        [this, flag]() -> Voice& {
            Voice& speaking = voice();
            std::lock_guard lock(voiceLock_);
            synthesising_ = flag;
            return speaking;
        },
        std::move(text), speed, flag,
        [this, flag](PlayableChunk chunk) { chunkReady(flag, std::move(chunk)); },
        std::move(ended));
    // The speech is no longer interruptible once its job is over, so a stop that comes later
    // cannot cut into the job after it (a save).
    renderQueue_.post([this] {
        std::lock_guard lock(voiceLock_);
        synthesising_ = nullptr;
    });
}

void Narrator::chunkReady(const std::shared_ptr<CancelFlag>& flag, PlayableChunk chunk) {
    if (flag != current_) {
        return;
    }
    if (chunk.first) {
        emit firstChunkPlayed(chunk.milliseconds, static_cast<qint64>(chunk.ids));
    }
    player_.schedule(std::move(chunk.samples));
}

void Narrator::utteranceSynthesised(const std::shared_ptr<CancelFlag>& flag,
                                    const UtteranceEnd& end) {
    if (flag != current_) {
        return;
    }
    if (end.error) {
        this->end();
        emit voiceFailed(QString::fromStdString(*end.error));
        return;
    }
    allSynthesised(end.samples);
}

void Narrator::allSynthesised(int64_t samples) {
    if (samples == 0) {
        player_.stop();
        current_ = nullptr;
    } else {
        player_.finish();
    }
    emit synthesised(samples);
}

void Narrator::openSpeech() {
    open_ = OpenSpeech{startPlaying()};
}

bool Narrator::speechIsOpen() const {
    return open_ && current_ && open_->flag == current_;
}

void Narrator::addToSpeech(std::string text, double speed) {
    if (!speechIsOpen() || open_->closed) {
        return;
    }
    ++open_->partsBeingMade;
    const std::shared_ptr<CancelFlag> flag = current_;
    synthesise(std::move(text), speed, flag,
               [this, flag](const UtteranceEnd& end) { partSynthesised(flag, end); });
}

void Narrator::partSynthesised(const std::shared_ptr<CancelFlag>& flag, const UtteranceEnd& end) {
    if (flag != current_ || !speechIsOpen()) {
        return;
    }
    if (end.error) {
        open_.reset();
        this->end();
        emit voiceFailed(QString::fromStdString(*end.error));
        return;
    }
    --open_->partsBeingMade;
    open_->samples += end.samples;
    finishWhenAllMade();
}

void Narrator::closeSpeech() {
    if (speechIsOpen()) {
        open_->closed = true;
        finishWhenAllMade();
    }
}

void Narrator::finishWhenAllMade() {
    if (open_->closed && open_->partsBeingMade == 0) {
        const int64_t samples = open_->samples;
        open_.reset();
        allSynthesised(samples);
    }
}

int64_t Narrator::speechBacklog() const {
    return (speechIsOpen() ? open_->partsBeingMade : 0) + player_.pending();
}

void Narrator::end() {
    current_->cancel();
    current_ = nullptr;
    player_.stop();
    interruptSpeech();
}

bool Narrator::stop() {
    if (!current_) {
        return false;
    }
    end();
    return true;
}

void Narrator::save(std::string text, double speed, std::filesystem::path destination,
                    std::function<void(SaveResult)> done, std::function<void()> checkDestination) {
    renderQueue_.post([self = this, text = std::move(text), speed,
                       destination = std::move(destination), done = std::move(done),
                       checkDestination = std::move(checkDestination),
                       closing = closing_]() mutable {
        // The scratch file of a save that wrote nothing goes with `file`, before the answer.
        const SaveResult result = [&] {
            SaveResult outcome;
            WavFile file;
            try {
                if (checkDestination) {
                    checkDestination();
                }
                openWavFile(file, destination, false);
            } catch (const std::filesystem::filesystem_error& error) {
                outcome.error = writeFailure(destination, error);
                return outcome;
            } catch (...) {
                outcome.error = errorDescription(std::current_exception());
                return outcome;
            }
            try {
                Voice& voice = self->voice();
                // Undoes the interruption of a speech stopped before; the narrator's end, the
                // only thing that interrupts a save, raises `closing` first, checked after this.
                voice.resume();
                if (!closing->isCancelled()) {
                    outcome.samples =
                        saveSpeech(voice, text, speed, file, *closing, checkDestination);
                }
            } catch (...) {
                outcome.error = errorDescription(std::current_exception());
            }
            return outcome;
        }();
        if (!closing->isCancelled()) {
            self->inbox_.post([done = std::move(done), result] { done(result); });
        }
    });
}

}  // namespace murmela
