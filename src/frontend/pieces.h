#pragma once
// Cutting one sentence into the pieces that are phonemised one by one, and rewriting the words
// that espeak-ng would otherwise read wrongly.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace murmela {

// The pieces of one sentence, in reading order: each run of words with no punctuation between
// them (quotes and brackets removed, words rewritten, joined by single spaces) and, as a piece
// of its own, each run of punctuation that follows a word. A run of two or more full stops
// becomes "…". The full stop of a dotted abbreviation ("Dr.", "e.g.") belongs to the word.
std::vector<std::u32string> pieces(std::u32string_view sentence);

// What espeak-ng should read instead of `word`, given the word just before it (when no
// punctuation separates them) and up to four words after it (up to the next punctuation);
// nothing when the word is fine as it is. Respells names, the pronoun "I" and dotted
// abbreviations, chooses a homograph's reading from its neighbours, reads years, and writes
// digits of other scripts as the digits espeak-ng reads in English.
std::optional<std::u32string> rewrite(std::u32string_view word,
                                      std::optional<std::u32string_view> previous,
                                      std::span<const std::u32string> following);

}  // namespace murmela
