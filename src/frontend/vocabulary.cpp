#include "frontend/vocabulary.h"

#include <nlohmann/json.hpp>

#include "common/voice_error.h"
#include "common/voice_format.h"
#include "frontend/unicode.h"

namespace murmela {

Vocabulary parseVocabulary(std::string_view json) {
    const nlohmann::json root = nlohmann::json::parse(json);
    if (!root.is_object()) {
        throw VoiceError::damaged("vocab");
    }
    const auto inner = root.find("vocab");
    const nlohmann::json& table = inner != root.end() && inner->is_object() ? *inner : root;
    Vocabulary vocabulary;
    for (const auto& [name, value] : table.items()) {
        if (const std::optional<int64_t> id = integerValue(value)) {
            vocabulary.insert_or_assign(decodeUtf8(name), *id);
        }
    }
    if (vocabulary.empty()) {
        throw VoiceError::damaged("vocab");
    }
    return vocabulary;
}

}  // namespace murmela
