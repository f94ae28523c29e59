#pragma once
// The model's phoneme vocabulary: symbol to token id, as read from "vocab.json".

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "frontend/scalars_hash.h"

namespace murmela {

using Vocabulary = std::unordered_map<std::u32string, int64_t, ScalarsHash, std::equal_to<>>;

// Reads the vocabulary from the text of a vocab.json: an object whose member "vocab", if that
// is an object, or else the object itself maps symbols to numbers. Members that are not
// numbers are skipped. Throws the JSON parser's errors as they are (nlohmann::json::parse_error
// for malformed JSON, out_of_range for a number beyond a double) and
// VoiceError::damaged("vocab") when the top level is not an object or no member is a number.
Vocabulary parseVocabulary(std::string_view json);

}  // namespace murmela
