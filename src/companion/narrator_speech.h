#pragma once
// The companion's speech: its tools speak and save through the narrator, with the installed
// voices.

#include <string>
#include <vector>

#include "app/narrator.h"
#include "companion/speech_tools.h"
#include "voices/voice_store.h"

namespace murmela::companion {

class NarratorSpeech : public Speech {
public:
    // `narrator`, which speaks with the default voice until told otherwise, must outlive this.
    NarratorSpeech(Narrator& narrator, VoiceLocations locations);

    void reportTo(Outcomes outcomes) override;
    std::vector<Voice> voices() override;
    void speak(std::string text, double speed, const std::string& voice) override;
    bool stop() override;
    void save(std::string text, double speed, const std::string& voice,
              std::filesystem::path destination, std::function<void(Narrator::SaveResult)> done,
              std::function<void()> checkDestination) override;

private:
    // Has the narrator speak with the voice `id` from its next job on.
    void use(const std::string& id);

    Narrator& narrator_;
    VoiceStore store_;
    VoiceListing listing_;  // as voices() last read it
    std::string current_;   // the id of the voice the narrator speaks with; empty: the default
};

}  // namespace murmela::companion
