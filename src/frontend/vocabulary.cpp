#include "frontend/vocabulary.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "engine/voice_error.h"
#include "frontend/unicode.h"

namespace murmela {
namespace {

// A JSON number as an integer id: fractions are cut off, and values beyond the 64-bit range
// are held at its ends rather than left undefined.
int64_t integerValue(const nlohmann::json& number) {
    constexpr int64_t max = std::numeric_limits<int64_t>::max();
    constexpr int64_t min = std::numeric_limits<int64_t>::min();
    if (number.is_number_integer() && !number.is_number_unsigned()) {
        return number.get<int64_t>();
    }
    if (number.is_number_unsigned()) {
        const uint64_t value = number.get<uint64_t>();
        return value > static_cast<uint64_t>(max) ? max : static_cast<int64_t>(value);
    }
    const double value = std::trunc(number.get<double>());
    // 2^63 is exact as a double; anything at or beyond it does not fit.
    if (value >= 9223372036854775808.0) {
        return max;
    }
    if (value < -9223372036854775808.0) {
        return min;
    }
    return static_cast<int64_t>(value);
}

}  // namespace

Vocabulary parseVocabulary(std::string_view json) {
    const nlohmann::json root = nlohmann::json::parse(json);
    if (!root.is_object()) {
        throw VoiceError::damaged("vocab");
    }
    const auto inner = root.find("vocab");
    const nlohmann::json& table = inner != root.end() && inner->is_object() ? *inner : root;
    Vocabulary vocabulary;
    for (const auto& [name, value] : table.items()) {
        if (value.is_number()) {
            vocabulary.insert_or_assign(decodeUtf8(name), integerValue(value));
        }
    }
    if (vocabulary.empty()) {
        throw VoiceError::damaged("vocab");
    }
    return vocabulary;
}

}  // namespace murmela
