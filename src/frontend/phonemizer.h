#pragma once
// The model's phoneme vocabulary: symbol to token id, as read from "vocab.json".

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "frontend/espeak.h"
#include "frontend/unicode.h"

namespace murmela {

using Vocabulary = std::unordered_map<std::u32string, int64_t, ScalarsHash, std::equal_to<>>;

// Reads the vocabulary from the text of a vocab.json: an object whose member "vocab", if that
// is an object, or else the object itself maps symbols to numbers. Members that are not
// numbers are skipped. Throws the JSON parser's errors as they are (nlohmann::json::parse_error
// for malformed JSON, out_of_range for a number beyond a double) and
// VoiceError::damaged("vocab") when the top level is not an object or no member is a number.
Vocabulary parseVocabulary(std::string_view json);

// Phoneme symbols: one base scalar with the marks that follow it.
//
// A symbol is a scalar followed by every directly following mark (Mn, Mc, Me) or U+200D ZERO
// WIDTH JOINER; the scalar after a joiner starts a new symbol. The same rule cuts words,
// punctuation and phoneme strings, so a full stop carrying a mark is never taken for one.

constexpr char32_t zeroWidthJoiner = 0x200D;

// Whether the scalar at `index` begins a new symbol.
bool startsSymbol(std::u32string_view text, size_t index);

// Where the symbol that begins at `index` ends.
size_t symbolEnd(std::u32string_view text, size_t index);

// Where the symbol that ends at `end` (exclusive, end > 0) begins.
size_t symbolStart(std::u32string_view text, size_t end);

// How many symbols `text` has.
size_t symbolCount(std::u32string_view text);

// From text to the token ids the acoustic model reads.
//
// A text is normalised and cut into sentences, each sentence into pieces; espeak-ng turns the
// word pieces into IPA, two fix-up tables bring that to the model's symbols, and the
// vocabulary maps the symbols to ids, cut into chunks of at most 400 that never span two
// sentences. Nothing here fails on odd text: what can't be spoken is dropped.

// An immutable value; copies share the vocabulary, and any thread may use one.
class Phonemizer {
public:
    static constexpr size_t maxChunkIds = 400;

    // Loads the vocabulary file. Throws std::filesystem::filesystem_error when it can't be
    // read, the JSON parser's error (nlohmann::json::parse_error and the like) when it is not
    // JSON, and VoiceError::damaged("vocab") when it holds no table of ids.
    Phonemizer(const std::filesystem::path& vocabURL, Espeak espeak);
    Phonemizer(Vocabulary vocabulary, Espeak espeak);

    // The id chunks of a whole text, in reading order (none when nothing in it is speakable),
    // each handed to `each` as soon as its sentence has been phonemised, so that a caller can
    // start on the first before the rest of a long text is read. Stops, without phonemising
    // further, when `each` returns false.
    void chunks(std::string_view text, const std::function<bool(std::vector<int64_t>)>& each) const;

    // The id of one symbol, if the vocabulary has it.
    std::optional<int64_t> id(std::u32string_view symbol) const;

    // The ids of the symbols of `phonemes`; symbols outside the vocabulary are dropped.
    std::vector<int64_t> ids(std::u32string_view phonemes) const;

    // espeak-ng's IPA for one piece, brought to the model's symbols.
    static std::u32string cleanPhonemes(std::u32string_view phonemes);

    // The symbols of `text` (a scalar with the marks and joiners that follow it), as views
    // into it.
    static std::vector<std::u32string_view> splitSymbols(std::u32string_view text);

    // Where to cut ids in two (at least two of them): just after the comma nearest the middle
    // (count / 2; the earlier of two equally near), so that it ends the left part, else after
    // the space nearest it, else at the middle. A cut after the last id would leave nothing on
    // the right and is passed over. Chunking and the voice's splitting of a chunk too long for
    // the decoder both cut here.
    static size_t splitIndex(std::span<const int64_t> ids, std::optional<int64_t> comma,
                             std::optional<int64_t> space);

    // Cuts ids into chunks of at most maxChunkIds, halving recursively at splitIndex.
    static std::vector<std::vector<int64_t>> splitIds(std::span<const int64_t> ids,
                                                      std::optional<int64_t> comma,
                                                      std::optional<int64_t> space);

    // Whether a piece is punctuation that reaches the model as it is, unphonemised.
    static bool isPassThrough(std::u32string_view piece);

private:
    std::shared_ptr<const Vocabulary> vocab_;
    Espeak espeak_;
};

// How a sentence's phonemes are written: brought to the model's symbols by the fix-up tables, or
// espeak-ng's own IPA as it is (without the ties between the letters of one phoneme).
enum class PhonemeStyle { modelSymbols, espeakIpa };

// The phonemes of each sentence of `text`, in reading order: word pieces phonemised, the
// punctuation that reaches the model kept as it is, pieces joined by single spaces, trimmed (and
// empty when nothing in the sentence is speakable). Each is handed to `each` as soon as it is
// made; stops when `each` returns false.
void forEachSentence(const Espeak& espeak, std::string_view text, PhonemeStyle style,
                     const std::function<bool(std::u32string)>& each);

// `text` with every occurrence of `from` replaced by `to`, left to right, matches not
// overlapping; unchanged when `from` is empty or longer than `text`.
std::u32string replacing(std::u32string_view text, std::u32string_view from,
                         std::u32string_view to);

// `text` with the Roman numeral signs and circled Latin letters, which espeak-ng reads badly,
// turned into spaces; the length stays the same.
std::u32string blankUnspeakable(std::u32string_view text);

}  // namespace murmela
