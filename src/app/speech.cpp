#include "app/speech.h"

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

}  // namespace

Speech::Speech(SettingsStore defaults, std::optional<std::filesystem::path> voiceDirectory,
               QObject* parent)
    : QObject(parent),
      speed_(speedFromSetting(defaults.value(speedKey))),
      defaults_(std::move(defaults)),
      narrator_([directory = std::move(voiceDirectory)] { return loadVoice(directory); }) {
    connect(&narrator_, &Narrator::firstChunkPlayed, this, [](qint64 milliseconds, qint64 ids) {
        log::info("first audio after " + std::to_string(milliseconds) + " ms (" +
                  std::to_string(ids) + " ids)");
    });
    connect(&narrator_, &Narrator::synthesised, this, &Speech::utteranceSynthesised);
    connect(&narrator_, &Narrator::heard, this, &Speech::utteranceHeard);
    connect(&narrator_, &Narrator::voiceFailed, this, [this](const QString& description) {
        utteranceFailed("speak failed: " + description.toStdString());
    });
    connect(&narrator_, &Narrator::soundFailed, this, [this](const QString& description) {
        utteranceFailed("audio output: " + description.toStdString());
    });
}

Speech::~Speech() = default;

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

void Speech::load() {
    if (hasVoice_) {
        setPhase(Phase::ready);
        return;
    }
    setPhase(Phase::loading);
    setNotice(std::nullopt);
    if (loadUnderWay_) {
        return;
    }
    loadUnderWay_ = true;
    narrator_.load([this](const Narrator::LoadResult& result) { loaded(result); });
}

void Speech::loaded(const Narrator::LoadResult& result) {
    loadUnderWay_ = false;
    if (result.error) {
        setPhase(Phase::failed);
        log::error(logSource, "load failed: " + *result.error);
        return;
    }
    hasVoice_ = true;
    emit voiceChanged();
    setPhase(Phase::ready);
    log::info("voice ready in " + std::to_string(result.milliseconds) + " ms");
}

void Speech::speak() {
    if (phase_ != Phase::ready || !canSpeak() || !hasVoice_) {
        return;
    }
    setNotice(std::nullopt);
    try {
        cancel_ = narrator_.speak(text_.toStdString(), speed_);
    } catch (const std::exception& error) {
        setNotice(Notice::failed());
        log::error(logSource, std::string("audio output: ") + error.what());
        return;
    }
    emit cancelChanged();
    setPhase(Phase::speaking);
}

void Speech::utteranceSynthesised(qint64 samples) {
    if (phase_ == Phase::speaking && samples == 0) {
        setPhase(Phase::ready);
        setNotice(Notice::empty());
    }
}

void Speech::utteranceHeard() {
    if (phase_ == Phase::speaking) {
        setPhase(Phase::ready);
    }
}

void Speech::utteranceFailed(const std::string& message) {
    if (phase_ != Phase::speaking) {
        return;
    }
    // The narrator has ended the speech; what has been heard stays heard.
    emit cancelChanged();
    setPhase(Phase::ready);
    setNotice(Notice::failed());
    log::error(logSource, message);
}

void Speech::stop() {
    if (phase_ != Phase::speaking) {
        return;
    }
    narrator_.stop();
    emit cancelChanged();
    setPhase(Phase::ready);
}

void Speech::save(const std::filesystem::path& destination) {
    if (phase_ != Phase::ready || !canSpeak() || !hasVoice_) {
        return;
    }
    setPhase(Phase::saving);
    setNotice(std::nullopt);
    narrator_.save(text_.toStdString(), speed_, destination,
                   [this, destination](const Narrator::SaveResult& result) {
                       saveEnded(destination, result);
                   });
}

void Speech::saveEnded(const std::filesystem::path& destination,
                       const Narrator::SaveResult& result) {
    setPhase(Phase::ready);
    if (result.error) {
        setNotice(Notice::saveFailed());
        log::error(logSource, "save failed: " + *result.error);
    } else if (result.samples == 0) {
        setNotice(Notice::empty());
    } else {
        setNotice(Notice::saved(QString::fromStdString(destination.filename().string())));
    }
}

}  // namespace murmela
