#include "app/speech.h"

#include <algorithm>
#include <string>
#include <utility>

#include "app/render_work.h"
#include "app/settings.h"
#include "frontend/normalise.h"
#include "logging/log.h"
#include "voices/installed_voice.h"
#include "voices/voices_command.h"

namespace murmela {
namespace {

constexpr const char* logSource = "murmelaMain";
constexpr const char* speedKey = "speed";
constexpr const char* voiceKey = "voice";
const QString bundledId = QString::fromUtf8(VoiceStore::bundledId);

}  // namespace

Speech::Speech(SettingsStore defaults, std::optional<std::filesystem::path> voiceDirectory,
               QObject* parent)
    : QObject(parent),
      speed_(speedFromSetting(defaults.value(speedKey))),
      defaults_(std::move(defaults)),
      bundledDirectory_(std::move(voiceDirectory)),
      narrator_([directory = bundledDirectory_] { return loadVoice(directory); }) {
    locations_ = VoiceLocations::standard();
    if (bundledDirectory_) {
        locations_.bundled = bundledDirectory_;
    }
    readVoices();
    voiceId_ = bundledId;
    if (const std::optional<QVariant> chosen = defaults_.value(voiceKey)) {
        const QString id = chosen->toString();
        if (id != bundledId &&
            std::any_of(voices_.begin(), voices_.end(),
                        [&](const VoiceOption& voice) { return voice.id == id; })) {
            voiceId_ = id;
            useVoice(id);
        } else if (id != bundledId) {
            goneVoice_ = id;
        }
    }
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
    narrator_.load([this, generation = loadGeneration_](const Narrator::LoadResult& result) {
        loaded(result, generation);
    });
}

void Speech::readVoices() {
    // The bundled voice is offered even when it cannot be read: it is the one a load then
    // says is missing.
    voices_ = {{bundledId, QStringLiteral("Murmela"), QStringLiteral("en-US")}};
    added_.clear();
    for (InstalledVoice& voice : VoiceStore(locations_).list().voices) {
        if (voice.place == VoicePlace::bundled) {
            voices_.front().name = QString::fromStdString(voice.details.name);
            continue;
        }
        voices_.push_back({QString::fromStdString(voice.id),
                           QString::fromStdString(voice.details.name),
                           QString::fromStdString(voice.details.language)});
        added_.push_back(std::move(voice));
    }
}

void Speech::addVoice(std::vector<std::filesystem::path> sources) {
    if (phase_ != Phase::ready && phase_ != Phase::failed) {
        return;
    }
    const Phase before = phase_;
    setPhase(Phase::loading);
    setNotice(std::nullopt);
    VoicesOptions options;
    options.action = VoicesOptions::Action::add;
    for (const std::filesystem::path& source : sources) {
        options.sources.push_back(source.string());
    }
    auto ids = std::make_shared<std::vector<std::string>>();
    narrator_.runBetweenJobs(
        [ids, options, store = VoiceStore(locations_)] {
            *ids = murmela::addVoice(options, store);
        },
        [this, ids, before](const std::optional<std::string>& error) {
            if (error || ids->empty()) {
                setPhase(before);
                setNotice(Notice::voiceNotAdded(QString::fromStdString(error.value_or(""))));
                log::error(logSource, "voice not added: " + error.value_or(""));
                return;
            }
            readVoices();
            emit voicesChanged();
            setPhase(before);
            setVoiceId(QString::fromStdString(ids->front()));
        });
}

void Speech::useVoice(const QString& id) {
    for (size_t index = 0; index < added_.size(); ++index) {
        if (voices_[index + 1].id == id) {
            narrator_.useVoice([voice = added_[index]] { return openInstalledVoice(voice); });
            return;
        }
    }
    narrator_.useVoice([directory = bundledDirectory_] { return loadVoice(directory); });
}

void Speech::setVoiceId(const QString& id) {
    const bool installed = std::any_of(voices_.begin(), voices_.end(),
                                       [&](const VoiceOption& voice) { return voice.id == id; });
    // A save under way keeps its voice and its phase; the choice can be made again after it.
    if (!installed || id == voiceId_ || phase_ == Phase::saving) {
        return;
    }
    defaults_.setValue(voiceKey, id);
    voiceId_ = id;
    emit voiceIdChanged(voiceId_);
    stop();
    useVoice(id);
    const bool reload = hasVoice_ || loadUnderWay_ || phase_ == Phase::failed;
    hasVoice_ = false;
    emit voiceChanged();
    // A load under way opens the voice chosen before; its result no longer counts.
    ++loadGeneration_;
    loadUnderWay_ = false;
    goneVoice_.reset();
    if (reload) {
        load();
    }
}

void Speech::loaded(const Narrator::LoadResult& result, int generation) {
    if (generation != loadGeneration_) {
        return;
    }
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
    if (goneVoice_) {
        setNotice(Notice::voiceGone(*std::exchange(goneVoice_, std::nullopt)));
    }
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
