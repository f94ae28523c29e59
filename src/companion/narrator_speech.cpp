#include "companion/narrator_speech.h"

namespace murmela::companion {

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

void NarratorSpeech::speak(std::string text, double speed) {
    narrator_.speak(std::move(text), speed);
}

bool NarratorSpeech::stop() {
    return narrator_.stop();
}

void NarratorSpeech::save(std::string text, double speed, std::filesystem::path destination,
                          std::function<void(Narrator::SaveResult)> done,
                          std::function<void()> checkDestination) {
    narrator_.save(std::move(text), speed, std::move(destination), std::move(done),
                   std::move(checkDestination));
}

}  // namespace murmela::companion
