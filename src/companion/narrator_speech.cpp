#include "companion/narrator_speech.h"

#include "voices/installed_voice.h"

namespace murmela::companion {

NarratorSpeech::NarratorSpeech(Narrator& narrator, VoiceLocations locations)
    : narrator_(narrator), store_(std::move(locations)) {}

void NarratorSpeech::reportTo(Outcomes outcomes) {
    QObject::connect(&narrator_, &Narrator::synthesised,
                     [report = outcomes.synthesised](qint64 samples) { report(samples); });
    QObject::connect(&narrator_, &Narrator::voiceFailed,
                     [report = outcomes.voiceFailed](const QString& description) {
                         report(description.toStdString());
                     });
    QObject::connect(&narrator_, &Narrator::soundFailed,
                     [report = outcomes.soundFailed](const QString& description) {
                         report(description.toStdString());
                     });
}

std::vector<Speech::Voice> NarratorSpeech::voices() {
    // Read anew for each call, so a voice added meanwhile counts.
    listing_ = store_.list();
    std::vector<Voice> voices;
    for (const InstalledVoice& voice : listing_.voices) {
        voices.push_back({voice.id, voice.details.name, voice.details.language,
                          std::string(kindName(voice.details.kind))});
    }
    return voices;
}

void NarratorSpeech::use(const std::string& id) {
    if (id == current_ || (current_.empty() && id == VoiceStore::bundledId)) {
        return;
    }
    if (const std::optional<InstalledVoice> voice = findVoice(listing_, id)) {
        narrator_.useVoice([voice = *voice] { return openInstalledVoice(voice); });
        current_ = id;
    }
}

void NarratorSpeech::speak(std::string text, double speed, const std::string& voice) {
    use(voice);
    narrator_.speak(std::move(text), speed);
}

bool NarratorSpeech::stop() {
    return narrator_.stop();
}

void NarratorSpeech::save(std::string text, double speed, const std::string& voice,
                          std::filesystem::path destination,
                          std::function<void(Narrator::SaveResult)> done,
                          std::function<void()> checkDestination) {
    use(voice);
    narrator_.save(std::move(text), speed, std::move(destination), std::move(done),
                   std::move(checkDestination));
}

}  // namespace murmela::companion
