#include "app/speech.h"

#include <QPointer>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

#include "app/render_work.h"
#include "app/settings.h"
#include "frontend/normalise.h"
#include "logging/log.h"

namespace murmela {
namespace {

constexpr const char* logSource = "murmelaMain";
constexpr const char* speedKey = "speed";

std::optional<std::string> environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    return std::string(value);
}

}  // namespace

Speech::Speech(SettingsStore defaults, std::optional<std::filesystem::path> voiceDirectory,
               QObject* parent)
    : QObject(parent),
      speed_(speedFromSetting(defaults.value(speedKey))),
      defaults_(std::move(defaults)),
      voiceDirectory_(std::move(voiceDirectory)) {
    connect(&player_, &Player::outputFailed, this, &Speech::outputFailed);
}

Speech::~Speech() {
    closing_->cancel();
    cancel_->cancel();
    if (voice_) {
        voice_->interrupt();
    }
    renderQueue_.close();
}

void Speech::setText(const QString& text) {
    if (text == text_) {
        return;
    }
    text_ = text;
    emit textChanged(text_);
}

void Speech::setSpeed(double speed) {
    const double normalised = normalisedSpeed(speed);
    const bool changed = normalised != speed_;
    speed_ = normalised;
    defaults_.setValue(speedKey, speed_);
    if (changed) {
        emit speedChanged(speed_);
    }
}

bool Speech::canSpeak() const {
    return hasSomethingToSpeak(text_.toStdString());
}

void Speech::setPhase(Phase phase) {
    if (phase == phase_) {
        return;
    }
    phase_ = phase;
    emit phaseChanged(phase_);
}

void Speech::setNotice(std::optional<Notice> notice) {
    if (notice == notice_) {
        return;
    }
    notice_ = std::move(notice);
    emit noticeChanged(notice_);
}

void Speech::replaceCancelFlag() {
    cancel_ = std::make_shared<CancelFlag>();
    emit cancelChanged();
}

void Speech::cancelUtterance() {
    cancel_->cancel();
    emit cancelChanged();
    // The next utterance need not wait for the chunk being synthesised.
    voice_->interrupt();
}

bool Speech::isCurrent(const std::shared_ptr<CancelFlag>& flag) const {
    return flag == cancel_ && !flag->isCancelled();
}

void Speech::load() {
    if (voice_) {
        setPhase(Phase::ready);
        return;
    }
    setPhase(Phase::loading);
    setNotice(std::nullopt);
    if (loadUnderWay_) {
        return;
    }
    loadUnderWay_ = true;
    renderQueue_.post([self = this, directory = voiceDirectory_,
                       failLoad = environment("MURMELA_FAIL_LOAD")] {
        const auto start = std::chrono::steady_clock::now();
        try {
            std::shared_ptr<Voice> voice = loadVoice(directory, failLoad);
            self->inbox_.post([self, voice = std::move(voice), start] {
                const auto elapsed = std::chrono::steady_clock::now() - start;
                self->voiceLoaded(
                    voice, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
            });
        } catch (...) {
            self->inbox_.post([self, description = errorDescription(std::current_exception())] {
                self->loadFailed(description);
            });
        }
    });
}

void Speech::voiceLoaded(std::shared_ptr<Voice> voice, int64_t milliseconds) {
    loadUnderWay_ = false;
    voice_ = std::move(voice);
    emit voiceChanged();
    setPhase(Phase::ready);
    log::info("voice ready in " + std::to_string(milliseconds) + " ms");
}

void Speech::loadFailed(const std::string& description) {
    loadUnderWay_ = false;
    setPhase(Phase::failed);
    log::error(logSource, "load failed: " + description);
}

void Speech::speak() {
    if (phase_ != Phase::ready || !canSpeak() || !voice_) {
        return;
    }
    std::shared_ptr<Voice> voice = voice_;
    std::string text = text_.toStdString();
    const double speed = speed_;
    replaceCancelFlag();
    std::shared_ptr<CancelFlag> flag = cancel_;
    setNotice(std::nullopt);
    try {
        player_.start([self = QPointer<Speech>(this), flag] {
            if (self) {
                self->utteranceHeard(flag);
            }
        });
    } catch (const std::exception& error) {
        setNotice(Notice::failed());
        log::error(logSource, std::string("audio output: ") + error.what());
        return;
    }
    setPhase(Phase::speaking);
    speakInBackground(
        renderQueue_, inbox_, [voice = std::move(voice)]() -> Voice& { return *voice; },
        std::move(text), speed, flag,
        [this, flag](PlayableChunk chunk) { chunkReady(flag, std::move(chunk)); },
        [this, flag](const UtteranceEnd& end) { utteranceSynthesised(flag, end); });
}

void Speech::chunkReady(const std::shared_ptr<CancelFlag>& flag, PlayableChunk chunk) {
    if (!isCurrent(flag)) {
        return;  // a stopped utterance
    }
    if (chunk.first) {
        log::info("first audio after " + std::to_string(chunk.milliseconds) + " ms (" +
                  std::to_string(chunk.ids) + " ids)");
    }
    player_.schedule(std::move(chunk.samples));
}

void Speech::utteranceSynthesised(const std::shared_ptr<CancelFlag>& flag,
                                  const UtteranceEnd& end) {
    if (!isCurrent(flag)) {
        return;
    }
    if (end.error) {
        // What has been heard stays heard.
        player_.stop();
        setPhase(Phase::ready);
        setNotice(Notice::failed());
        log::error(logSource, "speak failed: " + *end.error);
    } else if (end.chunks == 0) {
        player_.stop();
        setPhase(Phase::ready);
        setNotice(Notice::empty());
    } else {
        player_.finish();
    }
}

void Speech::utteranceHeard(const std::shared_ptr<CancelFlag>& flag) {
    if (phase_ == Phase::speaking && flag == cancel_) {
        setPhase(Phase::ready);
    }
}

void Speech::outputFailed(const QString& description) {
    if (phase_ != Phase::speaking) {
        return;
    }
    // The player has stopped already; the flag stops the synthesis and drops what it still
    // delivers, so a later utterance cannot receive it.
    cancelUtterance();
    setPhase(Phase::ready);
    setNotice(Notice::failed());
    log::error(logSource, "audio output: " + description.toStdString());
}

void Speech::stop() {
    if (phase_ != Phase::speaking) {
        return;
    }
    cancelUtterance();
    player_.stop();
    setPhase(Phase::ready);
}

void Speech::save(const std::filesystem::path& destination) {
    if (phase_ != Phase::ready || !canSpeak() || !voice_) {
        return;
    }
    setPhase(Phase::saving);
    setNotice(std::nullopt);
    renderQueue_.post([self = this, voice = voice_, text = text_.toStdString(), speed = speed_,
                       destination, closing = closing_] {
        const std::optional<SaveOutcome> outcome =
            renderToWav(*voice, text, speed, destination, *closing);
        if (outcome) {
            self->inbox_.post(
                [self, destination, outcome = *outcome] { self->saveEnded(destination, outcome); });
        }
    });
}

void Speech::saveEnded(const std::filesystem::path& destination, const SaveOutcome& outcome) {
    setPhase(Phase::ready);
    switch (outcome.kind) {
        case SaveOutcome::Kind::written:
            setNotice(Notice::saved(QString::fromStdString(destination.filename().string())));
            break;
        case SaveOutcome::Kind::empty:
            setNotice(Notice::empty());
            break;
        case SaveOutcome::Kind::failed:
            setNotice(Notice::saveFailed());
            log::error(logSource, "save failed: " + outcome.error);
            break;
    }
}

}  // namespace murmela
