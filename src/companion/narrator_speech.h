#pragma once
// The companion's speech: its tools speak and save through the narrator.

#include "app/narrator.h"
#include "companion/speech_tools.h"

namespace murmela::companion {

class NarratorSpeech : public Speech {
public:
    // `narrator` must outlive this.
    explicit NarratorSpeech(Narrator& narrator) : narrator_(narrator) {}

    void reportTo(Outcomes outcomes) override;
    void speak(std::string text, double speed) override;
    bool stop() override;
    void save(std::string text, double speed, std::filesystem::path destination,
              std::function<void(Narrator::SaveResult)> done,
              std::function<void()> checkDestination) override;

private:
    Narrator& narrator_;
};

}  // namespace murmela::companion
