#pragma once
// The voices the module offers speech-dispatcher, and which of them speaks for the parameters
// the server has set.

#include <cstddef>
#include <string>
#include <vector>

#include "speechd/settings.h"

namespace murmela::speechd {

// One voice as speech-dispatcher sees it.
struct OfferedVoice {
    std::string name;      // what LIST VOICES shows and `synthesis_voice` names; unique
    std::string language;  // a language tag, such as "en-US"
    std::string variant;   // "none" when the voice has none
};

// LIST VOICES' lines: name, language and variant, separated by tabs (which are taken out of
// the fields themselves, so that a line always has three).
std::vector<std::string> voiceListLines(const std::vector<OfferedVoice>& voices);

// The voice that speaks next, `current` speaking until now: the one `synthesis_voice` names (in
// any case); else, when a language is set that the current voice does not speak, the first that
// speaks it, or failing that the first of the same primary language; else the current one.
size_t chosenVoice(const std::vector<OfferedVoice>& voices, const Settings& settings,
                   size_t current);

}  // namespace murmela::speechd
