#pragma once
// The speaking speed: 0.75 to 1.5 in steps of 0.05, the only range the voice is made for.

#include <QVariant>

#include <optional>

namespace murmela {

constexpr double minimumSpeed = 0.75;
constexpr double maximumSpeed = 1.5;
constexpr double speedStep = 0.05;

// `value` brought into the range and onto a step, with no floating-point residue (0.8 is 0.8,
// not 0.8000000000000002). Not a number and the infinities become 1.0.
double normalisedSpeed(double value);

// The speed a stored setting stands for: 1.0 when there is none or it is not a number, else
// the number normalised.
double speedFromSetting(const std::optional<QVariant>& stored);

}  // namespace murmela
