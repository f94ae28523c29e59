#include "common/voice_format.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace murmela {

std::optional<int64_t> integerValue(const nlohmann::json& value) {
    constexpr int64_t max = std::numeric_limits<int64_t>::max();
    constexpr int64_t min = std::numeric_limits<int64_t>::min();
    if (value.is_number_unsigned()) {
        const uint64_t number = value.get<uint64_t>();
        return number > static_cast<uint64_t>(max) ? max : static_cast<int64_t>(number);
    }
    if (value.is_number_integer()) {
        return value.get<int64_t>();
    }
    if (!value.is_number_float()) {
        return std::nullopt;
    }
    const double number = std::trunc(value.get<double>());
    // 2^63 is exact as a double; anything at or beyond it does not fit.
    if (number >= 9223372036854775808.0) {
        return max;
    }
    if (number < -9223372036854775808.0) {
        return min;
    }
    return static_cast<int64_t>(number);
}

}  // namespace murmela
