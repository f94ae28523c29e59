#include "app/speed.h"

#include <cmath>

namespace murmela {

double normalisedSpeed(double value) {
    if (!std::isfinite(value)) {
        return 1.0;
    }
    const double clamped = std::fmin(std::fmax(value, minimumSpeed), maximumSpeed);
    // std::round takes halves away from zero. The second rounding removes what the first
    // leaves behind (16 * 0.05 is 0.8000000000000002).
    const double stepped = std::round(clamped / speedStep) * speedStep;
    return std::round(stepped * 100.0) / 100.0;
}

double speedFromSetting(const std::optional<QVariant>& stored) {
    if (!stored) {
        return 1.0;
    }
    bool isNumber = false;
    const double value = stored->toDouble(&isNumber);
    return normalisedSpeed(isNumber ? value : 1.0);
}

}  // namespace murmela
