#include "audio/audio_switches.h"

#include <cstdlib>
#include <string_view>

namespace murmela {
namespace {

bool environmentIs(const char* name, std::string_view value) {
    const char* set = std::getenv(name);
    return set != nullptr && value == set;
}

}  // namespace

bool audioSwitchedOff() {
    static const bool off = environmentIs("MURMELA_AUDIO", "none");
    return off;
}

bool muteSwitchedOn() {
    static const bool muted = environmentIs("MURMELA_MUTE", "1");
    return muted;
}

}  // namespace murmela
