#pragma once
// Rules every way of speaking shares, whatever program it runs in: the speeds each front door
// accepts and how samples become sound.

#include <cmath>
#include <cstdint>

namespace murmela {

// The speed a listener chooses in the window, on the command line and through the companion:
// the range the voice is made for (1 is normal, larger is faster).
inline constexpr double minimumSpeed = 0.75;
inline constexpr double maximumSpeed = 1.5;
inline constexpr const char* speedRangeText = "0.75 to 1.5";

// Screen readers ask for much slower and much faster speech than a reading listener does,
// and speech-dispatcher's rate scale spans both: its ends map here, beyond the voice's own
// range, because a screen-reader user would rather hear a rougher voice than no change.
inline constexpr double slowestScreenReaderSpeed = 0.5;
inline constexpr double fastestScreenReaderSpeed = 3.0;

// The parity mode compares implementations rather than pleasing a listener, so it takes any
// speed whose frame counts the engine can still compute: far below this range they outgrow
// what it counts, far above it every token gets the shortest length and nothing is measured.
inline constexpr double minimumParitySpeed = 0.01;
inline constexpr double maximumParitySpeed = 100.0;
inline constexpr const char* paritySpeedRangeText = "0.01 to 100";

// Samples leave the voice unclipped; every output clamps them to [-1, 1] before they become
// sound. fmin comes first because it turns NaN into full scale rather than passing it on.
inline float clampedSample(float sample) {
    return std::fmax(std::fmin(sample, 1.0f), -1.0f);
}

// A sample as 16-bit PCM: clamped, scaled by 32767 for both signs (so -32768 never occurs) and
// rounded half to even whatever the floating-point environment's rounding mode is.
int16_t pcm16Sample(float sample);

}  // namespace murmela
