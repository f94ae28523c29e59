#include "frontend/phonemizer.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>

#include "files/read_file.h"
#include "frontend/normalise.h"
#include "frontend/pieces.h"
#include "frontend/symbols.h"
#include "frontend/unicode.h"
#include "frontend/word_tables.h"
#include "logging/log.h"

namespace murmela {
namespace {

// Roman numeral signs and circled Latin letters: espeak-ng reads them badly or not at all.
// U+2183 and U+2184 (reversed C) are ordinary letters and stay.
bool isUnspeakable(char32_t c) {
    return (c >= 0x2160 && c <= 0x2182) || (c >= 0x2185 && c <= 0x2188) ||
           (c >= 0x24B6 && c <= 0x24E9);
}

// Hands `ids` to `each` in chunks of at most maxChunkIds, halving recursively; false once
// `each` has asked to stop.
bool forEachChunk(std::span<const int64_t> ids, std::optional<int64_t> comma,
                  std::optional<int64_t> space,
                  const std::function<bool(std::vector<int64_t>)>& each) {
    if (ids.empty()) {
        return true;
    }
    if (ids.size() <= Phonemizer::maxChunkIds) {
        return each(std::vector<int64_t>(ids.begin(), ids.end()));
    }
    const size_t cut = Phonemizer::splitIndex(ids, comma, space);
    return forEachChunk(ids.first(cut), comma, space, each) &&
           forEachChunk(ids.subspan(cut), comma, space, each);
}

std::function<bool(std::vector<int64_t>)> appendingTo(std::vector<std::vector<int64_t>>& chunks) {
    return [&chunks](std::vector<int64_t> chunk) {
        chunks.push_back(std::move(chunk));
        return true;
    };
}

}  // namespace

Phonemizer::Phonemizer(const std::filesystem::path& vocabURL, Espeak espeak)
    : vocab_(std::make_shared<const Vocabulary>(parseVocabulary(readFile(vocabURL)))),
      espeak_(espeak) {}

std::optional<int64_t> Phonemizer::id(std::u32string_view symbol) const {
    const auto found = vocab_->find(symbol);
    if (found == vocab_->end()) {
        return std::nullopt;
    }
    return found->second;
}

std::vector<int64_t> Phonemizer::ids(std::u32string_view phonemes) const {
    std::vector<int64_t> out;
    out.reserve(phonemes.size());
    for (size_t i = 0; i < phonemes.size();) {
        const size_t end = symbolEnd(phonemes, i);
        if (const auto found = vocab_->find(phonemes.substr(i, end - i)); found != vocab_->end()) {
            out.push_back(found->second);
        }
        i = end;
    }
    return out;
}

std::vector<std::u32string_view> Phonemizer::splitSymbols(std::u32string_view text) {
    std::vector<std::u32string_view> symbols;
    for (size_t i = 0; i < text.size();) {
        const size_t end = symbolEnd(text, i);
        symbols.push_back(text.substr(i, end - i));
        i = end;
    }
    return symbols;
}

size_t Phonemizer::splitIndex(std::span<const int64_t> ids, std::optional<int64_t> comma,
                              std::optional<int64_t> space) {
    const size_t count = ids.size();
    if (count < 2) {
        programmingError("splitting " + std::to_string(count) + " ids");
    }
    const size_t middle = count / 2;
    for (const std::optional<int64_t>& separator : {comma, space}) {
        if (!separator) {
            continue;
        }
        std::optional<size_t> nearest;
        size_t nearestDistance = 0;
        for (size_t position = 0; position < count; ++position) {
            if (ids[position] != *separator) {
                continue;
            }
            const size_t distance = position > middle ? position - middle : middle - position;
            if (!nearest || distance < nearestDistance) {  // strictly: a tie keeps the earlier
                nearest = position;
                nearestDistance = distance;
            }
        }
        if (nearest && *nearest + 1 < count) {
            return *nearest + 1;
        }
    }
    return middle;
}

std::vector<std::vector<int64_t>> Phonemizer::splitIds(std::span<const int64_t> ids,
                                                       std::optional<int64_t> comma,
                                                       std::optional<int64_t> space) {
    std::vector<std::vector<int64_t>> chunks;
    forEachChunk(ids, comma, space, appendingTo(chunks));
    return chunks;
}

bool Phonemizer::isPassThrough(std::u32string_view piece) {
    // The eight punctuation symbols are single scalars, and a mark or joiner would make a
    // symbol of its own that is none of them, so checking scalars checks symbols.
    return !piece.empty() && std::all_of(piece.begin(), piece.end(), [](char32_t c) {
        return isPassThroughPunctuation(std::u32string_view(&c, 1));
    });
}

std::vector<std::vector<int64_t>> Phonemizer::chunks(std::string_view text) const {
    std::vector<std::vector<int64_t>> result;
    chunks(text, appendingTo(result));
    return result;
}

void Phonemizer::chunks(std::string_view text,
                        const std::function<bool(std::vector<int64_t>)>& each) const {
    const std::optional<int64_t> commaId = id(U",");
    const std::optional<int64_t> spaceId = id(U" ");
    SentenceReader reader(text);
    while (const std::optional<std::u32string> sentence = reader.next()) {
        std::u32string out;
        for (const std::u32string& piece : pieces(*sentence)) {
            if (isPassThrough(piece)) {
                out.append(piece);  // punctuation sticks to the word before it
                continue;
            }
            const std::u32string phonemes =
                cleanPhonemes(espeak_.phonemes(blankUnspeakable(piece)));
            if (phonemes.empty()) {
                continue;
            }
            if (!out.empty() && out.back() != U' ') {
                out.push_back(U' ');
            }
            out.append(phonemes);
        }
        const std::vector<int64_t> sentenceIds = ids(trimmingWhitespace(out));
        if (!forEachChunk(sentenceIds, commaId, spaceId, each)) {
            return;
        }
    }
}

std::u32string blankUnspeakable(std::u32string_view text) {
    std::u32string out(text);
    for (char32_t& c : out) {
        if (isUnspeakable(c)) {
            c = U' ';
        }
    }
    return out;
}

}  // namespace murmela
