#pragma once
// Process-wide switches for automated runs, read from the environment once, on first use.

namespace murmela {

// MURMELA_AUDIO=none: no audio device at all; playing time is only simulated.
bool audioSwitchedOff();

// MURMELA_MUTE=1: the device plays as usual, at volume 0.
bool muteSwitchedOn();

}  // namespace murmela
