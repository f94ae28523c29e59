#include "cli/narrator.h"

#include <QPointer>

#include "app/render_work.h"
#include "audio/wav_stream.h"
#include "cli/speech_output.h"

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
    renderQueue_.close();
}

Voice& Narrator::voice() {
    if (!voice_) {
        voice_ = openVoice_();
    }
    return *voice_;
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

void Narrator::speak(std::string text, double speed) {
    const std::shared_ptr<CancelFlag> flag = startPlaying();
    speakInBackground(
        renderQueue_, inbox_, [this]() -> Voice& { return voice(); }, std::move(text), speed, flag,
        [this, flag](PlayableChunk chunk) { chunkReady(flag, std::move(chunk)); },
        [this, flag](const UtteranceEnd& end) { utteranceSynthesised(flag, end); });
}

void Narrator::chunkReady(const std::shared_ptr<CancelFlag>& flag, PlayableChunk chunk) {
    if (flag == current_) {
        player_.schedule(std::move(chunk.samples));
    }
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
    speakInBackground(
        renderQueue_, inbox_, [this]() -> Voice& { return voice(); }, std::move(text), speed, flag,
        [this, flag](PlayableChunk chunk) { chunkReady(flag, std::move(chunk)); },
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
}

bool Narrator::stop() {
    if (!current_) {
        return false;
    }
    end();
    return true;
}

void Narrator::save(std::string text, double speed, std::filesystem::path destination,
                    std::function<void(SaveResult)> done) {
    renderQueue_.post([self = this, text = std::move(text), speed,
                       destination = std::move(destination), done = std::move(done),
                       closing = closing_]() mutable {
        SaveResult result;
        WavFile file;
        try {
            openWavFile(file, destination, false);
        } catch (const std::filesystem::filesystem_error& error) {
            result.error = writeFailure(destination, error);
        }
        if (!result.error) {
            try {
                result.samples = saveSpeech(self->voice(), text, speed, file, *closing);
            } catch (...) {
                result.error = errorDescription(std::current_exception());
            }
        }
        if (!closing->isCancelled()) {
            self->inbox_.post([done = std::move(done), result] { done(result); });
        }
    });
}

}  // namespace murmela
