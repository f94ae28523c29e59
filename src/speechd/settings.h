#pragma once
// The speech parameters speech-dispatcher sets (SET), and what they mean for the voice.

#include <string>
#include <string_view>

namespace murmela::speechd {

enum class PunctuationMode { none, some, most, all };

struct Settings {
    int rate = 0;      // -100 … 100, 0 normal
    int volume = 100;  // -100 … 100, 100 the voice's own level
    PunctuationMode punctuation = PunctuationMode::none;
    bool spelling = false;
    std::string synthesisVoice;  // the voice asked for by name; empty when none is
    std::string language;        // the language asked for; empty when none is
};

enum class SettingOutcome { applied, badSyntax, invalid };

// Applies one "name=value" line to `settings`. Parameters these voices have no use for (pitch,
// the voice type, capital-letter recognition, …) are accepted and change nothing; an unknown
// name or a value out of range is invalid and changes nothing.
SettingOutcome applySetting(Settings& settings, std::string_view line);

// The voice's speed for a rate: 1 at 0, rising to 3 at 100 and falling to 0.5 at -100, by
// equal ratios per step on each side, because a rate step should sound the same size wherever
// it is taken.
double speedForRate(int rate);

// The factor samples are scaled by: 1 at volume 100, silence at -100.
float gainForVolume(int volume);

}  // namespace murmela::speechd
